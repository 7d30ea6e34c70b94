#include "common/paths.h"
#include "printer/printer.h"
#include "support/printermap.h"
#include "support/sandbox.h"

#include <QtTest>

#include <memory>

namespace {

const QString registry = paths::registryFolder();
const QString defaultEntry = registry + QStringLiteral("/default");

Printer makePrinter(const QString &name, const QString &cls = QStringLiteral("direct"))
{
    Printer p;
    p.name = name;
    p.printer_class = cls;
    p.device_uri = QStringLiteral("usb:/dev/usb/lp0");
    p.ppd = QStringLiteral("/usr/share/ppd/cups-included/postscript.ppd");
    p.paper_size = QStringLiteral("A4");
    p.UpdatePath();
    return p;
}

} // namespace

class TestRegistry : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { REQUIRE_SANDBOX(); }
    void init() { resetRegistry(); }

    void emptyFolderGivesEmptyMapAndEmptyDefaultName()
    {
        QDir().mkpath(registry);
        Printer::setDefaultPrinterName(QStringLiteral("stale"));
        QTest::ignoreMessage(QtDebugMsg, "Printer::GetPrinters - Default printer = ");
        PrinterMap map;
        QVERIFY(map.printers.isEmpty());
        QCOMPARE(Printer::defaultPrinterName(), QString());
    }

    void missingRegistryFolderGivesEmptyMap()
    {
        PrinterMap map;
        QVERIFY(map.printers.isEmpty());
        QVERIFY(!QFileInfo::exists(registry)); // reading creates nothing
    }

    void readsEveryRecordKeyedByItsPath()
    {
        Printer a = makePrinter(QStringLiteral("Office"));
        Printer b = makePrinter(QStringLiteral("Front Desk"), QStringLiteral("network"));
        QVERIFY(a.Commit());
        QVERIFY(b.Commit());
        PrinterMap map;
        QCOMPARE(map.printers.size(), 2);
        QVERIFY(map.printers.contains(registry + QStringLiteral("/Office.pr")));
        QVERIFY(map.printers.contains(registry + QStringLiteral("/Front_Desk.pr")));
        Printer *fd = map.printers.value(registry + QStringLiteral("/Front_Desk.pr"));
        QCOMPARE(fd->name, QStringLiteral("Front Desk"));
        QVERIFY(fd->IsNetwork());
        QCOMPARE(fd->path(), registry + QStringLiteral("/Front_Desk.pr"));
    }

    void defaultEntryIsNotEnumeratedAsAPrinter()
    {
        Printer a = makePrinter(QStringLiteral("Office"));
        a.SetDefault();
        QVERIFY(a.Commit());
        PrinterMap map;
        QCOMPARE(map.printers.size(), 1);
        QCOMPARE(Printer::defaultPrinterName(), QStringLiteral("Office"));
        QVERIFY(map.byName(QStringLiteral("Office"))->IsDefault());
    }

    void defaultNameIsTracedAfterReading()
    {
        Printer a = makePrinter(QStringLiteral("Office"));
        a.SetDefault();
        a.Commit();
        QTest::ignoreMessage(QtDebugMsg, "Printer::GetPrinters - Default printer = Office");
        PrinterMap map;
    }

    void committingTheDefaultWritesTwoIdenticalFiles()
    {
        Printer a = makePrinter(QStringLiteral("Office"));
        a.SetDefault();
        QTest::ignoreMessage(QtDebugMsg, "bool Printer::Commit");
        QVERIFY(a.Commit());
        const QByteArray own = sandbox::readFile(registry + QStringLiteral("/Office.pr"));
        QVERIFY(!own.isEmpty());
        QCOMPARE(sandbox::readFile(defaultEntry), own);
    }

    void committingAnotherPrinterLeavesTheDefaultEntryAlone()
    {
        Printer a = makePrinter(QStringLiteral("Office"));
        a.SetDefault();
        a.Commit();
        const QByteArray before = sandbox::readFile(defaultEntry);
        Printer b = makePrinter(QStringLiteral("Lab"));
        QVERIFY(b.Commit());
        QCOMPARE(sandbox::readFile(defaultEntry), before);
    }

    void movingTheDefaultOverwritesTheEntryAndLeavesTheFormerRecordUnchanged()
    {
        Printer a = makePrinter(QStringLiteral("Office"));
        a.SetDefault();
        a.Commit();
        const QByteArray officeFile = sandbox::readFile(registry + QStringLiteral("/Office.pr"));
        Printer b = makePrinter(QStringLiteral("Lab"));
        b.Commit();
        b.SetDefault();
        b.Commit();
        QCOMPARE(sandbox::readFile(defaultEntry),
                 sandbox::readFile(registry + QStringLiteral("/Lab.pr")));
        QCOMPARE(sandbox::readFile(registry + QStringLiteral("/Office.pr")), officeFile);
        PrinterMap map;
        QVERIFY(map.byName(QStringLiteral("Lab"))->IsDefault());
        QVERIFY(!map.byName(QStringLiteral("Office"))->IsDefault());
    }

    void removingTheDefaultRemovesBothFiles()
    {
        Printer a = makePrinter(QStringLiteral("Office"));
        a.SetDefault();
        a.Commit();
        QVERIFY(a.Remove());
        QVERIFY(!QFileInfo::exists(registry + QStringLiteral("/Office.pr")));
        QVERIFY(!QFileInfo::exists(defaultEntry));
        QCOMPARE(Printer::defaultPrinterName(), QStringLiteral("Office")); // until the next read
        PrinterMap map;
        QCOMPARE(Printer::defaultPrinterName(), QString());
    }

    void removingAnotherPrinterLeavesTheDefaultEntry()
    {
        Printer a = makePrinter(QStringLiteral("Office"));
        a.SetDefault();
        a.Commit();
        Printer b = makePrinter(QStringLiteral("Lab"));
        b.Commit();
        QVERIFY(b.Remove());
        QVERIFY(QFileInfo::exists(defaultEntry));
        QVERIFY(!QFileInfo::exists(registry + QStringLiteral("/Lab.pr")));
        QVERIFY(!b.Remove()); // already gone: reported, nothing else happens
    }

    void staleDefaultEntryMarksNoRecordAsDefault()
    {
        Printer gone = makePrinter(QStringLiteral("Gone"));
        gone.SetDefault();
        gone.Commit();
        QFile::remove(registry + QStringLiteral("/Gone.pr"));
        makePrinter(QStringLiteral("Office")).Commit();
        makePrinter(QStringLiteral("Lab")).Commit();
        PrinterMap map;
        QCOMPARE(map.printers.size(), 2);
        QCOMPARE(Printer::defaultPrinterName(), QStringLiteral("Gone"));
        for (Printer *p : qAsConst(map.printers))
            QVERIFY2(!p->IsDefault(), qPrintable(p->name));
    }

    void uncommittedDefaultIsLostAtTheNextRead()
    {
        Printer a = makePrinter(QStringLiteral("Office"));
        a.Commit();
        a.SetDefault();
        PrinterMap map;
        QCOMPARE(Printer::defaultPrinterName(), QString());
    }

    void unreadableRecordsStillAppearWithDefaultFields_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("empty") << QByteArray();
        QByteArray garbage;
        quint32 x = 99;
        for (int i = 0; i < 65536; ++i) {
            x = x * 1664525u + 1013904223u;
            garbage.append(char(x >> 24));
        }
        QTest::newRow("binary garbage") << garbage;
        QTest::newRow("no separators") << QByteArray("just some text\nwithout keys\n");
    }
    void unreadableRecordsStillAppearWithDefaultFields()
    {
        QFETCH(QByteArray, content);
        QVERIFY(sandbox::writeFile(registry + QStringLiteral("/Broken.pr"), content));
        makePrinter(QStringLiteral("Office")).Commit();
        PrinterMap map;
        QCOMPARE(map.printers.size(), 2);
        Printer *broken = map.printers.value(registry + QStringLiteral("/Broken.pr"));
        QVERIFY(broken);
        QCOMPARE(broken->path(), registry + QStringLiteral("/Broken.pr"));
        QCOMPARE(map.byName(QStringLiteral("Office"))->paper_size, QStringLiteral("A4"));
        if (content.isEmpty() || !content.contains("name=")) {
            QCOMPARE(broken->name, QString());
            QCOMPARE(broken->default_vdi_printer, false);
        }
    }

    void recordUpToTheSizeCapIsReadWhole()
    {
        const QByteArray model((1 << 20) - 64, 'm');
        QVERIFY(sandbox::writeFile(registry + QStringLiteral("/Big.pr"),
                                   "name=Big\nmodel=" + model + "\npaper_size=A4\n"));
        PrinterMap map;
        Printer *big = map.byName(QStringLiteral("Big"));
        QVERIFY(big);
        QCOMPARE(big->model.size(), model.size());
        QCOMPARE(big->paper_size, QStringLiteral("A4"));
    }

    void folderNamedLikeARecordIsNotAPrinter()
    {
        QVERIFY(QDir().mkpath(registry + QStringLiteral("/Folder.pr")));
        makePrinter(QStringLiteral("Office")).Commit();
        PrinterMap map;
        QCOMPARE(map.printers.size(), 1);
    }

    void folderInPlaceOfTheDefaultEntryGivesNoDefault()
    {
        QVERIFY(QDir().mkpath(defaultEntry));
        Printer a = makePrinter(QStringLiteral("Office"));
        a.Commit();
        PrinterMap map;
        QCOMPARE(Printer::defaultPrinterName(), QString());
        QCOMPARE(map.printers.size(), 1);
        // Committing the default cannot replace a folder; the record itself is still written.
        Printer *p = map.byName(QStringLiteral("Office"));
        p->SetDefault();
        QVERIFY(p->Commit());
        QVERIFY(QFileInfo(defaultEntry).isDir());
    }

    void registryPathThatIsAFileGivesEmptyMapAndFailedCommits()
    {
        QVERIFY(sandbox::writeFile(registry, "not a folder"));
        PrinterMap map;
        QVERIFY(map.printers.isEmpty());
        Printer a = makePrinter(QStringLiteral("Office"));
        QVERIFY(!a.Commit());
        QCOMPARE(sandbox::readFile(registry), QByteArray("not a folder"));
    }

    void commitOfARecordWithoutPathFails()
    {
        Printer a;
        a.name = QStringLiteral("NoPath");
        QVERIFY(!a.Commit());
    }
};

QTEST_GUILESS_MAIN(TestRegistry)
#include "tst_registry.moc"
