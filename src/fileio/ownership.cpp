#include "fileio/ownership.h"

#include <cstring>
#include <unistd.h>

namespace fileio {
namespace ownership {

QString errnoText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

QString modeText(const struct stat &st)
{
    return QStringLiteral("%1").arg(st.st_mode & 07777, 4, 8, QLatin1Char('0'));
}

bool ownedByUs(const struct stat &st)
{
    return st.st_uid == 0 || st.st_uid == ::geteuid();
}

bool writableByOthers(const struct stat &st)
{
    return (st.st_mode & S_IWOTH) != 0 || ((st.st_mode & S_IWGRP) != 0 && st.st_gid != 0);
}

} // namespace ownership
} // namespace fileio
