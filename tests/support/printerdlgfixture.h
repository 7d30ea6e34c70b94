#pragma once

// Shared by the printer list window tests: seeding the registry and telling the list's
// icons apart.

#include "common/paths.h"
#include "printer/printer.h"
#include "support/printermap.h"
#include "support/sandbox.h"

#include <QIcon>
#include <QImage>
#include <QListWidget>
#include <QListWidgetItem>
#include <QPixmap>
#include <QString>
#include <QStringList>

namespace fixture {

struct Seed
{
    QString name;
    QString printerClass; // "network", "direct" or empty
    QString deviceUri;
    QString ppd;
    QString paperSize;
};

inline QByteArray recordBytes(const Seed &seed)
{
    QByteArray bytes;
    bytes += "name=" + seed.name.toUtf8() + '\n';
    bytes += "class=" + seed.printerClass.toUtf8() + '\n';
    bytes += "model=Model of " + seed.name.toUtf8() + '\n';
    bytes += "device_uri=" + seed.deviceUri.toUtf8() + '\n';
    bytes += "ppd=" + seed.ppd.toUtf8() + '\n';
    bytes += "win_driver=Windows driver of " + seed.name.toUtf8() + '\n';
    bytes += "paper_size=" + seed.paperSize.toUtf8() + '\n';
    bytes += "default_vdi_printer=false\n";
    return bytes;
}

inline QString recordPath(const QString &name)
{
    return paths::registryFolder() + QLatin1Char('/') + name + QLatin1String(".pr");
}

// Writes the record file as the device stores it; a default printer also gets the
// registry's "default" entry.
inline void seed(const Seed &seed, bool isDefault = false)
{
    sandbox::writeFile(recordPath(seed.name), recordBytes(seed));
    if (isDefault)
        sandbox::writeFile(paths::defaultEntry(), recordBytes(seed));
}

inline Seed local(const QString &name)
{
    return {name, QStringLiteral("direct"), QStringLiteral("usb:/dev/usb/lp0"),
            QStringLiteral("/usr/share/ppd/std1/Generic/Generic-PCL_5e_Printer-ljet4d.ppd"),
            QStringLiteral("A4")};
}

inline Seed network(const QString &name)
{
    return {name, QStringLiteral("network"), QStringLiteral("socket://10.0.0.5:9100"),
            QStringLiteral("/usr/share/ppd/cups-included/postscript.ppd"),
            QStringLiteral("Letter")};
}

// Forgets every printer, the default and the style sheet.
inline void reset()
{
    resetRegistry();
    sandbox::removePath(QStringLiteral("/tmp/.config"));
}

inline QImage image(const QIcon &icon, const QSize &size)
{
    return icon.pixmap(size).toImage().convertToFormat(QImage::Format_ARGB32_Premultiplied);
}

inline QImage image(const QPixmap &pixmap)
{
    return pixmap.toImage().convertToFormat(QImage::Format_ARGB32_Premultiplied);
}

inline QImage resourceImage(const QString &file, const QSize &size)
{
    return image(QIcon(QStringLiteral(":/zeq-icons/printer/") + file), size);
}

inline QStringList listIconFiles()
{
    return {QStringLiteral("local.png"), QStringLiteral("net.png"), QStringLiteral("deflocal.png"),
            QStringLiteral("defnet.png")};
}

// The file name of the list icon the item shows, found by comparing pixels with each of
// the four list icons; empty when it matches none.
inline QString iconFile(const QListWidgetItem *item)
{
    const QSize size(24, 24);
    const QImage shown = image(item->icon(), size);
    for (const QString &file : listIconFiles()) {
        if (shown == resourceImage(file, size))
            return file;
    }
    return QString();
}

inline QListWidgetItem *itemNamed(QListWidget *list, const QString &name)
{
    for (int row = 0; row < list->count(); ++row) {
        if (list->item(row)->text() == name)
            return list->item(row);
    }
    return nullptr;
}

inline QStringList itemTexts(QListWidget *list)
{
    QStringList texts;
    for (int row = 0; row < list->count(); ++row)
        texts << list->item(row)->text();
    return texts;
}

inline Printer *recordOf(const QListWidgetItem *item)
{
    return static_cast<Printer *>(item->data(Qt::UserRole).value<void *>());
}

} // namespace fixture
