// A printer's whole life through the real windows, against CUPS's own scheduler started by
// "run-in-sandbox --real-cups" and its loopback printer: added through the wizard's
// widgets, printed to, edited, restored by the configure run, deleted. The test functions
// run in declaration order and each continues from the state the previous one left.
#include "common/paths.h"
#include "printer/printer.h"
#include "support/modal.h"
#include "support/sandbox.h"
#include "support/widgets.h"
#include "ui/printerdlg.h"
#include "ui/wizarddlg.h"

#include <QApplication>
#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QtTest>

#include <functional>
#include <memory>

namespace {

const QString name = QStringLiteral("Office");
const QString postScriptPpd = QStringLiteral("/usr/share/ppd/cups-included/postscript.ppd");
const QString pclPpd =
    QStringLiteral("/usr/share/ppd/std1/Generic/Generic-PCL_5e_Printer-ljet4d.ppd");
const QString queuePpd = QStringLiteral("/etc/cups/ppd/Office.ppd");
const QString stagedPpd = QStringLiteral("/tmp/config/files/cups/Office.ppd");

QString recordFile()
{
    return paths::registryFolder() + QStringLiteral("/Office.pr");
}

// The PPD's "*DefaultPageSize" line, or an empty text.
QString defaultPageSize(const QByteArray &ppd)
{
    for (const QByteArray &line : ppd.split('\n')) {
        if (line.startsWith("*DefaultPageSize"))
            return QString::fromLatin1(line).trimmed();
    }
    return QString();
}

bool called(const QString &program)
{
    const QList<QStringList> calls = sandbox::fakeCalls();
    for (const QStringList &call : calls) {
        if (!call.isEmpty() && call.first() == program)
            return true;
    }
    return false;
}

} // namespace

class TestEndToEnd : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void addingRawPrinterThroughWizardCreatesRecordQueueAndStagedPpd();
    void testPageReachesTheLoopbackPrinter();
    void editingPrinterRebuildsItsQueue();
    void configureRunRestoresStagedPpdIntoEmptiedCupsFolder();
    void deletingPrinterRemovesRecordQueueAndStagedPpd();

private:
    // Clicks the window's button that opens the wizard and lets steps work the wizard's
    // widgets. A wizard still open after the steps (a failed check) is closed so that
    // the test can report.
    bool runWizard(const char *button, const std::function<void(WizardDlg *)> &steps);
    bool selectPrinter();
    bool queueExists() const;

    std::unique_ptr<PrinterDlg> window;
    QString deviceUri;
};

void TestEndToEnd::initTestCase()
{
    REQUIRE_REAL_CUPS();

    deviceUri = sandbox::loopbackPrinterUri();
    // The device's configuration folders exist before the tool ever runs.
    QVERIFY(QDir().mkpath(paths::stagingFolder()));
    QVERIFY(QDir().mkpath(paths::registryFolder()));
    Printer::setDefaultPrinterName(QString());

    window.reset(new PrinterDlg);
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    QCOMPARE(requireChild<QListWidget>(window.get(), "lwPrinters")->count(), 0);
}

void TestEndToEnd::cleanupTestCase()
{
    window.reset();
}

bool TestEndToEnd::runWizard(const char *button, const std::function<void(WizardDlg *)> &steps)
{
    QPushButton *opener = requireChild<QPushButton>(window.get(), button);
    bool ran = false;
    answerModal([opener] { opener->click(); },
                [&](QWidget *modal) {
                    auto *wizard = qobject_cast<WizardDlg *>(modal);
                    QVERIFY2(wizard, modal->metaObject()->className());
                    ran = true;
                    steps(wizard);
                });
    return ran;
}

bool TestEndToEnd::selectPrinter()
{
    auto *list = requireChild<QListWidget>(window.get(), "lwPrinters");
    const QList<QListWidgetItem *> items = list->findItems(name, Qt::MatchExactly);
    if (items.size() != 1)
        return false;
    list->setCurrentItem(items.first());
    return true;
}

bool TestEndToEnd::queueExists() const
{
    return sandbox::runProgram(QStringLiteral("lpstat"), {QStringLiteral("-p"), name}).status == 0;
}

