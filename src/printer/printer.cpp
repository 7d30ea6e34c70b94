#include "printer/printer.h"

#include "common/paths.h"

#include <zeq/persistentproperties.h>

#include <QRegExp>

namespace {
QString &defaultName()
{
    static QString name;
    return name;
}
} // namespace

Printer::Printer() = default;

void Printer::AccessProperties(zeq::PersistentProperties &properties)
{
    properties.AccessString(QStringLiteral("name"), name, QString());
    properties.AccessString(QStringLiteral("class"), printer_class, QString());
    properties.AccessString(QStringLiteral("model"), model, QString());
    properties.AccessString(QStringLiteral("device_uri"), device_uri, QString());
    properties.AccessString(QStringLiteral("ppd"), ppd, QString());
    properties.AccessString(QStringLiteral("win_driver"), win_driver, QString());
    properties.AccessString(QStringLiteral("paper_size"), paper_size, QString());
    properties.AccessBoolean(QStringLiteral("default_vdi_printer"), default_vdi_printer, false);
}

void Printer::set_path(const QString &path)
{
    m_filePath = path;
    zeq::PersistentObject::set_path(path);
}

QString Printer::path() const
{
    return m_filePath;
}

QString Printer::GetName() const
{
    return name;
}

void Printer::UpdatePath()
{
    QString fileName = name;
    fileName.replace(QRegExp(QStringLiteral("\\s")), QStringLiteral("_"));
    fileName += QLatin1String(".pr");
    // Both placeholders are filled in one pass, so a "%" in the name stays as it is.
    set_path(QStringLiteral("%1/%2").arg(paths::registryFolder(), fileName));
}

bool Printer::IsNetwork() const
{
    return printer_class == QLatin1String("network");
}

bool Printer::IsDefault() const
{
    return name == defaultName();
}

void Printer::SetDefault()
{
    defaultName() = name;
}

QString Printer::defaultPrinterName()
{
    return defaultName();
}

void Printer::setDefaultPrinterName(const QString &name)
{
    defaultName() = name;
}
