#include "common/paths.h"
#include "printer/printer.h"
#include "printer/staging.h"
#include "support/printermap.h"
#include "support/sandbox.h"
#include "support/shellrecorder.h"
#include "support/stderrcapture.h"

#include <QtTest>

#include <utility>

namespace {

const QString rawTextPpd = QStringLiteral("/usr/share/ppd/std1/Generic/-Generic-Text-Only-Raw.ppd");

Printer office()
{
    Printer p;
    p.name = QStringLiteral("Office");
    p.printer_class = QStringLiteral("direct");
    p.device_uri = QStringLiteral("usb://EPSON/TM-T88");
    p.ppd = rawTextPpd;
    return p;
}

const QString officeLpadmin =
    QStringLiteral("lpadmin  -p Office -D 'Office' -v 'usb://EPSON/TM-T88' "
                   "-P '/usr/share/ppd/std1/Generic/-Generic-Text-Only-Raw.ppd' -E");

} // namespace

class TestQueue : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { REQUIRE_SANDBOX(); }
    void init() { Printer::setDefaultPrinterName(QString()); }
    void cleanup() { Printer::setDefaultPrinterName(QString()); }

    void installBuildsTheLpadminLineWithTwoSpacesAndQuotedFields()
    {
        ShellRecorder shell;
        office().Install();
        QVERIFY(!shell.commands().isEmpty());
        QCOMPARE(shell.commands().first(), officeLpadmin);
    }

    void installOfANonDefaultPrinterRunsExactlyLpadminAndCupsaccept()
    {
        Printer::setDefaultPrinterName(QStringLiteral("Other"));
        ShellRecorder shell;
        office().Install();
        QCOMPARE(shell.commands(),
                 QStringList({officeLpadmin, QStringLiteral("cupsaccept Office")}));
    }

    void installWithoutAnyDefaultPrinterRunsTwoCommands()
    {
        ShellRecorder shell;
        office().Install();
        QCOMPARE(shell.commands().size(), 2);
    }

    void installOfTheDefaultPrinterAlsoMakesItTheCupsDefault()
    {
        Printer::setDefaultPrinterName(QStringLiteral("Office"));
        ShellRecorder shell;
        office().Install();
        QCOMPARE(shell.commands(), QStringList({officeLpadmin, QStringLiteral("cupsaccept Office"),
                                                QStringLiteral("lpadmin -d Office")}));
    }

    void installWaitsHalfASecondBetweenLpadminAndCupsaccept()
    {
        ShellRecorder shell;
        office().Install();
        QCOMPARE(shell.commands().size(), 2);
        QVERIFY2(
            shell.gap(0, 1) >= 0.5,
            qPrintable(QStringLiteral("cupsaccept came %1 s after lpadmin").arg(shell.gap(0, 1))));
    }

    void installDoesNotWaitAfterCupsaccept()
    {
        Printer::setDefaultPrinterName(QStringLiteral("Office"));
        ShellRecorder shell;
        office().Install();
        QCOMPARE(shell.commands().size(), 3);
        QVERIFY2(shell.gap(1, 2) < 0.4,
                 qPrintable(
                     QStringLiteral("lpadmin -d came %1 s after cupsaccept").arg(shell.gap(1, 2))));
    }

    void installPassesAnEmptyFieldAsEmptyQuotes_data()
    {
        QTest::addColumn<bool>("emptyUri");
        QTest::addColumn<QString>("lpadmin");
        QTest::newRow("device address")
            << true
            << QStringLiteral("lpadmin  -p Office -D 'Office' -v '' "
                              "-P '/usr/share/ppd/std1/Generic/-Generic-Text-Only-Raw.ppd' -E");
        QTest::newRow("driver")
            << false
            << QStringLiteral("lpadmin  -p Office -D 'Office' -v 'usb://EPSON/TM-T88' -P '' -E");
    }

    void installPassesAnEmptyFieldAsEmptyQuotes()
    {
        QFETCH(bool, emptyUri);
        QFETCH(QString, lpadmin);
        Printer p = office();
        (emptyUri ? p.device_uri : p.ppd).clear();
        ShellRecorder shell;
        p.Install();
        QCOMPARE(shell.commands().first(), lpadmin);
    }

    void installCopiesPercentSignsInFieldsLiterally()
    {
        Printer p = office();
        p.name = QStringLiteral("Desk%2");
        p.device_uri = QStringLiteral("usb://EPSON/TM%20T88%1?serial=%3");
        p.ppd = QStringLiteral("/usr/share/ppd/100%1.ppd");
        ShellRecorder shell;
        p.Install();
        QCOMPARE(shell.commands(),
                 QStringList({QStringLiteral("lpadmin  -p Desk%2 -D 'Desk%2' "
                                             "-v 'usb://EPSON/TM%20T88%1?serial=%3' "
                                             "-P '/usr/share/ppd/100%1.ppd' -E"),
                              QStringLiteral("cupsaccept Desk%2")}));
    }

    void installLeavesTheNameUnquotedAfterP()
    {
        Printer p = office();
        p.name = QStringLiteral("Front Desk");
        ShellRecorder shell;
        p.Install();
        QVERIFY(shell.commands().first().startsWith(
            QStringLiteral("lpadmin  -p Front Desk -D 'Front Desk' -v ")));
        QCOMPARE(shell.commands().at(1), QStringLiteral("cupsaccept Front Desk"));
    }

    void installRunsTheWholeSequenceWhenEveryCommandFails()
    {
        Printer::setDefaultPrinterName(QStringLiteral("Office"));
        ShellRecorder failing(ShellRecorder::Record, 1);
        office().Install();
        QCOMPARE(failing.commands(),
                 QStringList({officeLpadmin, QStringLiteral("cupsaccept Office"),
                              QStringLiteral("lpadmin -d Office")}));
    }

    // A USB address came from a device; one holding a quote never reaches a command, but
    // accepting jobs and making the queue the default carry nothing of it and still run.
    void installOfAUsbAddressWithAQuoteSkipsOnlyTheLineCarryingIt()
    {
        Printer::setDefaultPrinterName(QStringLiteral("Office"));
        Printer p = office();
        p.device_uri = QStringLiteral("usb://Evil'Maker/X");
        StderrCapture err;
        ShellRecorder shell;
        p.Install();
        QCOMPARE(shell.commands(), QStringList({QStringLiteral("cupsaccept Office"),
                                                QStringLiteral("lpadmin -d Office")}));
        for (const QString &command : shell.commands())
            QVERIFY2(!command.contains(QStringLiteral("Evil")), qPrintable(command));
        QCOMPARE(err.diagnostics(),
                 QStringList{QStringLiteral("printerconfig: not creating the queue Office: its "
                                            "device address holds a quote or a control "
                                            "character")});
    }

    // With no queue asked for, there is nothing for the scheduler to settle after.
    void installWithARefusedAddressDoesNotWaitBeforeCupsaccept()
    {
        Printer p = office();
        p.device_uri = QStringLiteral("usb://Evil'Maker/X");
        StderrCapture err;
        ShellRecorder shell;
        p.Install();
        QCOMPARE(shell.commands(), QStringList{QStringLiteral("cupsaccept Office")});
        QVERIFY2(shell.sinceStart() < 0.4,
                 qPrintable(QStringLiteral("Install took %1 s").arg(shell.sinceStart())));
    }

    void setCupsDefaultRunsLpadminDOnlyForTheDefaultPrinter()
    {
        {
            ShellRecorder shell;
            office().SetCupsDefault();
            QVERIFY(shell.commands().isEmpty());
        }
        Printer::setDefaultPrinterName(QStringLiteral("Office"));
        ShellRecorder shell;
        office().SetCupsDefault();
        QCOMPARE(shell.commands(), QStringList({QStringLiteral("lpadmin -d Office")}));
    }

    void setCupsDefaultComparesTheNameExactly()
    {
        Printer::setDefaultPrinterName(QStringLiteral("office"));
        ShellRecorder shell;
        office().SetCupsDefault();
        QVERIFY(shell.commands().isEmpty());
    }

    void uninstallDeletesTheQueueAndTheStagedPpd()
    {
        ShellRecorder shell;
        office().Uninstall();
        QCOMPARE(shell.commands(),
                 QStringList({QStringLiteral("lpadmin -x Office"),
                              QStringLiteral("rm /tmp/config/files/cups/Office.ppd")}));
    }

    void uninstallOfTheDefaultPrinterDoesNotTouchTheCupsDefault()
    {
        Printer::setDefaultPrinterName(QStringLiteral("Office"));
        ShellRecorder shell;
        office().Uninstall();
        QCOMPARE(shell.commands().size(), 2);
    }

    void uninstallRunsBothCommandsWhenBothFail()
    {
        ShellRecorder failing(ShellRecorder::Record, 1);
        office().Uninstall();
        QCOMPARE(failing.commands(),
                 QStringList({QStringLiteral("lpadmin -x Office"),
                              QStringLiteral("rm /tmp/config/files/cups/Office.ppd")}));
    }

    void uninstallWithoutQueueOrStagedPpdRunsBothForReal()
    {
        // Inside the sandbox lpadmin is the recording fake; the staged PPD does not exist,
        // so the real rm fails, and nothing complains.
        sandbox::removePath(paths::stagingFolder());
        sandbox::clearFakeCalls();
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        office().Uninstall();
        QCOMPARE(shell.commands().size(), 2);
        QCOMPARE(sandbox::fakeCalls(),
                 QList<QStringList>({{QStringLiteral("lpadmin"), QStringLiteral("-x"),
                                      QStringLiteral("Office")}}));
    }

    void uninstallRemovesAStagedPpd()
    {
        const QString staged = QStringLiteral("/tmp/config/files/cups/Office.ppd");
        QVERIFY(sandbox::writeFile(staged, "*PPD-Adobe: \"4.3\"\n"));
        QVERIFY(sandbox::writeFile(QStringLiteral("/tmp/config/files/cups/Back.ppd"), "x"));
        ShellRecorder shell(ShellRecorder::RecordAndRun);
        office().Uninstall();
        QVERIFY(!QFileInfo::exists(staged));
        QVERIFY(QFileInfo::exists(QStringLiteral("/tmp/config/files/cups/Back.ppd")));
    }

    void uninstallDoesNotSleep()
    {
        ShellRecorder shell;
        office().Uninstall();
        QCOMPARE(shell.commands().size(), 2);
        QVERIFY2(shell.sinceStart() < 0.4,
                 qPrintable(QStringLiteral("Uninstall took %1 s").arg(shell.sinceStart())));
    }

    void stagingSetsThePaperSizeAndCopiesTheEditedPpdTwice()
    {
        Printer laser = postScriptPrinter(QStringLiteral("Laser"));
        laser.paper_size = QStringLiteral("Letter");
        ShellRecorder shell;
        stageQueuePpd(laser);
        QCOMPARE(shell.commands(),
                 QStringList({"cat /etc/cups/ppd/Laser.ppd| sed -e "
                              "\"s/DefaultPageSize.*/DefaultPageSize: Letter/g\"  >/tmp/Laser.ppd",
                              "cp /tmp/Laser.ppd /etc/cups/ppd",
                              "cp /tmp/Laser.ppd /tmp/config/files/cups"}));
    }

    void rawTextQueueIsNotStaged()
    {
        ShellRecorder shell;
        stageQueuePpd(office());
        QCOMPARE(shell.commands(), QStringList());
    }

    void announcingTellsTheSessionThenWaitsInTheBackground()
    {
        ShellRecorder shell;
        announceQueues();
        waitForPrintService();
        QCOMPARE(shell.commands(),
                 QStringList({"init_ica", "CitrixCUPSPrinter", "waitforCUPS&", "waitforCUPS&"}));
    }
};

QTEST_GUILESS_MAIN(TestQueue)
#include "tst_queue.moc"
