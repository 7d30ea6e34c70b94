#include "app/configure.h"
#include "common/paths.h"
#include "printer/printer.h"
#include "support/sandbox.h"
#include "support/shellrecorder.h"
#include "support/stderrcapture.h"
#include "support/watchdog.h"

#include <QBuffer>
#include <QRandomGenerator>
#include <QTextStream>
#include <QtTest>

#include <cerrno>
#include <grp.h>
#include <sys/mount.h>
#include <sys/stat.h>

namespace {

const QString conf = paths::printersConf();
const QString scratch = paths::scratchPrintersConf();
const QString uri = QStringLiteral("usb://EPSON/TM-T88V?serial=1");
const QString copyAll = QStringLiteral("cp /tmp/config/files/cups/* /etc/cups");
const QString copyPpds = QStringLiteral("cp /tmp/config/files/cups/*.ppd /etc/cups/ppd");
const QString moveBack = QStringLiteral("mv /tmp/printers.conf /etc/cups/");

void addPrinter(const QString &name, const QString &deviceUri)
{
    Printer p;
    p.name = name;
    p.device_uri = deviceUri;
    p.printer_class = QStringLiteral("network");
    p.UpdatePath();
    QVERIFY(p.Commit());
}

// The rewrite as it was done when the file was read through a text stream: the file
// opened in text mode, each line decoded, tested and written back with "\n". For text
// that is valid UTF-8 without a byte order mark or a lone carriage return, the byte
// rewrite must give exactly the same file.
QByteArray rewriteAsTextStreamDid(QByteArray conf, const QString &uri)
{
    QBuffer in(&conf);
    in.open(QIODevice::ReadOnly | QIODevice::Text);
    QByteArray result;
    QBuffer out(&result);
    out.open(QIODevice::WriteOnly);
    QTextStream reader(&in);
    QTextStream writer(&out);
    QString line;
    while (reader.readLineInto(&line)) {
        if (line.startsWith(QLatin1String("DeviceURI")) && line.contains(QLatin1String("usb")))
            line = QStringLiteral("DeviceURI ") + uri;
        writer << line << '\n';
    }
    writer.flush();
    return result;
}

// A byte string literal with the zero bytes in it kept.
template <int N> QByteArray bytes(const char (&text)[N])
{
    return QByteArray(text, N - 1);
}

QByteArray randomConf(QRandomGenerator &random)
{
    static const char *const pieces[] = {"DeviceURI",
                                         "DeviceURI ",
                                         " DeviceURI",
                                         "deviceuri",
                                         "usb",
                                         "usb://x",
                                         "socket://",
                                         "usbprint-gw:9100",
                                         "<Printer A>",
                                         "</Printer>",
                                         "Info ",
                                         "# ",
                                         " ",
                                         "\t",
                                         "\n",
                                         "\r\n",
                                         "\n\n",
                                         "caf\xc3\xa9",
                                         "\xe2\x82\xac",
                                         "lpd://h/q",
                                         "u",
                                         "sb",
                                         "D"};
    const int count = random.bounded(0, 30);
    QByteArray text;
    for (int i = 0; i < count; ++i)
        text += pieces[random.bounded(int(sizeof pieces / sizeof pieces[0]))];
    return text;
}

} // namespace

