#include "common/paths.h"
#include "printer/printer.h"
#include "support/printermap.h"
#include "support/sandbox.h"

#include <zeq/persistentproperties.h>

#include <QtTest>

namespace {
const QString registry = paths::registryFolder();

// The path a record of this name gets from UpdatePath().
QString pathFor(const QString &name)
{
    Printer p;
    p.name = name;
    p.UpdatePath();
    return p.path();
}
} // namespace

class TestRecord : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { REQUIRE_SANDBOX(); }
    void init() { resetRegistry(); }

    void newRecordIsEmptyWithFlagFalse()
    {
        Printer p;
        QVERIFY(p.name.isEmpty() && p.printer_class.isEmpty() && p.model.isEmpty());
        QVERIFY(p.device_uri.isEmpty() && p.ppd.isEmpty() && p.win_driver.isEmpty());
        QVERIFY(p.paper_size.isEmpty());
        QCOMPARE(p.default_vdi_printer, false);
        QVERIFY(p.path().isEmpty());
    }

    void storesTheEightPropertiesInOrderUnderTheirKeys()
    {
        Printer p;
        p.name = QStringLiteral("Office");
        p.printer_class = QStringLiteral("network");
        p.model = QStringLiteral("Laser 9");
        p.device_uri = QStringLiteral("socket://10.0.0.5:9100");
        p.ppd = QStringLiteral("/usr/share/ppd/x.ppd");
        p.win_driver = QStringLiteral("HP Universal");
        p.paper_size = QStringLiteral("A4");
        p.default_vdi_printer = true;
        p.UpdatePath();
        QVERIFY(p.zeq::PersistentObject::Commit());
        QCOMPARE(sandbox::readFile(registry + QStringLiteral("/Office.pr")),
                 QByteArray("name=Office\nclass=network\nmodel=Laser 9\n"
                            "device_uri=socket://10.0.0.5:9100\nppd=/usr/share/ppd/x.ppd\n"
                            "win_driver=HP Universal\npaper_size=A4\ndefault_vdi_printer=true\n"));
        Printer q;
        q.set_path(p.path());
        q.Load();
        QCOMPARE(recordFields(q), recordFields(p));
        QCOMPARE(q.default_vdi_printer, true);
    }

    void updatePathTurnsEachWhitespaceCharacterIntoAnUnderscore()
    {
        QCOMPARE(pathFor(QStringLiteral("A  B\tC")), registry + QStringLiteral("/A__B_C.pr"));
        QCOMPARE(pathFor(QStringLiteral("Office Laser 2")),
                 registry + QStringLiteral("/Office_Laser_2.pr"));
        QCOMPARE(pathFor(QStringLiteral("line\nfeed\r\vx")),
                 registry + QStringLiteral("/line_feed__x.pr"));
        // The same record renamed gets each new path in turn.
        Printer p;
        p.name = QStringLiteral("A  B\tC");
        p.UpdatePath();
        p.name = QStringLiteral("Office Laser 2");
        p.UpdatePath();
        QCOMPARE(p.path(), registry + QStringLiteral("/Office_Laser_2.pr"));
    }

    void updatePathLeavesSlashesSoThePathPointsIntoASubfolder()
    {
        QCOMPARE(pathFor(QStringLiteral("floor2/Office")),
                 registry + QStringLiteral("/floor2/Office.pr"));
    }

    void updatePathDoesNotReexpandPercentSigns()
    {
        QCOMPARE(pathFor(QStringLiteral("Laser%1%2")), registry + QStringLiteral("/Laser%1%2.pr"));
    }

    void renamingDoesNotMoveTheFileUntilUpdatePath()
    {
        Printer p;
        p.name = QStringLiteral("Old");
        p.UpdatePath();
        p.name = QStringLiteral("New");
        QCOMPARE(p.path(), registry + QStringLiteral("/Old.pr"));
    }

    void onlyTheExactClassNetworkIsANetworkPrinter()
    {
        Printer p;
        QVERIFY(!p.IsNetwork());
        p.printer_class = QStringLiteral("network");
        QVERIFY(p.IsNetwork());
        p.printer_class = QStringLiteral("Network");
        QVERIFY(!p.IsNetwork());
        p.printer_class = QStringLiteral("network ");
        QVERIFY(!p.IsNetwork());
        p.printer_class = QStringLiteral("direct");
        QVERIFY(!p.IsNetwork());
    }

    void missingKeysLoadAsDefaults()
    {
        QVERIFY(sandbox::writeFile(registry + QStringLiteral("/Old.pr"),
                                   "name=Old\nclass=direct\nppd=/x.ppd\n"));
        Printer p;
        p.default_vdi_printer = true;
        p.paper_size = QStringLiteral("stale");
        p.set_path(registry + QStringLiteral("/Old.pr"));
        p.Load();
        QCOMPARE(p.name, QStringLiteral("Old"));
        QCOMPARE(p.default_vdi_printer, false);
        QCOMPARE(p.paper_size, QString());
    }

    void defaultIsDecidedByNameAlone()
    {
        Printer a, b;
        a.name = QStringLiteral("Office");
        b.name = QStringLiteral("office");
        a.SetDefault();
        QCOMPARE(Printer::defaultPrinterName(), QStringLiteral("Office"));
        QVERIFY(a.IsDefault());
        QVERIFY(!b.IsDefault());
        Printer c;
        c.name = QStringLiteral("Office");
        QVERIFY(c.IsDefault());
    }

    void twoUnnamedRecordsAreBothDefaultWhileNoDefaultIsSet()
    {
        Printer a, b;
        QVERIFY(a.IsDefault());
        QVERIFY(b.IsDefault());
    }

    void setDefaultWritesNothing()
    {
        Printer a;
        a.name = QStringLiteral("Office");
        a.UpdatePath();
        a.SetDefault();
        QVERIFY(!QFileInfo::exists(registry));
    }

    void getNameReturnsTheName()
    {
        Printer a;
        a.name = QStringLiteral("Front Desk");
        QCOMPARE(a.GetName(), QStringLiteral("Front Desk"));
    }

    void recordsAreCopiedWhole()
    {
        Printer a;
        a.name = QStringLiteral("A");
        a.device_uri = QStringLiteral("lpd://h/q");
        a.default_vdi_printer = true;
        a.set_path(QStringLiteral("/x/A.pr"));
        Printer b = a;
        QCOMPARE(b.name, a.name);
        QCOMPARE(b.device_uri, a.device_uri);
        QCOMPARE(b.default_vdi_printer, true);
        QCOMPARE(b.path(), a.path());
    }
};

QTEST_GUILESS_MAIN(TestRecord)
#include "tst_record.moc"
