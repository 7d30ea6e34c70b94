#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

namespace zeq {

// A set of key/value properties exchanged with a PersistentObject. When an object is
// loaded the Access* calls copy stored values (or the defaults) into the caller's
// variables; when it is committed they record the caller's values, in call order, for
// writing. Property sets are made by the library itself, when it loads or commits.
class PersistentProperties
{
public:
    void AccessString(const QString &key, QString &value, const QString &defaultValue);
    void AccessBoolean(const QString &key, bool &value, bool defaultValue);

    static bool Remove(const QString &path);
    // Paths of the regular files (or links to them) directly inside folder whose names
    // match the wildcard pattern (case-sensitive, hidden files included), sorted by name.
    static QStringList EnumPropertyFiles(const QString &folder, const QString &pattern);

protected:
    explicit PersistentProperties(bool writing);
    ~PersistentProperties() = default;
    PersistentProperties(const PersistentProperties &) = default;
    PersistentProperties &operator=(const PersistentProperties &) = default;

    void setRaw(const QString &key, const QString &value);

    bool m_writing;
    QHash<QString, QString> m_values;
    QStringList m_order;
};

} // namespace zeq