class TestHostileConfigure : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { REQUIRE_SANDBOX(); }
    void init()
    {
        sandbox::removePath(QStringLiteral("/tmp/config"));
        sandbox::removePath(scratch);
        sandbox::removePath(QStringLiteral("/tmp/victim"));
        sandbox::removePath(paths::lpinfoCache());
        sandbox::removePath(conf);
        QVERIFY(QDir().mkpath(paths::stagingFolder()));
        QVERIFY(sandbox::writeFile(paths::lpinfoCache(), "direct usb://EPSON/TM-T88V?serial=1\n"));
    }

    // The rewrite itself, on bytes.

    void keepsByteOrderMarkLoneCarriageReturnsAndBytesThatAreNotUtf8()
    {
        const QByteArray original = bytes("\xef\xbb\xbf# Printer configuration\n"
                                          "<Printer Caf\xe9>\n"
                                          "Info one\rtwo\n"
                                          "Location \xff\xfe\x80 \0 end\n"
                                          "DeviceURI usb://old\n"
                                          "</Printer>\n");
        const QByteArray expected = bytes("\xef\xbb\xbf# Printer configuration\n"
                                          "<Printer Caf\xe9>\n"
                                          "Info one\rtwo\n"
                                          "Location \xff\xfe\x80 \0 end\n"
                                          "DeviceURI usb://EPSON/TM-T88V?serial=1\n"
                                          "</Printer>\n");
        QVERIFY(original.contains('\0'));
        QCOMPARE(rewriteUsbDeviceLines(original, uri), expected);
    }

    void onlyLineEndsChangeToLineFeeds_data()
    {
        QTest::addColumn<QByteArray>("original");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("empty file") << QByteArray() << QByteArray();
        QTest::newRow("one empty line") << QByteArray("\n") << QByteArray("\n");
        QTest::newRow("crlf") << QByteArray("a\r\nb\r\n") << QByteArray("a\nb\n");
        QTest::newRow("last line without end") << QByteArray("a\nb") << QByteArray("a\nb\n");
        QTest::newRow("cr inside a line") << QByteArray("a\rb\n") << QByteArray("a\rb\n");
        QTest::newRow("cr at a line start") << QByteArray("\rb\n") << QByteArray("\rb\n");
        QTest::newRow("two crs before lf") << QByteArray("a\r\r\n") << QByteArray("a\r\n");
        QTest::newRow("cr as the last byte") << QByteArray("a\nb\r") << QByteArray("a\nb\n");
        QTest::newRow("only a cr") << QByteArray("\r") << QByteArray("\n");
        QTest::newRow("bom alone") << QByteArray("\xef\xbb\xbf") << QByteArray("\xef\xbb\xbf\n");
    }

    void onlyLineEndsChangeToLineFeeds()
    {
        QFETCH(QByteArray, original);
        QFETCH(QByteArray, expected);
        QCOMPARE(rewriteUsbDeviceLines(original, uri), expected);
    }

    void rewritesUsbDeviceLinesWhateverTheirLineEnd()
    {
        QCOMPARE(rewriteUsbDeviceLines("DeviceURI usb://a\r\nDeviceURI usb://b", uri),
                 QByteArray("DeviceURI usb://EPSON/TM-T88V?serial=1\n"
                            "DeviceURI usb://EPSON/TM-T88V?serial=1\n"));
        // A carriage return inside the line is part of it, and the line still mentions usb.
        QCOMPARE(rewriteUsbDeviceLines("DeviceURI usb://a\rjunk\n", uri),
                 QByteArray("DeviceURI usb://EPSON/TM-T88V?serial=1\n"));
    }

    void anyDeviceLineMentioningUsbIsRewrittenEvenANetworkOne()
    {
        // The test is a substring test on the raw line: a gateway host name with "usb" in
        // it counts too. That is how the rewrite has always decided, and it stays so.
        QCOMPARE(rewriteUsbDeviceLines("DeviceURI socket://usbprint-gw:9100\n", uri),
                 QByteArray("DeviceURI usb://EPSON/TM-T88V?serial=1\n"));
        QCOMPARE(rewriteUsbDeviceLines("DeviceURI socket://10.0.0.5:9100\n", uri),
                 QByteArray("DeviceURI socket://10.0.0.5:9100\n"));
    }

    void lineStartingWithAByteOrderMarkIsNotADeviceLine()
    {
        // The test is made on the raw bytes, so a mark in front of the word hides it.
        const QByteArray original("\xef\xbb\xbf"
                                  "DeviceURI usb://a\n");
        QCOMPARE(rewriteUsbDeviceLines(original, uri), original);
    }

    void secondRewriteChangesNothing()
    {
        QRandomGenerator random(20261123);
        for (int i = 0; i < 2000; ++i) {
            QByteArray text = randomConf(random);
            if (random.bounded(4) == 0)
                text += '\r';
            const QByteArray once = rewriteUsbDeviceLines(text, uri);
            QCOMPARE(rewriteUsbDeviceLines(once, uri), once);
        }
    }

    void givesTheTextStreamResultOnPlainText()
    {
        QRandomGenerator random(42);
        for (int i = 0; i < 5000; ++i) {
            const QByteArray text = randomConf(random);
            const QByteArray expected = rewriteAsTextStreamDid(text, uri);
            const QByteArray actual = rewriteUsbDeviceLines(text, uri);
            if (actual != expected)
                QFAIL(qPrintable(QStringLiteral("differs on %1")
                                     .arg(QString::fromLatin1(text.toPercentEncoding()))));
        }
    }

    // The configure run on hostile files.

    void runKeepsHostileBytesOfPrintersConf()
    {
        addPrinter(QStringLiteral("Front"), QStringLiteral("usb:/dev/usb/lp0"));
        const QByteArray original("\xef\xbb\xbf<Printer Front>\r\n"
                                  "Info a\rb \xff\xfe\n"
                                  "DeviceURI usb:/dev/usb/lp0\r\n"
                                  "</Printer>");
        QVERIFY(sandbox::writeFile(conf, original));
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        QCOMPARE(runConfigure(), 0);
        QCOMPARE(shell.commands(), QStringList({copyAll, copyPpds, moveBack}));
        QCOMPARE(sandbox::readFile(conf), QByteArray("\xef\xbb\xbf<Printer Front>\n"
                                                     "Info a\rb \xff\xfe\n"
                                                     "DeviceURI usb://EPSON/TM-T88V?serial=1\n"
                                                     "</Printer>\n"));
    }

    // Device URIs may carry passwords, so the scheduler keeps printers.conf from other
    // users (0600, or 0640 for its group lp). The rewritten file keeps the original's
    // mode, owner and group, whatever they are.
    void printersConfKeepsItsModeOwnerAndGroup_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<int>("group");
        const group *lp = ::getgrnam("lp");
        QTest::newRow("0600 root:root") << 0600 << 0;
        QTest::newRow("0640 root:lp") << 0640 << int(lp ? lp->gr_gid : 7);
        QTest::newRow("0644 root:root") << 0644 << 0;
    }
    void printersConfKeepsItsModeOwnerAndGroup()
    {
        QFETCH(int, mode);
        QFETCH(int, group);
        addPrinter(QStringLiteral("Front"), QStringLiteral("usb:/dev/usb/lp0"));
        QVERIFY(sandbox::writeFile(conf, "DeviceURI usb:/dev/usb/lp0\n"));
        const QByteArray name = QFile::encodeName(conf);
        if (::chown(name.constData(), 0, gid_t(group)) != 0)
            QSKIP("this sandbox cannot give a file to another group (entered without root)");
        QCOMPARE(::chmod(name.constData(), mode_t(mode)), 0);
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        StderrCapture err;
        QCOMPARE(runConfigure(), 0);
        QCOMPARE(shell.commands(), QStringList({copyAll, copyPpds, moveBack}));
        QCOMPARE(sandbox::readFile(conf), QByteArray("DeviceURI usb://EPSON/TM-T88V?serial=1\n"));
        struct stat st;
        QCOMPARE(::stat(name.constData(), &st), 0);
        QCOMPARE(int(st.st_mode & 07777), mode);
        QCOMPARE(st.st_uid, uid_t(0));
        QCOMPARE(st.st_gid, gid_t(group));
        QVERIFY(err.diagnostics().isEmpty());
    }

    void staleScratchFileOfAnotherModeDoesNotWidenPrintersConf()
    {
        // A readable file left at the scratch path must not lend its mode to the new one.
        addPrinter(QStringLiteral("Front"), QStringLiteral("usb:/dev/usb/lp0"));
        QVERIFY(sandbox::writeFile(scratch, "old\n"));
        QVERIFY(QFile::setPermissions(scratch, QFileDevice::Permissions(0x7777)));
        QVERIFY(sandbox::writeFile(conf, "DeviceURI usb:/dev/usb/lp0\n"));
        QVERIFY(QFile::setPermissions(conf, QFileDevice::ReadOwner | QFileDevice::WriteOwner));
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        QCOMPARE(runConfigure(), 0);
        QCOMPARE(QFileInfo(conf).permissions() & 0x0077, QFileDevice::Permissions());
    }

    void staleFilesAreNotCopiedFromAStagingFolderOthersCanWrite()
    {
        addPrinter(QStringLiteral("Front"), QStringLiteral("usb:/dev/usb/lp0"));
        QVERIFY(sandbox::writeFile(conf, "DeviceURI usb:/dev/usb/lp0\n"));
        QVERIFY(QFile::setPermissions(QStringLiteral("/tmp/config/files"),
                                      QFileDevice::Permissions(0x7777)));
        StderrCapture err;
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        QCOMPARE(runConfigure(), 0);
        // printers.conf is still brought up to date; only the copies are left out.
        QCOMPARE(shell.commands(), QStringList{moveBack});
        QCOMPARE(sandbox::readFile(conf), QByteArray("DeviceURI usb://EPSON/TM-T88V?serial=1\n"));
        QCOMPARE(err.diagnostics(), QStringList{QStringLiteral(
                                        "printerconfig: not copying from /tmp/config/files/cups: "
                                        "/tmp/config/files is writable by others (mode 0777)")});
    }

    void missingStagingFolderIsMadeOursBeforeTheCopies()
    {
        // Otherwise another user could make it, full of files for /etc/cups, between
        // our look and cp's.
        addPrinter(QStringLiteral("Front"), QStringLiteral("usb:/dev/usb/lp0"));
        sandbox::removePath(QStringLiteral("/tmp/config/files"));
        QVERIFY(sandbox::writeFile(conf, "DeviceURI usb:/dev/usb/lp0\n"));
        ShellRecorder shell;
        QCOMPARE(runConfigure(), 0);
        QCOMPARE(shell.commands(), QStringList({copyAll, copyPpds, moveBack}));
        for (const QString &folder :
             {QStringLiteral("/tmp/config/files"), paths::stagingFolder()}) {
            struct stat st;
            QCOMPARE(::lstat(QFile::encodeName(folder).constData(), &st), 0);
            QVERIFY(S_ISDIR(st.st_mode));
            QCOMPARE(st.st_uid, ::geteuid());
            QCOMPARE(int(st.st_mode & 07777), 0755);
        }
    }

    void deviceAddressThatWouldBreakItsLineIsNotWritten_data()
    {
        // Either the device list (the cache) or a stored network record brings the
        // address; a line feed or carriage return can only come from the record, as the
        // list is read as text by lines.
        QTest::addColumn<QByteArray>("cache");
        QTest::addColumn<QString>("recordUri");
        const QString usb = QStringLiteral("usb:/dev/usb/lp0");
        QTest::newRow("tab") << QByteArray("direct usb://A\tB\n") << usb;
        QTest::newRow("escape") << QByteArray("direct usb://A\x1b[2J\n") << usb;
        QTest::newRow("nul") << bytes("direct usb://A\0B\n") << usb;
        QTest::newRow("start of heading") << QByteArray("direct usb://A\x01\n") << usb;
        QTest::newRow("delete") << QByteArray("direct usb://A\x7f\n") << usb;
        QTest::newRow("line feed in a stored address")
            << QByteArray("direct usb://EPSON/TM-T88V?serial=1\n")
            << QStringLiteral("socket://h:9100\nDeviceURI lpd://x/q");
        QTest::newRow("carriage return in a stored address")
            << QByteArray("direct usb://EPSON/TM-T88V?serial=1\n")
            << QStringLiteral("socket://h:9100\rDeviceURI lpd://x/q");
    }
    void deviceAddressThatWouldBreakItsLineIsNotWritten()
    {
        QFETCH(QByteArray, cache);
        QFETCH(QString, recordUri);
        QVERIFY(sandbox::writeFile(paths::lpinfoCache(), cache));
        addPrinter(QStringLiteral("Front"), recordUri);
        QVERIFY(sandbox::writeFile(conf, "DeviceURI usb:/dev/usb/lp0\n"));
        StderrCapture err;
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        QCOMPARE(runConfigure(), 0);
        QCOMPARE(shell.commands(), QStringList({copyAll, copyPpds}));
        QCOMPARE(sandbox::readFile(conf), QByteArray("DeviceURI usb:/dev/usb/lp0\n"));
        QCOMPARE(err.diagnostics(),
                 QStringList{QStringLiteral("printerconfig: not rewriting the USB device lines of "
                                            "/etc/cups/printers.conf: the device address holds a "
                                            "line break or a control character")});
    }

    void deviceAddressWithAQuoteOrC1CharacterIsWrittenAsItStands_data()
    {
        QTest::addColumn<QByteArray>("cache");
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("quote") << QByteArray("direct usb://Evil'Maker/X?serial=1\n")
                               << QByteArray("DeviceURI usb://Evil'Maker/X?serial=1\n");
        QTest::newRow("quotes and shell words")
            << QByteArray("direct usb://A/X'; rm -rf /tmp/x; echo '\n")
            << QByteArray("DeviceURI usb://A/X'; rm -rf /tmp/x; echo '\n");
        // U+0085 (next line) is not a line break for the scheduler's reader: in UTF-8 it
        // is two bytes, neither of them a line end.
        QTest::newRow("C1 next line") << QByteArray("direct usb://A\xc2\x85"
                                                    "B\n")
                                      << QByteArray("DeviceURI usb://A\xc2\x85"
                                                    "B\n");
    }
    void deviceAddressWithAQuoteOrC1CharacterIsWrittenAsItStands()
    {
        QFETCH(QByteArray, cache);
        QFETCH(QByteArray, line);
        QVERIFY(sandbox::writeFile(paths::lpinfoCache(), cache));
        addPrinter(QStringLiteral("Front"), QStringLiteral("usb:/dev/usb/lp0"));
        QVERIFY(sandbox::writeFile(conf, "<Printer Front>\n"
                                         "DeviceURI usb:/dev/usb/lp0\n"
                                         "</Printer>\n"
                                         "<Printer Back>\n"
                                         "DeviceURI usb://Old/Other\n"
                                         "</Printer>\n"));
        StderrCapture err;
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        QCOMPARE(runConfigure(), 0);
        QCOMPARE(shell.commands(), QStringList({copyAll, copyPpds, moveBack}));
        // Every USB device line now holds the listed address, quote and all.
        QCOMPARE(sandbox::readFile(conf), QByteArray("<Printer Front>\n") + line +
                                              "</Printer>\n<Printer Back>\n" + line +
                                              "</Printer>\n");
        QCOMPARE(err.diagnostics(), QStringList());
    }

    void plantedLinkAtTheScratchPathIsNotFollowed()
    {
        addPrinter(QStringLiteral("Front"), QStringLiteral("usb:/dev/usb/lp0"));
        QVERIFY(sandbox::writeFile(QStringLiteral("/tmp/victim"), "untouched\n"));
        QVERIFY(QFile::link(QStringLiteral("/tmp/victim"), scratch));
        QVERIFY(sandbox::writeFile(conf, "DeviceURI usb:/dev/usb/lp0\n"));
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        runConfigure();
        QCOMPARE(sandbox::readFile(QStringLiteral("/tmp/victim")), QByteArray("untouched\n"));
        QCOMPARE(sandbox::readFile(conf), QByteArray("DeviceURI usb://EPSON/TM-T88V?serial=1\n"));
        QVERIFY(!QFileInfo(conf).isSymLink());
    }

    void plantedFolderAtTheScratchPathKeepsPrintersConf()
    {
        addPrinter(QStringLiteral("Front"), QStringLiteral("usb:/dev/usb/lp0"));
        QVERIFY(QDir().mkpath(scratch + QStringLiteral("/inside")));
        QVERIFY(sandbox::writeFile(conf, "DeviceURI usb:/dev/usb/lp0\n"));
        StderrCapture err;
        ShellRecorder shell;
        QCOMPARE(runConfigure(), 0);
        QCOMPARE(shell.commands(), QStringList({copyAll, copyPpds}));
        QCOMPARE(sandbox::readFile(conf), QByteArray("DeviceURI usb:/dev/usb/lp0\n"));
        QCOMPARE(err.diagnostics().size(), 1);
        QVERIFY(err.diagnostics().first().startsWith(
            QStringLiteral("printerconfig: not replacing /etc/cups/printers.conf: cannot write "
                           "/tmp/printers.conf: ")));
        sandbox::removePath(scratch);
    }

    void printersConfThatCannotBeReadEndsTheRunAtOnce_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::newRow("named pipe") << QStringLiteral("fifo");
        QTest::newRow("link to /dev/zero") << QStringLiteral("zero");
        QTest::newRow("one byte over 64 MiB") << QStringLiteral("big");
    }

    void printersConfThatCannotBeReadEndsTheRunAtOnce()
    {
        QFETCH(QString, kind);
        addPrinter(QStringLiteral("Front"), QStringLiteral("usb:/dev/usb/lp0"));
        addPrinter(QStringLiteral("Lab"), QStringLiteral("socket://10.0.0.5:9100"));
        const QByteArray path = QFile::encodeName(conf);
        if (kind == QLatin1String("fifo")) {
            QCOMPARE(::mkfifo(path.constData(), 0600), 0);
        } else if (kind == QLatin1String("zero")) {
            QVERIFY(QFile::link(QStringLiteral("/dev/zero"), conf));
        } else {
            QFile big(conf);
            QVERIFY(big.open(QIODevice::WriteOnly) && big.resize((qint64(64) << 20) + 1));
        }
        StderrCapture err;
        ShellRecorder shell;
        QElapsedTimer timer;
        timer.start();
        {
            Watchdog guard("the configure run on a hostile printers.conf");
            QCOMPARE(runConfigure(), 0);
        }
        QVERIFY(timer.elapsed() < 1000);
        // The first pass copies, cannot read printers.conf and stops: no mv, and the
        // second record is not processed.
        QCOMPARE(shell.commands(), QStringList({copyAll, copyPpds}));
        QCOMPARE(err.diagnostics().size(), 1);
        QVERIFY(err.diagnostics().first().startsWith(
            QStringLiteral("printerconfig: ignoring /etc/cups/printers.conf: ")));
        QVERIFY(!QFileInfo::exists(scratch));
    }

    void fullTmpRunsNoMoveAndKeepsPrintersConf_data()
    {
        QTest::addColumn<bool>("fillFirst");
        QTest::newRow("printers.conf larger than the free space") << false;
        QTest::newRow("no space left at all") << true;
    }

    void fullTmpRunsNoMoveAndKeepsPrintersConf()
    {
        QFETCH(bool, fillFirst);
        // A printers.conf of 200 KiB with a USB line at its end, and a /tmp of 64 KiB.
        QByteArray original;
        while (original.size() < 200 * 1024)
            original += "# padding line of a printers.conf that CUPS might have written\n";
        original += "DeviceURI usb:/dev/usb/lp0\n";
        QVERIFY(sandbox::writeFile(conf, original));

        // Hide the sandbox's /tmp under a tiny one for this test only.
        if (::mount("full-tmp", "/tmp", "tmpfs", 0, "size=64k,mode=1777") != 0)
            QSKIP("mounting a small tmpfs over /tmp is not allowed in this sandbox");
        struct Unmount
        {
            ~Unmount() { ::umount2("/tmp", MNT_DETACH); }
        } unmount;
        addPrinter(QStringLiteral("Lab"), QStringLiteral("socket://10.0.0.5:9100"));
        if (fillFirst) {
            QFile filler(QStringLiteral("/tmp/filler"));
            QVERIFY(filler.open(QIODevice::WriteOnly));
            const QByteArray block(4096, 'f');
            while (filler.write(block) == block.size() && filler.flush()) {
            }
        }

        StderrCapture err;
        ShellRecorder shell;
        QCOMPARE(runConfigure(), 0);
        QCOMPARE(shell.commands(), QStringList({copyAll, copyPpds}));
        QCOMPARE(sandbox::readFile(conf), original);
        QVERIFY(!QFileInfo::exists(scratch)); // nothing half-written left behind
        QCOMPARE(err.diagnostics(),
                 QStringList{QStringLiteral(
                     "printerconfig: not replacing /etc/cups/printers.conf: cannot write "
                     "/tmp/printers.conf: No space left on device")});
    }
};

QTEST_GUILESS_MAIN(TestHostileConfigure)
#include "tst_hostile_configure.moc"
