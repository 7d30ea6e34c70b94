#include "printer/device.h"

#include "printer/printer.h"
#include "printer/shell.h"

#include "common/paths.h"
#include "common/report.h"
#include "fileio/freshfile.h"
#include "fileio/read.h"

#include <QBuffer>
#include <QDebug>
#include <QTextStream>

namespace {
const QLatin1String directUsbPrefix("direct usb");
const int directPrefixLength = 7; // "direct "

QString scanForDirectUsb(QTextStream &in)
{
    QString line;
    while (in.readLineInto(&line)) {
        if (line.startsWith(directUsbPrefix))
            return line.mid(directPrefixLength);
    }
    return QString();
}

// The cache's bytes read as the text file it always was (text mode, the locale's codec).
QString scanCacheBytes(QByteArray bytes)
{
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly | QIODevice::Text);
    QTextStream in(&buffer);
    return scanForDirectUsb(in);
}

// Makes the cache: a new, empty file of ours at its path, then filled by lpinfo through
// the shell's redirect (which keeps the file's mode). Returns false when the file cannot
// be made. The list names every device the backends found, network printers with their
// addresses included; the scheduler lets only administrators list devices, so the cache
// is readable by root only.
bool makeCache(const QString &cache)
{
    QString reason;
    if (!fileio::makeFreshFile(cache, {QByteArray(), 0600}, &reason)) {
        diagnostic::report(QStringLiteral("not running lpinfo"),
                           QStringLiteral("cannot create %1: %2").arg(cache, reason));
        return false;
    }
    shell::run(commands::lpinfo() + QLatin1String(" -v >") + cache);
    return true;
}
} // namespace

QString firstDirectUsbDevice(const QString &lpinfoOutput)
{
    QString text = lpinfoOutput;
    QTextStream in(&text, QIODevice::ReadOnly);
    return scanForDirectUsb(in);
}

bool isSafeDeviceUri(const QString &uri)
{
    for (const QChar c : uri) {
        if (c == QLatin1Char('\'') || c.category() == QChar::Other_Control)
            return false;
    }
    return true;
}

bool fitsOnPrintersConfLine(const QString &uri)
{
    for (const QChar c : uri) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7f)
            return false;
    }
    return true;
}

bool isUsbDeviceUri(const QString &uri)
{
    return uri.startsWith(QLatin1String("usb"));
}

bool mayInstallDeviceUri(const QString &uri)
{
    return !isUsbDeviceUri(uri) || isSafeDeviceUri(uri);
}

QString Printer::GetPrinterDevice() const
{
    const QString configured = device_uri;
    qDebug().noquote() << "Printer::GetPrinterDevice - configured device:" << configured
                       << "paper size:" << paper_size;
    if (!configured.isEmpty() && !configured.contains(QLatin1String("usb")))
        return configured;

    QString device = paths::fallbackUsbDevice();
    // "lpinfo -v" probes every backend and is slow, so its answer is kept until the
    // next boot empties /tmp. Any user can make a file at the cache's path first, and
    // what it says becomes a printer's address; so the cache is used only when it is a
    // regular file of ours that no one else can write. Anything else standing there is
    // removed (never followed: a planted link must not receive root's output) and the
    // cache is made afresh.
    const QString cache = paths::lpinfoCache();
    fileio::ReadRequest request;
    request.cap = deviceListCap;
    request.report = false; // the refusal is reported as the reason to replace it
    fileio::ReadResult read = fileio::read(cache, request);
    if (read.status == fileio::ReadResult::Refused)
        diagnostic::report(QStringLiteral("replacing ") + cache, read.reason);
    if (!read.ok() && makeCache(cache))
        read = fileio::read(cache, {deviceListCap});
    if (read.ok()) {
        const QString found = scanCacheBytes(read.data);
        if (!found.isEmpty())
            device = found;
    }
    qDebug().noquote() << "Printer::GetPrinterDevice - device:" << device;
    return device;
}
