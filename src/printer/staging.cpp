#include "printer/staging.h"

#include "printer/paths.h"

#include <fileio/regularfile.h>

bool stagingFolderIsOurs(const QString &refusal)
{
    // Missing means the folder could not be made (a full disk): then no one else could
    // make it either, and a command on it fails harmlessly.
    QString reason;
    if (fileio::makeTrustedFolder(paths::stagingFolder(), &reason) != fileio::FolderState::Foreign)
        return true;
    fileio::report(refusal + QLatin1String(": ") + reason);
    return false;
}
