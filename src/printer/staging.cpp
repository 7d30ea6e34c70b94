#include "printer/staging.h"

#include "printer/paths.h"

#include "common/report.h"
#include "fileio/folders.h"

bool stagingFolderIsOurs(const QString &refusal)
{
    // Missing means the folder could not be made (a full disk): then no one else could
    // make it either, and a command on it fails harmlessly.
    QString reason;
    if (fileio::makeTrustedFolder(paths::stagingFolder(), &reason) != fileio::FolderState::Foreign)
        return true;
    diagnostic::report(refusal, reason);
    return false;
}
