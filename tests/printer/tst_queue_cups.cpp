// Queue administration and test pages against CUPS's own scheduler, started privately by
// "run-in-sandbox --real-cups", with a loopback printer that keeps every job it receives.
#include "common/paths.h"
#include "printer/printer.h"
#include "support/printermap.h"
#include "support/sandbox.h"
#include "support/shellrecorder.h"

#include <QtTest>

namespace {

const QString postScriptPpd = QStringLiteral("/usr/share/ppd/cups-included/postscript.ppd");

// A data file as the sandbox provides it (our fixtures, laid over the system folders).
QByteArray fixture(const QString &path)
{
    const QByteArray content = sandbox::readFile(path);
    if (content.isEmpty())
        qWarning("fixture %s is missing or empty", qPrintable(path));
    return content;
}

} // namespace

class TestQueueCups : public QObject
{
    Q_OBJECT

private:
    QString m_printerUri;

    Printer record(const QString &name, const QString &ppd) const
    {
        return loopbackPrinter(name, ppd, m_printerUri);
    }

    static bool queueExists(const QString &name)
    {
        return sandbox::runProgram(QStringLiteral("lpstat"), {QStringLiteral("-p"), name}).status ==
               0;
    }

    static QString cupsDefault()
    {
        return sandbox::runProgram(QStringLiteral("lpstat"), {QStringLiteral("-d")})
            .output.trimmed();
    }

    // The scheduler's log, shown when a job does not arrive.
    static QByteArray schedulerLogTail()
    {
        const QByteArray log = sandbox::readFile(qEnvironmentVariable("SANDBOX_CUPS_LOG"));
        return log.right(4000);
    }

private slots:
    void initTestCase()
    {
        REQUIRE_REAL_CUPS();
        m_printerUri = sandbox::loopbackPrinterUri();
        for (const QString &path :
             {rawTextPpd, postScriptPpd, paths::postScriptTestPage(), paths::textPrinterPreamble()})
            QVERIFY2(!fixture(path).isEmpty(), qPrintable(path));
    }

    void init() { Printer::setDefaultPrinterName(QString()); }

    void installCreatesAnEnabledQueueThatAcceptsJobs()
    {
        Printer p = record(QStringLiteral("Office"), postScriptPpd);
        p.Install();
        const sandbox::ProcessRun state = sandbox::runProgram(
            QStringLiteral("lpstat"), {QStringLiteral("-p"), QStringLiteral("Office")});
        QCOMPARE(state.status, 0);
        QVERIFY2(state.output.startsWith(QLatin1String("printer Office is idle.  enabled")),
                 qPrintable(state.output));
        const sandbox::ProcessRun accepting = sandbox::runProgram(
            QStringLiteral("lpstat"), {QStringLiteral("-a"), QStringLiteral("Office")});
        QVERIFY2(accepting.output.startsWith(QLatin1String("Office accepting requests")),
                 qPrintable(accepting.output));
        const sandbox::ProcessRun device = sandbox::runProgram(
            QStringLiteral("lpstat"), {QStringLiteral("-v"), QStringLiteral("Office")});
        QCOMPARE(device.output.trimmed(), QStringLiteral("device for Office: ") + m_printerUri);
        const sandbox::ProcessRun info = sandbox::runProgram(
            QStringLiteral("lpstat"),
            {QStringLiteral("-l"), QStringLiteral("-p"), QStringLiteral("Office")});
        QVERIFY2(info.output.contains(QLatin1String("Description: Office")),
                 qPrintable(info.output));
        // The scheduler keeps its own copy of the PPD.
        QCOMPARE(sandbox::readFile(QStringLiteral("/etc/cups/ppd/Office.ppd")),
                 fixture(postScriptPpd));
        QVERIFY2(!cupsDefault().contains(QLatin1String("Office")), qPrintable(cupsDefault()));
    }

