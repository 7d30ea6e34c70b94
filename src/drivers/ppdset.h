#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QStringRef>

// One driver of the catalogue. The hashes of path, manufacturer and model are cached so
// that queries over a large catalogue compare integers first.
class PPD
{
public:
    explicit PPD(const QString &path);

    void setPath(const QString &path);
    // An empty manufacturer or model is stored as "Unknown".
    void setManufacturer(const QString &manufacturer);
    void setModel(const QString &model);

    void print() const;

    QString path;
    QString manufacturer;
    QString model;
    QString driver;
    uint pathHash = 0;
    uint manufacturerHash = 0;
    uint modelHash = 0;
};

// The driver catalogue, read from driver database files (see readDatabases()).
//
// A database file names its base folder on its first line; every further line is
// "relative path;manufacturer;model;driver description". Entries whose PPD file does not
// exist are left out. The PPD records are never deleted: the catalogue lives as long as
// the program, and clear() only forgets them.
class PPDSet
{
public:
    PPDSet();

    void clear();
    void addDatabase(const QString &path);
    // Reads every registered database; runs on the loader's worker thread. A second call
    // without clear() appends every entry again (manufacturerList is rebuilt, ppds is not).
    void readDatabases();

    QStringList manufacturers() const;
    QStringList models(const QString &manufacturer) const;
    QList<PPD *> drivers(const QString &manufacturer, const QString &model) const;
    PPD *findByPath(const QString &path) const;

    bool loaded = false;
    QStringList databases;
    QList<PPD *> ppds;
    QStringList manufacturerList;
};

// The four fields of one driver line of a database file, as views into the line.
struct DriverLine
{
    QStringRef relativePath;
    QStringRef manufacturer;
    QStringRef model;
    QStringRef driver;
};

// Splits a driver line at every ";" (empty fields kept, nothing trimmed). Returns false,
// leaving *fields alone, unless the line has exactly four fields. The views point into
// line, which must outlive them.
bool parseDriverLine(const QString &line, DriverLine *fields);

// The PPD path of a driver line: "<base folder>/<relative path>", taken literally.
QString driverPath(const QString &baseFolder, const QStringRef &relativePath);

// The built-in drivers, indexed by the wizard's "CUPS Driver" combo box. Eleven paths
// and a final empty entry.
extern const QStringList builtinDrivers;
