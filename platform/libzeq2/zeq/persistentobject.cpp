#include "zeq/persistentobject.h"

#include "zeq/propertyformat.h"
#include "zeq/propertyset.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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

// No real record comes near this size.
constexpr qint64 recordCap = qint64(1) << 20;

// Reads the record at path into *data when it is a regular file of at most recordCap
// bytes. Opening does not block (a named pipe has no writer) and a file that grows while
// it is read is cut at the cap. Anything but a missing file that cannot be read is said
// on standard error and, like a missing one, gives false.
bool readRecord(const QString &path, QByteArray *data)
{
    const QByteArray name = QFile::encodeName(path);
    const int fd = ::open(name.constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        if (errno != ENOENT)
            std::fprintf(stderr, "libzeq2: ignoring %s: %s\n", name.constData(),
                         std::strerror(errno));
        return false;
    }
    struct stat st;
    const char *fault = nullptr;
    int error = 0;
    if (::fstat(fd, &st) != 0)
        error = errno;
    else if (!S_ISREG(st.st_mode))
        fault = "not a regular file";
    char buffer[65536];
    while (!fault && !error) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            error = errno;
        else if (data->size() + n > recordCap)
            fault = "larger than 1048576 bytes";
        else if (n == 0)
            break;
        else
            data->append(buffer, int(n));
    }
    ::close(fd);
    if (!fault && !error)
        return true;
    std::fprintf(stderr, "libzeq2: ignoring %s: %s\n", name.constData(),
                 fault ? fault : std::strerror(error));
    data->clear();
    return false;
}

bool writeWhole(int fd, const QByteArray &data)
{
    const char *next = data.constData();
    qint64 left = data.size();
    while (left > 0) {
        const ssize_t n = ::write(fd, next, size_t(left));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        next += n;
        left -= n;
    }
    return true;
}

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
        QByteArray data;
        if (readRecord(m_path, &data)) {
            propertyformat::parse(data, properties);
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
    // Readable by its owner only: a record holds a device address, which may carry a
    // password.
    bool written = ::fchmod(fd, 0600) == 0 && writeWhole(fd, data) && ::fsync(fd) == 0;
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
