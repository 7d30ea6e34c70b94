// Files that another user can put where the tool reads or writes: named pipes, devices
// behind links, oversized files, planted links and folders, files of someone else's. Each
// read must give up at once with the behaviour of a file that cannot be read (the lpinfo
// cache is instead made afresh), and no command may write through a planted link.
#include "common/paths.h"
#include "drivers/pagesize.h"
#include "drivers/ppdset.h"
#include "printer/printer.h"
#include "support/attacker.h"
#include "support/printermap.h"
#include "support/sandbox.h"
#include "support/shellrecorder.h"
#include "support/stderrcapture.h"
#include "support/watchdog.h"
#include "ui/loaderdlg.h"
#include "ui/printerdlg.h"
#include "ui/windowchrome.h"
#include "ui/wizarddlg.h"

#include <QComboBox>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString victim = QStringLiteral("/tmp/victim");
const QByteArray victimContent = "belongs to someone else\n";
const QString pclPpd = paths::newPrinterPaperSizesPpd();
const QString lpinfoOut = QStringLiteral("/tmp/.sandbox/lpinfo.out");
const QByteArray lpinfoList = "network socket\ndirect usb://EPSON/TM-T88V?serial=123\n";
const QString attachedPrinter = QStringLiteral("usb://EPSON/TM-T88V?serial=123");

enum class Hostile { Fifo, ZeroLink, Oversized };

// Puts the hostile thing at path; cap is the size limit of that file.
bool plant(Hostile kind, const QString &path, qint64 cap)
{
    sandbox::removePath(path);
    QDir().mkpath(QFileInfo(path).absolutePath());
    switch (kind) {
    case Hostile::Fifo:
        return ::mkfifo(QFile::encodeName(path).constData(), 0666) == 0;
    case Hostile::ZeroLink:
        return QFile::link(QStringLiteral("/dev/zero"), path);
    case Hostile::Oversized: {
        QFile file(path);
        return file.open(QIODevice::WriteOnly) && file.resize(cap + 1);
    }
    }
    return false;
}

void addHostileRows(qint64 cap)
{
    QTest::addColumn<Hostile>("kind");
    QTest::addColumn<qint64>("cap");
    QTest::newRow("named pipe") << Hostile::Fifo << cap;
    QTest::newRow("link to /dev/zero") << Hostile::ZeroLink << cap;
    QTest::newRow("one byte over the cap") << Hostile::Oversized << cap;
}

// The reason given for each hostile kind by a reader that trusts only files of ours.
QString refusalOf(Hostile kind, qint64 cap)
{
    switch (kind) {
    case Hostile::Fifo:
        return QStringLiteral("not a regular file");
    case Hostile::ZeroLink:
        return QStringLiteral("a symbolic link");
    case Hostile::Oversized:
        return QStringLiteral("larger than %1 bytes").arg(cap);
    }
    return QString();
}

bool plantVictimLink(const QString &path)
{
    sandbox::removePath(path);
    return sandbox::writeFile(victim, victimContent) && QFile::link(victim, path);
}

bool isFreshRegularFile(const QString &path)
{
    const QFileInfo info(path);
    return info.exists() && !info.isSymLink() && info.isFile();
}

Printer withUri(const QString &uri)
{
    return printerWithUri(QStringLiteral("Office"), uri);
}

// After the cache was replaced: a fresh regular file of ours holding lpinfo's list.
bool isCacheMadeByLpinfo()
{
    const QString cache = paths::lpinfoCache();
    return isFreshRegularFile(cache) && QFileInfo(cache).ownerId() == ::getuid() &&
           sandbox::readFile(cache) == lpinfoList;
}

enum class StyleSheetOwner { Root, OtherUser };

} // namespace

Q_DECLARE_METATYPE(Hostile)
Q_DECLARE_METATYPE(StyleSheetOwner)

