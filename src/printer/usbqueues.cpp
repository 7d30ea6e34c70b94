#include "printer/usbqueues.h"

#include "common/paths.h"
#include "printer/device.h"
#include "printer/printer.h"
#include "printer/shell.h"

#include "common/report.h"
#include "fileio/freshfile.h"

#include <QDebug>

namespace usbqueues {

namespace {

const QLatin1String directPrefix("direct ");
const QLatin1String usbScheme("usb://");

// Queue names as the scheduler compares them: ASCII letters without regard to case, every
// other character as it is.
bool sameQueueName(const QString &a, const QString &b)
{
    if (a.size() != b.size())
        return false;
    for (int i = 0; i < a.size(); ++i) {
        ushort x = a.at(i).unicode();
        ushort y = b.at(i).unicode();
        if (x >= 'A' && x <= 'Z')
            x += 'a' - 'A';
        if (y >= 'A' && y <= 'Z')
            y += 'a' - 'A';
        if (x != y)
            return false;
    }
    return true;
}

bool mayStandInTheList(const QString &uri)
{
    if (!uri.startsWith(usbScheme))
        return false;
    for (const QChar c : uri) {
        if (c.isSpace() || c.category() == QChar::Other_Control)
            return false;
    }
    return true;
}

} // namespace

QStringList deviceQueueNames()
{
    QStringList names;
    const QHash<QString, Printer *> printers = Printer::GetPrinters();
    for (const Printer *printer : printers) {
        if (isUsbDeviceUri(printer->device_uri) && !printer->GetName().isEmpty())
            names += printer->GetName();
    }
    qDeleteAll(printers);
    names.sort();
    return names;
}

QList<scheduler::Queue> deviceQueues(const QStringList &names,
                                     const QList<scheduler::Queue> &queues)
{
    QList<scheduler::Queue> own;
    QList<int> taken; // two records whose names differ only in case name one queue
    for (const QString &name : names) {
        for (int i = 0; i < queues.size(); ++i) {
            const scheduler::Queue &queue = queues.at(i);
            if (!sameQueueName(name, queue.name))
                continue;
            if (!taken.contains(i) && !queue.temporary && isUsbDeviceUri(queue.deviceUri)) {
                scheduler::Queue found = queue;
                found.name = name;
                own += found;
                taken += i;
            }
            break;
        }
    }
    return own;
}

bool isPrinting(const scheduler::Queue &queue, const QStringList &listed, int printersOnBus)
{
    return queue.processing && !queue.connecting && printersOnBus > listed.size() &&
           !listed.contains(queue.deviceUri);
}

namespace {
// The addresses of the queues that isPrinting on a printer that is not listed, each once,
// in the queues' order, where they may stand in the device list.
QStringList busyAddresses(const QList<scheduler::Queue> &queues, const QStringList &listed,
                          int printersOnBus)
{
    QStringList busy;
    for (const scheduler::Queue &queue : queues) {
        if (isPrinting(queue, listed, printersOnBus) && mayStandInTheList(queue.deviceUri) &&
            !busy.contains(queue.deviceUri))
            busy += queue.deviceUri;
    }
    return busy;
}
} // namespace

QStringList addressesOf(const QStringList &lines)
{
    QStringList uris;
    for (const QString &line : lines)
        uris += line.section(QLatin1Char(' '), 1);
    return uris;
}

QStringList withBusyPrinters(const QStringList &lines, const QList<scheduler::Queue> &queues,
                             int printersOnBus)
{
    QStringList list = lines;
    for (const QString &uri : busyAddresses(queues, addressesOf(lines), printersOnBus))
        list += directPrefix + uri;
    return list;
}

QString makeAndModel(const QString &uri)
{
    if (!uri.startsWith(usbScheme))
        return QString();
    return uri.mid(usbScheme.size()).section(QLatin1Char('?'), 0, 0);
}

QList<Move> movesToAttached(const QList<scheduler::Queue> &queues, const QStringList &listed,
                            int printersOnBus)
{
    const QStringList attached = listed + busyAddresses(queues, listed, printersOnBus);
    QList<Move> moves;
    if (attached.isEmpty())
        return moves;
    for (const scheduler::Queue &queue : queues) {
        if (isPrinting(queue, listed, printersOnBus) || attached.contains(queue.deviceUri))
            continue;
        QString target = attached.first();
        const QString model = makeAndModel(queue.deviceUri);
        if (!model.isEmpty()) {
            for (const QString &uri : attached) {
                if (makeAndModel(uri) == model) {
                    target = uri;
                    break;
                }
            }
        }
        moves += Move{queue.name, target};
    }
    return moves;
}

QStringList follow(const QList<Move> &moves)
{
    QStringList changed;
    for (const Move &move : moves) {
        qDebug().noquote() << "usbqueues::follow -" << move.queue << "to" << move.uri;
        if (shell::runProgram({commands::lpadmin(), QStringLiteral("-p"), move.queue,
                               QStringLiteral("-v"), move.uri}) == 0)
            changed += move.queue;
    }
    return changed;
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

} // namespace usbqueues
