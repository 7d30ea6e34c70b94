// Reading driver database files into the catalogue. Writes under /usr/share/ppd and
// /tmp, so it runs in the sandbox.

#include "common/paths.h"
#include "drivers/ppdset.h"

#include "support/catalogue.h"
#include "support/sandbox.h"

#include <QFile>
#include <QtTest>

#include <algorithm>

namespace {

const QString std1Db = paths::driverDatabase();
const QString addedDb = paths::localDriverDatabase();
const QString workFolder = QStringLiteral("/tmp/drivertest");

QStringList sorted(QStringList list)
{
    std::sort(list.begin(), list.end());
    return list;
}

// A database whose base folder is the test's work folder.
QByteArray inWork(const QByteArray &lines)
{
    return workFolder.toUtf8() + "\n" + lines;
}

// Read, and nothing found: no entry and no manufacturer.
bool loadedEmpty(const PPDSet *set)
{
    return set->loaded && set->ppds.isEmpty() && set->manufacturers().isEmpty();
}

void touch(const QString &path)
{
    QVERIFY2(sandbox::writeFile(path, "*PPD-Adobe: \"4.3\"\n"), qPrintable(path));
}

// Driver files in the work folder.
void touchInWork(const QStringList &files)
{
    for (const QString &file : files)
        touch(workFolder + QLatin1Char('/') + file);
}

} // namespace

class TestPpdDatabase : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void entryKeptOnlyWhenItsFileExists();
    void linesWithFiveOrThreeFieldsAreIgnored();
    void emptyFieldsBecomeUnknownAndUnknownIsListedOnce();
    void missingAddedDatabaseLeavesDeviceDatabaseEntries();
    void modelsRepeatPerDriverAndDriversKeepFileOrder();
    void findByPathDiffersInCaseFindsNothing();
    void emptyFileContributesNothing();
    void firstLineOnlyFileContributesNothing();
    void secondReadDoublesEntriesButNotManufacturers();
    void databasesAreReadInRegistrationOrder();
    void baseFolderIsUsedExactlyAsWritten();
    void windowsLineEndsAreAccepted();
    void existenceFollowsLinks();
    void anyFileSystemObjectCountsAsExisting();
    void unreadableDatabaseIsSkipped();
    void onlyTheFirstLineIsTheBaseFolder();
    void namesDifferingInCaseOrBlanksStayApart();

private:
    PPDSet *newSet();
    // A catalogue that knows these databases, in this order, and has read them.
    PPDSet *readCatalogue(const QStringList &databases);
    QList<PPDSet *> m_sets;
};

void TestPpdDatabase::initTestCase()
{
    REQUIRE_SANDBOX();
}

void TestPpdDatabase::init()
{
    sandbox::removePath(workFolder);
    sandbox::removePath(std1Db);
    sandbox::removePath(addedDb);
    sandbox::removePath("/usr/share/ppd/std1/Generic/x.ppd");
}

void TestPpdDatabase::cleanup()
{
    // The catalogue leaves its records alive for the whole program; the test frees them.
    for (PPDSet *set : qAsConst(m_sets)) {
        freeCatalogue(*set);
        delete set;
    }
    m_sets.clear();
}

PPDSet *TestPpdDatabase::newSet()
{
    m_sets.append(new PPDSet);
    return m_sets.last();
}

PPDSet *TestPpdDatabase::readCatalogue(const QStringList &databases)
{
    PPDSet *set = newSet();
    for (const QString &database : databases)
        set->addDatabase(database);
    set->readDatabases();
    return set;
}

void TestPpdDatabase::entryKeptOnlyWhenItsFileExists()
{
    QVERIFY(sandbox::writeFile(std1Db, "/usr/share/ppd/std1\n"
                                       "Generic/x.ppd;Generic;Text;Raw\n"));
    PPDSet *before = readCatalogue({std1Db});
    QVERIFY(loadedEmpty(before));

    touch("/usr/share/ppd/std1/Generic/x.ppd");
    PPDSet *after = readCatalogue({std1Db});
    QCOMPARE(after->ppds.size(), 1);
    const PPD *ppd = after->ppds.first();
    QCOMPARE(ppd->path, QString("/usr/share/ppd/std1/Generic/x.ppd"));
    QCOMPARE(ppd->manufacturer, QString("Generic"));
    QCOMPARE(ppd->model, QString("Text"));
    QCOMPARE(ppd->driver, QString("Raw"));
    QCOMPARE(ppd->pathHash, qHash(ppd->path, 0));
    QCOMPARE(ppd->manufacturerHash, qHash(QString("Generic"), 0));
    QCOMPARE(ppd->modelHash, qHash(QString("Text"), 0));
    QCOMPARE(after->manufacturers(), QStringList({"Generic"}));
}

