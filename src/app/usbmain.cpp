// printerconfig-usb: keeps the device list cache and the device's USB queues in step with
// the USB printers attached now. The package's units run it, people need not:
//   printerconfig-usb --cache   at boot, before the scheduler starts: writes the device
//                               list cache from the usb backend, so that the configure
//                               run that follows finds the attached printer without
//                               asking the scheduler
//   printerconfig-usb --follow  when a USB printer is plugged in: asks the scheduler
//                               where the queues of the registry's USB printers point,
//                               writes the cache (with a printer busy with a job, which
//                               the backend does not list), and points each queue whose
//                               printer is gone at an attached one
// Exit status: 0 done, 1 the device list could not be made, 2 a wrong command line.

#include "discovery/usbdevices.h"
#include "printer/schedulerqueues.h"
#include "printer/usbqueues.h"

#include "common/report.h"

#include <QCoreApplication>
#include <QStringList>

#include <cstdio>
#include <cstring>

namespace {

const char usage[] = "usage: printerconfig-usb --cache|--follow\n";

// The device's USB queues as the scheduler has them; false when there are records of USB
// printers but the scheduler cannot say where their queues point.
bool askForDeviceQueues(QList<scheduler::Queue> *queues)
{
    const QStringList names = usbqueues::deviceQueueNames();
    if (names.isEmpty())
        return true;
    QList<scheduler::Queue> all;
    QString reason;
    if (!scheduler::listQueues(&all, &reason)) {
        diagnostic::report(QStringLiteral("not following the attached printers"), reason);
        return false;
    }
    *queues = usbqueues::deviceQueues(names, all);
    return true;
}

int run(bool follow)
{
    QStringList lines;
    QString reason;
    if (!usbdevices::list(&lines, &reason)) {
        diagnostic::report(QStringLiteral("cannot list the USB printers"), reason);
        return 1;
    }
    QList<scheduler::Queue> queues;
    const bool asked = follow && askForDeviceQueues(&queues);
    lines = usbqueues::withBusyPrinters(lines, queues);
    if (!usbqueues::writeDeviceListCache(lines, &reason))
        diagnostic::report(QStringLiteral("cannot write the device list cache"), reason);
    if (asked) {
        QStringList attached;
        for (const QString &line : qAsConst(lines)) // "direct URI"
            attached += line.section(QLatin1Char(' '), 1);
        usbqueues::follow(usbqueues::movesToAttached(queues, attached));
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2 ||
        (std::strcmp(argv[1], "--cache") != 0 && std::strcmp(argv[1], "--follow") != 0)) {
        std::fputs(usage, stderr);
        return 2;
    }
    QCoreApplication app(argc, argv);
    return run(std::strcmp(argv[1], "--follow") == 0);
}
