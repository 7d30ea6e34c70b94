#pragma once

#include "printer/printer.h"
#include "support/sandbox.h"

#include <QHash>
#include <QStringList>

// Printer records in tests: the map's owner, comparing records, an empty registry.

// Holds a printer map as Printer::GetPrinters() returns it and deletes its records when
// it goes out of scope: the map's holder owns them.
struct PrinterMap
{
    QHash<QString, Printer *> printers = Printer::GetPrinters();

    PrinterMap() = default;
    ~PrinterMap() { qDeleteAll(printers); }
    PrinterMap(const PrinterMap &) = delete;
    PrinterMap &operator=(const PrinterMap &) = delete;

    Printer *byName(const QString &name) const
    {
        for (Printer *p : printers) {
            if (p->name == name)
                return p;
        }
        return nullptr;
    }
    // The records' names in the map's own iteration order.
    QStringList names() const
    {
        QStringList list;
        for (auto it = printers.cbegin(); it != printers.cend(); ++it)
            list << it.value()->name;
        return list;
    }
    // The records in the map's own iteration order.
    QList<Printer *> inOrder() const
    {
        QList<Printer *> list;
        for (auto it = printers.cbegin(); it != printers.cend(); ++it)
            list << it.value();
        return list;
    }
};

// A record with just a name and a device address, as device detection reads it.
inline Printer printerWithUri(const QString &name, const QString &uri)
{
    Printer p;
    p.name = name;
    p.device_uri = uri;
    return p;
}

// The raw text driver; a printer with it gets the plain-text test page.
const QString rawTextPpd = QStringLiteral("/usr/share/ppd/std1/Generic/-Generic-Text-Only-Raw.ppd");

// A receipt printer on the raw text driver, every field filled.
inline Printer receiptPrinter()
{
    Printer p;
    p.name = QStringLiteral("Receipts");
    p.printer_class = QStringLiteral("direct");
    p.model = QStringLiteral("TM-T88V");
    p.device_uri = QStringLiteral("usb://EPSON/TM-T88V?serial=123");
    p.ppd = rawTextPpd;
    p.win_driver = QStringLiteral("EPSON TM-T88V Receipt");
    p.paper_size = QStringLiteral("A4");
    return p;
}

// The settings page the receipt printer's test page carries, as written to
// /tmp/prtestinfo.
const QByteArray receiptPrinterSettings =
    "\tName:\t\tReceipts\r\n\r\n"
    "\tClass:\t\tdirect\r\n\r\n"
    "\tModel:\t\tTM-T88V\r\n\r\n"
    "\tDevice:\t\tusb://EPSON/TM-T88V?serial=123\r\n\r\n"
    "\tCups Driver:\t/usr/share/ppd/std1/Generic/-Generic-Text-Only-Raw.ppd\r\n\r\n"
    "\tWindows Driver:\tEPSON TM-T88V Receipt\r\n\r\n"
    "\tPaper Size:\tA4\r\n\r\n"
    "\r\n\x0c";

// A local PostScript printer with its path in the registry set from its name.
inline Printer postScriptPrinter(const QString &name)
{
    Printer p;
    p.name = name;
    p.printer_class = QStringLiteral("direct");
    p.device_uri = QStringLiteral("usb:/dev/usb/lp0");
    p.ppd = QStringLiteral("/usr/share/ppd/cups-included/postscript.ppd");
    p.paper_size = QStringLiteral("A4");
    p.UpdatePath();
    return p;
}

// A network printer at uri (the real-scheduler sandbox's loopback printer), with driver ppd.
inline Printer loopbackPrinter(const QString &name, const QString &ppd, const QString &uri)
{
    Printer p;
    p.name = name;
    p.printer_class = QStringLiteral("network");
    p.model = QStringLiteral("Loopback");
    p.device_uri = uri;
    p.ppd = ppd;
    p.win_driver = QStringLiteral("Generic / Text Only");
    p.paper_size = QStringLiteral("A4");
    return p;
}

// The record's eight stored values as "key=value" texts, to compare two records field by
// field in one check.
inline QStringList recordFields(const Printer &p)
{
    return {QStringLiteral("name=") + p.name,
            QStringLiteral("class=") + p.printer_class,
            QStringLiteral("model=") + p.model,
            QStringLiteral("device_uri=") + p.device_uri,
            QStringLiteral("ppd=") + p.ppd,
            QStringLiteral("win_driver=") + p.win_driver,
            QStringLiteral("paper_size=") + p.paper_size,
            QStringLiteral("default_vdi_printer=") +
                (p.default_vdi_printer ? QStringLiteral("true") : QStringLiteral("false"))};
}

// Forgets every stored printer and the process-wide default name.
inline void resetRegistry()
{
    sandbox::removePath(QStringLiteral("/tmp/config"));
    Printer::setDefaultPrinterName(QString());
}
