#include "printer/printer.h"

#include "common/paths.h"
#include "common/report.h"
#include "fileio/folders.h"

#include <zeq/persistentproperties.h>

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>

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
    diagnostic::report(QStringLiteral("not %1 %2").arg(QLatin1String(action), path),
                       QStringLiteral("outside ") + paths::registryFolder());
}

// Records are read and written as root. In a folder that someone else can change (any
// user can make /tmp/config before the device does), a record could be a planted one, or
// a link that turns root's write elsewhere; such a folder is not used, and the reason is
// given on standard error.
void reportForeign(const QString &folder, const QString &reason)
{
    diagnostic::report(QStringLiteral("not using ") + folder, reason);
}

// The folder holding the record at path; it lies inside the registry folder. A record
// without a path touches only the default entry, in the registry folder itself.
QString recordFolder(const QString &path)
{
    return path.isEmpty() ? paths::registryFolder() : QFileInfo(QDir::cleanPath(path)).path();
}

} // namespace

QHash<QString, Printer *> Printer::GetPrinters()
{
    QHash<QString, Printer *> printers;
    QString reason;
    const fileio::FolderState registry = fileio::examineFolder(paths::registryFolder(), &reason);
    if (registry != fileio::FolderState::Ours) {
        // A registry that does not exist yet simply holds no printers.
        if (registry == fileio::FolderState::Foreign)
            reportForeign(paths::registryFolder(), reason);
        setDefaultPrinterName(QString());
        return printers;
    }
    {
        auto entry = std::make_unique<Printer>();
        entry->set_path(paths::defaultEntry());
        if (!entry->path().isEmpty())
            entry->Load();
        setDefaultPrinterName(entry->name);
    }
    qDebug().noquote() << "Printer::GetPrinters - Default printer =" << defaultPrinterName();

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
    // The folders are made here, each checked as it is made or found, so the platform
    // library writes only into folders of ours.
    QString reason;
    const QString folder = recordFolder(path());
    if (fileio::makeTrustedFolder(folder, &reason) == fileio::FolderState::Foreign) {
        reportForeign(folder, reason);
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
    // Nothing is removed from a folder that is missing (nothing to remove) or not ours.
    QString reason;
    const QString folder = recordFolder(path());
    const fileio::FolderState state = fileio::examineFolder(folder, &reason);
    if (state == fileio::FolderState::Foreign)
        reportForeign(folder, reason);
    if (state != fileio::FolderState::Ours)
        return false;
    if (IsDefault())
        zeq::PersistentProperties::Remove(paths::defaultEntry());
    return zeq::PersistentObject::Remove();
}