void TestPpdDatabase::linesWithFiveOrThreeFieldsAreIgnored()
{
    touchInWork({"a.ppd", "b.ppd", "c.ppd"});
    QVERIFY(sandbox::writeFile(std1Db, inWork("a.ppd;HP;LaserJet;PCL; v2\n"
                                              "b.ppd;HP;LaserJet\n"
                                              "# c.ppd is the only good line\n"
                                              "\n"
                                              "c.ppd;Kyocera;FS;KPDL\n")));
    PPDSet *set = readCatalogue({std1Db});
    QCOMPARE(set->ppds.size(), 1);
    QCOMPARE(set->ppds.first()->path, workFolder + "/c.ppd");
    QCOMPARE(set->manufacturers(), QStringList({"Kyocera"}));
}

void TestPpdDatabase::emptyFieldsBecomeUnknownAndUnknownIsListedOnce()
{
    touchInWork({"x.ppd", "y.ppd", "z.ppd"});
    QVERIFY(sandbox::writeFile(std1Db, inWork("x.ppd;;;\n"
                                              "y.ppd;;Some model;drv\n"
                                              "z.ppd;Unknown;;\n")));
    PPDSet *set = readCatalogue({std1Db});
    QCOMPARE(set->ppds.size(), 3);
    const PPD *x = set->ppds.at(0);
    QCOMPARE(x->path, workFolder + "/x.ppd");
    QCOMPARE(x->manufacturer, QString("Unknown"));
    QCOMPARE(x->model, QString("Unknown"));
    QVERIFY(x->driver.isEmpty());
    QCOMPARE(x->manufacturerHash, qHash(QString("Unknown"), 0));
    QCOMPARE(set->manufacturers(), QStringList({"Unknown"}));
    QCOMPARE(set->models("Unknown"), QStringList({"Unknown", "Some model", "Unknown"}));
}

void TestPpdDatabase::missingAddedDatabaseLeavesDeviceDatabaseEntries()
{
    touch("/usr/share/ppd/std1/Generic/x.ppd");
    QVERIFY(sandbox::writeFile(std1Db, "/usr/share/ppd/std1\n"
                                       "Generic/x.ppd;Generic;Text;Raw\n"
                                       "HP/HP-OfficeJet_Pro_1175C-pcl3.ppd;HP;OfficeJet Pro "
                                       "1175C;HP OfficeJet Pro 1175C pcl3\n"));
    QVERIFY(!QFile::exists(addedDb));
    PPDSet *set = readCatalogue({std1Db, addedDb});
    QVERIFY(set->loaded);
    QCOMPARE(set->ppds.size(), 2);
    QCOMPARE(set->ppds.at(0)->path, QString("/usr/share/ppd/std1/Generic/x.ppd"));
    QCOMPARE(set->ppds.at(1)->path,
             QString("/usr/share/ppd/std1/HP/HP-OfficeJet_Pro_1175C-pcl3.ppd"));
    QCOMPARE(sorted(set->manufacturers()), QStringList({"Generic", "HP"}));
}

void TestPpdDatabase::modelsRepeatPerDriverAndDriversKeepFileOrder()
{
    touch(workFolder + "/HP/lj4-pcl.ppd");
    touch(workFolder + "/HP/dj.ppd");
    touch(workFolder + "/HP/lj4-ps.ppd");
    QVERIFY(sandbox::writeFile(std1Db, inWork("HP/lj4-pcl.ppd;HP;LaserJet 4;HP LaserJet 4 PCL\n"
                                              "HP/dj.ppd;HP;DeskJet;HP DeskJet\n"
                                              "HP/lj4-ps.ppd;HP;LaserJet 4;HP LaserJet 4 PS\n")));
    PPDSet *set = readCatalogue({std1Db});
    QCOMPARE(set->models("HP"), QStringList({"LaserJet 4", "DeskJet", "LaserJet 4"}));
    QCOMPARE(set->models("HP").count("LaserJet 4"), 2);
    const QList<PPD *> drivers = set->drivers("HP", "LaserJet 4");
    QCOMPARE(drivers.size(), 2);
    QCOMPARE(drivers.at(0)->driver, QString("HP LaserJet 4 PCL"));
    QCOMPARE(drivers.at(0)->path, workFolder + "/HP/lj4-pcl.ppd");
    QCOMPARE(drivers.at(1)->driver, QString("HP LaserJet 4 PS"));
    QCOMPARE(drivers.at(1)->path, workFolder + "/HP/lj4-ps.ppd");
}

