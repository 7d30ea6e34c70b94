#include "zeq/persistentobject.h"

#include "fileio/regularfile.h"
#include "zeq/propertyformat.h"
#include "zeq/propertyset.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zeq {

namespace {

// A commit writes ".zeq-commit-<pid>-XXXXXX" beside its target and renames it over the
// target. The leading dot and the random end keep the temporary out of any pattern a
// caller enumerates ("*.pr"); the writer's process id tells a temporary that is still
// being written from one left behind by a writer that was killed.
const char temporaryPrefix[] = ".zeq-commit-";

QByteArray temporaryTemplate(const QString &folder)
{
    return QFile::encodeName(folder) + '/' + temporaryPrefix + QByteArray::number(getpid()) +
           "-XXXXXX";
}

// Removes the temporaries in folder whose writer no longer runs.
void removeStaleTemporaries(const QString &folder)
{
    static const QRegularExpression pattern(
        QStringLiteral("^\\.zeq-commit-(\\d{1,9})-[A-Za-z0-9]{6}$"));
    DIR *dir = ::opendir(QFile::encodeName(folder).constData());
    if (!dir)
        return;
    const pid_t self = ::getpid();
    while (const dirent *entry = ::readdir(dir)) {
        const QRegularExpressionMatch match = pattern.match(QFile::decodeName(entry->d_name));
        if (!match.hasMatch())
            continue;
        const pid_t writer = pid_t(match.captured(1).toInt());
        if (writer <= 0 || writer == self)
            continue;
        if (::kill(writer, 0) == 0 || errno != ESRCH)
            continue; // its writer may still be at work
        ::unlinkat(::dirfd(dir), entry->d_name, 0);
    }
    ::closedir(dir);
}

} // namespace

PersistentObject::PersistentObject() = default;

void PersistentObject::set_path(const QString &path)
{
    m_path = path;
}

bool PersistentObject::Load()
{
    PropertySet properties(PropertySet::Read);
    bool loaded = false;
    if (!m_path.isEmpty()) {
        const fileio::ReadResult file =
            fileio::readRegularFileReporting(m_path, fileio::smallFileCap);
        if (file.ok()) {
            propertyformat::parse(file.data, properties);
            loaded = true;
        }
    }
    AccessProperties(properties);
    return loaded;
}

bool PersistentObject::Commit()
{
    return Commit(m_path);
}

bool PersistentObject::Commit(const QString &path)
{
    if (path.isEmpty())
        return false;
    PropertySet properties(PropertySet::Write);
    AccessProperties(properties);
    const QByteArray data = propertyformat::serialize(properties);

    const QString folder = QFileInfo(path).absolutePath();
    QDir().mkpath(folder);
    removeStaleTemporaries(folder);

    // The temporary is complete and on disk before it replaces the target, so the
    // target always holds one whole record, the old or the new.
    QByteArray temporary = temporaryTemplate(folder);
    const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0)
        return false;
    bool written = ::fchmod(fd, 0644) == 0 && fileio::writeAll(fd, data) == 0 && ::fsync(fd) == 0;
    written = ::close(fd) == 0 && written;
    if (written && ::rename(temporary.constData(), QFile::encodeName(path).constData()) == 0)
        return true;
    ::unlink(temporary.constData());
    return false;
}

bool PersistentObject::Remove()
{
    return PersistentProperties::Remove(m_path);
}

} // namespace zeq
