#include "printer/usbqueues.h"

#include "common/paths.h"
#include "printer/device.h"
#include "printer/shell.h"

#include "common/report.h"
#include "fileio/freshfile.h"

#include <QDebug>

namespace usbqueues {

QList<QueueDevice> parseLpstatDevices(const QByteArray &lpstatOutput)
{
    static const QByteArray prefix("device for ");
    static const QByteArray separator(": ");
    QList<QueueDevice> devices;
    for (const QByteArray &line : lpstatOutput.split('\n')) {
        if (!line.startsWith(prefix))
            continue;
        const int colon = line.indexOf(separator, prefix.size());
        if (colon <= prefix.size())
            continue;
        QueueDevice device;
        device.queue = QString::fromUtf8(line.mid(prefix.size(), colon - prefix.size()));
        device.uri = QString::fromUtf8(line.mid(colon + separator.size()));
        devices += device;
    }
    return devices;
}

bool writeDeviceListCache(const QStringList &lines, QString *reason)
{
    const QString cache = paths::lpinfoCache();
    QByteArray data;
    int kept = 0;
    for (const QString &line : lines) {
        const QByteArray bytes = line.toUtf8() + '\n';
        if (data.size() + bytes.size() > deviceListCap)
            break;
        data += bytes;
        ++kept;
    }
    if (kept < lines.size())
        diagnostic::report(
            QStringLiteral("leaving %1 of %2 printers out of %3")
                .arg(lines.size() - kept)
                .arg(lines.size())
                .arg(cache),
            QStringLiteral("the device list holds %1 bytes at most").arg(deviceListCap));
    QString movedAside;
    const bool placed = fileio::placeFile(cache, data, 0600, reason, &movedAside);
    if (!movedAside.isEmpty())
        diagnostic::report(QStringLiteral("replacing ") + cache,
                           QStringLiteral("a folder, moved aside to ") + movedAside);
    return placed;
}

QStringList followAttachedPrinter(const QString &uri)
{
    QStringList changed;
    QByteArray listed;
    if (shell::runProgram({commands::lpstat(), QStringLiteral("-v")}, &listed) != 0) {
        diagnostic::report(QStringLiteral("not following the attached printer %1").arg(uri),
                           QStringLiteral("lpstat -v failed"));
        return changed;
    }
    for (const QueueDevice &device : parseLpstatDevices(listed)) {
        if (!isUsbDeviceUri(device.uri) || device.uri == uri)
            continue;
        qDebug().noquote() << "followAttachedPrinter -" << device.queue << "from" << device.uri
                           << "to" << uri;
        if (shell::runProgram({commands::lpadmin(), QStringLiteral("-p"), device.queue,
                               QStringLiteral("-v"), uri}) == 0)
            changed += device.queue;
    }
    return changed;
}

} // namespace usbqueues
