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

enum class Trust { Any, Ours };

bool ownedByUs(const struct stat &st)
{
    return st.st_uid == 0 || st.st_uid == ::geteuid();
}

// Nobody but the owner (us or root) and root's group may write.
bool writableByOthers(const struct stat &st)
{
    return (st.st_mode & S_IWOTH) != 0 || ((st.st_mode & S_IWGRP) != 0 && st.st_gid != 0);
}

QString untrustedReason(const struct stat &st)
{
    if (!ownedByUs(st))
        return QStringLiteral("owned by user %1").arg(st.st_uid);
    if (writableByOthers(st))
        return QStringLiteral("writable by others (mode %1)")
            .arg(st.st_mode & 07777, 4, 8, QLatin1Char('0'));
    if (st.st_nlink != 1)
        return QStringLiteral("has %1 names (hard links)").arg(st.st_nlink);
    return QString();
}

int openFile(const QString &path, Trust trust, QString *reason)
{
    reason->clear();
    const QByteArray name = QFile::encodeName(path);
    // O_NONBLOCK: opening a named pipe with no writer would otherwise wait forever.
    int flags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    if (trust == Trust::Ours)
        flags |= O_NOFOLLOW;
    const int fd = ::open(name.constData(), flags);
    if (fd < 0) {
        if (errno == ELOOP && trust == Trust::Ours)
            *reason = QStringLiteral("a symbolic link");
        else if (errno != ENOENT)
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
    if (trust == Trust::Ours) {
        *reason = untrustedReason(st);
        if (!reason->isEmpty()) {
            ::close(fd);
            return -1;
        }
    }
    return fd;
}

ReadResult openForStream(const QString &path, Trust trust, qint64 maxBytes, QFile *file,
                         QIODevice::OpenMode mode)
{
    ReadResult result;
    const int fd = openFile(path, trust, &result.reason);
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

ReadResult readWhole(const QString &path, Trust trust, qint64 maxBytes)
{
    ReadResult result;
    const int fd = openFile(path, trust, &result.reason);
    if (fd < 0) {
        result.status = result.reason.isEmpty() ? ReadResult::Missing : ReadResult::Refused;
        return result;
    }
    struct stat st;
    if (::fstat(fd, &st) != 0) {
        result.status = ReadResult::Refused;
        result.reason = errnoText(errno);
        ::close(fd);
        return result;
    }
    if (st.st_size > maxBytes) {
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
    result.attributes.mode = int(st.st_mode & 07777);
    result.attributes.ownerId = int(st.st_uid);
    result.attributes.groupId = int(st.st_gid);
    return result;
}

ReadResult reported(const QString &path, ReadResult result)
{
    if (result.status == ReadResult::Refused)
        reportUnreadable(path, result.reason);
    return result;
}

} // namespace

int openRegularFile(const QString &path, QString *reason)
{
    return openFile(path, Trust::Any, reason);
}

ReadResult openRegularFileReporting(const QString &path, qint64 maxBytes, QFile *file,
                                    QIODevice::OpenMode mode)
{
    return openForStream(path, Trust::Any, maxBytes, file, mode);
}

ReadResult openTrustedFileReporting(const QString &path, qint64 maxBytes, QFile *file,
                                    QIODevice::OpenMode mode)
{
    return openForStream(path, Trust::Ours, maxBytes, file, mode);
}

ReadResult readRegularFile(const QString &path, qint64 maxBytes)
{
    return readWhole(path, Trust::Any, maxBytes);
}

ReadResult readTrustedFile(const QString &path, qint64 maxBytes)
{
    return readWhole(path, Trust::Ours, maxBytes);
}

ReadResult readTrustedFileReporting(const QString &path, qint64 maxBytes)
{
    return reported(path, readTrustedFile(path, maxBytes));
}

namespace {

// Why the folder part at path may not be trusted, or an empty text. last: path is the
// folder asked about rather than one above it.
QString folderFault(const QString &path, bool last, bool *missing)
{
    struct stat st;
    if (::lstat(QFile::encodeName(path).constData(), &st) != 0) {
        *missing = errno == ENOENT;
        return *missing ? QString() : errnoText(errno);
    }
    if (S_ISLNK(st.st_mode))
        return QStringLiteral("a symbolic link");
    if (!S_ISDIR(st.st_mode))
        return QStringLiteral("not a folder");
    if (!ownedByUs(st))
        return QStringLiteral("owned by user %1").arg(st.st_uid);
    // A sticky folder above (/tmp) lets others add entries, never replace ours.
    if (writableByOthers(st) && ((st.st_mode & S_ISVTX) == 0 || last))
        return QStringLiteral("writable by others (mode %1)")
            .arg(st.st_mode & 07777, 4, 8, QLatin1Char('0'));
    return QString();
}

} // namespace

namespace {

// The folder's path and every path above it, from the root down.
QStringList folderChain(const QString &folder)
{
    QStringList chain{QStringLiteral("/")};
    QString path;
    for (const QString &part : folder.split(QLatin1Char('/'), Qt::SkipEmptyParts))
        chain.append(path += QLatin1Char('/') + part);
    return chain;
}

} // namespace

FolderState examineFolder(const QString &folder, QString *reason)
{
    const QStringList chain = folderChain(folder);
    for (int i = 0; i < chain.size(); ++i) {
        bool missing = false;
        const QString fault = folderFault(chain.at(i), i == chain.size() - 1, &missing);
        if (missing)
            return FolderState::Missing;
        if (!fault.isEmpty()) {
            *reason = QStringLiteral("%1 is %2").arg(chain.at(i), fault);
            return FolderState::Foreign;
        }
    }
    return FolderState::Ours;
}

FolderState makeTrustedFolder(const QString &folder, QString *reason)
{
    const QStringList chain = folderChain(folder);
    for (int i = 0; i < chain.size(); ++i) {
        const QByteArray name = QFile::encodeName(chain.at(i));
        // Made with exactly 0755, whatever the umask (should chmod fail, 0700 is just as
        // safe); EEXIST means it was there already, or someone was quicker, and the
        // check below decides.
        const bool made = ::mkdir(name.constData(), 0700) == 0;
        const int mkdirError = errno;
        if (made)
            ::chmod(name.constData(), 0755);
        bool missing = false;
        const QString fault = folderFault(chain.at(i), i == chain.size() - 1, &missing);
        if (missing) {
            *reason = QStringLiteral("%1: %2").arg(chain.at(i), errnoText(mkdirError));
            return FolderState::Missing;
        }
        if (!fault.isEmpty()) {
            *reason = QStringLiteral("%1 is %2").arg(chain.at(i), fault);
            return FolderState::Foreign;
        }
    }
    return FolderState::Ours;
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
    return reported(path, readRegularFile(path, maxBytes));
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

namespace {

// Makes path afresh (see createFreshFile) and writes data into it. With exact, the file
// is first made readable by us alone and then given exact's owner, group and mode,
// before any data is written; without, it is made with createMode under the umask.
bool writeFresh(const QString &path, const QByteArray &data, QString *reason, int createMode,
                const FileAttributes *exact, QString *warning)
{
    const QByteArray name = QFile::encodeName(path);
    if (::unlink(name.constData()) != 0 && errno != ENOENT) {
        *reason = errnoText(errno);
        return false;
    }
    const int fd = ::open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                          mode_t(exact ? 0600 : createMode));
    if (fd < 0) {
        *reason = errnoText(errno);
        return false;
    }
    bool ok = true;
    if (exact) {
        if ((exact->ownerId >= 0 || exact->groupId >= 0) &&
            ::fchown(fd, uid_t(exact->ownerId), gid_t(exact->groupId)) != 0)
            *warning = QStringLiteral("cannot give %1 to user %2, group %3: %4")
                           .arg(path)
                           .arg(exact->ownerId)
                           .arg(exact->groupId)
                           .arg(errnoText(errno));
        // After fchown, which may clear the set-id bits.
        if (::fchmod(fd, mode_t(exact->mode & 07777)) != 0) {
            *reason = errnoText(errno);
            ok = false;
        }
    }
    const char *next = data.constData();
    qint64 left = data.size();
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

} // namespace

bool writeFreshFile(const QString &path, const QByteArray &data, QString *reason, int mode)
{
    return writeFresh(path, data, reason, mode, nullptr, nullptr);
}

bool writeFreshFile(const QString &path, const QByteArray &data, QString *reason,
                    const FileAttributes &attributes, QString *warning)
{
    warning->clear();
    return writeFresh(path, data, reason, 0600, &attributes, warning);
}

bool pathTaken(const QString &path)
{
    struct stat st;
    return ::lstat(QFile::encodeName(path).constData(), &st) == 0 || errno != ENOENT;
}

} // namespace fileio
