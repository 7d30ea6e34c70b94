#include "printer/printer.h"

#include "printer/paths.h"

#include <zeq/persistentproperties.h>

#include <QDebug>
#include <QDir>
#include <QFile>

#include <cstdio>
#include <memory>

namespace {

// A record's path comes from its name, which may hold "/" and "..". A name that points
// into a subfolder of the registry is allowed; one that leads out of it is not, since
// the tool runs as root and would otherwise write or delete any file on the device.
bool insideRegistry(const QString &path)
{
    const QString folder = paths::registryFolder() + QLatin1Char('/');
    return QDir::cleanPath(path).startsWith(folder);
}

void reportOutside(const char *action, const QString &path)
{
    std::fprintf(stderr, "printerconfig: not %s %s: outside %s\n", action,
                 QFile::encodeName(path).constData(),
                 QFile::encodeName(paths::registryFolder()).constData());
}

} // namespace

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
    const QStringList entries = zeq::PersistentProperties::EnumPropertyFiles(
        paths::registryFolder(), QStringLiteral("*.pr"));
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
    if (!path().isEmpty() && !insideRegistry(path())) {
        reportOutside("writing", path());
        return false;
    }
    if (IsDefault())
        zeq::PersistentObject::Commit(paths::defaultEntry());
    return zeq::PersistentObject::Commit();
}

bool Printer::Remove()
{
    if (!path().isEmpty() && !insideRegistry(path())) {
        reportOutside("removing", path());
        return false;
    }
    if (IsDefault())
        zeq::PersistentProperties::Remove(paths::defaultEntry());
    return zeq::PersistentObject::Remove();
}
