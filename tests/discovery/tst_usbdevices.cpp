// The USB printers attached now, read from the usb backend as the boot and hot-plug units
// read them: which lines count, and a backend that is missing, foreign, slow or endless;
// and the printers on the kernel's USB buses, counted from a folder laid out as sysfs lays
// out /sys/bus/usb/devices.
#include "common/paths.h"
#include "discovery/usbdevices.h"
#include "support/sandbox.h"
#include "support/stderrcapture.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

namespace {

const QString backend = paths::backendFolder() + QStringLiteral("/usb");

// The usb backend as a shell script of ours, root's and mode 0755 unless told otherwise.
bool installBackend(const QByteArray &script, int mode = 0755)
{
    return sandbox::writeFile(backend, "#!/bin/sh\n" + script) &&
           ::chmod(QFile::encodeName(backend).constData(), mode_t(mode)) == 0;
}

// Runs usbdevices::list, which must fail with a reason that holds expected and leave no
// lines; *elapsedMs is how long it took. Checks with QVERIFY: a caller goes on only when
// QTest::currentTestFailed() is false.
void listFails(const QString &expected, qint64 *elapsedMs = nullptr)
{
    QElapsedTimer clock;
    clock.start();
    QStringList lines;
    QString reason;
    QVERIFY(!usbdevices::list(&lines, &reason));
    if (elapsedMs)
        *elapsedMs = clock.elapsed();
    QVERIFY2(reason.contains(expected), qPrintable(reason));
    QCOMPARE(lines, QStringList());
}

} // namespace

class TestUsbDevices : public QObject
{
    Q_OBJECT

private slots:
    void init() { sandbox::removePath(backend); }

    void directUsbLinesAreKeptInTheBackendsOrderAsLpinfoPrintsThem()
    {
        const QByteArray output =
            "direct usb://Acme/Label?serial=42 \"Acme Label\" \"Acme Label USB\" \"MFG:Acme;\" "
            "\"\"\n"
            "network socket://10.0.0.5 \"Unknown\" \"Office\"\n"
            "direct usb://EPSON/TM-T88V?serial=123 \"EPSON TM-T88V\" \"EPSON TM-T88V\"\n";
        QCOMPARE(usbdevices::directUsbLines(output),
                 QStringList({QStringLiteral("direct usb://Acme/Label?serial=42"),
                              QStringLiteral("direct usb://EPSON/TM-T88V?serial=123")}));
    }

