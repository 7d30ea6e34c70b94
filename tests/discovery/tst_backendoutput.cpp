// Reading device lines out of a backend's standard output, without threads or processes.
#include "discovery/discovery.h"

#include <QTest>

class TestBackendOutput : public QObject
{
    Q_OBJECT
private slots:
    void readsClassUriAndModelFromNetworkLine();
    void leavesEveryOtherFieldEmpty();
    void ignoresLineEndingRightAfterModel_data();
    void ignoresLineEndingRightAfterModel();
    void matchesDeviceLineAfterLeadingText_data();
    void matchesDeviceLineAfterLeadingText();
    void takesOnlyTheFirstDeviceLineOfALine();
    void requiresSchemeAndNonEmptyUri_data();
    void requiresSchemeAndNonEmptyUri();
    void acceptsEmptyModel();
    void readsEveryLineInOrder();
    void stopsAtFirstNulByte();
    void decodesModelAsUtf8();
    void emptyOutputGivesNothing();
};

void TestBackendOutput::readsClassUriAndModelFromNetworkLine()
{
    QTest::ignoreMessage(QtDebugMsg, "-->Acme Laser 9, socket://192.168.1.20");
    const QList<Printer> found = parseBackendOutput(
        "network socket://192.168.1.20 \"Acme Laser 9\" \"Acme Laser 9 in room 4\"\n");
    QCOMPARE(found.size(), 1);
    QCOMPARE(found[0].printer_class, QStringLiteral("network"));
    QCOMPARE(found[0].device_uri, QStringLiteral("socket://192.168.1.20"));
    QCOMPARE(found[0].model, QStringLiteral("Acme Laser 9"));
}

void TestBackendOutput::leavesEveryOtherFieldEmpty()
{
    const QList<Printer> found =
        parseBackendOutput("direct usb://Acme/L9?serial=42 \"Acme L9\" \"Acme L9 USB\" \"\"\n");
    QCOMPARE(found.size(), 1);
    const Printer empty;
    QCOMPARE(found[0].name, empty.name);
    QCOMPARE(found[0].ppd, empty.ppd);
    QCOMPARE(found[0].win_driver, empty.win_driver);
    QCOMPARE(found[0].paper_size, empty.paper_size);
    QCOMPARE(found[0].default_vdi_printer, empty.default_vdi_printer);
    QCOMPARE(found[0].path(), empty.path());
}

void TestBackendOutput::ignoresLineEndingRightAfterModel_data()
{
    QTest::addColumn<QByteArray>("output");
    QTest::addColumn<int>("count");
    QTest::newRow("end of line") << QByteArray("network socket://192.168.1.20 \"Acme Laser 9\"\n")
                                 << 0;
    QTest::newRow("end of output")
        << QByteArray("network socket://192.168.1.20 \"Acme Laser 9\"") << 0;
    QTest::newRow("carriage return")
        << QByteArray("network socket://192.168.1.20 \"Acme Laser 9\"\r\n") << 0;
    QTest::newRow("one space more")
        << QByteArray("network socket://192.168.1.20 \"Acme Laser 9\" \n") << 1;
}

void TestBackendOutput::ignoresLineEndingRightAfterModel()
{
    QFETCH(QByteArray, output);
    QFETCH(int, count);
    QCOMPARE(parseBackendOutput(output).size(), count);
}

void TestBackendOutput::matchesDeviceLineAfterLeadingText_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("printerClass");
    QTest::addColumn<QString>("uri");
    QTest::addColumn<QString>("model");
    QTest::newRow("log prefix") << QByteArray(
                                       "DEBUG: network lpd://10.0.0.7/queue \"Acme 7\" \"x\"")
                                << "network"
                                << "lpd://10.0.0.7/queue"
                                << "Acme 7";
    QTest::newRow("words before") << QByteArray("found a direct usb://Acme/L9 \"Acme L9\" \"USB\"")
                                  << "direct"
                                  << "usb://Acme/L9"
                                  << "Acme L9";
    // Word characters glued to the class belong to the match, which starts at the first
    // place the whole pattern fits.
    QTest::newRow("glued prefix") << QByteArray("probe_network socket://h:9100 \"M\" \"d\"")
                                  << "probe_network"
                                  << "socket://h:9100"
                                  << "M";
    QTest::newRow("punctuation") << QByteArray("[1]:network socket://h \"M\" \"d\"") << "network"
                                 << "socket://h"
                                 << "M";
}

