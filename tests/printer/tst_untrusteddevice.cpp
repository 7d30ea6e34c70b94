#include "printer/device.h"
#include "printer/paths.h"
#include "printer/printer.h"
#include "support/sandbox.h"
#include "support/shellrecorder.h"

#include <QtTest>

// What "lpinfo -v" says about a USB printer comes from the device itself. Its address is
// later placed inside a quoted shell word and on a line of printers.conf, so an address
// that could break out of either is never used.
class TestUntrustedDevice : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { REQUIRE_SANDBOX(); }
    void init() { sandbox::removePath(paths::lpinfoCache()); }

    void addressWithAQuoteIsSkippedForTheNextDevice()
    {
        const QString list = QStringLiteral("direct usb://Evil/X'; rm -rf /tmp/x; echo '\n"
                                            "direct usb://Good/Printer?serial=1\n");
        QCOMPARE(firstDirectUsbDevice(list), QStringLiteral("usb://Good/Printer?serial=1"));
    }

    void addressWithBlanksOrControlCharactersIsNotUsed_data()
    {
        QTest::addColumn<QString>("line");
        QTest::newRow("blank") << QStringLiteral("direct usb://A B");
        QTest::newRow("tab") << QStringLiteral("direct usb://A\tB");
        QTest::newRow("carriage return") << QStringLiteral("direct usb://A\rDeviceURI x");
        QTest::newRow("escape") << QStringLiteral("direct usb://A\x1b[2J");
        QTest::newRow("delete") << QStringLiteral("direct usb://A\x7f");
    }
    void addressWithBlanksOrControlCharactersIsNotUsed()
    {
        QFETCH(QString, line);
        QCOMPARE(firstDirectUsbDevice(line + QLatin1Char('\n')), QString());
    }

    void ordinaryAddressesAreKept()
    {
        const QString uri = QStringLiteral("usb://HP/LaserJet%20P1005?serial=AB12&interface=1");
        QCOMPARE(firstDirectUsbDevice(QStringLiteral("direct ") + uri + QLatin1Char('\n')), uri);
    }

    void cacheWithOnlyAnUnsafeAddressGivesTheFallback()
    {
        QVERIFY(sandbox::writeFile(paths::lpinfoCache(), "direct usb://X'$(touch /tmp/owned)'\n"));
        ShellRecorder shell;
        Printer p;
        p.name = QStringLiteral("P");
        QCOMPARE(p.GetPrinterDevice(), QStringLiteral("usb:/dev/usb/lp0"));
        QVERIFY(shell.commands().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestUntrustedDevice)
#include "tst_untrusteddevice.moc"
