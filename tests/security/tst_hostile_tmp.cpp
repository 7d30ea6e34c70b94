// The attacks of another local user: the tool runs as root, and any user can make files,
// links, pipes and folders in /tmp before it does. Each case plants as user nobody, then
// runs the tool's own code with the sandbox's fake CUPS tools, and checks that nothing
// planted is believed, followed or written through.
#include "common/paths.h"
#include "printer/printer.h"
#include "support/attacker.h"
#include "support/printermap.h"
#include "support/sandbox.h"
#include "support/shellrecorder.h"
#include "support/stderrcapture.h"
#include "support/watchdog.h"

#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString cache = paths::lpinfoCache();
const QString sandboxDir = QStringLiteral("/tmp/.sandbox");
const QString lpinfoOut = sandboxDir + QStringLiteral("/lpinfo.out");
const QString owned = QStringLiteral("/tmp/owned");
const QString registry = paths::registryFolder();

const QString attachedPrinter = QStringLiteral("usb://EPSON/TM-T88V?serial=123");
const QByteArray lpinfoList = "network socket\n"
                              "direct usb://EPSON/TM-T88V?serial=123\n"
                              "network ipp\n";
// What another user puts into the cache: an address that, between the single quotes of
// the lpadmin command, would run a command of theirs as root.
const QByteArray plantedList = "direct usb://X/Y';touch /tmp/owned;'\n";
// The two commands that print the receipt printer's test page.
const QStringList receiptTestPageCommands = {
    QStringLiteral("cat /usr/share/cups/data/textonly.prn /tmp/prtestinfo > /tmp/prtest"),
    QStringLiteral("lp -d Receipts /tmp/prtest")};
const QString lpinfoCommand = QStringLiteral("lpinfo -v >/tmp/.lpinfo.log");

// Files of root's that no one else may read or write, for links to point at.
const QString rootSecret = sandboxDir + QStringLiteral("/root-secret");
const QString rootSettings = sandboxDir + QStringLiteral("/root-settings");
const QString rootPage = sandboxDir + QStringLiteral("/root-page");

// A regular file of root's that only root can change, with one name.
bool isRootsOwnFile(const QString &path)
{
    const sandbox::PathEntry entry = sandbox::entryAt(path);
    return entry.exists && entry.regular && !entry.link && entry.ownerId == 0 &&
           (entry.mode & 022) == 0 && entry.names == 1;
}

bool writeRootOnly(const QString &path, const QByteArray &content)
{
    return sandbox::writeFile(path, content) &&
           ::chmod(QFile::encodeName(path).constData(), 0600) == 0;
}

bool chmodPath(const QString &path, int mode)
{
    return ::chmod(QFile::encodeName(path).constData(), mode_t(mode)) == 0;
}

// Root makes folder and the folders above it inside /tmp, each with the given mode.
bool makeRootChain(const QString &folder, int mode)
{
    if (!QDir().mkpath(folder))
        return false;
    for (QString part = folder; part != QLatin1String("/tmp"); part = QFileInfo(part).path()) {
        if (!chmodPath(part, mode))
            return false;
    }
    return true;
}

// As nobody: every folder from /tmp/config down to folder, each 0755.
bool plantChain(const QString &folder)
{
    QStringList parts;
    for (QString part = folder; part != QLatin1String("/tmp"); part = QFileInfo(part).path())
        parts.prepend(part);
    for (const QString &part : parts) {
        if (!attacker::plantFolder(part, 0755))
            return false;
    }
    return true;
}

QStringList entriesOf(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System |
                                  QDir::NoDotAndDotDot);
}

Printer withUri(const QString &uri)
{
    return printerWithUri(QStringLiteral("Receipts"), uri);
}

enum class RegistryFault { OtherUsersChain, WritableByAll };
enum class StagingFault { LinkIntoCupsFolder, OtherUsersFolderInStickyConfig };

} // namespace

