#include "common/paths.h"
#include "printer/printer.h"
#include "support/sandbox.h"

#include <QtTest>

namespace {

const QString conf = paths::printersConf();
const QString wrapLog = QStringLiteral("/tmp/wrap/calls.log");

struct Run
{
    int exitCode = -1;
    QProcess::ExitStatus status = QProcess::CrashExit;
    QByteArray out;
    QByteArray err;
};

// Environment for the program: cp and mv wrapped so every file command it runs is
// logged (and still done), the CUPS fakes of the sandbox, no display unless given.
QProcessEnvironment toolEnvironment()
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("PATH"),
               QStringLiteral("/tmp/wrap:") + env.value(QStringLiteral("PATH")));
    env.remove(QStringLiteral("DISPLAY"));
    env.remove(QStringLiteral("WAYLAND_DISPLAY"));
    env.remove(QStringLiteral("QT_QPA_PLATFORM"));
    return env;
}

Run runTool(const QStringList &args, const QProcessEnvironment &env = toolEnvironment())
{
    QProcess process;
    process.setProcessEnvironment(env);
    process.start(sandbox::programPath(), args);
    Run run;
    if (!process.waitForFinished(60000)) {
        process.kill();
        process.waitForFinished();
        return run;
    }
    run.exitCode = process.exitCode();
    run.status = process.exitStatus();
    run.out = process.readAllStandardOutput();
    run.err = process.readAllStandardError();
    return run;
}

QStringList wrappedCalls()
{
    return QString::fromUtf8(sandbox::readFile(wrapLog))
        .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

void seedOnePrinter()
{
    Printer p;
    p.name = QStringLiteral("Office");
    p.printer_class = QStringLiteral("direct");
    p.device_uri = QStringLiteral("usb:/dev/usb/lp0");
    p.UpdatePath();
    QVERIFY(p.Commit());
    QVERIFY(
        sandbox::writeFile(QStringLiteral("/tmp/config/files/cups/Office.ppd"), "*PPD-Adobe\n"));
    QVERIFY(sandbox::writeFile(conf, "<Printer Office>\nDeviceURI usb:/dev/usb/lp0\n</Printer>\n"));
    QVERIFY(sandbox::writeFile(paths::lpinfoCache(), "direct usb://Star/TSP143\n"));
}

const QByteArray rewrittenConf = "<Printer Office>\nDeviceURI usb://Star/TSP143\n</Printer>\n";

} // namespace

