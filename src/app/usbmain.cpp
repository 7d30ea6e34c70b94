// printerconfig-usb: keeps the device list cache and the USB queues in step with the USB
// printer attached now. The package's units run it, people need not:
//   printerconfig-usb --cache   at boot, before the scheduler starts: writes the device
//                               list cache from the usb backend, so that the configure
//                               run that follows finds the attached printer without
//                               asking the scheduler
//   printerconfig-usb --follow  when a USB printer is plugged in: the same, then points
//                               every USB queue at the first printer listed
// Exit status: 0 done, 1 the device list could not be made, 2 a wrong command line.

#include "discovery/usbdevices.h"
#include "printer/usbqueues.h"

#include "common/report.h"

#include <QCoreApplication>
#include <QStringList>

#include <cstdio>
#include <cstring>

namespace {

const char usage[] = "usage: printerconfig-usb --cache|--follow\n";

int run(bool follow)
{
    QStringList lines;
    QString reason;
    if (!usbdevices::list(&lines, &reason)) {
        diagnostic::report(QStringLiteral("cannot list the USB printers"), reason);
        return 1;
    }
    if (!usbqueues::writeDeviceListCache(lines, &reason))
        diagnostic::report(QStringLiteral("cannot write the device list cache"), reason);
    if (follow && !lines.isEmpty()) {
        // "direct URI": the printer the configure run would choose, the first one listed.
        const QString uri = lines.first().section(QLatin1Char(' '), 1);
        usbqueues::followAttachedPrinter(uri);
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