void TestEndToEnd::addingRawPrinterThroughWizardCreatesRecordQueueAndStagedPpd()
{
    bool submitted = false;
    const bool ran = runWizard("bAdd", [&](WizardDlg *wizard) {
        QVERIFY(!window->isVisible()); // the list window waits hidden
        auto *nameField = requireChild<QLineEdit>(wizard, "leName_2");
        nameField->clear();
        QTest::keyClicks(nameField, name);
        requireChild<QRadioButton>(wizard, "b_radioButtonRAW")->click();
        QTest::keyClicks(requireChild<QLineEdit>(wizard, "leName_4"), QStringLiteral("127.0.0.1"));
        auto *port = requireChild<QSpinBox>(wizard, "sbPort_2");
        port->selectAll();
        QTest::keyClicks(port, qEnvironmentVariable("SANDBOX_PRINTER_PORT"));
        QCOMPARE(port->value(), qEnvironmentVariableIntValue("SANDBOX_PRINTER_PORT"));

        auto *driver = requireChild<QComboBox>(wizard, "cbCUPSdrv");
        driver->setCurrentIndex(driver->findText(QStringLiteral("Postscript")));
        auto *size = requireChild<QComboBox>(wizard, "cbPaperSize");
        QCOMPARE(size->count(), 4);
        size->setCurrentIndex(size->findText(QStringLiteral("A4")));
        QTest::keyClicks(requireChild<QLineEdit>(wizard, "leWinDriver"),
                         QStringLiteral("MS Publisher Imagesetter"));

        requireChild<QPushButton>(wizard, "bNext")->click();
        requireChild<QPushButton>(wizard, "bSubmit")->click();
        submitted = wizard->submitted;
    });
    QVERIFY(ran);
    QVERIFY(submitted);
    QVERIFY(window->isVisible());

    // The record and, as the default printer, the registry's default entry.
    Printer stored;
    stored.set_path(recordFile());
    QVERIFY2(stored.Load(), qPrintable(recordFile()));
    QCOMPARE(stored.name, name);
    QCOMPARE(stored.device_uri, deviceUri);
    QCOMPARE(stored.printer_class, QStringLiteral("network"));
    QCOMPARE(stored.ppd, postScriptPpd);
    QCOMPARE(stored.paper_size, QStringLiteral("A4"));
    QCOMPARE(stored.win_driver, QStringLiteral("MS Publisher Imagesetter"));
    Printer defaultEntry;
    defaultEntry.set_path(paths::defaultEntry());
    QVERIFY(defaultEntry.Load());
    QCOMPARE(defaultEntry.name, name);

    // The CUPS queue, its device and the CUPS default.
    const sandbox::ProcessRun device =
        sandbox::runProgram(QStringLiteral("lpstat"), {QStringLiteral("-v"), name});
    QCOMPARE(device.output.trimmed(), QStringLiteral("device for Office: ") + deviceUri);
    const sandbox::ProcessRun accepting =
        sandbox::runProgram(QStringLiteral("lpstat"), {QStringLiteral("-a"), name});
    QVERIFY2(accepting.output.startsWith(QLatin1String("Office accepting requests")),
             qPrintable(accepting.output));
    QCOMPARE(sandbox::runProgram(QStringLiteral("lpstat"), {QStringLiteral("-d")}).output.trimmed(),
             QStringLiteral("system default destination: Office"));

    // The queue's PPD names the chosen paper size, and the same file is staged.
    const QByteArray ppd = sandbox::readFile(queuePpd);
    QCOMPARE(defaultPageSize(ppd), QStringLiteral("*DefaultPageSize: A4"));
    QVERIFY(ppd.contains("*NickName: \"Generic PostScript Printer"));
    QCOMPARE(sandbox::readFile(stagedPpd), ppd);

    QVERIFY(called(QStringLiteral("init_ica")));
    QVERIFY(called(QStringLiteral("CitrixCUPSPrinter")));
    QTRY_VERIFY(called(QStringLiteral("waitforCUPS"))); // started in the background

    auto *list = requireChild<QListWidget>(window.get(), "lwPrinters");
    QCOMPARE(list->count(), 1);
    QCOMPARE(list->item(0)->text(), name);
}

void TestEndToEnd::testPageReachesTheLoopbackPrinter()
{
    QVERIFY(selectPrinter());
    const int before = sandbox::loopbackJobsReceived();
    bool told = false;
    QPushButton *test = requireChild<QPushButton>(window.get(), "bTest");
    QVERIFY(answerModal([test] { test->click(); },
                        [&](QWidget *modal) {
                            auto *box = qobject_cast<QMessageBox *>(modal);
                            QVERIFY(box);
                            told = box->text() == QLatin1String("Test page sent to printer");
                            box->accept();
                        }));
    QVERIFY(told);

    const QString job = sandbox::loopbackJobPath(before + 1);
    QTRY_VERIFY2_WITH_TIMEOUT(
        QFileInfo::exists(job),
        sandbox::readFile(qEnvironmentVariable("SANDBOX_CUPS_LOG")).right(3000).constData(), 60000);
    const QByteArray page = sandbox::readFile(paths::postScriptTestPage());
    QVERIFY(!page.isEmpty());
    QCOMPARE(sandbox::readFile(job), page);
}

