// The actions behind the printer list window's buttons, and the PPD staging that follows
// an add or an edit.

#include "support/printerdlgfixture.h"

#include "common/paths.h"
#include "drivers/ppdset.h"
#include "printer/printer.h"
#include "support/modal.h"
#include "support/printermap.h"
#include "support/sandbox.h"
#include "support/shellrecorder.h"
#include "support/stderrcapture.h"
#include "support/widgets.h"
#include "ui/printerdlg.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QListWidget>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QtTest>

#include <functional>
#include <memory>

using namespace fixture;

namespace {

// One command line as the window ran it, with what the world looked like at that moment.
struct Step
{
    QString command;
    bool recordFileExists = false;
    QByteArray recordFile;    // the watched record's file as it stood
    QByteArray defaultEntry;  // the registry's "default" entry as it stood
    QStringList listed;       // the list's texts
    QList<Printer *> records; // the records behind the list's items
    bool windowVisible = false;
};

// Notes, alongside each command line the recorder receives, the record file, the default
// entry, the list and the window's visibility, so that the order of registry writes,
// queue commands, list refreshes and showing the window can be checked.
class StepLog
{
public:
    StepLog(ShellRecorder &shell, const QString &watchedRecord, QListWidget *list, QWidget *window)
    {
        shell.setObserver([this, watchedRecord, list, window](const QString &command) {
            Step step;
            step.command = command;
            step.recordFileExists = QFile::exists(watchedRecord);
            step.recordFile = sandbox::readFile(watchedRecord);
            step.defaultEntry = sandbox::readFile(paths::defaultEntry());
            step.listed = itemTexts(list);
            step.records = recordsOf(list);
            step.windowVisible = window->isVisible();
            m_steps.append(step);
        });
    }

    QList<Step> steps() const { return m_steps; }
    void clear() { m_steps.clear(); }

    static QList<Printer *> recordsOf(QListWidget *list)
    {
        QList<Printer *> records;
        for (int row = 0; row < list->count(); ++row)
            records << recordOf(list->item(row));
        return records;
    }

private:
    QList<Step> m_steps;
};

QStringList stagingCommands(const QString &name, const QString &paperSize)
{
    return {QStringLiteral("cat /etc/cups/ppd/%1.ppd| sed -e \"s/DefaultPageSize.*/"
                           "DefaultPageSize: %2/g\"  >/tmp/%1.ppd")
                .arg(name, paperSize),
            QStringLiteral("cp /tmp/%1.ppd /etc/cups/ppd").arg(name),
            QStringLiteral("cp /tmp/%1.ppd /tmp/config/files/cups").arg(name),
            QStringLiteral("init_ica"),
            QStringLiteral("CitrixCUPSPrinter"),
            QStringLiteral("waitforCUPS&")};
}

QStringList installCommands(const Printer &p)
{
    QStringList lines = {QStringLiteral("lpadmin  -p %1 -D '%1' -v '%2' -P '%3' -E")
                             .arg(p.name, p.device_uri, p.ppd),
                         QStringLiteral("cupsaccept %1").arg(p.name)};
    if (Printer::defaultPrinterName() == p.name)
        lines << QStringLiteral("lpadmin -d %1").arg(p.name);
    return lines;
}

std::unique_ptr<Printer> loadRecord(const QString &name)
{
    auto record = std::make_unique<Printer>();
    record->set_path(recordPath(name));
    record->Load();
    return record;
}

QStringList registryListing()
{
    QStringList listing;
    const QDir folder(paths::registryFolder());
    for (const QString &file : folder.entryList(QDir::Files, QDir::Name))
        listing << file + QLatin1Char('=') +
                       QString::fromUtf8(sandbox::readFile(folder.filePath(file)));
    return listing;
}

QWidget *openWizard()
{
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (widget->inherits("WizardDlg"))
            return widget;
    }
    return nullptr;
}

// A record named Office on the first built-in driver, with the given paper size.
Printer officeRecord(const QString &paperSize)
{
    Printer office;
    office.name = QStringLiteral("Office");
    office.ppd = builtinDrivers.at(0);
    office.paper_size = paperSize;
    return office;
}

