#include "fileio/folders.h"

#include "fileio/ownership.h"

#include <QFile>
#include <QStringList>

#include <cerrno>
#include <sys/stat.h>

namespace fileio {

using namespace ownership;

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

} // namespace

FolderState examineFolder(const QString &folder, QString *reason)
{
    return walkFolder(folder, false, reason);
}

FolderState makeTrustedFolder(const QString &folder, QString *reason)
{
    return walkFolder(folder, true, reason);
}

} // namespace fileio
