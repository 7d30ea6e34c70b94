#pragma once

#include <QByteArray>
#include <QIODevice>
#include <QString>

class QFile;

// Reading and preparing files that someone else may have put in place. The tool runs as
// root and reads files under /tmp that any user can create, so a path may hold a named
// pipe (open() would block forever), a device (/dev/zero never ends), a folder or a file
// far larger than any real one. These helpers open without blocking, accept only regular
// files and stop at a size cap, so such a file counts as one that cannot be read.
namespace fileio {

// Size caps, each far above any real file of its kind.
constexpr qint64 smallFileCap = qint64(1) << 20;  // records, the style sheet, the lpinfo cache
constexpr qint64 ppdFileCap = qint64(16) << 20;   // a driver description
constexpr qint64 largeFileCap = qint64(64) << 20; // driver databases, printers.conf

// Who owns a file and who may use it, as the file system says (fstat).
struct FileAttributes
{
    int mode = 0644;  // the permission bits, 07777 at most
    int ownerId = -1; // -1: whoever makes the file
    int groupId = -1; // -1: the maker's group
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

// Reads the whole file at path if it is a regular file of at most maxBytes bytes.
// A file that does not exist is Missing; anything else that cannot be read is Refused.
ReadResult readRegularFile(const QString &path, qint64 maxBytes);

// For files read as a stream rather than whole: opens path if it is a regular file,
// refuses it when it is already larger than maxBytes, and otherwise hands the descriptor
// to file, opened with mode (ReadOnly, optionally Text), which then owns it. The result
// carries no data. A refused file is reported with reportUnreadable. The size is checked
// once, at opening: a caller that must not read past maxBytes while the file grows stops
// by itself (file->pos()).
ReadResult openRegularFileReporting(const QString &path, qint64 maxBytes, QFile *file,
                                    QIODevice::OpenMode mode = QIODevice::ReadOnly);

// Files and folders under /tmp that any user may have made. The tool trusts a file there
// only when it is a regular file owned by us (or root), with a single name, that no one
// else can write: a file another user made, or a link to one of root's own files, is
// never taken for ours. The group may write only when it is root's group.
//
// Reads the whole file at path as readRegularFile does, and refuses it unless it passes
// that test on the opened descriptor. A link standing at path itself is refused, not
// followed (O_NOFOLLOW).
ReadResult readTrustedFile(const QString &path, qint64 maxBytes);
// Like readTrustedFile, and reports a refused file with reportUnreadable.
ReadResult readTrustedFileReporting(const QString &path, qint64 maxBytes);
// Like openRegularFileReporting, for a trusted file as readTrustedFile defines it.
ReadResult openTrustedFileReporting(const QString &path, qint64 maxBytes, QFile *file,
                                    QIODevice::OpenMode mode = QIODevice::ReadOnly);

// Whether no one but us (or root) can change what lies in folder: every part of its
// path, from the root down, must be a real folder (not a link) owned by us or root and
// not writable by anyone else. The parts above folder may instead be sticky (as /tmp
// is), where others may add entries but not touch ours; folder itself may not.
enum class FolderState {
    Ours,    // every part exists and passes
    Missing, // the parts that exist pass, the rest does not exist (yet)
    Foreign  // a part fails; *reason names it and why
};
FolderState examineFolder(const QString &folder, QString *reason);

// Makes folder ours: creates its missing parts (mode 0755) one by one and checks each
// part, made now or found, as examineFolder does. A part that someone else makes between
// the check and our mkdir is found and checked like any other, so Ours means the whole
// path is ours and stays ours. Missing: a part could not be made (a full disk, say), so
// nobody else could have made it either; *reason says why. Foreign as for examineFolder.
FolderState makeTrustedFolder(const QString &folder, QString *reason);

// One line on standard error: "printerconfig: " and the message.
void report(const QString &message);

// One line on standard error: "printerconfig: ignoring PATH: REASON".
void reportUnreadable(const QString &path, const QString &reason);

// Like readRegularFile, and reports a refused file with reportUnreadable. A missing file
// is not reported: for every file the tool reads, absence is an ordinary state.
ReadResult readRegularFileReporting(const QString &path, qint64 maxBytes);

// Makes path a new, empty file of ours, for a shell command to write into: whatever
// stands there (a file, or a link planted to redirect the write) is removed first and
// the file is created with O_CREAT|O_EXCL|O_NOFOLLOW, with mode as its permissions (before
// the umask). Returns false, with the reason in *reason, when that cannot be done (for
// example a folder stands there).
bool createFreshFile(const QString &path, QString *reason, int mode = 0644);

// Writes data into path as a new file of ours, created as createFreshFile does. Every
// write, the flush to the disk (fsync) and the close are checked; on any failure the
// partial file is removed and false returned with the reason. Either a complete file
// stands at path afterwards or none of ours does. mode is the new file's permissions
// (before the umask).
bool writeFreshFile(const QString &path, const QByteArray &data, QString *reason, int mode = 0644);
// The same, and the new file gets exactly attributes' mode, owner and group (the umask
// does not apply), set before any data is written: a file that replaces another keeps
// who may read it. Should the owner or group not be settable (an unprivileged run), the
// file stays ours, with the mode, and *warning says so; that alone is no failure.
bool writeFreshFile(const QString &path, const QByteArray &data, QString *reason,
                    const FileAttributes &attributes, QString *warning);

// Writes all of data to fd, going on after interrupted and partial writes. Returns 0, or
// the errno of the failure (ENOSPC for a write that wrote nothing without an error).
int writeAll(int fd, const QByteArray &data);

} // namespace fileio