    void linesThatAreNotWholeDirectUsbDeviceLinesAreLeftOut_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("leading blank") << QByteArray(" direct usb://A/B \"A B\" \"\"");
        QTest::newRow("other text first") << QByteArray("x direct usb://A/B \"A B\" \"\"");
        QTest::newRow("another class") << QByteArray("network usb://A/B \"A B\" \"\"");
        QTest::newRow("another scheme") << QByteArray("direct usbx://A/B \"A B\" \"\"");
        QTest::newRow("no make and model") << QByteArray("direct usb://A/B");
        QTest::newRow("unclosed make and model") << QByteArray("direct usb://A/B \"A B");
        QTest::newRow("escape character") << QByteArray("direct usb://A/\x1b[2J \"A B\" \"\"");
        QTest::newRow("behind a zero byte") << QByteArray("\0direct usb://A/B \"A B\" \"\"", 27);
    }
    void linesThatAreNotWholeDirectUsbDeviceLinesAreLeftOut()
    {
        QFETCH(QByteArray, line);
        QCOMPARE(usbdevices::directUsbLines(line + '\n'), QStringList());
    }

    void theBackendIsRunWithoutArguments()
    {
        REQUIRE_SANDBOX();
        QVERIFY(installBackend(
            "[ $# = 0 ] || exit 3\n"
            "echo 'DEBUG: this goes to standard error' >&2\n"
            "echo 'direct usb://Acme/Label?serial=42 \"Acme Label\" \"Label\" \"\" \"\"'\n"));
        QStringList lines;
        QString reason;
        QVERIFY2(usbdevices::list(&lines, &reason), qPrintable(reason));
        QCOMPARE(lines, QStringList{QStringLiteral("direct usb://Acme/Label?serial=42")});
    }

    void noPrinterAttachedGivesAnEmptyList()
    {
        REQUIRE_SANDBOX();
        QVERIFY(installBackend("exit 0\n"));
        QStringList lines{QStringLiteral("stale")};
        QString reason;
        QVERIFY2(usbdevices::list(&lines, &reason), qPrintable(reason));
        QCOMPARE(lines, QStringList());
    }

    void aMissingFailingOrForeignBackendGivesNoList_data()
    {
        QTest::addColumn<QByteArray>("script"); // empty: no backend at all
        QTest::addColumn<int>("mode");
        QTest::addColumn<QString>("reason");
        QTest::newRow("missing") << QByteArray() << 0 << QStringLiteral("is missing");
        QTest::newRow("fails") << QByteArray("exit 1\n") << 0755 << QStringLiteral("failed");
        QTest::newRow("group may change it")
            << QByteArray("exit 0\n") << 0775 << QStringLiteral("only root may change");
        QTest::newRow("anyone may change it")
            << QByteArray("exit 0\n") << 0757 << QStringLiteral("only root may change");
    }
    void aMissingFailingOrForeignBackendGivesNoList()
    {
        REQUIRE_SANDBOX();
        QFETCH(QByteArray, script);
        QFETCH(int, mode);
        QFETCH(QString, reason);
        if (!script.isEmpty())
            QVERIFY(installBackend(script, mode));
        listFails(reason);
    }

    void aBackendThatNeverEndsIsKilledAfterItsTime()
    {
        REQUIRE_SANDBOX();
        QVERIFY(installBackend("echo 'direct usb://A/B \"A B\" \"\"'\nexec sleep 600\n"));
        qint64 elapsedMs = -1;
        listFails(QStringLiteral("did not end"), &elapsedMs);
        if (QTest::currentTestFailed())
            return;
        QVERIFY(elapsedMs >= usbdevices::listTimeoutMs);
        QVERIFY(elapsedMs < usbdevices::listTimeoutMs + 5000);
    }

    void aBackendThatPrintsWithoutEndIsCutOff()
    {
        REQUIRE_SANDBOX();
        QVERIFY(installBackend("exec yes 'direct usb://A/B \"A B\" \"\"'\n"));
        StderrCapture quiet;
        qint64 elapsedMs = -1;
        listFails(QStringLiteral("more than allowed"), &elapsedMs);
        if (QTest::currentTestFailed())
            return;
        QVERIFY(elapsedMs < usbdevices::listTimeoutMs);
    }

    // The kernel's folder as the sandbox gives it: the machine's own devices are not there.
    void theSandboxesBusIsItsOwn()
    {
        REQUIRE_SANDBOX();
        QVERIFY(sandbox::putPrintersOnBus(0));
        QCOMPARE(usbdevices::printersOnBus(paths::usbDeviceFolder()), 0);
        QVERIFY(sandbox::putPrintersOnBus(2));
        QCOMPARE(usbdevices::printersOnBus(paths::usbDeviceFolder()), 2);
        QVERIFY(sandbox::putPrintersOnBus(0));
    }

    // Each device with an interface the usb backend prints through counts once; hubs,
    // other classes, the IEEE 1284.4 and IPP-over-USB protocols and anything that is not
    // an interface folder with the kernel's numbers count for nothing.
    void theBusCountsEachDeviceWithAPrinterInterfaceOnce()
    {
        REQUIRE_SANDBOX();
        QTemporaryDir bus;
        QVERIFY(bus.isValid());
        const QString folder = bus.path();
        const auto plant = [&](const QString &device, const QStringList &interfaces) {
            return sandbox::plantUsbDevice(folder, device, interfaces);
        };
        QCOMPARE(usbdevices::printersOnBus(folder), 0);
        QVERIFY(QDir().mkpath(folder + QStringLiteral("/usb1"))); // a root hub
        QVERIFY(plant(QStringLiteral("1-0"), {QStringLiteral("09/00/00")}));
        QVERIFY(plant(QStringLiteral("1-1"), {QStringLiteral("07/01/02")}));
        QVERIFY(
            plant(QStringLiteral("1-2"), {QStringLiteral("07/01/01"), QStringLiteral("07/01/02")}));
        QVERIFY(plant(QStringLiteral("1-3"), {QStringLiteral("07/01/04")})); // IPP over USB
        QVERIFY(plant(QStringLiteral("1-4"), {QStringLiteral("07/01/03")})); // IEEE 1284.4
        QVERIFY(plant(QStringLiteral("1-5"), {QStringLiteral("08/06/50")})); // a memory stick
        QVERIFY(plant(QStringLiteral("1-6"), {QStringLiteral("07/02/02")}));
        QVERIFY(plant(QStringLiteral("2-1.3"),
                      {QStringLiteral("ff/00/00"), QStringLiteral("07/01/02")}));
        QCOMPARE(usbdevices::printersOnBus(folder), 3);

        // A number is read as a number, with or without its leading zero.
        QVERIFY(plant(QStringLiteral("3-1"), {QStringLiteral("7/1/2")}));
        QCOMPARE(usbdevices::printersOnBus(folder), 4);
        // Text that is not a number of the kernel's, or no number at all.
        QVERIFY(plant(QStringLiteral("3-2"), {QStringLiteral("0x07/01/02")}));
        QVERIFY(plant(QStringLiteral("3-3"), {QStringLiteral("007/001/002")}));
        QVERIFY(plant(QStringLiteral("3-4"), {QStringLiteral("07 junk/01/02")}));
        QVERIFY(plant(QStringLiteral("3-5"), {QStringLiteral("/01/02")}));
        QVERIFY(sandbox::writeFile(folder + QStringLiteral("/3-6:1.0/bInterfaceClass"), "07\n"));
        QVERIFY(sandbox::writeFile(folder + QStringLiteral("/3-7:1.0/bInterfaceClass"),
                                   "07\n" + QByteArray(100000, '0')));
        // Names that are not an interface's.
        QVERIFY(plant(QStringLiteral("x-1"), {QStringLiteral("07/01/02")}));
        QVERIFY(plant(QStringLiteral("4-1:1.0-"), {QStringLiteral("07/01/02")}));
        QCOMPARE(usbdevices::printersOnBus(folder), 4);
        QCOMPARE(usbdevices::printersOnBus(folder + QStringLiteral("/missing")), 0);
    }

    // A folder with more entries than a bus holds is read up to the cap.
    void theBusIsReadUpToItsCap()
    {
        REQUIRE_SANDBOX();
        QTemporaryDir bus;
        QVERIFY(bus.isValid());
        for (int i = 0; i < usbdevices::busEntryCap + 10; ++i) {
            const QString interface =
                bus.path() + QStringLiteral("/%1-%2:1.0/").arg(i / 100 + 1).arg(i % 100 + 1);
            QVERIFY(sandbox::writeFile(interface + QStringLiteral("bInterfaceClass"), "07\n"));
            QVERIFY(sandbox::writeFile(interface + QStringLiteral("bInterfaceSubClass"), "01\n"));
            QVERIFY(sandbox::writeFile(interface + QStringLiteral("bInterfaceProtocol"), "02\n"));
        }
        QCOMPARE(usbdevices::printersOnBus(bus.path()), usbdevices::busEntryCap);
    }
};

QTEST_GUILESS_MAIN(TestUsbDevices)
#include "tst_usbdevices.moc"
