#include "printer/device.h"

#include "printer/paths.h"
#include "printer/printer.h"

#include <zeq/system.h>

#include <QDebug>
#include <QFile>
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
    // next boot empties /tmp.
    if (!QFile::exists(paths::lpinfoCache()))
        zeq::System::ExecShell(QStringLiteral("lpinfo -v >") + paths::lpinfoCache());

    QFile cache(paths::lpinfoCache());
    if (cache.open(QIODevice::ReadOnly | QIODevice::Text)) {
        QTextStream in(&cache);
        const QString found = scanForDirectUsb(in);
        if (!found.isEmpty())
            device = found;
        cache.close();
    }
    qDebug().noquote() << "Printer::GetPrinterDevice - device:" << device;
    return device;
}
