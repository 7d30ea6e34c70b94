// printerconfig-usb: keeps the device list cache and the device's USB queues in step with
// the USB printers attached now. The package's units run it, people need not:
//   printerconfig-usb --cache   at boot, before the scheduler starts: writes the device
//                               list cache from the usb backend, so that the configure
//                               run that follows finds the attached printer without
//                               asking the scheduler
//   printerconfig-usb --follow  when a USB printer is plugged in: asks the scheduler
//                               where the queues of the registry's USB printers point,
//                               writes the cache (with a printer busy with a job, which
//                               the backend does not list but the kernel has on its bus),
//                               and points each queue whose printer is gone at an
//                               attached one
// Exit status: 0 done, 1 the device list could not be made, 2 a wrong command line.

#include "common/paths.h"
#include "discovery/usbdevices.h"
#include "printer/schedulerqueues.h"
#include "printer/usbqueues.h"

#include "common/report.h"

#include <QCoreApplication>
#include <QDebug>
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

// A hot-plug run lists the printers this many times at most.
constexpr int maxListings = 3;

// The usb backend's device lines and, for a hot-plug run (countBus), how many printers the
// kernel has on its buses just after the listing. The two are compared to tell a printer
// busy with a job from one that is gone, so they must describe one moment: when the
// kernel's count changed while the backend listed (a printer plugged in or out meanwhile;
// its own plug may have started this very run, and systemd does not start the unit again
// for it), the listing is made again.
bool listPrinters(bool countBus, QStringList *lines, int *printersOnBus, QString *reason)
{
    if (!countBus)
        return usbdevices::list(lines, reason);
    int before = usbdevices::printersOnBus(paths::usbDeviceFolder());
    for (int listing = 1;; ++listing) {
        if (!usbdevices::list(lines, reason))
            return false;
        *printersOnBus = usbdevices::printersOnBus(paths::usbDeviceFolder());
        if (*printersOnBus == before || listing == maxListings)
            return true;
        before = *printersOnBus;
    }
}

int run(bool follow)
{
    QStringList lines;
    int printersOnBus = 0;
    QString reason;
    if (!listPrinters(follow, &lines, &printersOnBus, &reason)) {
        diagnostic::report(QStringLiteral("cannot list the USB printers"), reason);
        return 1;
    }
    const QStringList listed = usbqueues::addressesOf(lines);
    if (follow)
        qDebug().noquote() << "printerconfig-usb --follow - printers on the bus:" << printersOnBus
                           << "listed:" << listed.size();
    QList<scheduler::Queue> queues;
    const bool asked = follow && askForDeviceQueues(&queues);
    lines = usbqueues::withBusyPrinters(lines, queues, printersOnBus);
    if (!usbqueues::writeDeviceListCache(lines, &reason))
        diagnostic::report(QStringLiteral("cannot write the device list cache"), reason);
    if (asked)
        usbqueues::follow(usbqueues::movesToAttached(queues, listed, printersOnBus));
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
