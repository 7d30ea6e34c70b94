// The driver record, the built-in driver table, the parsing of one database line and the
// catalogue queries, all without touching a file.

#include "drivers/ppdset.h"

#include "support/messages.h"

#include <QHash>
#include <QtTest>

class TestPpd : public QObject
{
    Q_OBJECT

private slots:
    void cleanup();

    void builtInTableHasTwelveEntriesInComboOrder();
    void builtInTableLastEntryIsEmpty();

    void recordCachesHashesOfItsKeyTexts();
    void emptyManufacturerAndModelAreStoredAndHashedAsUnknown();
    void printWritesFourDebugLines();

    void splitsLineIntoFourUntrimmedFields_data();
    void splitsLineIntoFourUntrimmedFields();
    void rejectsLinesWithoutExactlyFourFields_data();
    void rejectsLinesWithoutExactlyFourFields();
    void composesPathLiterallyWithoutExpandingPlaceMarkers();

    void newCatalogueIsEmptyAndNotLoaded();
    void clearForgetsDatabasesEntriesAndManufacturers();
    void queriesOnEmptyCatalogueFindNothing();
    void modelsListsOneModelPerDriverInCatalogueOrder();
    void driversReturnsEveryMatchInCatalogueOrder();
    void findByPathReturnsFirstExactMatchOnly();
    void findByPathIsCaseSensitive();
    void queriesTrustTheCachedHashes();
    void queriesCompareTextsWhenHashesAgree();

private:
    PPD *entry(const QString &path, const QString &manufacturer, const QString &model,
               const QString &driver = QString());
    QList<PPD *> m_created;
};

PPD *TestPpd::entry(const QString &path, const QString &manufacturer, const QString &model,
                    const QString &driver)
{
    PPD *ppd = new PPD(path);
    ppd->setManufacturer(manufacturer);
    ppd->setModel(model);
    ppd->driver = driver;
    m_created.append(ppd);
    return ppd;
}

void TestPpd::cleanup()
{
    // The catalogue never deletes its records; the test does, so leak checks stay clean.
    qDeleteAll(m_created);
    m_created.clear();
}

void TestPpd::builtInTableHasTwelveEntriesInComboOrder()
{
    const QStringList expected = {
        "/usr/share/ppd/std1/Generic/Generic-PCL_5e_Printer-ljet4d.ppd",
        "/usr/share/ppd/std1/HP/HP-OfficeJet_Pro_1175C-pcl3.ppd",
        "/usr/share/ppd/cups-included/postscript.ppd",
        "/usr/share/ppd/cups-included/textonly.ppd",
        "/usr/share/ppd/std1/Epson/tm-ba-thermal-rastertotmt.ppd",
        "/usr/share/ppd/std1/Generic/-Generic-Text-Only-Raw.ppd",
        "/usr/share/ppd/std1/Star/tsp113gt.ppd",
        "/usr/share/ppd/std1/Star/tsp113.ppd",
        "/usr/share/ppd/std1/Star/tsp143gt.ppd",
        "/usr/share/ppd/std1/Star/tsp143.ppd",
        "/usr/share/ppd/std1/Zebra/zebra.ppd",
        "",
    };
    QCOMPARE(builtinDrivers.size(), 12);
    for (int i = 0; i < expected.size(); ++i)
        QCOMPARE(builtinDrivers.at(i), expected.at(i));
}

void TestPpd::builtInTableLastEntryIsEmpty()
{
    QVERIFY(builtinDrivers.size() > 11);
    QVERIFY(builtinDrivers.at(11).isEmpty());
    // Every other entry names a file.
    for (int i = 0; i < 11; ++i)
        QVERIFY2(builtinDrivers.at(i).endsWith(".ppd"), qPrintable(builtinDrivers.at(i)));
}