QString writeQueuePpd(const QString &name)
{
    const QString path = QStringLiteral("/etc/cups/ppd/%1.ppd").arg(name);
    sandbox::writeFile(path, "*PPD-Adobe: \"4.3\"\n"
                             "*OpenUI *PageSize: PickOne\n"
                             "*DefaultPageSize: Letter\n"
                             "*PageSize Letter/US Letter: \"<</PageSize[612 792]>>setpagedevice\"\n"
                             "*PageSize A4/A4: \"<</PageSize[595 842]>>setpagedevice\"\n"
                             "*CloseUI: *PageSize\n"
                             "*DefaultPageRegion: Letter\n");
    return path;
}

} // namespace

class TestPrinterDlgActions : public QObject
{
    Q_OBJECT

private:
    PrinterDlg *window = nullptr;
    QListWidget *list = nullptr;

    QPushButton *button(const char *name) const { return requireChild<QPushButton>(window, name); }
    void openWindow();
    void select(const QString &name);
    // Runs the action behind the button while a modal dialog, should one open, is
    // handed to the given function (and closed afterwards); returns whether one opened.
    bool clickWithModal(const char *name, const std::function<void(QWidget *)> &handle);

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void actionsWithoutCurrentItemDoNothingAndShowNothing_data();
    void actionsWithoutCurrentItemDoNothingAndShowNothing();

    void deleteRemovesRecordQueueAndStagedFileThenStartsWaitScript();
    void deleteAsksNoQuestionAndPrinterLeavesTheListAtOnce();
    void deletingTheDefaultPrinterRemovesTheDefaultEntry();
    void deleteRunsAgainstTheSandboxedTools();

    void defaultSetsCupsDefaultAndWritesTheDefaultEntry();
    void afterDefaultExactlyOneItemShowsADefaultIcon();

    void testPrintsPageAndTellsTheUserInAPrinterBox();

    void quitClosesTheWindow();

    void waitForCupsRunsSixCommandsForANormalPrinter();
    void waitForCupsRunsOnlyDeviceScriptsForARawTextPrinter();
    void waitForCupsWaitsBrieflyAndChangesNothingInTheRecord();
    void waitForCupsWritesPaperSizeIntoQueuePpdAndStagesIt();
    void paperSizeWithSlashBreaksTheEditUncaught();
    void waitForCupsWithoutARecordDoesNothing();

    void addCommitsInstallsRefreshesThenStages();
    void cancellingAddChangesNothingAndWindowReappears();
    void editWithoutChangesRebuildsQueueAndRestages();
    void eachWizardRunReplacesThePreviousWizard();
    void usbPrinterWithAnAddressThatLeavesItsQuotesIsNeitherSavedNorInstalled();
    void editedPpdIsNotStagedInAFolderOthersCanWrite();
};

void TestPrinterDlgActions::initTestCase()
{
    REQUIRE_SANDBOX();
}

void TestPrinterDlgActions::init()
{
    reset();
    // An empty device list cache: the wizard's USB lookup then uses the fixed fallback and
    // runs no lpinfo of its own.
    sandbox::writeFile(paths::lpinfoCache(), QByteArray());
    sandbox::clearFakeCalls();
}

void TestPrinterDlgActions::cleanup()
{
    delete window;
    window = nullptr;
    list = nullptr;
    reset();
}

void TestPrinterDlgActions::openWindow()
{
    window = new PrinterDlg;
    list = requireChild<QListWidget>(window, "lwPrinters");
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window));
}

void TestPrinterDlgActions::select(const QString &name)
{
    QListWidgetItem *item = itemNamed(list, name);
    QVERIFY2(item, qPrintable(name));
    list->setCurrentItem(item);
}

bool TestPrinterDlgActions::clickWithModal(const char *name,
                                           const std::function<void(QWidget *)> &handle)
{
    QPushButton *clicked = button(name);
    return answerModal([clicked] { clicked->click(); }, handle);
}

void TestPrinterDlgActions::actionsWithoutCurrentItemDoNothingAndShowNothing_data()
{
    QTest::addColumn<QString>("buttonName");
    QTest::newRow("Edit") << "bEdit";
    QTest::newRow("Delete") << "bDelete";
    QTest::newRow("Default") << "bDefault";
    QTest::newRow("Test") << "bTest";
}