void TestEndToEnd::editingPrinterRebuildsItsQueue()
{
    QVERIFY(selectPrinter());
    sandbox::clearFakeCalls();
    bool nameLocked = false;
    bool submitted = false;
    const bool ran = runWizard("bEdit", [&](WizardDlg *wizard) {
        QCOMPARE(wizard->windowTitle(), QStringLiteral("Printer Configuration"));
        nameLocked = !requireChild<QLineEdit>(wizard, "leName_2")->isEnabled();
        // The stored connection and driver are shown.
        QVERIFY(requireChild<QRadioButton>(wizard, "b_radioButtonRAW")->isChecked());
        QCOMPARE(requireChild<QLineEdit>(wizard, "leName_4")->text(), QStringLiteral("127.0.0.1"));
        QCOMPARE(requireChild<QComboBox>(wizard, "cbCUPSdrv")->currentText(),
                 QStringLiteral("Postscript"));
        QCOMPARE(requireChild<QComboBox>(wizard, "cbPaperSize")->currentText(),
                 QStringLiteral("A4"));

        requireChild<QComboBox>(wizard, "cbCUPSdrv")->setCurrentIndex(0); // PCL B/W
        auto *size = requireChild<QComboBox>(wizard, "cbPaperSize");
        size->setCurrentIndex(size->findText(QStringLiteral("Executive")));
        requireChild<QPushButton>(wizard, "bNext")->click();
        requireChild<QPushButton>(wizard, "bSubmit")->click();
        submitted = wizard->submitted;
    });
    QVERIFY(ran);
    QVERIFY(nameLocked);
    QVERIFY(submitted);

    Printer stored;
    stored.set_path(recordFile());
    QVERIFY(stored.Load());
    QCOMPARE(stored.ppd, pclPpd);
    QCOMPARE(stored.paper_size, QStringLiteral("Executive"));
    QCOMPARE(stored.device_uri, deviceUri);

    // The queue was made again with the new driver and edited to the new size.
    QVERIFY(queueExists());
    const QByteArray ppd = sandbox::readFile(queuePpd);
    QVERIFY2(ppd.contains("*NickName: \"Generic PCL 5e Laser"), ppd.left(600).constData());
    QCOMPARE(defaultPageSize(ppd), QStringLiteral("*DefaultPageSize: Executive"));
    QCOMPARE(sandbox::readFile(stagedPpd), ppd);
    QTRY_VERIFY(called(QStringLiteral("waitforCUPS"))); // started in the background

    // A job still reaches the printer through the rebuilt queue.
    const int before = sandbox::loopbackJobsReceived();
    QCOMPARE(sandbox::runProgram(QStringLiteral("lp"),
                                 {QStringLiteral("-d"), name, paths::postScriptTestPage()})
                 .status,
             0);
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(sandbox::loopbackJobPath(before + 1)), 60000);
}

void TestEndToEnd::configureRunRestoresStagedPpdIntoEmptiedCupsFolder()
{
    const QByteArray staged = sandbox::readFile(stagedPpd);
    QVERIFY(!staged.isEmpty());
    const QDir folder(paths::queuePpdFolder());
    for (const QString &file : folder.entryList(QDir::Files))
        QVERIFY(QFile::remove(folder.filePath(file)));
    QVERIFY(!QFileInfo::exists(queuePpd));

    const QString program = sandbox::programPath();
    QVERIFY2(QFileInfo(program).isExecutable(), qPrintable(program));
    const sandbox::ProcessRun configure = sandbox::runProgram(program, {QStringLiteral("-c")});
    QVERIFY2(configure.status == 0, qPrintable(configure.output));
    QCOMPARE(sandbox::readFile(queuePpd), staged);
}

void TestEndToEnd::deletingPrinterRemovesRecordQueueAndStagedPpd()
{
    QVERIFY(selectPrinter());
    QVERIFY(queueExists());
    sandbox::clearFakeCalls();
    requireChild<QPushButton>(window.get(), "bDelete")->click();

    QVERIFY(!QFileInfo::exists(recordFile()));
    QVERIFY(!QFileInfo::exists(paths::defaultEntry()));
    QVERIFY(!queueExists());
    QVERIFY(!QFileInfo::exists(stagedPpd));
    QTRY_VERIFY(called(QStringLiteral("waitforCUPS"))); // started in the background
    QCOMPARE(requireChild<QListWidget>(window.get(), "lwPrinters")->count(), 0);
}

QTEST_MAIN(TestEndToEnd)
#include "tst_endtoend.moc"
