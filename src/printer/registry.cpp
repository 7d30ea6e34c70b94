#include "printer/printer.h"

#include "printer/paths.h"

#include <zeq/persistentproperties.h>

#include <QDebug>

#include <memory>

QHash<QString, Printer *> Printer::GetPrinters()
{
    {
        auto entry = std::make_unique<Printer>();
        entry->set_path(paths::defaultEntry());
        if (!entry->path().isEmpty())
            entry->Load();
        setDefaultPrinterName(entry->name);
    }
    qDebug().noquote() << "Printer::GetPrinters - Default printer =" << defaultPrinterName();

    QHash<QString, Printer *> printers;
    const QStringList entries =
        zeq::PersistentProperties::EnumPropertyFiles(paths::registryFolder(), QStringLiteral("*.pr"));
    for (const QString &entry : entries) {
        auto *printer = new Printer;
        if (!entry.isEmpty())
            printer->set_path(entry);
        if (!printer->path().isEmpty())
            printer->Load();
        // Enumeration never yields a key twice; should it, the newer record wins.
        delete printers.value(entry, nullptr);
        printers.insert(entry, printer);
    }
    return printers;
}

bool Printer::Commit()
{
    qDebug() << "bool Printer::Commit";
    if (IsDefault())
        zeq::PersistentObject::Commit(paths::defaultEntry());
    return zeq::PersistentObject::Commit();
}

bool Printer::Remove()
{
    if (IsDefault())
        zeq::PersistentProperties::Remove(paths::defaultEntry());
    return zeq::PersistentObject::Remove();
}
