#include "zeq/persistentproperties.h"

#include <QDir>
#include <QFile>

#include <sys/stat.h>

namespace zeq {

PersistentProperties::PersistentProperties(bool writing)
    : m_writing(writing)
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
    if (m_writing) {
        setRaw(key, value);
        return;
    }
    const auto it = m_values.constFind(key);
    value = it == m_values.constEnd() ? defaultValue : *it;
}

void PersistentProperties::AccessBoolean(const QString &key, bool &value, bool defaultValue)
{
    if (m_writing) {
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
    // Hidden files count: a record saved under an empty name is the file ".pr". The
    // pattern is matched case-sensitively, so "Upper.PR" is not a "*.pr" file.
    const QStringList names =
        dir.entryList(QStringList{pattern},
                      QDir::Files | QDir::System | QDir::Hidden | QDir::CaseSensitive, QDir::Name);
    for (const QString &name : names) {
        // Only regular files, reached directly or through a link: no pipes, devices,
        // sockets or broken links.
        const QString path = dir.filePath(name);
        struct stat st;
        if (::stat(QFile::encodeName(path).constData(), &st) == 0 && S_ISREG(st.st_mode))
            paths.append(path);
    }
    return paths;
}

} // namespace zeq