    void installOfTheDefaultPrinterMakesItTheCupsDefault()
    {
        Printer::setDefaultPrinterName(QStringLiteral("Front"));
        record(QStringLiteral("Front"), rawTextPpd).Install();
        QCOMPARE(cupsDefault(), QStringLiteral("system default destination: Front"));

        // Installing another, non-default printer leaves the CUPS default alone.
        record(QStringLiteral("Back"), postScriptPpd).Install();
        QVERIFY(queueExists(QStringLiteral("Back")));
        QCOMPARE(cupsDefault(), QStringLiteral("system default destination: Front"));

        // Once it becomes the default, SetCupsDefault moves the CUPS default to it.
        Printer back = record(QStringLiteral("Back"), postScriptPpd);
        back.SetDefault();
        back.SetCupsDefault();
        QCOMPARE(cupsDefault(), QStringLiteral("system default destination: Back"));
    }

    void installOverAnExistingQueueReplacesItsDeviceAndDriver()
    {
        record(QStringLiteral("Swap"), postScriptPpd).Install();
        Printer p = record(QStringLiteral("Swap"), rawTextPpd);
        p.device_uri = QStringLiteral("socket://127.0.0.1:9");
        p.Install();
        const sandbox::ProcessRun device = sandbox::runProgram(
            QStringLiteral("lpstat"), {QStringLiteral("-v"), QStringLiteral("Swap")});
        QCOMPARE(device.output.trimmed(), QStringLiteral("device for Swap: socket://127.0.0.1:9"));
        QCOMPARE(sandbox::readFile(QStringLiteral("/etc/cups/ppd/Swap.ppd")), fixture(rawTextPpd));
    }

    void rawTextTestPageReachesThePrinterAsPreambleAndSettings()
    {
        Printer p = record(QStringLiteral("Receipts"), rawTextPpd);
        p.Install();
        const int before = sandbox::loopbackJobsReceived();
        p.PrintTestPage();
        const QByteArray expected =
            fixture(paths::textPrinterPreamble()) +
            QByteArray("\tName:\t\tReceipts\r\n\r\n"
                       "\tClass:\t\tnetwork\r\n\r\n"
                       "\tModel:\t\tLoopback\r\n\r\n"
                       "\tDevice:\t\t") +
            m_printerUri.toUtf8() +
            QByteArray(
                "\r\n\r\n"
                "\tCups Driver:\t/usr/share/ppd/std1/Generic/-Generic-Text-Only-Raw.ppd\r\n\r\n"
                "\tWindows Driver:\tGeneric / Text Only\r\n\r\n"
                "\tPaper Size:\tA4\r\n\r\n"
                "\r\n\x0c");
        const QByteArray received = sandbox::waitForLoopbackJob(before + 1);
        QVERIFY2(!received.isEmpty(), schedulerLogTail().constData());
        QCOMPARE(received, expected);
    }

    void postScriptTestPageReachesThePrinterUnchanged()
    {
        Printer p = record(QStringLiteral("Laser"), postScriptPpd);
        p.Install();
        const int before = sandbox::loopbackJobsReceived();
        p.PrintTestPage();
        const QByteArray received = sandbox::waitForLoopbackJob(before + 1);
        QVERIFY2(!received.isEmpty(), schedulerLogTail().constData());
        QCOMPARE(received, fixture(paths::postScriptTestPage()));
    }

    void uninstallRemovesTheQueueAndTheStagedPpd()
    {
        Printer p = record(QStringLiteral("Gone"), postScriptPpd);
        p.Install();
        QVERIFY(queueExists(QStringLiteral("Gone")));
        const QString staged = QStringLiteral("/tmp/config/files/cups/Gone.ppd");
        QVERIFY(sandbox::writeFile(staged, fixture(postScriptPpd)));

        p.Uninstall();
        QVERIFY(!queueExists(QStringLiteral("Gone")));
        const sandbox::ProcessRun all =
            sandbox::runProgram(QStringLiteral("lpstat"), {QStringLiteral("-v")});
        QVERIFY2(!all.output.contains(QLatin1String("Gone")), qPrintable(all.output));
        QVERIFY(!QFileInfo::exists(QStringLiteral("/etc/cups/ppd/Gone.ppd")));
        QVERIFY(!QFileInfo::exists(staged));
    }