void TestPpd::recordCachesHashesOfItsKeyTexts()
{
    PPD ppd("/a/b.ppd");
    QCOMPARE(ppd.path, QString("/a/b.ppd"));
    QCOMPARE(ppd.pathHash, qHash(QString("/a/b.ppd"), 0));
    QVERIFY(ppd.manufacturer.isEmpty());
    QVERIFY(ppd.model.isEmpty());
    QVERIFY(ppd.driver.isEmpty());

    ppd.setManufacturer("HP");
    ppd.setModel("LaserJet 4");
    QCOMPARE(ppd.manufacturerHash, qHash(QString("HP"), 0));
    QCOMPARE(ppd.modelHash, qHash(QString("LaserJet 4"), 0));

    // Every setter refreshes its hash.
    ppd.setPath("/c/d.ppd");
    ppd.setManufacturer("Epson");
    ppd.setModel("TM-T88");
    QCOMPARE(ppd.path, QString("/c/d.ppd"));
    QCOMPARE(ppd.pathHash, qHash(QString("/c/d.ppd"), 0));
    QCOMPARE(ppd.manufacturerHash, qHash(QString("Epson"), 0));
    QCOMPARE(ppd.modelHash, qHash(QString("TM-T88"), 0));
}

void TestPpd::emptyManufacturerAndModelAreStoredAndHashedAsUnknown()
{
    PPD ppd("/x.ppd");
    ppd.setManufacturer("");
    ppd.setModel(QString());
    QCOMPARE(ppd.manufacturer, QString("Unknown"));
    QCOMPARE(ppd.model, QString("Unknown"));
    QCOMPARE(ppd.manufacturerHash, qHash(QString("Unknown"), 0));
    QCOMPARE(ppd.modelHash, qHash(QString("Unknown"), 0));

    // A blank is not empty and is kept as it stands.
    ppd.setManufacturer(" ");
    QCOMPARE(ppd.manufacturer, QString(" "));
}

void TestPpd::printWritesFourDebugLines()
{
    PPD ppd("/p/q.ppd");
    ppd.setManufacturer("HP");
    ppd.setModel("LaserJet 4");
    ppd.driver = "HP LaserJet 4 PCL";
    MessageCapture capture;
    ppd.print();
    QCOMPARE(capture.messages(),
             QStringList({"PPD::print :  \"/p/q.ppd\"", "Manufacturer :  \"HP\"",
                          "Model :  \"LaserJet 4\"", "Driver :  \"HP LaserJet 4 PCL\""}));
    QCOMPARE(capture.messages(QtDebugMsg), capture.messages());
}

void TestPpd::splitsLineIntoFourUntrimmedFields_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QStringList>("fields");
    QTest::newRow("plain") << "HP/laserjet4.ppd;HP;LaserJet 4;HP LaserJet 4 PCL"
                           << QStringList{"HP/laserjet4.ppd", "HP", "LaserJet 4",
                                          "HP LaserJet 4 PCL"};
    QTest::newRow("empty fields kept") << "x.ppd;;;" << QStringList{"x.ppd", "", "", ""};
    QTest::newRow("only separators") << ";;;" << QStringList{"", "", "", ""};
    QTest::newRow("spaces belong to values")
        << " a.ppd ; HP ;LaserJet; d " << QStringList{" a.ppd ", " HP ", "LaserJet", " d "};
    QTest::newRow("other punctuation")
        << "a,b.ppd;H:P;M|1;drv, v2" << QStringList{"a,b.ppd", "H:P", "M|1", "drv, v2"};
}

void TestPpd::splitsLineIntoFourUntrimmedFields()
{
    QFETCH(QString, line);
    QFETCH(QStringList, fields);
    DriverLine parsed;
    QVERIFY(parseDriverLine(line, &parsed));
    QCOMPARE(parsed.relativePath.toString(), fields.at(0));
    QCOMPARE(parsed.manufacturer.toString(), fields.at(1));
    QCOMPARE(parsed.model.toString(), fields.at(2));
    QCOMPARE(parsed.driver.toString(), fields.at(3));
}

