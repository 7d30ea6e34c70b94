#include "app/configure.h"

#include "printer/device.h"
#include "printer/printer.h"
#include "printer/shell.h"
#include "printer/staging.h"

#include "common/paths.h"
#include "common/report.h"
#include "fileio/freshfile.h"

#include <QDebug>

namespace {

// Writes the rewritten printers.conf to the scratch file. Returns false when
// printers.conf cannot be read, which ends the run; *written tells whether the scratch
// file now holds the complete rewrite, the only case in which it may replace the
// original.
bool prepareScratchConf(const QString &uri, bool *written)
{
    *written = false;
    const fileio::ReadResult current = fileio::read(paths::printersConf(), {fileio::largeFileCap});
    if (!current.ok())
        return false;
    // A device address that would end or break its line is not written (the staged
    // file, copied back above, keeps its own). A quote is no harm here: no shell sees it.
    if (!fitsOnPrintersConfLine(uri)) {
        diagnostic::report(
            QStringLiteral("not rewriting the USB device lines of %1").arg(paths::printersConf()),
            QStringLiteral("the device address holds a line break or a control character"));
        return true;
    }
    QString reason;
    QString warning;
    // The scratch file is made afresh: whatever stands at its path in the world-writable
    // /tmp (a link planted to redirect our write, say) is removed first. It takes the
    // mode, owner and group of the file it replaces (the scheduler keeps it 0600 or 0640,
    // group lp: device URIs can hold passwords), and mv keeps them in /etc/cups.
    const QString scratch = paths::scratchPrintersConf();
    fileio::FreshFile file;
    file.data = rewriteUsbDeviceLines(current.data, uri);
    file.exact = &current.attributes;
    file.warning = &warning;
    if (fileio::makeFreshFile(scratch, file, &reason)) {
        *written = true;
        if (!warning.isEmpty())
            diagnostic::report(QStringLiteral("cannot give %1 to user %2, group %3")
                                   .arg(scratch)
                                   .arg(current.attributes.ownerId)
                                   .arg(current.attributes.groupId),
                               warning);
    } else {
        diagnostic::report(QStringLiteral("not replacing %1").arg(paths::printersConf()),
                           QStringLiteral("cannot write %1: %2").arg(scratch, reason));
    }
    return true;
}

} // namespace

QByteArray rewriteUsbDeviceLines(const QByteArray &conf, const QString &uri)
{
    const QByteArray replacement = QByteArrayLiteral("DeviceURI ") + uri.toLocal8Bit();
    QByteArray out;
    out.reserve(conf.size() + 1);
    const char *data = conf.constData();
    const int size = conf.size();
    int start = 0;
    while (start < size) {
        int end = conf.indexOf('\n', start);
        const int next = end < 0 ? size : end + 1;
        if (end < 0)
            end = size;
        // "\r\n" is a line end like "\n"; so is a carriage return as the very last byte.
        if (end > start && data[end - 1] == '\r')
            --end;
        const QByteArray line = QByteArray::fromRawData(data + start, end - start);
        if (line.startsWith("DeviceURI") && line.contains("usb"))
            out += replacement;
        else
            out.append(data + start, end - start);
        out += '\n';
        start = next;
    }
    return out;
}

int runConfigure()
{
    QHash<QString, Printer *> printers = Printer::GetPrinters();
    // The map owns its records.
    struct Owner
    {
        QHash<QString, Printer *> &map;
        ~Owner() { qDeleteAll(map); }
    } owner{printers};

    for (Printer *printer : qAsConst(printers)) {
        const QString uri = printer->GetPrinterDevice();
        qDebug().noquote() << "runConfigure - device:" << uri;
        // Every pass copies the staged files again and rewrites every USB device line
        // with this record's URI, so the record processed last decides. That is the
        // intended behaviour: a thin client has a single local printer port.
        // The staged files become CUPS's configuration.
        if (stagingFolderIsOurs(QStringLiteral("not copying from ") + paths::stagingFolder())) {
            const QString copy = commands::cp() + QLatin1Char(' ') + paths::stagingFolder();
            shell::run(copy + QLatin1String("/* ") + paths::cupsFolder());
            shell::run(copy + QLatin1String("/*.ppd ") + paths::queuePpdFolder());
        }
        bool written = false;
        if (!prepareScratchConf(uri, &written))
            return 0;
        // Only a complete file may replace printers.conf: a half-written one (a full
        // /tmp) would lose the printers CUPS knows.
        if (written)
            shell::run(commands::mv() + QLatin1Char(' ') + paths::scratchPrintersConf() +
                       QLatin1Char(' ') + paths::cupsFolder() + QLatin1Char('/'));
    }
    return 0;
}
