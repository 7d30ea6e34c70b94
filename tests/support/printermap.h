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
