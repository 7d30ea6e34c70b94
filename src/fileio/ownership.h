#pragma once

#include <QString>

#include <sys/stat.h>

// What the readers and the folder check both ask of a file's status: who owns it and who
// else may change it.
namespace fileio {
namespace ownership {

QString errnoText(int error);
QString modeText(const struct stat &st);
// Owned by root or by the user the tool runs as.
bool ownedByUs(const struct stat &st);
// Writable by someone other than the owner (us or root) and root's group.
bool writableByOthers(const struct stat &st);

} // namespace ownership
} // namespace fileio
