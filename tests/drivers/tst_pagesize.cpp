// Reading paper sizes from "*PageSize" lines, without a window.
#include "drivers/pagesize.h"

#include <QFile>
#include <QTextStream>
#include <QtTest>

class TestPageSize : public QObject
{
    Q_OBJECT

private slots:
    void keywordBeforeSlashIsThePaperSize_data();
    void keywordBeforeSlashIsThePaperSize();
    void onlyLinesStartingWithPageSizeCount();
    void duplicatesAreKeptInFileOrder();
    void emptyStreamGivesNoSizes();
    void fixturePpdsGiveTheirListedSizes_data();
    void fixturePpdsGiveTheirListedSizes();
    void missingFileGivesNoSizes();
};

void TestPageSize::keywordBeforeSlashIsThePaperSize_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("size");

    QTest::newRow("A4 translated A4") << "*PageSize A4/A4: \"<</PageSize[595 842]>>setpagedevice\""
                                      << "A4";
    QTest::newRow("Letter translated US Letter")
        << "*PageSize Letter/US Letter: \"<</PageSize[612 792]>>setpagedevice\""
        << "Letter";
    QTest::newRow("label keyword") << "*PageSize w288h432/4.00x6.00\": \"<</PageSize[288 432]>>\""
                                   << "w288h432";
    // Without a "/" the length is negative: everything after the first space.
    QTest::newRow("no slash") << "*PageSize Custom: \"x\""
                              << "Custom: \"x\"";
    // The fixed arithmetic assumes the keyword starts at index 10 whatever the first word
    // is: with the space at 11 and the slash at 19, nine characters from index 12.
    QTest::newRow("longer first word") << "*PageSizeXY Tabloid/Tab"
                                       << "Tabloid/T";
    // A slash right after the space gives an empty size.
    QTest::newRow("empty keyword") << "*PageSize /x"
                                   << "";
    // A slash early in the line gives a negative length: the rest of the line.
    QTest::newRow("slash in first word") << "*Page/Size Letter"
                                         << "Letter";
}

void TestPageSize::keywordBeforeSlashIsThePaperSize()
{
    QFETCH(QString, line);
    QFETCH(QString, size);
    QCOMPARE(paperSizeFromPageSizeLine(line), size);
}

void TestPageSize::onlyLinesStartingWithPageSizeCount()
{
    QString ppd = QStringLiteral("*PPD-Adobe: \"4.3\"\n"
                                 "*OpenUI *PageSize/Media Size: PickOne\n"
                                 "*DefaultPageSize: Letter\n"
                                 "*PageSize Letter/US Letter: \"a\"\n"
                                 " *PageSize Indented/Indented: \"b\"\n"
                                 "*pagesize Lower/Lower: \"c\"\n"
                                 "*PageRegion Legal/US Legal: \"d\"\n"
                                 "*PageSizeExtra Big/Big: \"e\"\n"
                                 "*PageSize A4/A4: \"f\"\n"
                                 "*CloseUI: *PageSize\n");
    QTextStream in(&ppd, QIODevice::ReadOnly);
    // "*PageSizeExtra Big/Big" begins with "*PageSize" and so counts; its fixed
    // arithmetic (slash at 18) yields eight characters from index 15.
    QCOMPARE(paperSizesFromPpd(in), QStringList({"Letter", "Big/Big:", "A4"}));
}

void TestPageSize::duplicatesAreKeptInFileOrder()
{
    QString ppd = QStringLiteral("*PageSize B5/B5: \"a\"\r\n"
                                 "*PageSize A4/A4: \"b\"\r\n"
                                 "*PageSize B5/JIS B5: \"c\"\r\n");
    QTextStream in(&ppd, QIODevice::ReadOnly);
    QCOMPARE(paperSizesFromPpd(in), QStringList({"B5", "A4", "B5"}));
}

void TestPageSize::emptyStreamGivesNoSizes()
{
    QString ppd;
    QTextStream in(&ppd, QIODevice::ReadOnly);
    QVERIFY(paperSizesFromPpd(in).isEmpty());
}

void TestPageSize::fixturePpdsGiveTheirListedSizes_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QStringList>("sizes");

    const QString std1 = QStringLiteral("usr/share/ppd/std1/");
    QTest::newRow("PCL 4") << std1 + "Generic/Generic-PCL_4_Printer-laserjet.ppd"
                           << QStringList({"Letter", "Legal", "A4", "Executive", "A5"});
    QTest::newRow("PCL 5e") << std1 + "Generic/Generic-PCL_5e_Printer-ljet4d.ppd"
                            << QStringList({"Letter", "Legal", "A4", "Executive", "Env10"});
    QTest::newRow("raw") << std1 + "Generic/-Generic-Text-Only-Raw.ppd" << QStringList();
    QTest::newRow("zebra") << std1 + "Zebra/zebra.ppd"
                           << QStringList({"w288h432", "w288h288", "w144h72"});
    QTest::newRow("tsp143") << std1 + "Star/tsp143.ppd"
                            << QStringList({"X72MMY200MM", "X80MMY3276MM"});
}

void TestPageSize::fixturePpdsGiveTheirListedSizes()
{
    QFETCH(QString, file);
    QFETCH(QStringList, sizes);
    const QString fixtures = qEnvironmentVariable("SANDBOX_FIXTURES");
    if (fixtures.isEmpty())
        QSKIP("SANDBOX_FIXTURES is not set; run this test through ctest");
    QFile ppd(fixtures + QStringLiteral("/root/") + file);
    QVERIFY2(ppd.open(QIODevice::ReadOnly | QIODevice::Text), qPrintable(ppd.fileName()));
    QTextStream in(&ppd);
    QCOMPARE(paperSizesFromPpd(in), sizes);
    // Read by path, the file gives the same.
    QStringList read{QStringLiteral("stale")};
    QVERIFY(paperSizesFromPpdFile(ppd.fileName(), &read));
    QCOMPARE(read, sizes);
}

void TestPageSize::missingFileGivesNoSizes()
{
    QStringList read{QStringLiteral("stale")};
    QVERIFY(!paperSizesFromPpdFile(QStringLiteral("/nonexistent/printer.ppd"), &read));
    QVERIFY(read.isEmpty());
}

QTEST_GUILESS_MAIN(TestPageSize)
#include "tst_pagesize.moc"
