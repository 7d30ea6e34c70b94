#pragma once

#include <QString>

namespace zeq {

class PersistentProperties;

// An object stored as one property file. Subclasses describe their fields once, in
// AccessProperties(), and the same function serves loading and committing: the
// property set passed in decides the direction.
class PersistentObject
{
public:
    PersistentObject();

    void set_path(const QString &path);
    QString path() const;

    // Reads the file at path() and hands a read-mode property set to AccessProperties().
    // A missing or unreadable file gives an empty set, so every field takes its default.
    bool Load();
    // Writes every property to path() (or to the given path, leaving path() unchanged).
    // The file is replaced atomically and a missing parent folder is created.
    bool Commit();
    bool Commit(const QString &path);
    bool Remove();

    virtual void AccessProperties(PersistentProperties &properties) = 0;

protected:
    // Records are deleted through their own type; the base is never deleted directly.
    ~PersistentObject() = default;
    PersistentObject(const PersistentObject &) = default;
    PersistentObject &operator=(const PersistentObject &) = default;

private:
    QString m_path;
};

} // namespace zeq