void TestPrinterDlgActions::actionsWithoutCurrentItemDoNothingAndShowNothing()
{
    QFETCH(QString, buttonName);
    seed(local(QStringLiteral("Desk")));
    seed(network(QStringLiteral("Hall")), true);
    openWindow();
    QVERIFY(!list->currentItem());
    const QStringList registryBefore = registryListing();
    const QStringList itemsBefore = itemTexts(list);

    ShellRecorder shell;
    const bool opened = clickWithModal(buttonName.toLatin1().constData(), [](QWidget *) {});

    QVERIFY(!opened);
    QVERIFY(!openWizard());
    QVERIFY(window->isVisible());
    QVERIFY(shell.commands().isEmpty());
    QVERIFY(sandbox::fakeCalls().isEmpty());
    QCOMPARE(registryListing(), registryBefore);
    QCOMPARE(itemTexts(list), itemsBefore);
    QCOMPARE(Printer::defaultPrinterName(), QStringLiteral("Hall"));
}

void TestPrinterDlgActions::deleteRemovesRecordQueueAndStagedFileThenStartsWaitScript()
{
    seed(local(QStringLiteral("Desk")));
    seed(network(QStringLiteral("Hall")));
    openWindow();
    select(QStringLiteral("Desk"));

    ShellRecorder shell;
    StepLog log(shell, recordPath(QStringLiteral("Desk")), list, window);
    button("bDelete")->click();

    QCOMPARE(shell.commands(), QStringList({"lpadmin -x Desk", "rm /tmp/config/files/cups/Desk.ppd",
                                            "waitforCUPS&"}));
    const QList<Step> steps = log.steps();
    // The record file is gone before the queue is removed...
    QVERIFY(!steps.at(0).recordFileExists);
    // ...and the list is rebuilt before the wait script starts.
    QVERIFY(steps.at(1).listed.contains(QStringLiteral("Desk")));
    QCOMPARE(steps.at(2).listed, QStringList({"Hall"}));
    QVERIFY(QFile::exists(recordPath(QStringLiteral("Hall"))));
}

void TestPrinterDlgActions::deleteAsksNoQuestionAndPrinterLeavesTheListAtOnce()
{
    seed(local(QStringLiteral("Desk")));
    seed(network(QStringLiteral("Hall")));
    openWindow();
    select(QStringLiteral("Hall"));

    ShellRecorder shell;
    const bool opened = clickWithModal("bDelete", [](QWidget *) {});
    QVERIFY(!opened);
    QCOMPARE(itemTexts(list), QStringList({"Desk"}));
    QVERIFY(!QFile::exists(recordPath(QStringLiteral("Hall"))));
}

void TestPrinterDlgActions::deletingTheDefaultPrinterRemovesTheDefaultEntry()
{
    seed(local(QStringLiteral("Desk")));
    seed(network(QStringLiteral("Hall")), true);
    openWindow();
    QVERIFY(QFile::exists(paths::defaultEntry()));
    select(QStringLiteral("Hall"));

    ShellRecorder shell;
    button("bDelete")->click();
    QVERIFY(!QFile::exists(paths::defaultEntry()));
    QVERIFY(!QFile::exists(recordPath(QStringLiteral("Hall"))));
    QCOMPARE(itemTexts(list), QStringList({"Desk"}));
    QCOMPARE(iconFile(list->item(0)), QStringLiteral("local.png"));
}

void TestPrinterDlgActions::deleteRunsAgainstTheSandboxedTools()
{
    seed(local(QStringLiteral("Desk")));
    const QString staged = paths::stagingFolder() + QStringLiteral("/Desk.ppd");
    sandbox::writeFile(staged, "*PPD-Adobe: \"4.3\"\n");
    openWindow();
    select(QStringLiteral("Desk"));

    ShellRecorder shell(ShellRecorder::RecordAndRun);
    button("bDelete")->click();

    QVERIFY(!QFile::exists(staged));
    QTRY_COMPARE(sandbox::fakeCalls(),
                 QList<QStringList>({{"lpadmin", "-x", "Desk"}, {"waitforCUPS"}}));
    QCOMPARE(list->count(), 0);
}