Q_DECLARE_METATYPE(RegistryFault)
Q_DECLARE_METATYPE(StagingFault)

class TestHostileTmp : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { REQUIRE_SANDBOX(); }
    void init()
    {
        for (const QString &path :
             {cache, owned, lpinfoOut, rootSecret, rootSettings, rootPage,
              paths::testPageSettings(), paths::testPageFile(), QStringLiteral("/tmp/config"),
              QStringLiteral("/etc/cups/ppd/Office.ppd")})
            sandbox::removePath(path);
        for (const QString &job :
             QDir(sandboxDir).entryList({QStringLiteral("lp-job-*")}, QDir::Files))
            sandbox::removePath(sandboxDir + QLatin1Char('/') + job);
        QVERIFY(sandbox::writeFile(lpinfoOut, lpinfoList));
        sandbox::clearFakeCalls();
        Printer::setDefaultPrinterName(QString());
    }

    // The lpinfo cache.

    void deviceListIsNotReadableByOtherUsers()
    {
        REQUIRE_ATTACKER();
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        QCOMPARE(withUri(QString()).GetPrinterDevice(), attachedPrinter);
        QCOMPARE(shell.commands(), QStringList{lpinfoCommand});
        QCOMPARE(sandbox::readFile(cache), lpinfoList);
        QVERIFY(isRootsOwnFile(cache));
        QCOMPARE(sandbox::entryAt(cache).mode, 0600);
        const QByteArray name = QFile::encodeName(cache);
        QVERIFY(attacker::act([name] { return ::open(name.constData(), O_RDONLY) < 0; }));
    }

    void cacheOfAnotherUserIsReplacedAndOnlyTheAttachedPrinterIsInstalled()
    {
        REQUIRE_ATTACKER();
        QVERIFY(attacker::plantFile(cache, plantedList));
        QCOMPARE(sandbox::entryAt(cache).ownerId, attacker::userId);

        StderrCapture err;
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        const QString device = withUri(QString()).GetPrinterDevice();
        QCOMPARE(device, attachedPrinter);
        QCOMPARE(shell.commands(), QStringList{lpinfoCommand});
        QVERIFY(isRootsOwnFile(cache));
        QCOMPARE(sandbox::readFile(cache), lpinfoList);
        QCOMPARE(err.diagnostics(),
                 QStringList{QStringLiteral(
                     "printerconfig: replacing /tmp/.lpinfo.log: owned by user 65534")});

        Printer receipts = withUri(device);
        receipts.ppd = rawTextPpd;
        shell.clear();
        sandbox::clearFakeCalls();
        receipts.Install();
        QVERIFY(!shell.commands().isEmpty());
        const QString lpadmin = shell.commands().first();
        QVERIFY2(lpadmin.contains(QStringLiteral(" -v '") + attachedPrinter + QLatin1Char('\'')),
                 qPrintable(lpadmin));
        for (const QString &command : shell.commands()) {
            QVERIFY2(!command.contains(QLatin1String("usb://X/Y")), qPrintable(command));
            QVERIFY2(!command.contains(QLatin1String("touch")), qPrintable(command));
        }
        const QList<QStringList> calls = sandbox::fakeCalls();
        QVERIFY(!calls.isEmpty());
        QCOMPARE(calls.first().first(), QStringLiteral("lpadmin"));
        const int v = calls.first().indexOf(QStringLiteral("-v"));
        QVERIFY(v > 0);
        QCOMPARE(calls.first().value(v + 1), attachedPrinter);
        QVERIFY(!sandbox::entryAt(owned).exists);
    }

    void linkPlantedAsCacheIsRemovedAndItsTargetLeftAlone()
    {
        REQUIRE_ATTACKER();
        const QByteArray secret = "root's own, not for lpinfo\n";
        QVERIFY(writeRootOnly(rootSecret, secret));
        QVERIFY(attacker::plantLink(cache, rootSecret));
        QVERIFY(sandbox::entryAt(cache).link);

        StderrCapture err;
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        QCOMPARE(withUri(QString()).GetPrinterDevice(), attachedPrinter);
        QCOMPARE(shell.commands(), QStringList{lpinfoCommand});
        QCOMPARE(sandbox::readFile(rootSecret), secret);
        const sandbox::PathEntry target = sandbox::entryAt(rootSecret);
        QCOMPARE(target.mode, 0600);
        QCOMPARE(target.ownerId, 0u);
        QVERIFY(!sandbox::entryAt(cache).link);
        QVERIFY(isRootsOwnFile(cache));
        QCOMPARE(sandbox::readFile(cache), lpinfoList);
        QCOMPARE(err.diagnostics(),
                 QStringList{
                     QStringLiteral("printerconfig: replacing /tmp/.lpinfo.log: a symbolic link")});
    }

    void pipePlantedAsCacheIsReplacedWithoutWaiting()
    {
        REQUIRE_ATTACKER();
        const QByteArray name = QFile::encodeName(cache);
        QVERIFY(attacker::act([&] { return ::mkfifo(name.constData(), 0666) == 0; }));
        QCOMPARE(sandbox::entryAt(cache).ownerId, attacker::userId);

        StderrCapture err;
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        QElapsedTimer timer;
        timer.start();
        {
            // lpinfo's redirect into a pipe nobody reads would never return.
            Watchdog guard("detecting the device with a named pipe as cache");
            QCOMPARE(withUri(QString()).GetPrinterDevice(), attachedPrinter);
        }
        QVERIFY2(timer.elapsed() < 5000, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(shell.commands(), QStringList{lpinfoCommand});
        QVERIFY(isRootsOwnFile(cache));
        QCOMPARE(sandbox::readFile(cache), lpinfoList);
        QCOMPARE(err.diagnostics(),
                 QStringList{QStringLiteral(
                     "printerconfig: replacing /tmp/.lpinfo.log: not a regular file")});
    }

    void cacheOfRootIsUsedOnlyWhenNoOneElseCanHaveWrittenIt_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<int>("group");
        QTest::addColumn<bool>("secondName");
        QTest::addColumn<QString>("reason"); // empty: the cache is used as it is
        QTest::newRow("0644") << 0644 << 0 << false << QString();
        QTest::newRow("0664, group root") << 0664 << 0 << false << QString();
        QTest::newRow("0666: writable by all")
            << 0666 << 0 << false << QStringLiteral("writable by others (mode 0666)");
        QTest::newRow("0664, group nogroup") << 0664 << int(attacker::groupId) << false
                                             << QStringLiteral("writable by others (mode 0664)");
        QTest::newRow("0644 with a second name")
            << 0644 << 0 << true << QStringLiteral("has 2 names (hard links)");
    }
    void cacheOfRootIsUsedOnlyWhenNoOneElseCanHaveWrittenIt()
    {
        QFETCH(int, mode);
        QFETCH(int, group);
        QFETCH(bool, secondName);
        QFETCH(QString, reason);
        if (group != 0)
            REQUIRE_ATTACKER(); // another user's group exists only where that user does
        const QByteArray kept = "direct usb://Kept/Y\n";
        const QString otherName = QStringLiteral("/tmp/.lpinfo.log.other");
        sandbox::removePath(otherName);
        QVERIFY(sandbox::writeFile(cache, kept));
        QVERIFY(::chown(QFile::encodeName(cache).constData(), 0, gid_t(group)) == 0);
        QVERIFY(chmodPath(cache, mode));
        if (secondName)
            QVERIFY(::link(QFile::encodeName(cache).constData(),
                           QFile::encodeName(otherName).constData()) == 0);

        StderrCapture err;
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        const QString device = withUri(QString()).GetPrinterDevice();
        sandbox::removePath(otherName);
        if (reason.isEmpty()) {
            QCOMPARE(device, QStringLiteral("usb://Kept/Y"));
            QVERIFY(shell.commands().isEmpty());
            QVERIFY(sandbox::fakeCalls().isEmpty());
            QCOMPARE(sandbox::readFile(cache), kept);
            QCOMPARE(sandbox::entryAt(cache).mode, mode);
            QVERIFY(err.diagnostics().isEmpty());
        } else {
            QCOMPARE(device, attachedPrinter);
            QCOMPARE(shell.commands(), QStringList{lpinfoCommand});
            QVERIFY(isRootsOwnFile(cache));
            QCOMPARE(sandbox::readFile(cache), lpinfoList);
            QCOMPARE(err.diagnostics(),
                     QStringList{QStringLiteral("printerconfig: replacing /tmp/.lpinfo.log: ") +
                                 reason});
        }
    }

    void folderPlantedAsCacheGivesTheFallbackAndIsLeftAlone()
    {
        REQUIRE_ATTACKER();
        const QString inside = cache + QStringLiteral("/keep");
        QVERIFY(attacker::plantFolder(cache, 0755));
        QVERIFY(attacker::plantFile(inside, "theirs\n"));

        StderrCapture err;
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        QCOMPARE(withUri(QString()).GetPrinterDevice(), QStringLiteral("usb:/dev/usb/lp0"));
        QVERIFY(shell.commands().isEmpty());
        QVERIFY(sandbox::fakeCalls().isEmpty());
        const sandbox::PathEntry folder = sandbox::entryAt(cache);
        QVERIFY(folder.folder);
        QCOMPARE(folder.ownerId, attacker::userId);
        QCOMPARE(entriesOf(cache), QStringList{QStringLiteral("keep")});
        QCOMPARE(sandbox::readFile(inside), QByteArray("theirs\n"));
        QCOMPARE(err.diagnostics(),
                 QStringList({QStringLiteral(
                                  "printerconfig: replacing /tmp/.lpinfo.log: not a regular file"),
                              QStringLiteral("printerconfig: not running lpinfo: cannot create "
                                             "/tmp/.lpinfo.log: Is a directory")}));
    }

    // The test page's files.

    void linksPlantedAtTheTestPageFilesAreReplacedAndTheSettingsPagePrinted()
    {
        REQUIRE_ATTACKER();
        const QByteArray settingsSecret = "root's settings\n";
        const QByteArray pageSecret = "root's page\n";
        QVERIFY(writeRootOnly(rootSettings, settingsSecret));
        QVERIFY(writeRootOnly(rootPage, pageSecret));
        QVERIFY(attacker::plantLink(paths::testPageSettings(), rootSettings));
        QVERIFY(attacker::plantLink(paths::testPageFile(), rootPage));
        const QByteArray preamble = sandbox::readFile(paths::textPrinterPreamble());
        QVERIFY2(!preamble.isEmpty(), "the sandbox provides a text printer preamble");

        StderrCapture err;
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        receiptPrinter().PrintTestPage();
        QCOMPARE(shell.commands(), receiptTestPageCommands);
        QCOMPARE(sandbox::readFile(rootSettings), settingsSecret);
        QCOMPARE(sandbox::readFile(rootPage), pageSecret);
        QCOMPARE(sandbox::entryAt(rootSettings).mode, 0600);
        QCOMPARE(sandbox::entryAt(rootPage).mode, 0600);
        QVERIFY(isRootsOwnFile(paths::testPageSettings()));
        QVERIFY(isRootsOwnFile(paths::testPageFile()));
        QCOMPARE(sandbox::readFile(paths::testPageSettings()), receiptPrinterSettings);
        QCOMPARE(sandbox::readFile(paths::testPageFile()), preamble + receiptPrinterSettings);
        QCOMPARE(sandbox::fakeCalls(),
                 QList<QStringList>({{QStringLiteral("lp"), QStringLiteral("-d"),
                                      QStringLiteral("Receipts"), paths::testPageFile()}}));
        QCOMPARE(sandbox::readFile(sandboxDir + QStringLiteral("/lp-job-1")),
                 preamble + receiptPrinterSettings);
        QVERIFY(err.diagnostics().isEmpty());
    }

    void settingsFileThatIsAnotherUsersFolderStopsTheTestPage()
    {
        // A folder cannot be removed to make room for ours, and being nobody's, it could
        // be swapped for a link to a secret before cat reads it: nothing is printed.
        REQUIRE_ATTACKER();
        QVERIFY(attacker::plantFolder(paths::testPageSettings(), 0755));
        QVERIFY(attacker::plantFile(paths::testPageSettings() + QStringLiteral("/x"), "x"));
        StderrCapture err;
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        receiptPrinter().PrintTestPage();
        QVERIFY(shell.commands().isEmpty());
        QVERIFY(sandbox::fakeCalls().isEmpty());
        QCOMPARE(err.diagnostics(),
                 QStringList({QStringLiteral("printerconfig: cannot write /tmp/prtestinfo: Is a "
                                             "directory"),
                              QStringLiteral("printerconfig: no test page: /tmp/prtestinfo is not "
                                             "ours")}));
    }

    void settingsFileThatIsRootsFolderStillPrintsThePage()
    {
        // A folder of root's cannot be swapped by anyone: the commands run as they always
        // did when the settings cannot be written, and cat fails on the folder.
        QVERIFY(QDir().mkpath(paths::testPageSettings() + QStringLiteral("/inside")));
        StderrCapture err;
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        receiptPrinter().PrintTestPage();
        QCOMPARE(shell.commands(), receiptTestPageCommands);
        QCOMPARE(sandbox::readFile(sandboxDir + QStringLiteral("/lp-job-1")),
                 sandbox::readFile(paths::textPrinterPreamble()));
        QCOMPARE(err.diagnostics().size(), 1);
        sandbox::removePath(paths::testPageSettings());
    }

    // The registry.

    void registryInAFolderOthersControlIsNeitherReadNorWritten_data()
    {
        QTest::addColumn<RegistryFault>("fault");
        QTest::addColumn<QString>("reason");
        QTest::newRow("folders made by another user")
            << RegistryFault::OtherUsersChain
            << QStringLiteral("/tmp/config is owned by user 65534");
        QTest::newRow("registry folder writable by all")
            << RegistryFault::WritableByAll
            << QStringLiteral(
                   "/tmp/config/registry/hardware/printer is writable by others (mode 0777)");
    }
    void registryInAFolderOthersControlIsNeitherReadNorWritten()
    {
        QFETCH(RegistryFault, fault);
        QFETCH(QString, reason);
        const QString planted = registry + QStringLiteral("/Evil.pr");
        const QByteArray plantedRecord = "name=Evil\nclass=direct\n"
                                         "device_uri=usb://X/Y';touch /tmp/owned;'\n";
        if (fault == RegistryFault::OtherUsersChain) {
            REQUIRE_ATTACKER();
            QVERIFY(plantChain(registry));
            QVERIFY(attacker::plantFile(planted, plantedRecord));
        } else {
            QVERIFY(makeRootChain(registry, 0755));
            QVERIFY(chmodPath(registry, 0777));
            QVERIFY(sandbox::writeFile(planted, plantedRecord));
        }
        const QString refusal =
            QStringLiteral("printerconfig: not using ") + registry + QStringLiteral(": ") + reason;

        Printer::setDefaultPrinterName(QStringLiteral("stale"));
        {
            StderrCapture err;
            PrinterMap map;
            QVERIFY(map.printers.isEmpty());
            QCOMPARE(Printer::defaultPrinterName(), QString());
            QCOMPARE(err.diagnostics(), QStringList{refusal});
        }
        {
            Printer office = postScriptPrinter(QStringLiteral("Office"));
            office.SetDefault();
            StderrCapture err;
            QVERIFY(!office.Commit());
            QCOMPARE(entriesOf(registry), QStringList{QStringLiteral("Evil.pr")});
            QCOMPARE(err.diagnostics(), QStringList{refusal});
        }
        {
            Printer evil = postScriptPrinter(QStringLiteral("Evil"));
            Printer::setDefaultPrinterName(QString());
            StderrCapture err;
            QVERIFY(!evil.Remove());
            QCOMPARE(entriesOf(registry), QStringList{QStringLiteral("Evil.pr")});
            QCOMPARE(sandbox::readFile(planted), plantedRecord);
            QCOMPARE(err.diagnostics(), QStringList{refusal});
        }
    }

    void registryOfRootIsReadAndWritten()
    {
        QVERIFY(makeRootChain(registry, 0755));
        Printer office = postScriptPrinter(QStringLiteral("Office"));
        office.SetDefault();
        StderrCapture err;
        QVERIFY(office.Commit());
        QVERIFY(isRootsOwnFile(registry + QStringLiteral("/Office.pr")));
        Printer::setDefaultPrinterName(QString());
        {
            PrinterMap map;
            QCOMPARE(map.names(), QStringList{QStringLiteral("Office")});
            QVERIFY(map.printers.contains(registry + QStringLiteral("/Office.pr")));
            QCOMPARE(Printer::defaultPrinterName(), QStringLiteral("Office"));
        }
        QVERIFY(office.Remove());
        QVERIFY(!sandbox::entryAt(registry + QStringLiteral("/Office.pr")).exists);
        QVERIFY(err.diagnostics().isEmpty());
    }

    // The staging folder.

    void uninstallRemovesNothingFromAStagingFolderOthersControl_data()
    {
        QTest::addColumn<StagingFault>("fault");
        QTest::addColumn<QString>("kept"); // a file the rm would have removed
        QTest::addColumn<QString>("reason");
        QTest::newRow("link into CUPS's folder")
            << StagingFault::LinkIntoCupsFolder << QStringLiteral("/etc/cups/ppd/Office.ppd")
            << QStringLiteral("/tmp/config is owned by user 65534");
        QTest::newRow("another user's folder in a sticky /tmp/config")
            << StagingFault::OtherUsersFolderInStickyConfig
            << QStringLiteral("/tmp/config/files/cups/Office.ppd")
            << QStringLiteral("/tmp/config/files is owned by user 65534");
    }
    void uninstallRemovesNothingFromAStagingFolderOthersControl()
    {
        QFETCH(StagingFault, fault);
        QFETCH(QString, kept);
        QFETCH(QString, reason);
        REQUIRE_ATTACKER();
        const QByteArray ppd = "*PPD-Adobe: \"4.3\"\n";
        if (fault == StagingFault::LinkIntoCupsFolder) {
            QVERIFY(sandbox::writeFile(kept, ppd));
            QVERIFY(plantChain(QStringLiteral("/tmp/config/files")));
            QVERIFY(attacker::plantLink(paths::stagingFolder(), QStringLiteral("/etc/cups/ppd")));
        } else {
            QVERIFY(QDir().mkpath(QStringLiteral("/tmp/config")));
            QVERIFY(chmodPath(QStringLiteral("/tmp/config"), 01777));
            QVERIFY(attacker::plantFolder(QStringLiteral("/tmp/config/files")));
            QVERIFY(attacker::plantFolder(paths::stagingFolder()));
            QVERIFY(attacker::plantFile(kept, ppd));
        }
        QCOMPARE(sandbox::readFile(paths::stagingFolder() + QStringLiteral("/Office.ppd")), ppd);

        Printer office = postScriptPrinter(QStringLiteral("Office"));
        StderrCapture err;
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        office.Uninstall();
        QCOMPARE(shell.commands(), QStringList{QStringLiteral("lpadmin -x Office")});
        QCOMPARE(sandbox::fakeCalls(),
                 QList<QStringList>({{QStringLiteral("lpadmin"), QStringLiteral("-x"),
                                      QStringLiteral("Office")}}));
        QCOMPARE(sandbox::readFile(kept), ppd);
        QCOMPARE(err.diagnostics(),
                 QStringList{QStringLiteral("printerconfig: not using /tmp/config/files/cups: ") +
                             reason});
    }

    // Installing.

    // A USB address comes from a device's description of itself. The line that would carry
    // it is not run; accepting jobs and setting the default carry nothing of it and run.
    void usbAddressThatCouldLeaveItsQuotesCreatesNoQueue_data()
    {
        QTest::addColumn<QString>("uri");
        QTest::newRow("quote") << QStringLiteral("usb://Evil'Maker/X");
        QTest::newRow("line feed") << QStringLiteral("usb://A\nB");
        QTest::newRow("carriage return") << QStringLiteral("usb://A\rB");
        QTest::newRow("tab") << QStringLiteral("usb://A\tB");
        QTest::newRow("escape") << QStringLiteral("usb://A\x1b[2J");
        QTest::newRow("delete") << QStringLiteral("usb://A\x7f");
        QTest::newRow("next line U+0085")
            << QStringLiteral("usb://A") + QChar(0x85) + QLatin1Char('B');
        QTest::newRow("control sequence introducer U+009B")
            << QStringLiteral("usb://A") + QChar(0x9b) + QStringLiteral("2J");
    }
    void usbAddressThatCouldLeaveItsQuotesCreatesNoQueue()
    {
        QFETCH(QString, uri);
        Printer office = postScriptPrinter(QStringLiteral("Office"));
        office.device_uri = uri;
        office.SetDefault();
        StderrCapture err;
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        office.Install();
        QCOMPARE(shell.commands(), QStringList({QStringLiteral("cupsaccept Office"),
                                                QStringLiteral("lpadmin -d Office")}));
        QCOMPARE(sandbox::fakeCalls(),
                 QList<QStringList>({{QStringLiteral("cupsaccept"), QStringLiteral("Office")},
                                     {QStringLiteral("lpadmin"), QStringLiteral("-d"),
                                      QStringLiteral("Office")}}));
        QCOMPARE(err.diagnostics(),
                 QStringList{QStringLiteral("printerconfig: not creating the queue Office: its "
                                            "device address holds a quote or a control "
                                            "character")});
    }

    // What the administrator typed for a network printer goes into the command as typed.
    void typedNetworkAddressWithAQuoteIsInstalledAsItStands_data()
    {
        QTest::addColumn<QString>("uri");
        QTest::newRow("socket") << QStringLiteral("socket://ho'st:9100");
        QTest::newRow("lpd") << QStringLiteral("lpd://host/q'ueue");
        QTest::newRow("ipp with a control character") << QStringLiteral("ipp://h\x1b/p");
        QTest::newRow("socket host named usb") << QStringLiteral("socket://usb'gw:9100");
    }
    void typedNetworkAddressWithAQuoteIsInstalledAsItStands()
    {
        QFETCH(QString, uri);
        Printer office = postScriptPrinter(QStringLiteral("Office"));
        office.device_uri = uri;
        StderrCapture err;
        ShellRecorder shell;
        office.Install();
        QCOMPARE(shell.commands(),
                 QStringList({QStringLiteral("lpadmin  -p Office -D 'Office' -v '%1' -P '%2' -E")
                                  .arg(uri, office.ppd),
                              QStringLiteral("cupsaccept Office")}));
        QCOMPARE(err.diagnostics(), QStringList());
    }
};

QTEST_GUILESS_MAIN(TestHostileTmp)
#include "tst_hostile_tmp.moc"
