#include "common/paths.h"
#include "printer/device.h"
#include "printer/printer.h"
#include "support/printermap.h"
#include "support/sandbox.h"
#include "support/shellrecorder.h"

#include <QtTest>

namespace {
const QString cache = paths::lpinfoCache();

Printer withUri(const QString &uri)
{
    return printerWithUri(QStringLiteral("P"), uri);
}
} // namespace

class TestDevice : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { REQUIRE_SANDBOX(); }
    void init()
    {
        sandbox::removePath(cache);
        sandbox::removePath(QStringLiteral("/tmp/.sandbox/lpinfo.out"));
    }

    void networkUriIsReturnedUnchangedWithoutRunningAnything()
    {
        ShellRecorder shell;
        QCOMPARE(withUri(QStringLiteral("socket://10.0.0.5:9100")).GetPrinterDevice(),
                 QStringLiteral("socket://10.0.0.5:9100"));
        QCOMPARE(withUri(QStringLiteral("lpd://server/queue1")).GetPrinterDevice(),
                 QStringLiteral("lpd://server/queue1"));
        QVERIFY(shell.commands().isEmpty());
        QVERIFY(!QFileInfo::exists(cache));
    }

    void networkUriLeavesAnExistingCacheUntouched()
    {
        QVERIFY(sandbox::writeFile(cache, "direct usb://A\n"));
        const QDateTime before = QFileInfo(cache).lastModified();
        ShellRecorder shell;
        withUri(QStringLiteral("socket://10.0.0.5:9100")).GetPrinterDevice();
        QVERIFY(shell.commands().isEmpty());
        QCOMPARE(sandbox::readFile(cache), QByteArray("direct usb://A\n"));
        QCOMPARE(QFileInfo(cache).lastModified(), before);
    }

    void storedUsbUriIsReplacedByTheFirstDirectUsbDevice()
    {
        QVERIFY(
            sandbox::writeFile(cache, "network socket\ndirect usb://EPSON/TM-T88V?serial=123\n"));
        ShellRecorder shell;
        QCOMPARE(withUri(QStringLiteral("usb://OldMaker/Old")).GetPrinterDevice(),
                 QStringLiteral("usb://EPSON/TM-T88V?serial=123"));
        QVERIFY(shell.commands().isEmpty()); // the cache exists, so lpinfo is not asked
    }

    void anyUriMentioningUsbIsTreatedAsLocal()
    {
        QVERIFY(sandbox::writeFile(cache, "direct usb://A\n"));
        QCOMPARE(withUri(QStringLiteral("socket://usbhost:9100")).GetPrinterDevice(),
                 QStringLiteral("usb://A"));
        // The test is case-sensitive.
        QCOMPARE(withUri(QStringLiteral("socket://USBHOST:9100")).GetPrinterDevice(),
                 QStringLiteral("socket://USBHOST:9100"));
    }

    void emptyUriAndNoUsbDeviceGivesTheFallback()
    {
        QVERIFY(sandbox::writeFile(cache, "network socket\nnetwork ipp\ndirect hp\n"));
        QCOMPARE(withUri(QString()).GetPrinterDevice(), QStringLiteral("usb:/dev/usb/lp0"));
    }

    void firstOfTwoDirectUsbLinesWins()
    {
        QVERIFY(sandbox::writeFile(cache, "direct usb://A\ndirect usb://B\n"));
        QCOMPARE(withUri(QString()).GetPrinterDevice(), QStringLiteral("usb://A"));
    }

    void lineWithLeadingSpacesDoesNotMatch()
    {
        QVERIFY(sandbox::writeFile(cache, "  direct usb://X\n"));
        QCOMPARE(withUri(QString()).GetPrinterDevice(), QStringLiteral("usb:/dev/usb/lp0"));
    }

    void missingCacheIsFilledOnceByLpinfo()
    {
        QVERIFY(sandbox::writeFile(QStringLiteral("/tmp/.sandbox/lpinfo.out"),
                                   "network socket\ndirect usb://Star/TSP143?serial=9\n"));
        sandbox::clearFakeCalls();
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        Printer p = withUri(QString());
        QCOMPARE(p.GetPrinterDevice(), QStringLiteral("usb://Star/TSP143?serial=9"));
        QCOMPARE(shell.commands(), QStringList{QStringLiteral("lpinfo -v >/tmp/.lpinfo.log")});
        QCOMPARE(sandbox::fakeCalls(),
                 (QList<QStringList>{{QStringLiteral("lpinfo"), QStringLiteral("-v")}}));
        // The cache is reused from now on, even if the attached device changes.
        QVERIFY(
            sandbox::writeFile(QStringLiteral("/tmp/.sandbox/lpinfo.out"), "direct usb://Other\n"));
        shell.clear();
        QCOMPARE(p.GetPrinterDevice(), QStringLiteral("usb://Star/TSP143?serial=9"));
        QVERIFY(shell.commands().isEmpty());
    }

    void failingLpinfoGivesTheFallback()
    {
        // The fake prints nothing when no device list was prepared.
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        QCOMPARE(withUri(QStringLiteral("usb:/dev/usb/lp1")).GetPrinterDevice(),
                 QStringLiteral("usb:/dev/usb/lp0"));
    }

    void unreadableCacheGivesTheFallback()
    {
        QVERIFY(QDir().mkpath(cache)); // a folder where the file should be
        ShellRecorder shell;
        QCOMPARE(withUri(QString()).GetPrinterDevice(), QStringLiteral("usb:/dev/usb/lp0"));
        QVERIFY(shell.commands().isEmpty()); // it exists, so lpinfo is not asked
    }

    void cacheWithCrLfLinesStillMatches()
    {
        QVERIFY(sandbox::writeFile(cache, "network x\r\ndirect usb://A\r\n"));
        QCOMPARE(withUri(QString()).GetPrinterDevice(), QStringLiteral("usb://A"));
    }

    void gettingTheDeviceDoesNotChangeTheRecord()
    {
        QVERIFY(sandbox::writeFile(cache, "direct usb://A\n"));
        Printer p = withUri(QStringLiteral("usb:/dev/usb/lp1"));
        p.GetPrinterDevice();
        QCOMPARE(p.device_uri, QStringLiteral("usb:/dev/usb/lp1"));
    }

    void parsesDeviceListText()
    {
        QCOMPARE(firstDirectUsbDevice(QStringLiteral("direct usb://A\ndirect usb://B")),
                 QStringLiteral("usb://A"));
        QCOMPARE(firstDirectUsbDevice(QStringLiteral("direct usbfoo")), QStringLiteral("usbfoo"));
        QCOMPARE(firstDirectUsbDevice(QStringLiteral("Direct usb://A\n")), QString());
        QCOMPARE(firstDirectUsbDevice(QString()), QString());
    }
};

QTEST_GUILESS_MAIN(TestDevice)
#include "tst_device.moc"
