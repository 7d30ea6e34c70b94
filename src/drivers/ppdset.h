#pragma once

#include <QList>
#include <QString>
#include <QStringList>

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
class PPDSet
{
public:
    PPDSet();

    void clear();
    void addDatabase(const QString &path);
    // Reads every registered database; runs on the loader's worker thread.
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

// The built-in drivers, indexed by the wizard's "CUPS Driver" combo box. Eleven paths
// and a final empty entry.
extern const QStringList builtinDrivers;