void TestPrinterDlgActions::defaultSetsCupsDefaultAndWritesTheDefaultEntry()
{
    seed(local(QStringLiteral("Desk")));
    seed(network(QStringLiteral("Hall")), true);
    openWindow();
    select(QStringLiteral("Desk"));

    ShellRecorder shell;
    StepLog log(shell, recordPath(QStringLiteral("Desk")), list, window);
    const bool opened = clickWithModal("bDefault", [](QWidget *) {});
    QVERIFY(!opened);

    // Only the CUPS default: no staging and no device script follow.
    QCOMPARE(shell.commands(), QStringList({"lpadmin -d Desk"}));
    // When CUPS is told, the default entry already names the new default: it is the
    // full copy of Desk's record (until then it was Hall's).
    const Step told = log.steps().at(0);
    QVERIFY(!told.defaultEntry.isEmpty());
    QCOMPARE(told.defaultEntry, sandbox::readFile(recordPath(QStringLiteral("Desk"))));
    QCOMPARE(Printer::defaultPrinterName(), QStringLiteral("Desk"));
    // The default entry is a full copy of the new default's record, written before CUPS
    // is told.
    QCOMPARE(sandbox::readFile(paths::defaultEntry()),
             sandbox::readFile(recordPath(QStringLiteral("Desk"))));
    Printer entry;
    entry.set_path(paths::defaultEntry());
    entry.Load();
    QCOMPARE(entry.name, QStringLiteral("Desk"));
    QCOMPARE(entry.device_uri, QStringLiteral("usb:/dev/usb/lp0"));
}

void TestPrinterDlgActions::afterDefaultExactlyOneItemShowsADefaultIcon()
{
    seed(local(QStringLiteral("Desk")), true);
    seed(local(QStringLiteral("Lab")));
    seed(network(QStringLiteral("Hall")));
    seed(network(QStringLiteral("Annex")));
    openWindow();

    ShellRecorder shell;
    for (const QString &chosen :
         {QStringLiteral("Hall"), QStringLiteral("Lab"), QStringLiteral("Annex")}) {
        select(chosen);
        button("bDefault")->click();

        QStringList withDefaultIcon;
        for (int row = 0; row < list->count(); ++row) {
            const QString icon = iconFile(list->item(row));
            QVERIFY2(!icon.isEmpty(), qPrintable(list->item(row)->text()));
            if (icon.startsWith(QLatin1String("def")))
                withDefaultIcon << list->item(row)->text();
        }
        QCOMPARE(withDefaultIcon, QStringList({chosen}));
        QCOMPARE(list->count(), 4);
    }
    QCOMPARE(iconFile(itemNamed(list, QStringLiteral("Annex"))), QStringLiteral("defnet.png"));
    QCOMPARE(iconFile(itemNamed(list, QStringLiteral("Desk"))), QStringLiteral("local.png"));
}

void TestPrinterDlgActions::testPrintsPageAndTellsTheUserInAPrinterBox()
{
    seed(local(QStringLiteral("Desk")));
    seed(network(QStringLiteral("Hall")));
    openWindow();
    select(QStringLiteral("Hall"));

    ShellRecorder shell;
    QString title, text;
    QWidget *parent = nullptr;
    QMessageBox::StandardButtons buttons;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    QStringList commandsWhileShown;
    const bool opened = clickWithModal("bTest", [&](QWidget *modal) {
        auto *box = qobject_cast<QMessageBox *>(modal);
        if (!box)
            return;
        title = box->windowTitle();
        text = box->text();
        parent = box->parentWidget();
        buttons = box->standardButtons();
        icon = box->icon();
        commandsWhileShown = shell.commands();
        box->accept();
    });

    QVERIFY(opened);
    QCOMPARE(title, QStringLiteral("Printer"));
    QCOMPARE(text, QStringLiteral("Test page sent to printer"));
    QCOMPARE(parent, static_cast<QWidget *>(window));
    QCOMPARE(buttons, QMessageBox::StandardButtons(QMessageBox::Ok));
    QCOMPARE(icon, QMessageBox::Information);
    // The page is on its way before the message appears.
    QCOMPARE(commandsWhileShown, QStringList({"lp -d Hall /usr/share/cups/data/test.ps"}));
    QCOMPARE(shell.commands(), commandsWhileShown);
    // The window's own title is not the message's.
    QCOMPARE(window->windowTitle(), QStringLiteral("Printer Configuration"));
}

