#include "regularfile.h"

#include <QFile>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fileio {

namespace {

QString errnoText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

QString tooLarge(qint64 maxBytes)
{
    return QStringLiteral("larger than %1 bytes").arg(maxBytes);
}

} // namespace

int openRegularFile(const QString &path, QString *reason)
{
    reason->clear();
    const QByteArray name = QFile::encodeName(path);
    // O_NONBLOCK: opening a named pipe with no writer would otherwise wait forever.
    const int fd = ::open(name.constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        if (errno != ENOENT)
            *reason = errnoText(errno);
        return -1;
    }
    struct stat st;
    if (::fstat(fd, &st) != 0) {
        *reason = errnoText(errno);
        ::close(fd);
        return -1;
    }
    if (!S_ISREG(st.st_mode)) {
        *reason = QStringLiteral("not a regular file");
        ::close(fd);
        return -1;
    }
    return fd;
}

ReadResult openRegularFileReporting(const QString &path, qint64 maxBytes, QFile *file,
                                    QIODevice::OpenMode mode)
{
    ReadResult result;
    const int fd = openRegularFile(path, &result.reason);
    if (fd < 0) {
        result.status = result.reason.isEmpty() ? ReadResult::Missing : ReadResult::Refused;
    } else {
        struct stat st;
        if (::fstat(fd, &st) != 0) {
            result.status = ReadResult::Refused;
            result.reason = errnoText(errno);
            ::close(fd);
        } else if (st.st_size > maxBytes) {
            result.status = ReadResult::Refused;
            result.reason = tooLarge(maxBytes);
            ::close(fd);
        } else if (!file->open(fd, mode | QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
            result.status = ReadResult::Refused;
            result.reason = file->errorString();
            ::close(fd);
        } else {
            result.status = ReadResult::Ok;
        }
    }
    if (result.status == ReadResult::Refused)
        reportUnreadable(path, result.reason);
    return result;
}

ReadResult readRegularFile(const QString &path, qint64 maxBytes)
{
    ReadResult result;
    const int fd = openRegularFile(path, &result.reason);
    if (fd < 0) {
        result.status = result.reason.isEmpty() ? ReadResult::Missing : ReadResult::Refused;
        return result;
    }
    struct stat st;
    if (::fstat(fd, &st) == 0 && st.st_size > maxBytes) {
        ::close(fd);
        result.status = ReadResult::Refused;
        result.reason = tooLarge(maxBytes);
        return result;
    }
    // The size can change while we read, so the cap is enforced on what is read too.
    QByteArray data;
    data.reserve(int(st.st_size));
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            result.status = ReadResult::Refused;
            result.reason = errnoText(errno);
            ::close(fd);
            return result;
        }
        if (n == 0)
            break;
        if (data.size() + n > maxBytes) {
            ::close(fd);
            result.status = ReadResult::Refused;
            result.reason = tooLarge(maxBytes);
            return result;
        }
        data.append(buffer, int(n));
    }
    ::close(fd);
    result.status = ReadResult::Ok;
    result.data = data;
    return result;
}

void report(const QString &message)
{
    std::fprintf(stderr, "printerconfig: %s\n", message.toLocal8Bit().constData());
}

void reportUnreadable(const QString &path, const QString &reason)
{
    std::fprintf(stderr, "printerconfig: ignoring %s: %s\n", QFile::encodeName(path).constData(),
                 reason.toLocal8Bit().constData());
}

ReadResult readRegularFileReporting(const QString &path, qint64 maxBytes)
{
    ReadResult result = readRegularFile(path, maxBytes);
    if (result.status == ReadResult::Refused)
        reportUnreadable(path, result.reason);
    return result;
}

bool createFreshFile(const QString &path, QString *reason)
{
    const QByteArray name = QFile::encodeName(path);
    // unlink() removes a link itself, never what it points to.
    if (::unlink(name.constData()) != 0 && errno != ENOENT) {
        *reason = errnoText(errno);
        return false;
    }
    const int fd =
        ::open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0) {
        *reason = errnoText(errno);
        return false;
    }
    ::close(fd);
    return true;
}

bool writeFreshFile(const QString &path, const QByteArray &data, QString *reason, int mode)
{
    const QByteArray name = QFile::encodeName(path);
    if (::unlink(name.constData()) != 0 && errno != ENOENT) {
        *reason = errnoText(errno);
        return false;
    }
    const int fd = ::open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                          mode_t(mode));
    if (fd < 0) {
        *reason = errnoText(errno);
        return false;
    }
    const char *next = data.constData();
    qint64 left = data.size();
    bool ok = true;
    while (ok && left > 0) {
        const ssize_t n = ::write(fd, next, size_t(left));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            // A write of nothing without an error would loop forever; treat it as full.
            *reason = errnoText(n < 0 ? errno : ENOSPC);
            ok = false;
            break;
        }
        next += n;
        left -= n;
    }
    // Some file systems report a full disk or a failing device only when the data is
    // flushed, so the file counts as written only after fsync.
    if (ok && ::fsync(fd) != 0) {
        *reason = errnoText(errno);
        ok = false;
    }
    if (::close(fd) != 0 && ok) {
        *reason = errnoText(errno);
        ok = false;
    }
    if (!ok)
        ::unlink(name.constData()); // our own file: nothing half-written stays behind
    return ok;
}

bool pathTaken(const QString &path)
{
    struct stat st;
    return ::lstat(QFile::encodeName(path).constData(), &st) == 0 || errno != ENOENT;
}

} // namespace fileio
