#include "fileio/freshfile.h"

#include "fileio/ownership.h"

#include <QFile>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fileio {

using namespace ownership;

bool makeFreshFile(const QString &path, const FreshFile &file, QString *reason)
{
    const QByteArray name = QFile::encodeName(path);
    if (::unlink(name.constData()) != 0 && errno != ENOENT) {
        *reason = errnoText(errno);
        return false;
    }
    // With exact attributes the file is readable by us alone until it has them.
    const int fd = ::open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                          mode_t(file.exact ? 0600 : file.mode));
    if (fd < 0) {
        *reason = errnoText(errno);
        return false;
    }
    int error = 0;
    if (const FileAttributes *exact = file.exact) {
        if ((exact->ownerId >= 0 || exact->groupId >= 0) &&
            ::fchown(fd, uid_t(exact->ownerId), gid_t(exact->groupId)) != 0 && file.warning)
            *file.warning = errnoText(errno);
        // After fchown, which may clear the set-id bits.
        if (::fchmod(fd, mode_t(exact->mode & 07777)) != 0)
            error = errno;
    }
    if (!error)
        error = writeAll(fd, file.data);
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

bool placeFile(const QString &path, const QByteArray &data, int mode, QString *reason,
               QString *movedAside)
{
    QByteArray temporary = QFile::encodeName(path) + ".XXXXXX";
    const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) {
        *reason = errnoText(errno);
        return false;
    }
    int error = 0;
    if (::fchmod(fd, mode_t(mode & 07777)) != 0)
        error = errno;
    if (!error)
        error = writeAll(fd, data);
    if (!error && ::fsync(fd) != 0)
        error = errno;
    if (::close(fd) != 0 && !error)
        error = errno;
    if (!error) {
        const QByteArray target = QFile::encodeName(path);
        if (::rename(temporary.constData(), target.constData()) == 0)
            return true;
        error = errno;
        if (error == EISDIR && ::renameat2(AT_FDCWD, temporary.constData(), AT_FDCWD,
                                           target.constData(), RENAME_EXCHANGE) == 0) {
            // The folder now stands at the temporary name; it goes to a name that says
            // what it is, when that is free, and stays where it is otherwise.
            const QByteArray aside = target + ".aside-" + temporary.right(6);
            const bool renamed = ::renameat2(AT_FDCWD, temporary.constData(), AT_FDCWD,
                                             aside.constData(), RENAME_NOREPLACE) == 0;
            if (movedAside)
                *movedAside = QFile::decodeName(renamed ? aside : temporary);
            return true;
        }
    }
    *reason = errnoText(error);
    ::unlink(temporary.constData());
    return false;
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