void TestPrinterDlgActions::quitClosesTheWindow()
{
    openWindow();
    ShellRecorder shell;
    QVERIFY(QMetaObject::invokeMethod(window, "quit"));
    QVERIFY(!window->isVisible());
    QVERIFY(shell.commands().isEmpty());
}

void TestPrinterDlgActions::waitForCupsRunsSixCommandsForANormalPrinter()
{
    openWindow();
    Printer office = officeRecord(QStringLiteral("A4"));

    ShellRecorder shell;
    window->WaitForCUPS(&office);
    QCOMPARE(shell.commands(),
             QStringList({"cat /etc/cups/ppd/Office.ppd| sed -e "
                          "\"s/DefaultPageSize.*/DefaultPageSize: A4/g\"  >/tmp/Office.ppd",
                          "cp /tmp/Office.ppd /etc/cups/ppd",
                          "cp /tmp/Office.ppd /tmp/config/files/cups", "init_ica",
                          "CitrixCUPSPrinter", "waitforCUPS&"}));

    // An empty paper size leaves nothing behind the keyword.
    shell.clear();
    office.paper_size.clear();
    window->WaitForCUPS(&office);
    QCOMPARE(shell.commands().value(0),
             QStringLiteral("cat /etc/cups/ppd/Office.ppd| sed -e "
                            "\"s/DefaultPageSize.*/DefaultPageSize: /g\"  >/tmp/Office.ppd"));
    QCOMPARE(shell.commands().size(), 6);
}

void TestPrinterDlgActions::waitForCupsRunsOnlyDeviceScriptsForARawTextPrinter()
{
    openWindow();
    Printer raw;
    raw.name = QStringLiteral("Till");
    raw.ppd = QStringLiteral("/usr/share/ppd/std1/Generic/-Generic-Text-Only-Raw.ppd");
    raw.paper_size = QStringLiteral("A4");

    ShellRecorder shell;
    window->WaitForCUPS(&raw);
    QCOMPARE(shell.commands(), QStringList({"init_ica", "CitrixCUPSPrinter", "waitforCUPS&"}));

    // The test is on the exact, case-sensitive file name.
    shell.clear();
    raw.ppd = QStringLiteral("/usr/share/ppd/std1/Generic/-generic-text-only-raw.ppd");
    window->WaitForCUPS(&raw);
    QCOMPARE(shell.commands().size(), 6);
}

void TestPrinterDlgActions::waitForCupsWaitsBrieflyAndChangesNothingInTheRecord()
{
    openWindow();
    Printer office;
    office.name = QStringLiteral("Office");
    office.printer_class = QStringLiteral("network");
    office.model = QStringLiteral("LaserJet");
    office.device_uri = QStringLiteral("socket://10.0.0.5:9100");
    office.ppd = builtinDrivers.at(0);
    office.win_driver = QStringLiteral("HP LaserJet 4");
    office.paper_size = QStringLiteral("A4");
    office.default_vdi_printer = true;
    const Printer before = office;

    ShellRecorder shell;
    QElapsedTimer timer;
    timer.start();
    window->WaitForCUPS(&office);
    QVERIFY(timer.nsecsElapsed() >= 10 * 1000 * 1000);

    QCOMPARE(recordFields(office), recordFields(before));
}

