#pragma once

#include <zeq/persistentobject.h>

#include <QHash>
#include <QString>

namespace zeq {
class PersistentProperties;
}

// One printer as the device stores it: a property file "<name>.pr" in the registry
// folder. The name is at once the record's identity, its CUPS queue name and the base
// of its file name. Which printer is the default is kept process-wide, beside the class,
// and mirrored on disk by the registry's "default" entry.
class Printer final : public zeq::PersistentObject
{
public:
    Printer();

    void AccessProperties(zeq::PersistentProperties &properties) override;

    // The record's file. The platform library takes the path but is not asked for it
    // back, so the record keeps its own copy.
    void set_path(const QString &path);
    QString path() const;

    QString GetName() const;
    // Points the record at "<registry>/<name with whitespace as _>.pr".
    void UpdatePath();
    bool IsNetwork() const;
    bool IsDefault() const;
    void SetDefault();

    // Registry (registry.cpp). The caller owns the returned records.
    static QHash<QString, Printer *> GetPrinters();
    // Commit and Remove touch only files inside the registry folder (after ".." is
    // resolved); for any other path they do nothing and say so on standard error.
    using zeq::PersistentObject::Commit;
    using zeq::PersistentObject::Remove;
    bool Commit();
    bool Remove();

    // CUPS queue administration (queue.cpp).
    void Install();
    void Uninstall();
    void SetCupsDefault();

    // Test page (testpage.cpp).
    void PrintTestPage();

    // Local device detection (device.cpp).
    QString GetPrinterDevice() const;

    // The process-wide default printer name.
    static QString defaultPrinterName();
    static void setDefaultPrinterName(const QString &name);

    QString name;
    QString printer_class;
    QString model;
    QString device_uri;
    QString ppd;
    QString win_driver;
    QString paper_size;
    bool default_vdi_printer = false;

private:
    QString m_filePath;
};