void TestPpdDatabase::findByPathDiffersInCaseFindsNothing()
{
    touch(workFolder + "/HP/lj4.ppd");
    QVERIFY(sandbox::writeFile(std1Db, inWork("HP/lj4.ppd;HP;LaserJet 4;PCL\n")));
    PPDSet *set = readCatalogue({std1Db});
    QCOMPARE(set->findByPath(workFolder + "/HP/lj4.ppd"), set->ppds.value(0));
    QVERIFY(set->findByPath(workFolder + "/HP/lj4.ppd") != nullptr);
    QVERIFY(set->findByPath(workFolder + "/hp/lj4.ppd") == nullptr);
    QVERIFY(set->findByPath(workFolder + "/HP/LJ4.PPD") == nullptr);
}

void TestPpdDatabase::emptyFileContributesNothing()
{
    touch(workFolder + "/a.ppd");
    QVERIFY(sandbox::writeFile(std1Db, ""));
    QVERIFY(sandbox::writeFile(addedDb, inWork("a.ppd;HP;M;D\n")));
    PPDSet *set = readCatalogue({std1Db, addedDb});
    QVERIFY(set->loaded);
    // Only the second file's entry: the empty file added none.
    QCOMPARE(set->ppds.size(), 1);
    QCOMPARE(set->ppds.first()->path, workFolder + "/a.ppd");

    PPDSet *alone = readCatalogue({std1Db});
    QVERIFY(loadedEmpty(alone));
}

void TestPpdDatabase::firstLineOnlyFileContributesNothing()
{
    touch(workFolder + "/a.ppd");
    // The only line is a driver line that names an existing file when read as one (an
    // empty base folder composes "/tmp/drivertest/a.ppd"); being first, it is the base
    // folder and nothing else.
    const QByteArray line = workFolder.mid(1).toUtf8() + "/a.ppd;HP;A;PCL";
    DriverLine fields;
    QVERIFY(parseDriverLine(QString::fromUtf8(line), &fields));
    for (const QByteArray &content : {line, line + "\n"}) {
        QVERIFY(sandbox::writeFile(std1Db, content));
        PPDSet *set = newSet();
        set->addDatabase(std1Db);
        set->readDatabases();
        QVERIFY(loadedEmpty(set));
    }
}

void TestPpdDatabase::secondReadDoublesEntriesButNotManufacturers()
{
    touchInWork({"a.ppd", "b.ppd", "c.ppd"});
    QVERIFY(sandbox::writeFile(std1Db, inWork("a.ppd;HP;A;PCL\n"
                                              "b.ppd;Epson;B;ESC/POS\n"
                                              "c.ppd;HP;C;PS\n")));
    PPDSet *set = readCatalogue({std1Db});
    QCOMPARE(set->ppds.size(), 3);
    QCOMPARE(sorted(set->manufacturers()), QStringList({"Epson", "HP"}));

    set->readDatabases();
    QCOMPARE(set->ppds.size(), 6);
    QCOMPARE(set->manufacturers().size(), 2);
    QCOMPARE(sorted(set->manufacturers()), QStringList({"Epson", "HP"}));
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(set->ppds.at(i + 3)->path, set->ppds.at(i)->path);
        QVERIFY(set->ppds.at(i + 3) != set->ppds.at(i));
    }
    QCOMPARE(set->models("HP"), QStringList({"A", "C", "A", "C"}));
    // The first match is the record from the first read.
    QCOMPARE(set->findByPath(workFolder + "/b.ppd"), set->ppds.at(1));
}

void TestPpdDatabase::databasesAreReadInRegistrationOrder()
{
    touchInWork({"one/a.ppd", "two/b.ppd"});
    QVERIFY(sandbox::writeFile(std1Db, workFolder.toUtf8() + "/one\na.ppd;HP;A;x\n"));
    QVERIFY(sandbox::writeFile(addedDb, workFolder.toUtf8() + "/two\nb.ppd;HP;B;y\n"));
    PPDSet *forward = readCatalogue({addedDb, std1Db});
    QCOMPARE(forward->ppds.size(), 2);
    // Each file keeps its own base folder.
    QCOMPARE(forward->ppds.at(0)->path, workFolder + "/two/b.ppd");
    QCOMPARE(forward->ppds.at(1)->path, workFolder + "/one/a.ppd");
}

void TestPpdDatabase::baseFolderIsUsedExactlyAsWritten()
{
    touch(workFolder + "/a.ppd");
    // A trailing separator is not expected and yields a double slash, which still
    // resolves; trailing blanks are part of the folder name and do not resolve.
    QVERIFY(sandbox::writeFile(std1Db, workFolder.toUtf8() + "/\na.ppd;HP;A;x\n"));
    QVERIFY(sandbox::writeFile(addedDb, workFolder.toUtf8() + " \na.ppd;HP;A;x\n"));
    PPDSet *set = readCatalogue({std1Db, addedDb});
    QCOMPARE(set->ppds.size(), 1);
    QCOMPARE(set->ppds.first()->path, workFolder + "//a.ppd");
}