void TestPrinterDlgActions::waitForCupsWritesPaperSizeIntoQueuePpdAndStagesIt()
{
    openWindow();
    const QString queuePpd = writeQueuePpd(QStringLiteral("Office"));
    Printer office = officeRecord(QStringLiteral("A4"));
    QDir().mkpath(paths::stagingFolder());

    ShellRecorder shell(ShellRecorder::RecordAndRun);
    window->WaitForCUPS(&office);

    const QByteArray edited = sandbox::readFile(queuePpd);
    QVERIFY(edited.contains("\n*DefaultPageSize: A4\n"));
    QVERIFY(!edited.contains("DefaultPageSize: Letter"));
    // Only the page size default changes; the region default and the choices stay.
    QVERIFY(edited.contains("\n*DefaultPageRegion: Letter\n"));
    QVERIFY(edited.contains("\n*PageSize Letter/US Letter:"));
    QCOMPARE(sandbox::readFile(paths::stagingFolder() + QStringLiteral("/Office.ppd")), edited);
    QCOMPARE(sandbox::readFile(QStringLiteral("/tmp/Office.ppd")), edited);
    QTRY_COMPARE(sandbox::fakeCalls(),
                 QList<QStringList>({{"init_ica"}, {"CitrixCUPSPrinter"}, {"waitforCUPS"}}));
}

void TestPrinterDlgActions::paperSizeWithSlashBreaksTheEditUncaught()
{
    openWindow();
    const QString queuePpd = writeQueuePpd(QStringLiteral("Office"));
    Printer office = officeRecord(QStringLiteral("210x297/mm"));
    QDir().mkpath(paths::stagingFolder());

    ShellRecorder shell(ShellRecorder::RecordAndRun);
    window->WaitForCUPS(&office);

    // The size goes into the sed expression as it is, which sed then refuses...
    QCOMPARE(shell.commands().value(0),
             QStringLiteral("cat /etc/cups/ppd/Office.ppd| sed -e "
                            "\"s/DefaultPageSize.*/DefaultPageSize: 210x297/mm/g\"  "
                            ">/tmp/Office.ppd"));
    // ...nothing stops the sequence: the empty result replaces the queue's PPD and is
    // staged, and the device scripts still start.
    QCOMPARE(shell.commands().size(), 6);
    QVERIFY(QFile::exists(queuePpd));
    QCOMPARE(sandbox::readFile(queuePpd), QByteArray());
    QCOMPARE(sandbox::readFile(paths::stagingFolder() + QStringLiteral("/Office.ppd")),
             QByteArray());
    QTRY_COMPARE(sandbox::fakeCalls(),
                 QList<QStringList>({{"init_ica"}, {"CitrixCUPSPrinter"}, {"waitforCUPS"}}));
}

void TestPrinterDlgActions::waitForCupsWithoutARecordDoesNothing()
{
    openWindow();
    ShellRecorder shell;
    // A slot, so anything holding the window can call it through the meta-object.
    QVERIFY(QMetaObject::invokeMethod(window, "WaitForCUPS", Q_ARG(Printer *, nullptr)));
    QVERIFY(shell.commands().isEmpty());
    QVERIFY(window->isVisible());
}

void TestPrinterDlgActions::addCommitsInstallsRefreshesThenStages()
{
    seed(network(QStringLiteral("Hall")));
    openWindow();
    const QString newRecord = recordPath(QStringLiteral("Printer"));

    ShellRecorder shell;
    StepLog log(shell, newRecord, list, window);
    bool windowHiddenDuringWizard = false;
    bool submitShown = false;
    const bool opened = clickWithModal("bAdd", [&](QWidget *wizard) {
        windowHiddenDuringWizard = !window->isVisible();
        auto *next = requireChild<QPushButton>(wizard, "bNext");
        auto *submit = requireChild<QPushButton>(wizard, "bSubmit");
        next->click();
        submitShown = submit->isVisible();
        // What the wizard itself ran is its own business; the window's part starts here.
        shell.clear();
        log.clear();
        submit->click();
    });

    QVERIFY(opened);
    QVERIFY(windowHiddenDuringWizard);
    QVERIFY(submitShown);
    QVERIFY(window->isVisible());

    QVERIFY(QFile::exists(newRecord));
    const std::unique_ptr<Printer> added = loadRecord(QStringLiteral("Printer"));
    QCOMPARE(added->name, QStringLiteral("Printer"));
    QVERIFY(!added->ppd.isEmpty());
    QVERIFY(!added->paper_size.isEmpty());

    const QStringList expected =
        installCommands(*added) + stagingCommands(added->name, added->paper_size);
    QCOMPARE(shell.commands(), expected);

    const QList<Step> steps = log.steps();
    const int installs = installCommands(*added).size();
    // The window is back on screen before any command runs...
    QVERIFY(steps.at(0).windowVisible);
    // ...and the record committed before the queue is created.
    QVERIFY(steps.at(0).recordFileExists);
    // The list is refreshed after the queue commands and before the staging.
    QVERIFY(!steps.at(installs - 1).listed.contains(QStringLiteral("Printer")));
    QVERIFY(steps.at(installs).listed.contains(QStringLiteral("Printer")));
    QCOMPARE(list->count(), 2);
    QVERIFY(itemNamed(list, QStringLiteral("Hall")));
    QVERIFY(!list->currentItem());
}

