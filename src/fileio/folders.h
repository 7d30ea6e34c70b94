#pragma once

#include <QString>

// Folders the tool writes into, copies from or removes from, under /tmp where any user
// can make folders too.
namespace fileio {

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

} // namespace fileio
