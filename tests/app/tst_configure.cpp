#include "app/configure.h"
#include "common/paths.h"
#include "printer/printer.h"
#include "support/printermap.h"
#include "support/sandbox.h"
#include "support/shellrecorder.h"

#include <QtTest>

namespace {

const QString staging = paths::stagingFolder();
const QString conf = paths::printersConf();

void addPrinter(const QString &name, const QString &uri)
{
    Printer p;
    p.name = name;
    p.device_uri = uri;
    p.printer_class =
        uri.startsWith(QLatin1String("usb")) ? QStringLiteral("direct") : QStringLiteral("network");
    p.UpdatePath();
    QVERIFY(p.Commit());
}

// The URI of the record the configure run processes last: it walks the printer map
// in its own iteration order, which a second read in this process reproduces.
QString lastProcessedUri()
{
    const PrinterMap map;
    return map.inOrder().last()->GetPrinterDevice();
}

QStringList perPassCommands()
{
    return {QStringLiteral("cp /tmp/config/files/cups/* /etc/cups"),
            QStringLiteral("cp /tmp/config/files/cups/*.ppd /etc/cups/ppd"),
            QStringLiteral("mv /tmp/printers.conf /etc/cups/")};
}

QStringList repeated(const QStringList &commands, int times)
{
    QStringList all;
    for (int i = 0; i < times; ++i)
        all += commands;
    return all;
}

} // namespace

