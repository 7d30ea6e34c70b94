#include "zeq/persistentobject.h"

#include "zeq/persistentproperties.h"
#include "zeq/propertyformat.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace zeq {

PersistentObject::PersistentObject() = default;

void PersistentObject::set_path(const QString &path)
{
    m_path = path;
}

QString PersistentObject::path() const
{
    return m_path;
}

bool PersistentObject::Load()
{
    PersistentProperties properties(PersistentProperties::Read);
    QFile file(m_path);
    const bool opened = !m_path.isEmpty() && file.open(QIODevice::ReadOnly);
    if (opened)
        propertyformat::parse(file.readAll(), properties);
    AccessProperties(properties);
    return opened;
}

bool PersistentObject::Commit()
{
    return Commit(m_path);
}

bool PersistentObject::Commit(const QString &path)
{
    if (path.isEmpty())
        return false;
    PersistentProperties properties(PersistentProperties::Write);
    AccessProperties(properties);

    QDir().mkpath(QFileInfo(path).absolutePath());
    // QSaveFile writes a temporary file beside the target and renames it over the
    // target on commit, so a crash never leaves a half-written record behind.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    const QByteArray data = propertyformat::serialize(properties);
    if (file.write(data) != data.size()) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
}

bool PersistentObject::Remove()
{
    return PersistentProperties::Remove(m_path);
}

} // namespace zeq