void TestPrinterDlgActions::cancellingAddChangesNothingAndWindowReappears()
{
    seed(local(QStringLiteral("Desk")), true);
    seed(network(QStringLiteral("Hall")));
    openWindow();
    const QStringList registryBefore = registryListing();
    const QStringList itemsBefore = itemTexts(list);

    ShellRecorder shell;
    bool windowHiddenDuringWizard = false;
    const bool opened = clickWithModal("bAdd", [&](QWidget *wizard) {
        windowHiddenDuringWizard = !window->isVisible();
        requireChild<QPushButton>(wizard, "bCancel")->click();
    });

    QVERIFY(opened);
    QVERIFY(windowHiddenDuringWizard);
    QVERIFY(window->isVisible());
    QVERIFY(shell.commands().isEmpty());
    QVERIFY(sandbox::fakeCalls().isEmpty());
    QCOMPARE(registryListing(), registryBefore);
    QCOMPARE(itemTexts(list), itemsBefore);
    QCOMPARE(Printer::defaultPrinterName(), QStringLiteral("Desk"));
}

void TestPrinterDlgActions::editWithoutChangesRebuildsQueueAndRestages()
{
    Seed office = network(QStringLiteral("Office"));
    office.ppd = builtinDrivers.at(0);
    office.paperSize = QStringLiteral("A4");
    seed(office, true);
    seed(local(QStringLiteral("Desk")));
    const QByteArray recordBefore = sandbox::readFile(recordPath(QStringLiteral("Office")));
    openWindow();
    select(QStringLiteral("Office"));
    const QList<Printer *> recordsBefore = StepLog::recordsOf(list);
    // The window holds the record in memory now. A different file on disk shows when the
    // window commits it: only the commit brings the stored content back.
    QVERIFY(sandbox::writeFile(recordPath(QStringLiteral("Office")), "name=Office\n"));

    ShellRecorder shell;
    StepLog log(shell, recordPath(QStringLiteral("Office")), list, window);
    bool windowHiddenDuringWizard = false;
    const bool opened = clickWithModal("bEdit", [&](QWidget *wizard) {
        windowHiddenDuringWizard = !window->isVisible();
        auto *next = requireChild<QPushButton>(wizard, "bNext");
        auto *submit = requireChild<QPushButton>(wizard, "bSubmit");
        next->click();
        shell.clear();
        log.clear();
        submit->click();
    });

    QVERIFY(opened);
    QVERIFY(windowHiddenDuringWizard);
    QVERIFY(window->isVisible());

    // Nothing was changed, so the stored record is the same...
    QCOMPARE(sandbox::readFile(recordPath(QStringLiteral("Office"))), recordBefore);
    QCOMPARE(sandbox::readFile(paths::defaultEntry()), recordBefore);
    // ...and still the queue is removed and created again, its PPD restaged and the
    // device scripts started.
    QStringList expected = {"lpadmin -x Office", "rm /tmp/config/files/cups/Office.ppd",
                            "lpadmin  -p Office -D 'Office' -v 'socket://10.0.0.5:9100' -P '" +
                                builtinDrivers.at(0) + "' -E",
                            "cupsaccept Office", "lpadmin -d Office"};
    expected += stagingCommands(QStringLiteral("Office"), QStringLiteral("A4"));
    QCOMPARE(shell.commands(), expected);

    const QList<Step> steps = log.steps();
    // The record is committed before the queue is touched.
    QVERIFY(steps.at(0).recordFileExists);
    QCOMPARE(steps.at(0).recordFile, recordBefore);
    // The list is rebuilt between the queue commands and the staging: the items still
    // carry the old records while the queue commands run, and new ones by the time the
    // first staging command runs.
    QCOMPARE(steps.at(4).listed.size(), 2);
    QCOMPARE(steps.at(4).records, recordsBefore);
    QCOMPARE(steps.at(5).listed.size(), 2);
    for (Printer *record : steps.at(5).records)
        QVERIFY(!recordsBefore.contains(record));
    QVERIFY(!list->currentItem());
    QCOMPARE(list->count(), 2);
    QCOMPARE(iconFile(itemNamed(list, QStringLiteral("Office"))), QStringLiteral("defnet.png"));
}

