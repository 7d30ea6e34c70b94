#include "printer/printer.h"

#include "printer/paths.h"

#include <zeq/system.h>

#include <QFile>
#include <QTextStream>

namespace {
const char settingsFile[] = "/tmp/prtestinfo";
}

void Printer::PrintTestPage()
{
    if (!ppd.contains(paths::rawTextDriverMarker())) {
        zeq::System::ExecShell(QStringLiteral("lp -d %1 /usr/share/cups/data/test.ps").arg(name));
        return;
    }

    // A raw text printer cannot render the PostScript page, so it gets a plain-text
    // page listing its settings, behind CUPS's text printer preamble.
    QFile file(QString::fromLatin1(settingsFile));
    file.open(QIODevice::WriteOnly | QIODevice::Truncate);
    {
        QTextStream out(&file);
        out << QStringLiteral("\tName:\t\t%1\r\n\r\n").arg(name);
        out << QStringLiteral("\tClass:\t\t%1\r\n\r\n").arg(printer_class);
        out << QStringLiteral("\tModel:\t\t%1\r\n\r\n").arg(model);
        out << QStringLiteral("\tDevice:\t\t%1\r\n\r\n").arg(device_uri);
        out << QStringLiteral("\tCups Driver:\t%1\r\n\r\n").arg(ppd);
        out << QStringLiteral("\tWindows Driver:\t%1\r\n\r\n").arg(win_driver);
        out << QStringLiteral("\tPaper Size:\t%1\r\n\r\n").arg(paper_size);
        out << QStringLiteral("\r\n\f"); // eject the page
        out.flush();
    }
    file.close();

    zeq::System::ExecShell(
        QStringLiteral("cat /usr/share/cups/data/textonly.prn /tmp/prtestinfo > /tmp/prtest"));
    zeq::System::ExecShell(QStringLiteral("lp -d %1 /tmp/prtest").arg(name));
}
