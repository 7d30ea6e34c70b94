#pragma once

#include "fileio/read.h"

#include <QByteArray>
#include <QString>

// Files the tool makes for itself or for a shell command to write into, in folders where
// others can make files too.
namespace fileio {

struct FreshFile
{
    QByteArray data; // what the new file holds; empty for a file a command will fill
    int mode = 0644; // its permissions, before the umask
    // When set, the file gets exactly these mode, owner and group instead (the umask does
    // not apply), set before any data is written: a file that replaces another keeps who
    // may read it. Should the owner or group not be settable (an unprivileged run), the
    // file stays ours, with the mode, and *warning receives the reason; that alone is no
    // failure.
    const FileAttributes *exact = nullptr;
    QString *warning = nullptr;
};

// Makes path a new file of ours holding file.data: whatever stands there (a file, or a
// link planted to redirect the write) is removed first (a link itself, never what it
// points to) and the file is created with O_CREAT|O_EXCL|O_NOFOLLOW. Every write, the
// flush to the disk (fsync) and the close are checked; on any failure the partial file
// is removed and false returned with the reason in *reason (a folder standing there, a
// full disk). Either a complete file stands at path afterwards or none of ours does.
bool makeFreshFile(const QString &path, const FreshFile &file, QString *reason);

// Puts a complete new file of ours holding data at path in one step: the data goes into a
// new file of ours beside it (a name of its own, O_CREAT|O_EXCL, with mode), written and
// flushed, which is then renamed to path. It takes the place of whatever entry stands at
// path: rename never follows a link standing there, and in a sticky folder such as /tmp
// the kernel lets only the entry's owner, the folder's owner or a process allowed to
// override that replace it. A folder, which rename cannot replace, is swapped with the new
// file in one step (renameat2 RENAME_EXCHANGE, so that nothing else can take path in
// between) and then renamed to a free name beside it, PATH.aside-XXXXXX, given in
// *movedAside: it is never opened, followed into or emptied. Returns false with the reason
// otherwise; nothing of ours stays behind then.
bool placeFile(const QString &path, const QByteArray &data, int mode, QString *reason,
               QString *movedAside = nullptr);

// Writes all of data to fd, going on after interrupted and partial writes. Returns 0, or
// the errno of the failure (ENOSPC for a write that wrote nothing without an error).
int writeAll(int fd, const QByteArray &data);

} // namespace fileio
