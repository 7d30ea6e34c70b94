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

QString modeText(const struct stat &st)
{
    return QStringLiteral("%1").arg(st.st_mode & 07777, 4, 8, QLatin1Char('0'));
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
        return QStringLiteral("writable by others (mode %1)").arg(modeText(st));
    if (st.st_nlink != 1)
        return QStringLiteral("has %1 names (hard links)").arg(st.st_nlink);
    return QString();
}

// Opens path for reading when it is a regular file of at most maxBytes bytes (and, for
// Trust::Ours, a trusted one); returns the descriptor, with its fstat in *st, or -1.
// For -1, result->status and result->reason say why (Missing has no reason).
int openFile(const QString &path, Trust trust, qint64 maxBytes, struct stat *st, ReadResult *result)
{
    const QByteArray name = QFile::encodeName(path);
    // O_NONBLOCK: opening a named pipe with no writer would otherwise wait forever.
    int flags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    if (trust == Trust::Ours)
        flags |= O_NOFOLLOW;
    const int fd = ::open(name.constData(), flags);
    if (fd < 0) {
        if (errno == ENOENT) {
            result->status = ReadResult::Missing;
        } else {
            result->status = ReadResult::Refused;
            result->reason = errno == ELOOP && trust == Trust::Ours
                                 ? QStringLiteral("a symbolic link")
                                 : errnoText(errno);
        }
        return -1;
    }
    QString reason;
    if (::fstat(fd, st) != 0)
        reason = errnoText(errno);
    else if (!S_ISREG(st->st_mode))
        reason = QStringLiteral("not a regular file");
    else if (trust == Trust::Ours)
        reason = untrustedReason(*st);
    if (reason.isEmpty() && st->st_size > maxBytes)
        reason = tooLarge(maxBytes);
    if (reason.isEmpty())
        return fd;
    ::close(fd);
    result->status = ReadResult::Refused;
    result->reason = reason;
    return -1;
}

ReadResult openForStream(const QString &path, Trust trust, qint64 maxBytes, QFile *file,
                         QIODevice::OpenMode mode)
{
    ReadResult result;
    struct stat st;
    const int fd = openFile(path, trust, maxBytes, &st, &result);
    if (fd >= 0) {
        if (file->open(fd, mode | QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
            result.status = ReadResult::Ok;
        } else {
            result.status = ReadResult::Refused;
            result.reason = file->errorString();
            ::close(fd);
        }
    }
    if (result.status == ReadResult::Refused)
        reportUnreadable(path, result.reason);
    return result;
}

ReadResult readWhole(const QString &path, Trust trust, qint64 maxBytes)
{
    ReadResult result;
    struct stat st;
    const int fd = openFile(path, trust, maxBytes, &st, &result);
    if (fd < 0)
        return result;
    // The size can change while we read, so the cap is enforced on what is read too.
    QByteArray data;
    data.reserve(int(st.st_size));
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 || data.size() + n > maxBytes) {
            result.status = ReadResult::Refused;
            result.reason = n < 0 ? errnoText(errno) : tooLarge(maxBytes);
            ::close(fd);
            return result;
        }
        if (n == 0)
            break;
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
        return QStringLiteral("writable by others (mode %1)").arg(modeText(st));
    return QString();
}

