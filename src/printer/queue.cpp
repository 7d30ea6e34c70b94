#include "printer/printer.h"

#include "printer/device.h"
#include "printer/shell.h"
#include "printer/staging.h"

#include "common/paths.h"
#include "common/report.h"

#include <unistd.h>

void Printer::Install()
{
    // The address goes between single quotes into a command run as root. A USB address
    // came from a device's description of itself; one that could leave the quotes is not
    // put into the command that creates the queue (the wizard refuses it before it gets
    // here). What the administrator typed for a network printer goes as typed.
    if (mayInstallDeviceUri(device_uri)) {
        // The command is built piece by piece; the two spaces after "lpadmin" and the
        // unquoted queue name are how the device has always issued it, and are kept.
        QString command = commands::lpadmin() + QLatin1Char(' ');
        command += QStringLiteral(" -p %1").arg(name);
        command += QStringLiteral(" -D '%1'").arg(name);
        command += QStringLiteral(" -v '%1'").arg(device_uri);
        command += QStringLiteral(" -P '%1'").arg(ppd);
        command += QStringLiteral(" -E");
        shell::run(command);

        usleep(500000); // give the scheduler time to settle before it is asked to accept jobs
    } else {
        // Nothing was asked of the scheduler, so there is nothing to wait for.
        diagnostic::report(
            QStringLiteral("not creating the queue ") + name,
            QStringLiteral("its device address holds a quote or a control character"));
    }

    // Accepting jobs and setting the default carry nothing from the device, and run
    // whatever became of the queue's creation, as they do when lpadmin fails.
    shell::run(commands::cupsaccept() + QLatin1Char(' ') + name);
    SetCupsDefault();
}

void Printer::Uninstall()
{
    shell::run(QStringLiteral("%1 -x %2").arg(commands::lpadmin(), name));
    // The staged copy is removed only from a staging folder that no one else controls.
    if (!stagingFolderIsOurs(QStringLiteral("not using ") + paths::stagingFolder()))
        return;
    shell::run(commands::rm() + QLatin1Char(' ') + paths::stagingFolder() + QLatin1Char('/') +
               name + QLatin1String(".ppd"));
}

void Printer::SetCupsDefault()
{
    if (IsDefault())
        shell::run(QStringLiteral("%1 -d %2").arg(commands::lpadmin(), name));
}
