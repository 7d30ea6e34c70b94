#include "zeq/persistentproperties.h"

#include <QDir>
#include <QFile>

namespace zeq {

PersistentProperties::PersistentProperties(Mode mode)
    : m_mode(mode)
{
}

void PersistentProperties::setRaw(const QString &key, const QString &value)
{
    if (!m_values.contains(key))
        m_order.append(key);
    m_values.insert(key, value);
}

void PersistentProperties::AccessString(const QString &key, QString &value,
                                        const QString &defaultValue)
{
    if (m_mode == Write) {
        setRaw(key, value);
        return;
    }
    const auto it = m_values.constFind(key);
    value = it == m_values.constEnd() ? defaultValue : *it;
}

void PersistentProperties::AccessBoolean(const QString &key, bool &value, bool defaultValue)
{
    if (m_mode == Write) {
        setRaw(key, value ? QStringLiteral("true") : QStringLiteral("false"));
        return;
    }
    const auto it = m_values.constFind(key);
    if (it == m_values.constEnd())
        value = defaultValue;
    else if (*it == QLatin1String("true") || *it == QLatin1String("1"))
        value = true;
    else if (*it == QLatin1String("false") || *it == QLatin1String("0"))
        value = false;
    else
        value = defaultValue;
}

bool PersistentProperties::Remove(const QString &path)
{
    return !path.isEmpty() && QFile::remove(path);
}

QStringList PersistentProperties::EnumPropertyFiles(const QString &folder, const QString &pattern)
{
    QDir dir(folder);
    QStringList paths;
    const QStringList names = dir.entryList(QStringList{pattern}, QDir::Files, QDir::Name);
    paths.reserve(names.size());
    for (const QString &name : names)
        paths.append(dir.filePath(name));
    return paths;
}

} // namespace zeq
