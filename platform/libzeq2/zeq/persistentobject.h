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

    // Reads the file at the object's path and hands the properties to AccessProperties().
    // Only a regular file of at most 1 MiB is read, without blocking; anything else (a
    // pipe, a device, a folder, a larger file) is reported on standard error and, like
    // a missing file, gives an empty set, so every field takes its default.
    bool Load();
    // Writes every property to the object's path (or to the given path, leaving the
    // object's path unchanged). The file is replaced atomically: a crash leaves either
    // the old or the new file. It is readable by its owner only (0600). A missing parent
    // folder is created.
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