void TestBackendOutput::matchesDeviceLineAfterLeadingText()
{
    QFETCH(QByteArray, line);
    QFETCH(QString, printerClass);
    QFETCH(QString, uri);
    QFETCH(QString, model);
    const QList<Printer> found = parseBackendOutput(line);
    QCOMPARE(found.size(), 1);
    QCOMPARE(found[0].printer_class, printerClass);
    QCOMPARE(found[0].device_uri, uri);
    QCOMPARE(found[0].model, model);
}

void TestBackendOutput::takesOnlyTheFirstDeviceLineOfALine()
{
    const QList<Printer> found = parseBackendOutput(
        "network socket://a \"First\" \"d\" network socket://b \"Second\" \"d\"\n");
    QCOMPARE(found.size(), 1);
    QCOMPARE(found[0].device_uri, QStringLiteral("socket://a"));
    QCOMPARE(found[0].model, QStringLiteral("First"));
}

void TestBackendOutput::requiresSchemeAndNonEmptyUri_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<int>("count");
    QTest::newRow("single slash") << QByteArray("network socket:/h \"M\" \"d\"") << 0;
    QTest::newRow("nothing after scheme") << QByteArray("network socket:// \"M\" \"d\"") << 0;
    QTest::newRow("no scheme") << QByteArray("network ://h \"M\" \"d\"") << 0;
    QTest::newRow("hyphen in scheme") << QByteArray("network ipp-s://h \"M\" \"d\"") << 0;
    QTest::newRow("no class") << QByteArray("socket://h \"M\" \"d\"") << 0;
    QTest::newRow("two spaces") << QByteArray("network  socket://h \"M\" \"d\"") << 0;
    QTest::newRow("unquoted model") << QByteArray("network socket://h M \"d\"") << 0;
    QTest::newRow("digits and underscore") << QByteArray("net_2 x_1://h \"M\" \"d\"") << 1;
}

void TestBackendOutput::requiresSchemeAndNonEmptyUri()
{
    QFETCH(QByteArray, line);
    QFETCH(int, count);
    QCOMPARE(parseBackendOutput(line).size(), count);
}

void TestBackendOutput::acceptsEmptyModel()
{
    const QList<Printer> found = parseBackendOutput("direct usb://x \"\" \"d\"");
    QCOMPARE(found.size(), 1);
    QCOMPARE(found[0].model, QString());
    QCOMPARE(found[0].device_uri, QStringLiteral("usb://x"));
}

void TestBackendOutput::readsEveryLineInOrder()
{
    const QList<Printer> found = parseBackendOutput("network socket://one \"One\" \"d\"\n"
                                                    "\n"
                                                    "not a device line\n"
                                                    "direct usb://two \"Two\" \"d\"\n"
                                                    "\n"
                                                    "network lpd://three/q \"Three\" \"d\"");
    QCOMPARE(found.size(), 3);
    QCOMPARE(found[0].model, QStringLiteral("One"));
    QCOMPARE(found[1].model, QStringLiteral("Two"));
    QCOMPARE(found[1].printer_class, QStringLiteral("direct"));
    QCOMPARE(found[2].model, QStringLiteral("Three"));
    QCOMPARE(found[2].device_uri, QStringLiteral("lpd://three/q"));
}

void TestBackendOutput::stopsAtFirstNulByte()
{
    static const char raw[] = "network socket://before \"Before\" \"d\"\n"
                              "net\0work socket://cut \"Cut\" \"d\"\n"
                              "network socket://after \"After\" \"d\"\n";
    const QByteArray output(raw, sizeof(raw) - 1);
    QCOMPARE(output.count('\0'), 1);
    const QList<Printer> found = parseBackendOutput(output);
    QCOMPARE(found.size(), 1);
    QCOMPARE(found[0].model, QStringLiteral("Before"));
}

void TestBackendOutput::decodesModelAsUtf8()
{
    const QList<Printer> found =
        parseBackendOutput("network socket://h \"B\xc3\xbcro Dru\xc3\xa7ker \xe2\x84\x96"
                           "5\" \"d\"");
    QCOMPARE(found.size(), 1);
    QCOMPARE(found[0].model, QStringLiteral("B\u00fcro Dru\u00e7ker \u21165"));
    QCOMPARE(found[0].model.size(), 15);
}

void TestBackendOutput::emptyOutputGivesNothing()
{
    QVERIFY(parseBackendOutput(QByteArray()).isEmpty());
    QVERIFY(parseBackendOutput("\n\n").isEmpty());
}

QTEST_GUILESS_MAIN(TestBackendOutput)
#include "tst_backendoutput.moc"