void TestPpdDatabase::windowsLineEndsAreAccepted()
{
    touchInWork({"a.ppd", "b.ppd"});
    QVERIFY(
        sandbox::writeFile(std1Db, workFolder.toUtf8() + "\r\na.ppd;HP;A;PCL\r\nb.ppd;HP;B;PS"));
    PPDSet *set = readCatalogue({std1Db});
    QCOMPARE(set->ppds.size(), 2);
    QCOMPARE(set->ppds.at(0)->path, workFolder + "/a.ppd");
    QCOMPARE(set->ppds.at(0)->driver, QString("PCL"));
    QCOMPARE(set->ppds.at(1)->driver, QString("PS"));
}

void TestPpdDatabase::existenceFollowsLinks()
{
    touch(workFolder + "/real.ppd");
    QVERIFY(QFile::link(workFolder + "/real.ppd", workFolder + "/good-link.ppd"));
    QVERIFY(QFile::link(workFolder + "/missing.ppd", workFolder + "/dangling-link.ppd"));
    QVERIFY(sandbox::writeFile(std1Db, inWork("dangling-link.ppd;HP;Dangling;x\n"
                                              "good-link.ppd;HP;Good;y\n")));
    PPDSet *set = readCatalogue({std1Db});
    QCOMPARE(set->ppds.size(), 1);
    QCOMPARE(set->ppds.first()->path, workFolder + "/good-link.ppd");
}

void TestPpdDatabase::anyFileSystemObjectCountsAsExisting()
{
    QVERIFY(QDir().mkpath(workFolder + "/folder.ppd"));
    QVERIFY(sandbox::writeFile(std1Db, inWork("folder.ppd;HP;F;x\n")));
    PPDSet *set = readCatalogue({std1Db});
    QCOMPARE(set->ppds.size(), 1);
}

void TestPpdDatabase::unreadableDatabaseIsSkipped()
{
    touch(workFolder + "/a.ppd");
    // The tests run as root, which ignores mode bits; a folder cannot be opened as a
    // text file by anyone.
    QVERIFY(QDir().mkpath(workFolder + "/not-a-file.db"));
    QVERIFY(sandbox::writeFile(addedDb, inWork("a.ppd;HP;A;x\n")));
    PPDSet *set =
        readCatalogue({workFolder + "/not-a-file.db", "/nonexistent/printdrivers.db", addedDb});
    QVERIFY(set->loaded);
    QCOMPARE(set->ppds.size(), 1);
    QCOMPARE(set->ppds.first()->path, workFolder + "/a.ppd");
}

void TestPpdDatabase::onlyTheFirstLineIsTheBaseFolder()
{
    touch(workFolder + "/a.ppd");
    // The first line looks like a driver line whose file exists ("/tmp/drivertest/a.ppd"
    // from an empty base) but, being first, names the base folder. A later folder-like
    // line does not replace it, so the last line composes "<first line>/a.ppd", which
    // does not exist; read any other way, one of the lines would find a.ppd.
    QVERIFY(sandbox::writeFile(std1Db, workFolder.mid(1).toUtf8() + "/a.ppd;HP;A;x\n" +
                                           workFolder.toUtf8() +
                                           "\n"
                                           "a.ppd;HP;A;x\n"));
    PPDSet *set = readCatalogue({std1Db});
    QVERIFY(loadedEmpty(set));
}

void TestPpdDatabase::namesDifferingInCaseOrBlanksStayApart()
{
    for (const char *file : {"1.ppd", "2.ppd", "3.ppd", "4.ppd", "5.ppd"})
        touch(workFolder + "/" + file);
    QVERIFY(sandbox::writeFile(std1Db, inWork("1.ppd;HP;LaserJet;a\n"
                                              "2.ppd;hp;LaserJet;b\n"
                                              "3.ppd;HP ;laserjet;c\n"
                                              "4.ppd;HP;LaserJet;d\n"
                                              "5.ppd;HP;LaserJet ;e\n")));
    PPDSet *set = readCatalogue({std1Db});
    QCOMPARE(set->ppds.size(), 5);
    QCOMPARE(sorted(set->manufacturers()), QStringList({"HP", "HP ", "hp"}));
    QCOMPARE(set->models("HP"), QStringList({"LaserJet", "LaserJet", "LaserJet "}));
    QCOMPARE(set->models("HP "), QStringList({"laserjet"}));
    QCOMPARE(set->drivers("HP", "LaserJet").size(), 2);
    QCOMPARE(set->drivers("HP", "LaserJet").at(1)->driver, QString("d"));
    QCOMPARE(set->drivers("hp", "LaserJet").value(0)->driver, QString("b"));
}

QTEST_GUILESS_MAIN(TestPpdDatabase)
#include "tst_ppddatabase.moc"
