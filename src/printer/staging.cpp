#include "printer/staging.h"

#include "printer/printer.h"
#include "printer/shell.h"

#include "common/paths.h"
#include "common/report.h"
#include "fileio/folders.h"
#include "fileio/freshfile.h"

namespace {

// The edited PPD is written by the shell's redirect into the world-writable /tmp (a
// redirect follows links) and then copied over the queue's PPD, so a file planted there
// could hand CUPS a driver of someone else's choosing. The file is therefore made afresh
// by us before the edit; when that cannot be done (or the name would reach outside /tmp)
// the edit and both copies are left out, with one line on standard error.
// The file stays readable by all (0644): it is a driver description with the paper size
// set, which holds no address or password and which the scheduler hands to any local
// client that asks for the queue's PPD. Its mode also reaches the copies made from it
// (a new queue PPD in /etc/cups/ppd, the staged copy), and CUPS's filters, running as
// user lp, must still read the queue's PPD.
bool makeScratchPpd(const QString &ppdFile)
{
    const QString scratch = paths::scratchFolder() + QLatin1Char('/') + ppdFile;
    QString reason;
    if (ppdFile.contains(QLatin1Char('/')))
        reason = QStringLiteral("the printer name holds a '/'");
    else if (fileio::makeFreshFile(scratch, {}, &reason))
        return true;
    diagnostic::report(QStringLiteral("not editing the queue's PPD"),
                       QStringLiteral("cannot create %1: %2").arg(scratch, reason));
    return false;
}

} // namespace

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

void stageQueuePpd(const Printer &printer)
{
    const QString ppdFile = printer.name + QLatin1String(".ppd");
    // A raw text queue has no page sizes to set, so its PPD is left alone and not staged.
    if (!printer.ppd.contains(paths::rawTextDriverMarker()) && makeScratchPpd(ppdFile)) {
        // No blank before the pipe and two before the redirection: the line has always
        // been issued this way. The paper size goes into the sed expression as it is.
        const QString queuePpd = paths::queuePpdFolder() + QLatin1Char('/') + ppdFile;
        const QString scratchPpd = paths::scratchFolder() + QLatin1Char('/') + ppdFile;
        QString command = commands::cat() + QLatin1Char(' ') + queuePpd;
        command += QLatin1String("| ");
        command += commands::sed();
        command += QLatin1String(" -e \"s/DefaultPageSize.*/DefaultPageSize: ");
        command += printer.paper_size;
        command += QLatin1String("/g\" ");
        command += QLatin1String(" >");
        command += scratchPpd;
        shell::run(command);
        shell::run(commands::cp() + QLatin1Char(' ') + scratchPpd + QLatin1Char(' ') +
                   paths::queuePpdFolder());
        // cp follows a link standing in the target folder.
        if (stagingFolderIsOurs(QStringLiteral("not staging ") + scratchPpd))
            shell::run(commands::cp() + QLatin1Char(' ') + scratchPpd + QLatin1Char(' ') +
                       paths::stagingFolder());
    }
}

void announceQueues()
{
    shell::run(commands::initIca());
    shell::run(commands::citrixCupsPrinter());
    waitForPrintService();
}

void waitForPrintService()
{
    shell::run(commands::waitForCups() + QLatin1Char('&'));
}