    void uninstallOfAPrinterWithoutQueueRunsBothCommands()
    {
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        record(QStringLiteral("Never"), postScriptPpd).Uninstall();
        QCOMPARE(shell.commands(),
                 QStringList({QStringLiteral("lpadmin -x Never"),
                              QStringLiteral("rm /tmp/config/files/cups/Never.ppd")}));
        QVERIFY(!queueExists(QStringLiteral("Never")));
    }

    void installWithAMissingPpdRunsTheWholeSequenceAndCreatesNoQueue()
    {
        Printer::setDefaultPrinterName(QStringLiteral("NoDriver"));
        const QString defaultBefore = cupsDefault();
        Printer p =
            record(QStringLiteral("NoDriver"), QStringLiteral("/usr/share/ppd/std1/missing.ppd"));
        QElapsedTimer clock;
        clock.start();
        {
            ShellRecorder shell(ShellRecorder::RecordAndRun);
            p.Install();
            QCOMPARE(shell.commands(),
                     QStringList({QStringLiteral("lpadmin  -p NoDriver -D 'NoDriver' -v '%1' "
                                                 "-P '/usr/share/ppd/std1/missing.ppd' -E")
                                      .arg(m_printerUri),
                                  QStringLiteral("cupsaccept NoDriver"),
                                  QStringLiteral("lpadmin -d NoDriver")}));
        }
        QVERIFY2(clock.elapsed() < 20000, "Install must not hang when lpadmin fails");
        QVERIFY(!queueExists(QStringLiteral("NoDriver")));
        QCOMPARE(cupsDefault(), defaultBefore);
    }

    void everyCommandRunsWhileTheSchedulerIsUnreachable()
    {
        // Point the tools at a socket nobody listens on: to them CUPS is not running.
        const QByteArray server = qgetenv("CUPS_SERVER");
        const QString deadSocket =
            qEnvironmentVariable("SANDBOX_DIR") + QStringLiteral("/no-cupsd.sock");
        qputenv("CUPS_SERVER", deadSocket.toLocal8Bit());
        Printer::setDefaultPrinterName(QStringLiteral("Offline"));
        Printer p = record(QStringLiteral("Offline"), rawTextPpd);
        QElapsedTimer clock;
        clock.start();
        QStringList commands;
        {
            ShellRecorder shell(ShellRecorder::RecordAndRun);
            p.Install();
            p.PrintTestPage();
            p.Uninstall();
            commands = shell.commands();
        }
        const qint64 elapsed = clock.elapsed();
        qputenv("CUPS_SERVER", server);

        QCOMPARE(commands.size(), 7);
        QVERIFY(commands.at(0).startsWith(QLatin1String("lpadmin  -p Offline ")));
        QCOMPARE(
            commands.mid(1),
            QStringList({QStringLiteral("cupsaccept Offline"), QStringLiteral("lpadmin -d Offline"),
                         QStringLiteral("cat /usr/share/cups/data/textonly.prn "
                                        "/tmp/prtestinfo > /tmp/prtest"),
                         QStringLiteral("lp -d Offline /tmp/prtest"),
                         QStringLiteral("lpadmin -x Offline"),
                         QStringLiteral("rm /tmp/config/files/cups/Offline.ppd")}));
        QVERIFY2(elapsed < 30000, "no command may hang while CUPS is down");
        // The real scheduler never heard of it.
        QVERIFY(!queueExists(QStringLiteral("Offline")));
        QVERIFY(QFileInfo::exists(paths::testPageFile()));
    }
};

QTEST_GUILESS_MAIN(TestQueueCups)
#include "tst_queue_cups.moc"
