#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

namespace zeq {

// A set of key/value properties exchanged with a PersistentObject. In read mode the
// Access* calls copy stored values (or the defaults) into the caller's variables; in
// write mode they record the caller's values, in call order, for writing.
class PersistentProperties
{
public:
    enum Mode { Read, Write };

    explicit PersistentProperties(Mode mode);

    Mode mode() const { return m_mode; }

    void AccessString(const QString &key, QString &value, const QString &defaultValue);
    void AccessBoolean(const QString &key, bool &value, bool defaultValue);

    // Raw access to the stored texts, for the file reader and writer.
    void setRaw(const QString &key, const QString &value);
    bool containsRaw(const QString &key) const { return m_values.contains(key); }
    QString raw(const QString &key) const { return m_values.value(key); }
    QStringList keys() const { return m_order; }

    static bool Remove(const QString &path);
    // Paths of the regular files (or links to them) directly inside folder whose names
    // match the wildcard pattern, sorted by name.
    static QStringList EnumPropertyFiles(const QString &folder, const QString &pattern);

private:
    Mode m_mode;
    QHash<QString, QString> m_values;
    QStringList m_order;
};

} // namespace zeq