void TestPrinterDlgActions::eachWizardRunReplacesThePreviousWizard()
{
    openWindow();
    ShellRecorder shell;
    QPointer<QWidget> first;
    QVERIFY(clickWithModal("bAdd", [&](QWidget *wizard) {
        first = wizard;
        requireChild<QPushButton>(wizard, "bCancel")->click();
    }));
    // The finished wizard is kept until the next one is made.
    QVERIFY(first);
    QVERIFY(!first->isVisible());

    QPointer<QWidget> second;
    QVERIFY(clickWithModal("bAdd", [&](QWidget *wizard) {
        second = wizard;
        requireChild<QPushButton>(wizard, "bCancel")->click();
    }));
    QVERIFY(!first);
    QVERIFY(second);

    delete window;
    window = nullptr;
    QVERIFY(!second);
}

void TestPrinterDlgActions::usbPrinterWithAnAddressThatLeavesItsQuotesIsNeitherSavedNorInstalled()
{
    // A USB device whose maker holds a quote: its address would run as a command.
    QVERIFY(sandbox::writeFile(paths::lpinfoCache(), "direct usb://X';touch /tmp/owned;'/Y\n"));
    openWindow();
    const QStringList registryBefore = registryListing();
    ShellRecorder shell(ShellRecorder::RecordAndRun);
    bool refused = false;
    const bool opened = clickWithModal("bAdd", [&](QWidget *wizard) {
        auto *next = requireChild<QPushButton>(wizard, "bNext");
        refused = answerModal([next] { next->click(); },
                              [](QWidget *box) {
                                  QVERIFY(qobject_cast<QMessageBox *>(box));
                                  static_cast<QDialog *>(box)->accept();
                              });
        // Having read the message, the administrator can only cancel.
        requireChild<QPushButton>(wizard, "bCancel")->click();
    });
    QVERIFY(opened);
    QVERIFY(refused);
    QVERIFY(shell.commands().isEmpty());
    QVERIFY(sandbox::fakeCalls().isEmpty());
    QCOMPARE(registryListing(), registryBefore);
    QVERIFY(!QFileInfo::exists(QStringLiteral("/tmp/owned")));
}

void TestPrinterDlgActions::editedPpdIsNotStagedInAFolderOthersCanWrite()
{
    // cp follows a link planted in its target folder: the copy into staging is left out,
    // the rest (the queue's own PPD, the device scripts) goes on.
    openWindow();
    Printer office = officeRecord(QStringLiteral("A4"));
    QVERIFY(QDir().mkpath(paths::stagingFolder()));
    QVERIFY(QFile::setPermissions(QStringLiteral("/tmp/config/files"),
                                  QFileDevice::Permissions(0x7777)));
    StderrCapture err;
    ShellRecorder shell;
    window->WaitForCUPS(&office);
    QStringList expected = stagingCommands(QStringLiteral("Office"), QStringLiteral("A4"));
    expected.removeAll(QStringLiteral("cp /tmp/Office.ppd /tmp/config/files/cups"));
    QCOMPARE(shell.commands(), expected);
    QCOMPARE(err.diagnostics(),
             QStringList{QStringLiteral("printerconfig: not staging /tmp/Office.ppd: "
                                        "/tmp/config/files is writable by others (mode 0777)")});
}

QTEST_MAIN(TestPrinterDlgActions)
#include "tst_printerdlg_actions.moc"