class TestConfigure : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { REQUIRE_SANDBOX(); }
    void init()
    {
        resetRegistry();
        sandbox::removePath(paths::scratchPrintersConf());
        sandbox::removePath(paths::lpinfoCache());
        for (const QString &entry :
             QDir(QStringLiteral("/etc/cups")).entryList(QDir::AllEntries | QDir::NoDotAndDotDot))
            sandbox::removePath(QStringLiteral("/etc/cups/") + entry);
        QVERIFY(QDir().mkpath(paths::queuePpdFolder()));
        QVERIFY(QDir().mkpath(staging));
        QVERIFY(sandbox::writeFile(paths::lpinfoCache(),
                                   "network socket\ndirect usb://EPSON/TM-T88V?serial=1\n"));
    }

    void noStoredPrintersRunsNothingAndLeavesEtcCupsAlone()
    {
        QVERIFY(sandbox::writeFile(staging + QStringLiteral("/Office.ppd"), "*PPD\n"));
        QVERIFY(sandbox::writeFile(conf, "DeviceURI usb://x\n"));
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        QCOMPARE(runConfigure(), 0);
        QVERIFY(shell.commands().isEmpty());
        QCOMPARE(sandbox::readFile(conf), QByteArray("DeviceURI usb://x\n"));
        QVERIFY(!QFileInfo::exists(QStringLiteral("/etc/cups/ppd/Office.ppd")));
        QVERIFY(!QFileInfo::exists(QStringLiteral("/etc/cups/Office.ppd")));
    }

    void missingRegistryFolderRunsNothing()
    {
        sandbox::removePath(QStringLiteral("/tmp/config/registry"));
        ShellRecorder shell;
        QCOMPARE(runConfigure(), 0);
        QVERIFY(shell.commands().isEmpty());
    }

    void copiesStagedFilesAndRewritesUsbDeviceLines()
    {
        addPrinter(QStringLiteral("Office"), QStringLiteral("usb:/dev/usb/lp0"));
        QVERIFY(sandbox::writeFile(staging + QStringLiteral("/Office.ppd"), "*PPD-Adobe\n"));
        QVERIFY(sandbox::writeFile(conf, "# Printer configuration\n"
                                         "<DefaultPrinter Office>\n"
                                         "Info Office\n"
                                         "DeviceURI usb:/dev/usb/lp0\n"
                                         "State Idle\n"
                                         "</DefaultPrinter>\n"));
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        QCOMPARE(runConfigure(), 0);
        QCOMPARE(shell.commands(), perPassCommands());
        QCOMPARE(sandbox::readFile(conf), QByteArray("# Printer configuration\n"
                                                     "<DefaultPrinter Office>\n"
                                                     "Info Office\n"
                                                     "DeviceURI usb://EPSON/TM-T88V?serial=1\n"
                                                     "State Idle\n"
                                                     "</DefaultPrinter>\n"));
        QCOMPARE(sandbox::readFile(QStringLiteral("/etc/cups/ppd/Office.ppd")),
                 QByteArray("*PPD-Adobe\n"));
        // "cp .../* /etc/cups" copies every staged file into /etc/cups itself as well.
        QVERIFY(QFileInfo::exists(QStringLiteral("/etc/cups/Office.ppd")));
        QVERIFY(!QFileInfo::exists(paths::scratchPrintersConf()));
    }

    void networkDeviceLinesAreKept()
    {
        // Neither record's URI is the one in Lab's line, so a rewrite of that line would
        // show whichever record did it.
        addPrinter(QStringLiteral("Lab"), QStringLiteral("socket://10.0.0.7:9100"));
        addPrinter(QStringLiteral("Front"), QStringLiteral("usb:/dev/usb/lp0"));
        QVERIFY(sandbox::writeFile(staging + QStringLiteral("/printers.conf"),
                                   "<Printer Lab>\nDeviceURI socket://10.0.0.5:9100\n</Printer>\n"
                                   "<Printer Front>\nDeviceURI usb:/dev/usb/lp0\n</Printer>\n"));
        const QString last = lastProcessedUri();
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        runConfigure();
        QCOMPARE(sandbox::readFile(conf),
                 "<Printer Lab>\nDeviceURI socket://10.0.0.5:9100\n</Printer>\n"
                 "<Printer Front>\nDeviceURI " +
                     last.toUtf8() + "\n</Printer>\n");
    }

    void everyUsbLineGetsTheUriOfTheRecordProcessedLast()
    {
        // Two USB printers and a network one: whichever record the run handles last
        // decides the URI of every USB device line, whichever section it stands in.
        addPrinter(QStringLiteral("Front"), QStringLiteral("usb:/dev/usb/lp0"));
        addPrinter(QStringLiteral("Back"), QStringLiteral("usb://Old/Model"));
        addPrinter(QStringLiteral("Lab"), QStringLiteral("socket://10.0.0.5:9100"));
        // The device stages printers.conf, so every pass starts again from that copy.
        QVERIFY(
            sandbox::writeFile(staging + QStringLiteral("/printers.conf"),
                               "<Printer Front>\nDeviceURI usb:/dev/usb/lp0\n</Printer>\n"
                               "<Printer Back>\nDeviceURI usb://Old/Model\n</Printer>\n"
                               "<Printer Lab>\nDeviceURI socket://10.0.0.5:9100\n</Printer>\n"));
        const QString last = lastProcessedUri();
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        QCOMPARE(runConfigure(), 0);
        QCOMPARE(shell.commands(), repeated(perPassCommands(), 3));
        const QByteArray expected = "<Printer Front>\nDeviceURI " + last.toUtf8() +
                                    "\n</Printer>\n"
                                    "<Printer Back>\nDeviceURI " +
                                    last.toUtf8() +
                                    "\n</Printer>\n"
                                    "<Printer Lab>\nDeviceURI socket://10.0.0.5:9100\n</Printer>\n";
        QCOMPARE(sandbox::readFile(conf), expected);
    }

    void withoutAStagedCopyAnEarlierNetworkPassTakesUsbLinesOutOfLaterPasses()
    {
        // Each pass rewrites the file the previous pass left behind. Once a network
        // record's URI stands in a device line, the line no longer mentions usb and later
        // passes leave it alone.
        addPrinter(QStringLiteral("Front"), QStringLiteral("usb:/dev/usb/lp0"));
        addPrinter(QStringLiteral("Lab"), QStringLiteral("socket://10.0.0.5:9100"));
        QVERIFY(sandbox::writeFile(conf, "DeviceURI usb:/dev/usb/lp0\n"));
        QString expected = QStringLiteral("usb:/dev/usb/lp0");
        {
            const PrinterMap map;
            for (Printer *p : map.inOrder()) {
                if (expected.contains(QLatin1String("usb")))
                    expected = p->GetPrinterDevice();
            }
        }
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        runConfigure();
        QCOMPARE(sandbox::readFile(conf), "DeviceURI " + expected.toUtf8() + "\n");
    }

    void twoUsbPrintersEndUpWithTheSameUri()
    {
        addPrinter(QStringLiteral("Front"), QStringLiteral("usb:/dev/usb/lp0"));
        addPrinter(QStringLiteral("Back"), QStringLiteral("usb://Old/Model"));
        QVERIFY(
            sandbox::writeFile(conf, "DeviceURI usb:/dev/usb/lp0\nDeviceURI usb://Old/Model\n"));
        // Both records resolve through the device cache. Between the passes the cache is
        // changed to name the record whose pass comes next, so that each record's URI
        // tells which record it was: usb://Device/<name>.
        QStringList order;
        {
            const PrinterMap map;
            order = map.names();
        }
        QCOMPARE(order.size(), 2);
        auto uriOf = [](const QString &name) { return "usb://Device/" + name.toUtf8(); };
        QVERIFY(sandbox::writeFile(paths::lpinfoCache(), "direct " + uriOf(order.at(0)) + "\n"));
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        int passesDone = 0;
        shell.setObserver([&](const QString &command) {
            if (!command.startsWith(QLatin1String("mv ")))
                return;
            if (++passesDone < order.size())
                sandbox::writeFile(paths::lpinfoCache(),
                                   "direct " + uriOf(order.at(passesDone)) + "\n");
        });
        runConfigure();
        QCOMPARE(passesDone, 2);
        // The record processed last is the map's last; its URI stands in both lines, and
        // the other record's in neither.
        const QByteArray last = uriOf(order.last());
        QCOMPARE(sandbox::readFile(conf), "DeviceURI " + last + "\nDeviceURI " + last + "\n");
        QVERIFY(!sandbox::readFile(conf).contains(uriOf(order.first())));
    }

    void onlyLinesStartingExactlyWithDeviceUriAreRewritten()
    {
        addPrinter(QStringLiteral("Office"), QStringLiteral("usb:/dev/usb/lp0"));
        const QByteArray original = "  DeviceURI usb://x\n"
                                    "deviceuri usb://x\n"
                                    "Info usb printer\n"
                                    "DeviceURIusb\n";
        QVERIFY(sandbox::writeFile(conf, original));
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        runConfigure();
        QCOMPARE(sandbox::readFile(conf), QByteArray("  DeviceURI usb://x\n"
                                                     "deviceuri usb://x\n"
                                                     "Info usb printer\n"
                                                     "DeviceURI usb://EPSON/TM-T88V?serial=1\n"));
    }

    void linesAreWrittenWithLineFeedsAndALastLineGainsOne()
    {
        addPrinter(QStringLiteral("Office"), QStringLiteral("socket://h:9100"));
        QVERIFY(sandbox::writeFile(conf, "<Printer Office>\r\nInfo x\r\n</Printer>"));
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        runConfigure();
        QCOMPARE(sandbox::readFile(conf), QByteArray("<Printer Office>\nInfo x\n</Printer>\n"));
    }

    void stagedPrintersConfIsCopiedBackInEveryPass()
    {
        addPrinter(QStringLiteral("Front"), QStringLiteral("usb:/dev/usb/lp0"));
        addPrinter(QStringLiteral("Lab"), QStringLiteral("socket://10.0.0.5:9100"));
        QVERIFY(sandbox::writeFile(staging + QStringLiteral("/printers.conf"),
                                   "<Printer Front>\nDeviceURI usb:/dev/usb/lp0\n</Printer>\n"));
        QVERIFY(sandbox::writeFile(conf, "stale\n"));
        const QString last = lastProcessedUri();
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        runConfigure();
        QCOMPARE(sandbox::readFile(conf),
                 "<Printer Front>\nDeviceURI " + last.toUtf8() + "\n</Printer>\n");
        // The staging copy itself is never rewritten.
        QCOMPARE(sandbox::readFile(staging + QStringLiteral("/printers.conf")),
                 QByteArray("<Printer Front>\nDeviceURI usb:/dev/usb/lp0\n</Printer>\n"));
    }

    void unreadablePrintersConfEndsTheRunEarly()
    {
        addPrinter(QStringLiteral("Front"), QStringLiteral("usb:/dev/usb/lp0"));
        addPrinter(QStringLiteral("Lab"), QStringLiteral("socket://10.0.0.5:9100"));
        QVERIFY(QDir().mkpath(conf)); // a folder where the file should be
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        QCOMPARE(runConfigure(), 0);
        // The first pass copies, finds no readable printers.conf and stops: no mv, and
        // the second record is not processed.
        QCOMPARE(shell.commands(), perPassCommands().mid(0, 2));
    }

    void missingPrintersConfEndsTheRunEarly()
    {
        addPrinter(QStringLiteral("Front"), QStringLiteral("usb:/dev/usb/lp0"));
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        QCOMPARE(runConfigure(), 0);
        QCOMPARE(shell.commands(), perPassCommands().mid(0, 2));
        QVERIFY(!QFileInfo::exists(conf));
    }

    void failingCopiesAreNotNoticed()
    {
        addPrinter(QStringLiteral("Front"), QStringLiteral("usb:/dev/usb/lp0"));
        sandbox::removePath(staging); // nothing to copy: both cp commands fail
        QVERIFY(sandbox::writeFile(conf, "DeviceURI usb:/dev/usb/lp0\n"));
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        QCOMPARE(runConfigure(), 0);
        QCOMPARE(shell.commands(), perPassCommands());
        QCOMPARE(sandbox::readFile(conf), QByteArray("DeviceURI usb://EPSON/TM-T88V?serial=1\n"));
    }

    void createsTheScratchFileThroughTmp()
    {
        // Without the mv the rewritten file stays in /tmp: shows it is written there.
        addPrinter(QStringLiteral("Front"), QStringLiteral("usb:/dev/usb/lp0"));
        QVERIFY(sandbox::writeFile(conf, "DeviceURI usb:/dev/usb/lp0\n"));
        ShellRecorder shell(ShellRecorder::Record);
        runConfigure();
        QCOMPARE(sandbox::readFile(paths::scratchPrintersConf()),
                 QByteArray("DeviceURI usb://EPSON/TM-T88V?serial=1\n"));
        QCOMPARE(sandbox::readFile(conf), QByteArray("DeviceURI usb:/dev/usb/lp0\n"));
    }
};

QTEST_GUILESS_MAIN(TestConfigure)
#include "tst_configure.moc"