void TestPpd::rejectsLinesWithoutExactlyFourFields_data()
{
    QTest::addColumn<QString>("line");
    QTest::newRow("empty") << "";
    QTest::newRow("one field") << "just a comment";
    QTest::newRow("three fields") << "Generic/x.ppd;Generic;Text";
    QTest::newRow("five fields") << "Generic/x.ppd;Generic;Text;Raw; v2";
    QTest::newRow("trailing separator") << "Generic/x.ppd;Generic;Text;Raw;";
    QTest::newRow("many separators") << ";;;;;;;;";
    QTest::newRow("other separator") << "Generic/x.ppd,Generic,Text,Raw";
}

void TestPpd::rejectsLinesWithoutExactlyFourFields()
{
    QFETCH(QString, line);
    DriverLine parsed;
    const QString untouched = "untouched";
    parsed.relativePath = QStringRef(&untouched);
    QVERIFY(!parseDriverLine(line, &parsed));
    QCOMPARE(parsed.relativePath.toString(), untouched);
}

void TestPpd::composesPathLiterallyWithoutExpandingPlaceMarkers()
{
    const QString relative = "HP/laserjet4.ppd";
    QCOMPARE(driverPath("/usr/share/ppd/std1", QStringRef(&relative)),
             QString("/usr/share/ppd/std1/HP/laserjet4.ppd"));

    // No trimming and no separator handling: a trailing "/" in the base doubles up.
    QCOMPARE(driverPath("/base/", QStringRef(&relative)), QString("/base//HP/laserjet4.ppd"));
    QCOMPARE(driverPath(" /base", QStringRef(&relative)), QString(" /base/HP/laserjet4.ppd"));
    QCOMPARE(driverPath(QString(), QStringRef(&relative)), QString("/HP/laserjet4.ppd"));

    const QString marked = "%1%2-%3.ppd";
    QCOMPARE(driverPath("/%2/%1", QStringRef(&marked)), QString("/%2/%1/%1%2-%3.ppd"));
}

void TestPpd::newCatalogueIsEmptyAndNotLoaded()
{
    PPDSet set;
    QVERIFY(!set.loaded);
    QVERIFY(set.databases.isEmpty());
    QVERIFY(set.ppds.isEmpty());
    QVERIFY(set.manufacturerList.isEmpty());
    QVERIFY(set.manufacturers().isEmpty());

    set.addDatabase("/no/such/file.db");
    set.addDatabase("/another.db");
    QCOMPARE(set.databases, QStringList({"/no/such/file.db", "/another.db"}));
}

void TestPpd::clearForgetsDatabasesEntriesAndManufacturers()
{
    PPDSet set;
    set.addDatabase("/a.db");
    PPD *kept = entry("/a.ppd", "HP", "M");
    set.ppds.append(kept);
    set.manufacturerList.append("HP");
    set.loaded = true;

    set.clear();
    QVERIFY(!set.loaded);
    QVERIFY(set.databases.isEmpty());
    QVERIFY(set.ppds.isEmpty());
    QVERIFY(set.manufacturerList.isEmpty());
    // The record itself is not deleted by clear().
    QCOMPARE(kept->path, QString("/a.ppd"));
}

void TestPpd::queriesOnEmptyCatalogueFindNothing()
{
    PPDSet set;
    QVERIFY(set.models("HP").isEmpty());
    QVERIFY(set.drivers("HP", "LaserJet 4").isEmpty());
    QVERIFY(set.findByPath("/a.ppd") == nullptr);
    QVERIFY(set.findByPath(QString()) == nullptr);
}

void TestPpd::modelsListsOneModelPerDriverInCatalogueOrder()
{
    PPDSet set;
    set.ppds << entry("/1.ppd", "HP", "LaserJet 4") << entry("/2.ppd", "Epson", "TM")
             << entry("/3.ppd", "HP", "DeskJet") << entry("/4.ppd", "HP", "LaserJet 4")
             << entry("/5.ppd", "hp", "Lower");
    QCOMPARE(set.models("HP"), QStringList({"LaserJet 4", "DeskJet", "LaserJet 4"}));
    QCOMPARE(set.models("Epson"), QStringList({"TM"}));
    QCOMPARE(set.models("hp"), QStringList({"Lower"}));
    QVERIFY(set.models("Canon").isEmpty());
}