// Walks folder's path from the root down, checking each part; with make, a missing part
// is made first (exactly 0755, whatever the umask; should chmod fail, 0700 is just as
// safe). EEXIST means the part was there already, or someone was quicker, and the check
// decides either way.
FolderState walkFolder(const QString &folder, bool make, QString *reason)
{
    QStringList chain{QStringLiteral("/")};
    QString path;
    for (const QString &part : folder.split(QLatin1Char('/'), Qt::SkipEmptyParts))
        chain.append(path += QLatin1Char('/') + part);
    for (int i = 0; i < chain.size(); ++i) {
        int mkdirError = ENOENT;
        if (make) {
            const QByteArray name = QFile::encodeName(chain.at(i));
            if (::mkdir(name.constData(), 0700) == 0)
                ::chmod(name.constData(), 0755);
            else
                mkdirError = errno;
        }
        bool missing = false;
        const QString fault = folderFault(chain.at(i), i == chain.size() - 1, &missing);
        if (missing) {
            if (make)
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

// Makes path a new file of ours: whatever stands there is removed (unlink() removes a
// link itself, never what it points to) and the file is created with
// O_CREAT|O_EXCL|O_NOFOLLOW. Returns the descriptor for writing, or -1 with the reason.
int openFresh(const QByteArray &name, int mode, QString *reason)
{
    if (::unlink(name.constData()) != 0 && errno != ENOENT) {
        *reason = errnoText(errno);
        return -1;
    }
    const int fd = ::open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                          mode_t(mode));
    if (fd < 0)
        *reason = errnoText(errno);
    return fd;
}

// Makes path afresh and writes data into it. With exact, the file is first made
// readable by us alone and then given exact's owner, group and mode, before any data is
// written; without, it is made with createMode under the umask.
bool writeFresh(const QString &path, const QByteArray &data, QString *reason, int createMode,
                const FileAttributes *exact, QString *warning)
{
    const QByteArray name = QFile::encodeName(path);
    const int fd = openFresh(name, exact ? 0600 : createMode, reason);
    if (fd < 0)
        return false;
    int error = 0;
    if (exact) {
        if ((exact->ownerId >= 0 || exact->groupId >= 0) &&
            ::fchown(fd, uid_t(exact->ownerId), gid_t(exact->groupId)) != 0)
            *warning = QStringLiteral("cannot give %1 to user %2, group %3: %4")
                           .arg(path)
                           .arg(exact->ownerId)
                           .arg(exact->groupId)
                           .arg(errnoText(errno));
        // After fchown, which may clear the set-id bits.
        if (::fchmod(fd, mode_t(exact->mode & 07777)) != 0)
            error = errno;
    }
    if (!error)
        error = writeAll(fd, data);
    // Some file systems report a full disk or a failing device only when the data is
    // flushed, so the file counts as written only after fsync.
    if (!error && ::fsync(fd) != 0)
        error = errno;
    if (::close(fd) != 0 && !error)
        error = errno;
    if (!error)
        return true;
    *reason = errnoText(error);
    ::unlink(name.constData()); // our own file: nothing half-written stays behind
    return false;
}

} // namespace

ReadResult readRegularFile(const QString &path, qint64 maxBytes)
{
    return readWhole(path, Trust::Any, maxBytes);
}

ReadResult readRegularFileReporting(const QString &path, qint64 maxBytes)
{
    return reported(path, readRegularFile(path, maxBytes));
}

ReadResult openRegularFileReporting(const QString &path, qint64 maxBytes, QFile *file,
                                    QIODevice::OpenMode mode)
{
    return openForStream(path, Trust::Any, maxBytes, file, mode);
}

ReadResult readTrustedFile(const QString &path, qint64 maxBytes)
{
    return readWhole(path, Trust::Ours, maxBytes);
}

ReadResult readTrustedFileReporting(const QString &path, qint64 maxBytes)
{
    return reported(path, readTrustedFile(path, maxBytes));
}

ReadResult openTrustedFileReporting(const QString &path, qint64 maxBytes, QFile *file,
                                    QIODevice::OpenMode mode)
{
    return openForStream(path, Trust::Ours, maxBytes, file, mode);
}

FolderState examineFolder(const QString &folder, QString *reason)
{
    return walkFolder(folder, false, reason);
}

FolderState makeTrustedFolder(const QString &folder, QString *reason)
{
    return walkFolder(folder, true, reason);
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

bool createFreshFile(const QString &path, QString *reason, int mode)
{
    const int fd = openFresh(QFile::encodeName(path), mode, reason);
    if (fd < 0)
        return false;
    ::close(fd);
    return true;
}

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

int writeAll(int fd, const QByteArray &data)
{
    const char *next = data.constData();
    qint64 left = data.size();
    while (left > 0) {
        const ssize_t n = ::write(fd, next, size_t(left));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) // a write of nothing without an error would loop forever: a full disk
            return n < 0 ? errno : ENOSPC;
        next += n;
        left -= n;
    }
    return 0;
}

} // namespace fileio
