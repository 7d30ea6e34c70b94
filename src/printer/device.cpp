#include "printer/device.h"

#include "printer/paths.h"
#include "printer/printer.h"

#include <fileio/regularfile.h>
#include <zeq/system.h>

#include <QBuffer>
#include <QDebug>
#include <QTextStream>

#include <cstdio>

namespace {
const QLatin1String directUsbPrefix("direct usb");
const int directPrefixLength = 7; // "direct "

// The device address ends up inside a single-quoted shell word ("lpadmin ... -v '%1'")
// and on a line of printers.conf. What a USB device reports about itself is not ours to
// trust, so an address with a quote, a blank or a control character is not used.
bool isUsableDeviceUri(const QString &uri)
{
    for (const QChar c : uri) {
        if (c == QLatin1Char('\'') || c.isSpace() || c.unicode() < 0x20 || c.unicode() == 0x7f)
            return false;
    }
    return true;
}

QString scanForDirectUsb(QTextStream &in)
{
    QString line;
    while (in.readLineInto(&line)) {
        if (!line.startsWith(directUsbPrefix))
            continue;
        const QString uri = line.mid(directPrefixLength);
        if (isUsableDeviceUri(uri))
            return uri;
        std::fprintf(stderr,
                     "printerconfig: ignoring a USB device address with unsafe characters\n");
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
} // namespace

QString firstDirectUsbDevice(const QString &lpinfoOutput)
{
    QString text = lpinfoOutput;
    QTextStream in(&text, QIODevice::ReadOnly);
    return scanForDirectUsb(in);
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
    // next boot empties /tmp. Whatever stands at the cache's path counts as the cache,
    // a link included, even one that points nowhere: the shell's redirect follows links,
    // and one planted in /tmp by another user must never receive root's output. Only
    // when nothing is there is the file made afresh by us and filled by lpinfo.
    const QString cache = paths::lpinfoCache();
    if (!fileio::pathTaken(cache)) {
        QString reason;
        if (fileio::createFreshFile(cache, &reason))
            zeq::System::ExecShell(commands::lpinfo() + QLatin1String(" -v >") + cache);
        else
            fileio::report(
                QStringLiteral("not running lpinfo: cannot create %1: %2").arg(cache, reason));
    }

    // Anything but a regular file of a sane size counts as a cache that cannot be read.
    const fileio::ReadResult read = fileio::readRegularFileReporting(cache, fileio::smallFileCap);
    if (read.ok()) {
        const QString found = scanCacheBytes(read.data);
        if (!found.isEmpty())
            device = found;
    }
    qDebug().noquote() << "Printer::GetPrinterDevice - device:" << device;
    return device;
}