void TestPpd::driversReturnsEveryMatchInCatalogueOrder()
{
    PPDSet set;
    PPD *first = entry("/1.ppd", "HP", "LaserJet 4", "PCL");
    PPD *other = entry("/2.ppd", "HP", "DeskJet", "PCL3");
    PPD *second = entry("/3.ppd", "HP", "LaserJet 4", "PostScript");
    PPD *elsewhere = entry("/4.ppd", "Kyocera", "LaserJet 4", "KPDL");
    set.ppds << first << other << second << elsewhere;
    QCOMPARE(set.drivers("HP", "LaserJet 4"), QList<PPD *>({first, second}));
    QCOMPARE(set.drivers("Kyocera", "LaserJet 4"), QList<PPD *>({elsewhere}));
    QVERIFY(set.drivers("HP", "laserjet 4").isEmpty());
    QVERIFY(set.drivers("HP", "").isEmpty());
}

void TestPpd::findByPathReturnsFirstExactMatchOnly()
{
    PPDSet set;
    PPD *first = entry("/std1/HP/a.ppd", "HP", "A");
    PPD *duplicate = entry("/std1/HP/a.ppd", "HP", "A");
    set.ppds << entry("/std1/HP/b.ppd", "HP", "B") << first << duplicate;
    QCOMPARE(set.findByPath("/std1/HP/a.ppd"), first);
    QVERIFY(set.findByPath("/std1/HP/a.pp") == nullptr);
    QVERIFY(set.findByPath("/std1/HP/a.ppd ") == nullptr);
}

void TestPpd::findByPathIsCaseSensitive()
{
    PPDSet set;
    set.ppds << entry("/usr/share/ppd/std1/HP/LaserJet.ppd", "HP", "LaserJet");
    QVERIFY(set.findByPath("/usr/share/ppd/std1/HP/LaserJet.ppd") != nullptr);
    QVERIFY(set.findByPath("/usr/share/ppd/std1/hp/LaserJet.ppd") == nullptr);
    QVERIFY(set.findByPath("/usr/share/ppd/std1/HP/laserjet.ppd") == nullptr);
    QVERIFY(set.findByPath("/USR/SHARE/PPD/STD1/HP/LASERJET.PPD") == nullptr);
}

void TestPpd::queriesTrustTheCachedHashes()
{
    // A record whose cached hashes no longer fit its texts is passed over: the queries
    // compare the cached integers before they look at any text.
    PPDSet set;
    PPD *stale = entry("/a.ppd", "HP", "M");
    stale->pathHash ^= 1u;
    stale->manufacturerHash ^= 1u;
    stale->modelHash ^= 1u;
    set.ppds << stale;
    QVERIFY(set.findByPath("/a.ppd") == nullptr);
    QVERIFY(set.models("HP").isEmpty());
    QVERIFY(set.drivers("HP", "M").isEmpty());
}

void TestPpd::queriesCompareTextsWhenHashesAgree()
{
    // Equal hashes alone are not a match: the texts are compared as well.
    PPDSet set;
    PPD *colliding = entry("/a.ppd", "HP", "M");
    colliding->pathHash = qHash(QString("/b.ppd"), 0);
    colliding->manufacturerHash = qHash(QString("Epson"), 0);
    colliding->modelHash = qHash(QString("N"), 0);
    set.ppds << colliding;
    QVERIFY(set.findByPath("/b.ppd") == nullptr);
    QVERIFY(set.models("Epson").isEmpty());
    QVERIFY(set.drivers("Epson", "N").isEmpty());
}

QTEST_GUILESS_MAIN(TestPpd)
#include "tst_ppd.moc"
