#include "fileio/read.h"

#include "common/paths.h"
#include "common/report.h"
#include "fileio/ownership.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fileio {

using namespace ownership;

namespace {

QString tooLarge(qint64 maxBytes)
{
    return QStringLiteral("larger than %1 bytes").arg(maxBytes);
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

// Opens path for reading when it is a regular file of at most maxBytes bytes (and, when
// ours is set, a file of ours); returns the descriptor, with its fstat in *st, or -1.
// For -1, result->status and result->reason say why (Missing has no reason).
int openFile(const QString &path, bool ours, qint64 maxBytes, struct stat *st, ReadResult *result)
{
    const QByteArray name = QFile::encodeName(path);
    // O_NONBLOCK: opening a named pipe with no writer would otherwise wait forever.
    int flags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    if (ours)
        flags |= O_NOFOLLOW;
    const int fd = ::open(name.constData(), flags);
    if (fd < 0) {
        if (errno == ENOENT) {
            result->status = ReadResult::Missing;
        } else {
            result->status = ReadResult::Refused;
            result->reason =
                errno == ELOOP && ours ? QStringLiteral("a symbolic link") : errnoText(errno);
        }
        return -1;
    }
    QString reason;
    if (::fstat(fd, st) != 0)
        reason = errnoText(errno);
    else if (!S_ISREG(st->st_mode))
        reason = QStringLiteral("not a regular file");
    else if (ours)
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

void handOver(int fd, const ReadRequest &request, ReadResult *result)
{
    if (request.stream->open(fd, request.streamMode | QIODevice::ReadOnly,
                             QFileDevice::AutoCloseHandle)) {
        result->status = ReadResult::Ok;
        return;
    }
    result->status = ReadResult::Refused;
    result->reason = request.stream->errorString();
    ::close(fd);
}

void readWhole(int fd, const struct stat &st, qint64 maxBytes, ReadResult *result)
{
    // The size can change while we read, so the cap is enforced on what is read too.
    QByteArray data;
    data.reserve(int(st.st_size));
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 || data.size() + n > maxBytes) {
            result->status = ReadResult::Refused;
            result->reason = n < 0 ? errnoText(errno) : tooLarge(maxBytes);
            ::close(fd);
            return;
        }
        if (n == 0)
            break;
        data.append(buffer, int(n));
    }
    ::close(fd);
    result->status = ReadResult::Ok;
    result->data = data;
    result->attributes.mode = int(st.st_mode & 07777);
    result->attributes.ownerId = int(st.st_uid);
    result->attributes.groupId = int(st.st_gid);
}

} // namespace

bool mustBeOurs(const QString &path)
{
    return path.startsWith(paths::scratchFolder() + QLatin1Char('/'));
}

ReadResult read(const QString &path, const ReadRequest &request)
{
    const bool ours =
        request.trust == Trust::Ours || (request.trust == Trust::ByLocation && mustBeOurs(path));
    ReadResult result;
    struct stat st;
    const int fd = openFile(path, ours, request.cap, &st, &result);
    if (fd >= 0) {
        if (request.stream)
            handOver(fd, request, &result);
        else
            readWhole(fd, st, request.cap, &result);
    }
    if (result.status == ReadResult::Refused && request.report)
        diagnostic::report(QStringLiteral("ignoring ") + path, result.reason);
    return result;
}

} // namespace fileio