class TestCommandLine : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        REQUIRE_SANDBOX();
        REQUIRE_BUILT_PROGRAM();
    }

    void init()
    {
        sandbox::removePath(QStringLiteral("/tmp/config"));
        sandbox::removePath(paths::lpinfoCache());
        sandbox::removePath(QStringLiteral("/tmp/wrap"));
        sandbox::removePath(conf);
        sandbox::removePath(paths::queuePpdFolder());
        sandbox::removePath(QStringLiteral("/etc/cups/Office.ppd"));
        QVERIFY(QDir().mkpath(paths::queuePpdFolder()));
        for (const char *tool : {"cp", "mv"}) {
            const QString path = QStringLiteral("/tmp/wrap/") + QLatin1String(tool);
            QVERIFY(sandbox::writeFile(path, QByteArray("#!/bin/sh\necho \"") + tool + " $*\" >>" +
                                                 wrapLog.toUtf8() + "\nexec /bin/" + tool +
                                                 " \"$@\"\n"));
            QFile(path).setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        }
        sandbox::clearFakeCalls();
    }

    void helpListsTheConfigureOptionAndPoptsHelpOptions()
    {
        const Run run = runTool({QStringLiteral("--help")});
        QCOMPARE(run.status, QProcess::NormalExit);
        QCOMPARE(run.exitCode, 0);
        QVERIFY2(run.out.contains("-c, --configure"), run.out.constData());
        QVERIFY(run.out.contains("configure CUPS"));
        QVERIFY(run.out.contains("Help options:"));
        QVERIFY(run.out.contains("-?, --help"));
        QVERIFY(run.out.contains("--usage"));
        QVERIFY(wrappedCalls().isEmpty()); // popt ends the process before any mode runs
    }

    void usagePrintsTheShortUsage()
    {
        const Run run = runTool({QStringLiteral("--usage")});
        QCOMPARE(run.exitCode, 0);
        QVERIFY2(run.out.contains("[-c|--configure]"), run.out.constData());
    }

    void configureWithoutStoredPrintersRunsNoCommand()
    {
        QVERIFY(sandbox::writeFile(conf, "DeviceURI usb:/dev/usb/lp0\n"));
        QVERIFY(sandbox::writeFile(QStringLiteral("/tmp/config/files/cups/Old.ppd"), "x"));
        const Run run = runTool({QStringLiteral("--configure")});
        QCOMPARE(run.status, QProcess::NormalExit);
        QCOMPARE(run.exitCode, 0);
        QVERIFY(wrappedCalls().isEmpty());
        QVERIFY(sandbox::fakeCalls().isEmpty());
        QCOMPARE(sandbox::readFile(conf), QByteArray("DeviceURI usb:/dev/usb/lp0\n"));
        QVERIFY(!QFileInfo::exists(QStringLiteral("/etc/cups/ppd/Old.ppd")));
    }

    void configureOptionSpellingsAndRepeatsBehaveAlike_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::newRow("-c") << QStringList{QStringLiteral("-c")};
        QTest::newRow("--configure") << QStringList{QStringLiteral("--configure")};
        QTest::newRow("-c -c") << QStringList{QStringLiteral("-c"), QStringLiteral("-c")};
        QTest::newRow("--configure -c")
            << QStringList{QStringLiteral("--configure"), QStringLiteral("-c")};
    }
    void configureOptionSpellingsAndRepeatsBehaveAlike()
    {
        QFETCH(QStringList, args);
        seedOnePrinter();
        const Run run = runTool(args);
        QCOMPARE(run.status, QProcess::NormalExit);
        QCOMPARE(run.exitCode, 0);
        QVERIFY2(run.err.isEmpty() || !run.err.contains("Usage:"), run.err.constData());
        QCOMPARE(wrappedCalls(),
                 (QStringList{QStringLiteral("cp /tmp/config/files/cups/Office.ppd /etc/cups"),
                              QStringLiteral("cp /tmp/config/files/cups/Office.ppd /etc/cups/ppd"),
                              QStringLiteral("mv /tmp/printers.conf /etc/cups/")}));
        QCOMPARE(sandbox::readFile(conf), rewrittenConf);
        QCOMPARE(sandbox::readFile(QStringLiteral("/etc/cups/ppd/Office.ppd")),
                 QByteArray("*PPD-Adobe\n"));
        QVERIFY(sandbox::fakeCalls().isEmpty()); // the lpinfo cache existed: no CUPS tool ran
    }

    void configureThenUnknownOptionPrintsHelpOnStderrAndStillConfigures()
    {
        seedOnePrinter();
        const Run run = runTool({QStringLiteral("-c"), QStringLiteral("--bogus")});
        QCOMPARE(run.status, QProcess::NormalExit);
        QCOMPARE(run.exitCode, 0);
        QVERIFY2(run.err.contains("Usage: "), run.err.constData());
        QVERIFY(run.err.contains("configure CUPS"));
        QVERIFY(run.err.contains("Help options:"));
        QVERIFY(!run.out.contains("configure CUPS"));
        QCOMPARE(sandbox::readFile(conf), rewrittenConf);
    }

    void configureRunNeedsNoDisplay()
    {
        // No DISPLAY and no platform plugin chosen: creating any GUI object would abort.
        seedOnePrinter();
        const Run run = runTool({QStringLiteral("-c")});
        QCOMPARE(run.status, QProcess::NormalExit);
        QCOMPARE(run.exitCode, 0);
        QVERIFY(!run.err.contains("could not connect to display"));
    }

    void windowOpensAndClosingItExitsWithZero_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<bool>("helpOnStderr");
        QTest::newRow("no arguments") << QStringList() << false;
        QTest::newRow("--bogus") << QStringList{QStringLiteral("--bogus")} << true;
    }
    void windowOpensAndClosingItExitsWithZero()
    {
        QFETCH(QStringList, args);
        QFETCH(bool, helpOnStderr);
        if (QStandardPaths::findExecutable(QStringLiteral("Xvfb")).isEmpty() ||
            QStandardPaths::findExecutable(QStringLiteral("xdotool")).isEmpty())
            QSKIP("needs Xvfb and xdotool (scripts/setup --test installs them)");

        // A private X server; -displayfd picks a free display number.
        QProcess xvfb;
        xvfb.start(QStringLiteral("Xvfb"),
                   {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-screen"),
                    QStringLiteral("0"), QStringLiteral("1024x768x24"), QStringLiteral("-nolisten"),
                    QStringLiteral("tcp")});
        QVERIFY(xvfb.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(xvfb.canReadLine(), 20000);
        const QString display =
            QStringLiteral(":") + QString::fromLatin1(xvfb.readLine()).trimmed();

        QProcessEnvironment env = toolEnvironment();
        env.insert(QStringLiteral("DISPLAY"), display);
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        QProcess tool;
        tool.setProcessEnvironment(env);
        tool.start(sandbox::programPath(), args);
        QVERIFY(tool.waitForStarted());

        // Wait for the window, give it the keyboard, and press Alt+C (the "&Close" button).
        QProcess xdo;
        xdo.setProcessEnvironment(env);
        xdo.start(QStringLiteral("xdotool"),
                  {QStringLiteral("search"), QStringLiteral("--sync"),
                   QStringLiteral("--onlyvisible"), QStringLiteral("--name"),
                   QStringLiteral("^Printer Configuration$")});
        QVERIFY(xdo.waitForFinished(30000));
        const QString window =
            QString::fromLatin1(xdo.readAllStandardOutput()).split(QLatin1Char('\n')).first();
        QVERIFY2(!window.isEmpty(), "the printer list window did not appear");
        QCOMPARE(tool.state(), QProcess::Running);

        xdo.start(QStringLiteral("xdotool"),
                  {QStringLiteral("windowfocus"), QStringLiteral("--sync"), window,
                   QStringLiteral("key"), QStringLiteral("alt+c")});
        QVERIFY(xdo.waitForFinished(30000));
        QVERIFY2(tool.waitForFinished(30000), "closing the window did not end the program");
        QCOMPARE(tool.exitStatus(), QProcess::NormalExit);
        QCOMPARE(tool.exitCode(), 0);
        const QByteArray err = tool.readAllStandardError();
        QCOMPARE(err.contains("Help options:"), helpOnStderr);
        xvfb.terminate();
        xvfb.waitForFinished();
    }
};

QTEST_GUILESS_MAIN(TestCommandLine)
#include "tst_cli.moc"
