#pragma once

#include <QByteArray>
#include <QIODevice>
#include <QString>

class QFile;

// Reading files that someone else may have put in place. The tool runs as root and reads
// files under /tmp that any user can create, so a path may hold a named pipe (open()
// would block forever), a device (/dev/zero never ends), a folder or a file far larger
// than any real one. A file is opened without blocking and accepted only when it is a
// regular file within a size cap; anything else counts as a file that cannot be read.
namespace fileio {

// Size caps, each far above any real file of its kind.
constexpr qint64 smallFileCap = qint64(1) << 20;  // the style sheet, the lpinfo cache
constexpr qint64 ppdFileCap = qint64(16) << 20;   // a driver description
constexpr qint64 largeFileCap = qint64(64) << 20; // driver databases, printers.conf

// Who owns a file and who may use it, as the file system says (fstat).
struct FileAttributes
{
    int mode = 0644;  // the permission bits, 07777 at most
    int ownerId = -1; // -1: whoever makes the file
    int groupId = -1; // -1: the maker's group
};

// Which files count as ours. A file of ours is a regular file owned by us (or root), with
// a single name, that no one else can write (the group only when it is root's), opened
// without following a link standing at the path (O_NOFOLLOW): a file another user made,
// or a link to one of root's own files, is never taken for ours.
enum class Trust {
    ByLocation, // ours when under /tmp (mustBeOurs), any regular file elsewhere
    Ours,       // always ours
    Any         // any regular file, links followed
};

// The one rule for where any user can make files: everything the tool reads under /tmp
// must be a file of ours.
bool mustBeOurs(const QString &path);

struct ReadRequest
{
    qint64 cap = smallFileCap;
    Trust trust = Trust::ByLocation;
    // Report a refused file: "printerconfig: ignoring PATH: REASON". A missing file is
    // never reported: for every file the tool reads, absence is an ordinary state.
    bool report = true;
    // To read the file as a stream rather than whole: the opened descriptor is handed to
    // this file (opened with streamMode plus ReadOnly), which then owns it, and the result
    // carries no data. The cap is checked once, at opening: a caller that must not read
    // past it while the file grows stops by itself (file->pos()).
    QFile *stream = nullptr;
    QIODevice::OpenMode streamMode = QIODevice::ReadOnly;
};

struct ReadResult
{
    enum Status { Ok, Missing, Refused };
    Status status = Missing;
    QByteArray data;
    QString reason;            // why it was refused, for the diagnostic line
    FileAttributes attributes; // of the file read, when Ok
    bool ok() const { return status == Ok; }
};

// Reads (or opens) the file at path as request asks. A file that does not exist is
// Missing; anything else that cannot be read, or is not trusted as asked, is Refused.
ReadResult read(const QString &path, const ReadRequest &request);

} // namespace fileio
