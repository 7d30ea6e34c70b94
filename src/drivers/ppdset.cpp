#include "drivers/ppdset.h"

#include "common/paths.h"
#include "fileio/read.h"

#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>
#include <QTextStream>

#include <deque>

namespace {

QString orUnknown(const QString &value)
{
    return value.isEmpty() ? QStringLiteral("Unknown") : value;
}

// Manufacturer names repeat over thousands of lines: a driver collection has a few
// hundred makers for tens of thousands of drivers. Each distinct name is turned into a
// string once per read and then shared by every record that carries it, which spares an
// allocation per line. Model names are not shared: nearly every line names a model of its
// own, so the lookup would cost more than the copy it could save.
class FieldStrings
{
public:
    // The shared string for the field; isNew tells whether it is seen for the first time.
    QString take(const QStringRef &field, bool *isNew)
    {
        const auto found = m_strings.constFind(field);
        *isNew = found == m_strings.cend();
        if (!*isNew)
            return found.value();
        m_owned.push_back(field.toString());
        const QString &owned = m_owned.back();
        m_strings.insert(QStringRef(&owned), owned);
        return owned;
    }

private:
    // Keys point into m_owned, whose elements never move.
    std::deque<QString> m_owned;
    QHash<QStringRef, QString> m_strings;
};

} // namespace

const QStringList builtinDrivers = {
    QStringLiteral("/usr/share/ppd/std1/Generic/Generic-PCL_5e_Printer-ljet4d.ppd"),
    QStringLiteral("/usr/share/ppd/std1/HP/HP-OfficeJet_Pro_1175C-pcl3.ppd"),
    QStringLiteral("/usr/share/ppd/cups-included/postscript.ppd"),
    QStringLiteral("/usr/share/ppd/cups-included/textonly.ppd"),
    QStringLiteral("/usr/share/ppd/std1/Epson/tm-ba-thermal-rastertotmt.ppd"),
    QStringLiteral("/usr/share/ppd/std1/Generic/-Generic-Text-Only-Raw.ppd"),
    QStringLiteral("/usr/share/ppd/std1/Star/tsp113gt.ppd"),
    QStringLiteral("/usr/share/ppd/std1/Star/tsp113.ppd"),
    QStringLiteral("/usr/share/ppd/std1/Star/tsp143gt.ppd"),
    QStringLiteral("/usr/share/ppd/std1/Star/tsp143.ppd"),
    QStringLiteral("/usr/share/ppd/std1/Zebra/zebra.ppd"),
    // No combo item points here; the entry has always been part of the table.
    QString(),
};

PPD::PPD(const QString &path)
{
    setPath(path);
}

void PPD::setPath(const QString &newPath)
{
    path = newPath;
    pathHash = qHash(path, 0);
}

void PPD::setManufacturer(const QString &newManufacturer)
{
    manufacturer = orUnknown(newManufacturer);
    manufacturerHash = qHash(manufacturer, 0);
}

void PPD::setModel(const QString &newModel)
{
    model = orUnknown(newModel);
    modelHash = qHash(model, 0);
}

void PPD::print() const
{
    qDebug() << "PPD::print : " << path;
    qDebug() << "Manufacturer : " << manufacturer;
    qDebug() << "Model : " << model;
    qDebug() << "Driver : " << driver;
}

bool parseDriverLine(const QString &line, DriverLine *fields)
{
    const QChar separator(QLatin1Char(';'));
    const int first = line.indexOf(separator);
    if (first < 0)
        return false;
    const int second = line.indexOf(separator, first + 1);
    if (second < 0)
        return false;
    const int third = line.indexOf(separator, second + 1);
    if (third < 0 || line.indexOf(separator, third + 1) >= 0)
        return false;

    fields->relativePath = line.midRef(0, first);
    fields->manufacturer = line.midRef(first + 1, second - first - 1);
    fields->model = line.midRef(second + 1, third - second - 1);
    fields->driver = line.midRef(third + 1);
    return true;
}

QString driverPath(const QString &baseFolder, const QStringRef &relativePath)
{
    // Plain concatenation: neither part is ever scanned for place markers.
    QString path;
    path.reserve(baseFolder.size() + 1 + relativePath.size());
    path.append(baseFolder).append(QLatin1Char('/')).append(relativePath);
    return path;
}

PPDSet::PPDSet()
{
    clear();
}

void PPDSet::clear()
{
    databases.clear();
    // The records themselves stay alive; other parts may still hold their pointers.
    ppds.clear();
    manufacturerList.clear();
    loaded = false;
}

void PPDSet::addDatabase(const QString &path)
{
    databases.append(path);
}

void PPDSet::readDatabases()
{
    QSet<QString> manufacturerSet;
    QString baseFolder;
    QString line;
    DriverLine fields;
    FieldStrings manufacturerStrings;
    bool firstSeen = false;

    for (const QString &database : qAsConst(databases)) {
        // Only a regular file of at most 64 MiB is read; anything else (a named pipe, a
        // device, a huge file, a folder) counts as a missing database, with one line on
        // standard error. A database under /tmp, where any user can make files, must
        // also be ours and writable by no one else: its lines name the drivers offered.
        QFile file;
        fileio::ReadRequest request;
        request.cap = fileio::largeFileCap;
        request.stream = &file;
        request.streamMode = QIODevice::Text;
        if (!fileio::read(database, request).ok())
            continue;

        QTextStream stream(&file);
        baseFolder = stream.readLine();
        // A file that grows while it is read is cut at the cap.
        while (!stream.atEnd() && file.pos() <= fileio::largeFileCap) {
            stream.readLineInto(&line);
            if (!parseDriverLine(line, &fields))
                continue;
            const QString path = driverPath(baseFolder, fields.relativePath);
            if (!QFileInfo::exists(path))
                continue;

            PPD *ppd = new PPD(path);
            ppd->setManufacturer(manufacturerStrings.take(fields.manufacturer, &firstSeen));
            if (firstSeen)
                manufacturerSet.insert(ppd->manufacturer);
            ppd->setModel(fields.model.toString());
            ppd->driver = fields.driver.toString();
            ppds.append(ppd);
        }
        file.close();
    }

    manufacturerList = manufacturerSet.values();
    loaded = true;
}

QStringList PPDSet::manufacturers() const
{
    return manufacturerList;
}

QStringList PPDSet::models(const QString &manufacturer) const
{
    const uint hash = qHash(manufacturer, 0);
    QStringList result;
    for (const PPD *ppd : ppds) {
        if (ppd->manufacturerHash == hash && ppd->manufacturer == manufacturer)
            result.append(ppd->model);
    }
    return result;
}

QList<PPD *> PPDSet::drivers(const QString &manufacturer, const QString &model) const
{
    const uint manufacturerHash = qHash(manufacturer, 0);
    const uint modelHash = qHash(model, 0);
    QList<PPD *> result;
    for (PPD *ppd : ppds) {
        if (ppd->manufacturerHash == manufacturerHash && ppd->modelHash == modelHash &&
            ppd->manufacturer == manufacturer && ppd->model == model)
            result.append(ppd);
    }
    return result;
}

PPD *PPDSet::findByPath(const QString &path) const
{
    const uint hash = qHash(path, 0);
    for (PPD *ppd : ppds) {
        if (ppd->pathHash == hash && ppd->path == path)
            return ppd;
    }
    return nullptr;
}