class TestHostileFiles : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { REQUIRE_SANDBOX(); }
    void init()
    {
        for (const QString &path :
             {victim, QStringLiteral("/tmp/.config"), paths::lpinfoCache(), lpinfoOut,
              paths::testPageSettings(), paths::testPageFile(), QStringLiteral("/tmp/Office.ppd"),
              QStringLiteral("/tmp/hostile"), QStringLiteral("/tmp/config")})
            sandbox::removePath(path);
        sandbox::clearFakeCalls();
    }

    // The style sheet.

    void styleSheetThatCannotBeReadGivesNoStyleAtOnce_data() { addHostileRows(1 << 20); }
    void styleSheetThatCannotBeReadGivesNoStyleAtOnce()
    {
        QFETCH(Hostile, kind);
        QFETCH(qint64, cap);
        QVERIFY(plant(kind, windowchrome::styleSheetPath(), cap));
        StderrCapture err;
        QElapsedTimer timer;
        timer.start();
        {
            Watchdog guard("loading a hostile style sheet");
            QCOMPARE(windowchrome::loadStyleSheet(), QString());
        }
        QVERIFY(timer.elapsed() < 1000);
        QCOMPARE(err.diagnostics().size(), 1);
        QVERIFY(err.diagnostics().first().startsWith(
            QStringLiteral("printerconfig: ignoring /tmp/.config/default.css: ")));
    }

    void windowsAppearWithAPipeAsStyleSheet()
    {
        QVERIFY(plant(Hostile::Fifo, windowchrome::styleSheetPath(), 0));
        Watchdog guard("opening the windows with a named pipe as style sheet");
        PrinterDlg window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QVERIFY(window.styleSheet().isEmpty());
        LoaderDlg loader;
        QVERIFY(loader.styleSheet().isEmpty());
    }

    void missingStyleSheetIsNotReported()
    {
        StderrCapture err;
        QCOMPARE(windowchrome::loadStyleSheet(), QString());
        QVERIFY(err.diagnostics().isEmpty());
    }

    void styleSheetIsUsedOnlyWhenNoOneElseCanHaveWrittenIt_data()
    {
        QTest::addColumn<StyleSheetOwner>("owner");
        QTest::addColumn<int>("mode");
        QTest::addColumn<bool>("secondName");
        QTest::addColumn<QString>("reason"); // empty: the style sheet is used
        QTest::newRow("ours, 0644") << StyleSheetOwner::Root << 0644 << false << QString();
        QTest::newRow("another user's")
            << StyleSheetOwner::OtherUser << 0644 << false << QStringLiteral("owned by user 65534");
        QTest::newRow("ours, writable by all") << StyleSheetOwner::Root << 0666 << false
                                               << QStringLiteral("writable by others (mode 0666)");
        QTest::newRow("ours, with a second name")
            << StyleSheetOwner::Root << 0644 << true << QStringLiteral("has 2 names (hard links)");
    }
    void styleSheetIsUsedOnlyWhenNoOneElseCanHaveWrittenIt()
    {
        QFETCH(StyleSheetOwner, owner);
        QFETCH(int, mode);
        QFETCH(bool, secondName);
        QFETCH(QString, reason);
        const QString path = windowchrome::styleSheetPath();
        const QByteArray style = "QWidget { color: red; }\n";
        if (owner == StyleSheetOwner::OtherUser) {
            REQUIRE_ATTACKER();
            QVERIFY(attacker::plantFolder(QFileInfo(path).path()));
            QVERIFY(attacker::plantFile(path, style, mode));
        } else {
            QVERIFY(sandbox::writeFile(path, style));
            QVERIFY(::chmod(QFile::encodeName(path).constData(), mode_t(mode)) == 0);
        }
        if (secondName)
            QVERIFY(::link(QFile::encodeName(path).constData(), "/tmp/hostile") == 0);
        StderrCapture err;
        const QString loaded = windowchrome::loadStyleSheet();
        if (reason.isEmpty()) {
            QCOMPARE(loaded, QString::fromLatin1(style));
            QVERIFY(err.diagnostics().isEmpty());
        } else {
            QCOMPARE(loaded, QString());
            QCOMPARE(
                err.diagnostics(),
                QStringList{QStringLiteral("printerconfig: ignoring /tmp/.config/default.css: ") +
                            reason});
        }
    }

    // The lpinfo cache.

    void cacheThatCannotBeReadIsReplacedByLpinfosList_data() { addHostileRows(1 << 20); }
    void cacheThatCannotBeReadIsReplacedByLpinfosList()
    {
        QFETCH(Hostile, kind);
        QFETCH(qint64, cap);
        QVERIFY(plant(kind, paths::lpinfoCache(), cap));
        QVERIFY(sandbox::writeFile(lpinfoOut, lpinfoList));
        StderrCapture err;
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        QElapsedTimer timer;
        timer.start();
        {
            Watchdog guard("replacing a hostile lpinfo cache");
            QCOMPARE(withUri(QString()).GetPrinterDevice(), attachedPrinter);
        }
        // Not read, not followed, not written through: removed, and lpinfo (a fake that
        // answers at once) fills a new file.
        QVERIFY2(timer.elapsed() < 2000, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(shell.commands(), QStringList{QStringLiteral("lpinfo -v >/tmp/.lpinfo.log")});
        QVERIFY(isCacheMadeByLpinfo());
        QCOMPARE(err.diagnostics(),
                 QStringList{QStringLiteral("printerconfig: replacing /tmp/.lpinfo.log: ") +
                             refusalOf(kind, cap)});
    }

    void danglingLinkAsCacheIsRemovedNeverFollowed()
    {
        // lpinfo's output redirected through this link would create the target as root.
        QVERIFY(QFile::link(QStringLiteral("/tmp/hostile"), paths::lpinfoCache()));
        QVERIFY(sandbox::writeFile(lpinfoOut, lpinfoList));
        StderrCapture err;
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        QCOMPARE(withUri(QString()).GetPrinterDevice(), attachedPrinter);
        QCOMPARE(shell.commands(), QStringList{QStringLiteral("lpinfo -v >/tmp/.lpinfo.log")});
        QVERIFY(!QFileInfo::exists(QStringLiteral("/tmp/hostile")));
        QVERIFY(isCacheMadeByLpinfo());
        QCOMPARE(err.diagnostics(),
                 QStringList{
                     QStringLiteral("printerconfig: replacing /tmp/.lpinfo.log: a symbolic link")});
    }

    void linkAsCacheIsReplacedAndItsTargetLeftUntouched()
    {
        QVERIFY(plantVictimLink(paths::lpinfoCache()));
        QVERIFY(sandbox::writeFile(lpinfoOut, lpinfoList));
        StderrCapture err;
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        QCOMPARE(withUri(QStringLiteral("usb://Old")).GetPrinterDevice(), attachedPrinter);
        QCOMPARE(shell.commands(), QStringList{QStringLiteral("lpinfo -v >/tmp/.lpinfo.log")});
        QCOMPARE(sandbox::readFile(victim), victimContent);
        QVERIFY(isCacheMadeByLpinfo());
        QCOMPARE(err.diagnostics(),
                 QStringList{
                     QStringLiteral("printerconfig: replacing /tmp/.lpinfo.log: a symbolic link")});
    }

    void missingCacheIsCreatedByUsBeforeLpinfoFillsIt()
    {
        ShellRecorder shell; // records only: the file seen afterwards is the one we made
        withUri(QString()).GetPrinterDevice();
        QCOMPARE(shell.commands(), QStringList{QStringLiteral("lpinfo -v >/tmp/.lpinfo.log")});
        QVERIFY(isFreshRegularFile(paths::lpinfoCache()));
        QCOMPARE(QFileInfo(paths::lpinfoCache()).ownerId(), ::getuid());
        QCOMPARE(QFileInfo(paths::lpinfoCache()).size(), qint64(0));
    }

    // The driver databases.

    void databaseThatCannotBeReadCountsAsMissing_data() { addHostileRows(qint64(64) << 20); }
    void databaseThatCannotBeReadCountsAsMissing()
    {
        QFETCH(Hostile, kind);
        QFETCH(qint64, cap);
        const QString good = QStringLiteral("/tmp/hostile/good.db");
        const QString bad = QStringLiteral("/tmp/hostile/bad.db");
        QVERIFY(sandbox::writeFile(good, "/usr/share/ppd/std1\n"
                                         "Generic/Generic-PCL_4_Printer-laserjet.ppd;Generic;PCL 4;"
                                         "Generic PCL 4\n"));
        QVERIFY(plant(kind, bad, cap));
        PPDSet set;
        set.addDatabase(bad);
        set.addDatabase(good);
        StderrCapture err;
        QElapsedTimer timer;
        timer.start();
        {
            Watchdog guard("reading a hostile driver database");
            set.readDatabases();
        }
        QVERIFY(timer.elapsed() < 1000);
        QCOMPARE(set.ppds.size(), 1);
        QCOMPARE(set.ppds.first()->path, pclPpd);
        QCOMPARE(set.manufacturers(), QStringList{QStringLiteral("Generic")});
        QCOMPARE(err.diagnostics().size(), 1);
        QVERIFY(err.diagnostics().first().startsWith(
            QStringLiteral("printerconfig: ignoring /tmp/hostile/bad.db: ")));
        qDeleteAll(set.ppds);
    }

    // PPD files read for the paper sizes.

    void ppdThatCannotBeReadGivesNoPaperSizes_data() { addHostileRows(qint64(16) << 20); }
    void ppdThatCannotBeReadGivesNoPaperSizes()
    {
        QFETCH(Hostile, kind);
        QFETCH(qint64, cap);
        const QString ppd = QStringLiteral("/tmp/hostile/driver.ppd");
        QVERIFY(plant(kind, ppd, cap));
        PPDSet catalogue;
        Printer record;
        record.name = QStringLiteral("Office");
        record.ppd = ppd; // not a built-in driver: the wizard reads it as it is
        StderrCapture err;
        QElapsedTimer timer;
        timer.start();
        {
            Watchdog guard("opening the wizard on a hostile PPD");
            WizardDlg wizard(&catalogue, &record, true);
            QCOMPARE(wizard.findChild<QComboBox *>(QStringLiteral("cbPaperSize"))->count(), 0);
        }
        QVERIFY(timer.elapsed() < 3000);
        QCOMPARE(err.diagnostics().size(), 1);
        QVERIFY(err.diagnostics().first().startsWith(
            QStringLiteral("printerconfig: ignoring /tmp/hostile/driver.ppd: ")));
    }

    void paperSizesFromPpdBytes()
    {
        // The same text rules as for a file: "\r\n" line ends, first space, first slash.
        QCOMPARE(paperSizesFromPpd(QByteArray("*PPD-Adobe: \"4.3\"\r\n"
                                              "*PageSize A4/A4: \"x\"\r\n"
                                              "*PageSize Letter/US Letter: \"y\"")),
                 QStringList({QStringLiteral("A4"), QStringLiteral("Letter")}));
        QVERIFY(paperSizesFromPpd(QByteArray()).isEmpty());
    }

    // The test page's files.

    void plantedLinksAtTheTestPageFilesAreNotWrittenThrough()
    {
        const QString settings = paths::testPageSettings();
        const QString page = paths::testPageFile();
        QVERIFY(plantVictimLink(settings));
        QVERIFY(QFile::link(victim, page));
        Printer p = withUri(QStringLiteral("usb://EPSON/TM"));
        p.ppd = rawTextPpd;
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        p.PrintTestPage();
        QCOMPARE(shell.commands().size(), 2);
        QCOMPARE(sandbox::readFile(victim), victimContent);
        QVERIFY(isFreshRegularFile(settings));
        QVERIFY(isFreshRegularFile(page));
        QVERIFY(sandbox::readFile(settings).startsWith("\tName:\t\tOffice\r\n"));
        QVERIFY(sandbox::readFile(page).endsWith(sandbox::readFile(settings)));
    }

    void testPageIsNotPrintedWhenItsPageFileCannotBeMade()
    {
        // A folder cannot be replaced by a file of ours; nothing is written or printed.
        QVERIFY(QDir().mkpath(QStringLiteral("/tmp/prtest/inside")));
        Printer p = withUri(QStringLiteral("usb://EPSON/TM"));
        p.ppd = rawTextPpd;
        StderrCapture err;
        ShellRecorder shell;
        p.PrintTestPage();
        QVERIFY(shell.commands().isEmpty());
        QCOMPARE(err.diagnostics().size(), 1);
        QVERIFY(err.diagnostics().first().startsWith(
            QStringLiteral("printerconfig: no test page: cannot create /tmp/prtest: ")));
        sandbox::removePath(paths::testPageFile());
    }

    // The queue's PPD edited through /tmp.

    void plantedLinkAtTheEditedPpdIsNotWrittenThrough()
    {
        const QString queuePpd = QStringLiteral("/etc/cups/ppd/Office.ppd");
        QVERIFY(sandbox::writeFile(queuePpd, "*PPD-Adobe: \"4.3\"\n*DefaultPageSize: Letter\n"));
        QVERIFY(QDir().mkpath(paths::stagingFolder()));
        QVERIFY(plantVictimLink(QStringLiteral("/tmp/Office.ppd")));
        Printer office = withUri(QStringLiteral("usb://EPSON/TM"));
        office.ppd = pclPpd;
        office.paper_size = QStringLiteral("A4");
        PrinterDlg window;
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        window.WaitForCUPS(&office);
        QCOMPARE(shell.commands().size(), 6);
        QCOMPARE(sandbox::readFile(victim), victimContent);
        QVERIFY(isFreshRegularFile(QStringLiteral("/tmp/Office.ppd")));
        const QByteArray edited("*PPD-Adobe: \"4.3\"\n*DefaultPageSize: A4\n");
        QCOMPARE(sandbox::readFile(queuePpd), edited);
        QCOMPARE(sandbox::readFile(paths::stagingFolder() + QStringLiteral("/Office.ppd")), edited);
    }

    void editedPpdThatCannotBeMadeSkipsTheEditAndBothCopies_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("expectedReason");
        QTest::newRow("folder in the way") << QStringLiteral("Office") << QString();
        QTest::newRow("name with a slash") << QStringLiteral("../etc/cups/ppd/Office")
                                           << QStringLiteral("the printer name holds a '/'");
    }

    void editedPpdThatCannotBeMadeSkipsTheEditAndBothCopies()
    {
        QFETCH(QString, name);
        QFETCH(QString, expectedReason);
        QVERIFY(QDir().mkpath(QStringLiteral("/tmp/Office.ppd/inside")));
        Printer office = withUri(QStringLiteral("usb://EPSON/TM"));
        office.name = name;
        office.ppd = pclPpd;
        office.paper_size = QStringLiteral("A4");
        PrinterDlg window;
        StderrCapture err;
        ShellRecorder shell;
        window.WaitForCUPS(&office);
        QCOMPARE(shell.commands(),
                 QStringList({QStringLiteral("init_ica"), QStringLiteral("CitrixCUPSPrinter"),
                              QStringLiteral("waitforCUPS&")}));
        QCOMPARE(err.diagnostics().size(), 1);
        QVERIFY(err.diagnostics().first().startsWith(
            QStringLiteral("printerconfig: not editing the queue's PPD: cannot create /tmp/") +
            name + QStringLiteral(".ppd: ") + expectedReason));
        sandbox::removePath(QStringLiteral("/tmp/Office.ppd"));
    }
};

QTEST_MAIN(TestHostileFiles)
#include "tst_hostile_files.moc"
