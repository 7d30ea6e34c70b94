// What a screen reader finds in the three windows and the message boxes, read in process
// through Qt's accessibility interfaces (the ones its AT-SPI bridge hands to a reader):
// every control that can take the keyboard focus says what it is, the printer list and
// its items are named, and the keyboard alone reaches every control in the order the
// screen shows. tst_screenreader reads the same through the real bridge.
#include "drivers/ppdset.h"
#include "printer/printer.h"
#include "support/modal.h"
#include "support/printerdlgfixture.h"
#include "support/sandbox.h"
#include "support/shellrecorder.h"
#include "support/widgets.h"
#include "ui/loaderdlg.h"
#include "ui/printerdlg.h"
#include "ui/wizarddlg.h"

#include <QAccessible>
#include <QApplication>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QRadioButton>
#include <QStackedWidget>
#include <QtTest>

#include <algorithm>

using namespace fixture;

namespace {

// The name a screen reader announces for a control. On Linux Qt names a combo box by its
// current value, as every toolkit does there, and tells what it is through the label it
// is labelled by (the form's buddy); every other control says it in its own name.
QString spokenName(QAccessibleInterface *control)
{
    if (control->role() != QAccessible::ComboBox)
        return control->text(QAccessible::Name);
    QStringList labels;
    for (const auto &relation : control->relations(QAccessible::Label))
        labels << relation.first->text(QAccessible::Name);
    return labels.join(QLatin1Char(' '));
}

// Every control of the window that is shown and can take the focus: by Tab, or by the
// arrow keys as the radio buttons of a group that Tab enters only at the checked one.
// (Qt's interfaces of lists and tables report no state at all, so the accessible states
// would miss them.) A widget that hands its focus on (the inner line edit of a spin box,
// to the spin box) is part of the control a reader sees.
QList<QWidget *> focusableControls(QWidget *window)
{
    QList<QWidget *> controls;
    for (QWidget *widget : window->findChildren<QWidget *>()) {
        if (!widget->isVisible() || widget->focusPolicy() == Qt::NoFocus)
            continue;
        if (widget->focusProxy())
            continue;
        controls.append(widget);
    }
    return controls;
}

struct Census
{
    int focusable = 0;
    QStringList unnamed; // "objectName (role)"
};

Census census(QWidget *window)
{
    const QList<QWidget *> controls = focusableControls(window);
    Census result;
    result.focusable = controls.size();
    for (QWidget *widget : controls) {
        QAccessibleInterface *control = QAccessible::queryAccessibleInterface(widget);
        if (!control || spokenName(control).trimmed().isEmpty())
            result.unnamed << QStringLiteral("%1 (%2)").arg(
                widget->objectName(),
                control ? QString::fromLatin1(qAccessibleRoleString(control->role()))
                        : QStringLiteral("no interface"));
    }
    return result;
}

QString censusLine(const QString &where, const Census &found)
{
    QString line = QStringLiteral("%1: %2 of %3 focusable controls without a name")
                       .arg(where)
                       .arg(found.unnamed.size())
                       .arg(found.focusable);
    if (!found.unnamed.isEmpty())
        line += QStringLiteral(": ") + found.unnamed.join(QStringLiteral(", "));
    return line;
}

// Fails the test when a shown, focusable control of the window has no name.
#define VERIFY_EVERY_CONTROL_NAMED(window, where)                                                  \
    do {                                                                                           \
        const Census found = census(window);                                                       \
        const QString line = censusLine(where, found);                                             \
        qInfo().noquote() << line;                                                                 \
        QVERIFY2(found.focusable > 0, qPrintable(QStringLiteral("%1: no control").arg(where)));    \
        QVERIFY2(found.unnamed.isEmpty(), qPrintable(line));                                       \
    } while (false)

QString nameOf(QWidget *widget)
{
    return QAccessible::queryAccessibleInterface(widget)->text(QAccessible::Name);
}

// The object names the Tab key walks through from the widget with the focus, steps keys.
QStringList tabWalk(int steps, Qt::Key key = Qt::Key_Tab)
{
    QStringList walk;
    for (int step = 0; step < steps; ++step) {
        QTest::keyClick(QApplication::focusWidget(), key);
        walk << QApplication::focusWidget()->objectName();
    }
    return walk;
}

// Clicks the button, checks that every control of the message box it opens is named and
// answers the box with the key, pressed on the control that has the focus; true when a box
// opened. *focused: the name of that control.
bool answerBoxWithKey(QPushButton *button, const QString &where, Qt::Key key, QString *focused)
{
    return answerModal([button] { button->click(); },
                       [&](QWidget *box) {
                           QVERIFY(QTest::qWaitForWindowExposed(box));
                           VERIFY_EVERY_CONTROL_NAMED(box, where);
                           *focused = QApplication::focusWidget()
                                          ? nameOf(QApplication::focusWidget())
                                          : QString();
                           QTest::keyClick(QApplication::focusWidget(), key);
                           QVERIFY(!box->isVisible());
                       });
}

const char *const wizardPages[] = {"pwStart", "pwDiscovery", "pwAvailable", "pwAdd",   "pwManu",
                                   "pwModel", "pwDriver",    "pwPref",      "pwFinish"};

} // namespace

class TestAccessibility : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        REQUIRE_SANDBOX();
        // The interfaces answer without a reader on the bus; this only makes sure that
        // accessibility is not switched off for the process.
        QAccessible::setActive(true);
    }
    void init() { reset(); }

    void everyControlOfThePrinterListIsNamed()
    {
        seed(local(QStringLiteral("Desk")), true);
        PrinterDlg window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        VERIFY_EVERY_CONTROL_NAMED(&window, QStringLiteral("printer list"));
        QCOMPARE(nameOf(requireChild<QListWidget>(&window, "lwPrinters")),
                 QStringLiteral("Printers"));
    }

    void eachPrinterItemIsNamedAndDescribedByItsConnectionAndDefault()
    {
        seed(local(QStringLiteral("Desk")), true);
        seed(network(QStringLiteral("Hall")));
        Seed queue = network(QStringLiteral("Annex"));
        queue.deviceUri = QStringLiteral("lpd://10.0.0.7/lp");
        seed(queue);
        Seed parallel = local(QStringLiteral("Back"));
        parallel.deviceUri = QStringLiteral("parallel:/dev/lp0");
        seed(parallel);
        PrinterDlg window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));

        QAccessibleInterface *list =
            QAccessible::queryAccessibleInterface(requireChild<QListWidget>(&window, "lwPrinters"));
        QMap<QString, QString> described;
        for (int i = 0; i < list->childCount(); ++i) {
            QAccessibleInterface *item = list->child(i);
            QCOMPARE(item->role(), QAccessible::ListItem);
            described.insert(item->text(QAccessible::Name), item->text(QAccessible::Description));
        }
        const QMap<QString, QString> expected = {
            {QStringLiteral("Desk"), QStringLiteral("USB printer, the default printer")},
            {QStringLiteral("Hall"), QStringLiteral("RAW printer")},
            {QStringLiteral("Annex"), QStringLiteral("LPD/LPR printer")},
            {QStringLiteral("Back"), QStringLiteral("local printer")}};
        QCOMPARE(described, expected);
    }

    void tabFromTheListReachesEveryActionAndComesBack()
    {
        seed(local(QStringLiteral("Desk")));
        PrinterDlg window;
        window.show();
        QApplication::setActiveWindow(&window);
        QVERIFY(QTest::qWaitForWindowActive(&window));
        // The window opens with the keyboard on the list.
        QTRY_COMPARE(QApplication::focusWidget()->objectName(), QStringLiteral("lwPrinters"));
        // Edit is reached after Close, where the form's own order leaves it.
        QCOMPARE(tabWalk(7), QStringList({"bTest", "bDefault", "bAdd", "bDelete", "bClose", "bEdit",
                                          "lwPrinters"}));
        QCOMPARE(tabWalk(1, Qt::Key_Backtab), QStringList{"bEdit"});
    }

    void arrowKeysChooseAPrinterInTheList()
    {
        seed(local(QStringLiteral("Desk")));
        seed(network(QStringLiteral("Hall")));
        PrinterDlg window;
        window.show();
        QApplication::setActiveWindow(&window);
        QVERIFY(QTest::qWaitForWindowActive(&window));
        auto *list = requireChild<QListWidget>(&window, "lwPrinters");
        QTRY_COMPARE(QApplication::focusWidget(), static_cast<QWidget *>(list));
        QCOMPARE(list->currentItem(), nullptr);

        QTest::keyClick(list, Qt::Key_Down);
        QVERIFY(list->currentItem());
        QCOMPARE(list->currentRow(), 0);
        QTest::keyClick(list, Qt::Key_Down);
        QCOMPARE(list->currentRow(), 1);
        QTest::keyClick(list, Qt::Key_Up);
        QCOMPARE(list->currentRow(), 0);
        // The chosen printer is the one the actions work on: Space on Test prints its page.
        ShellRecorder shell;
        const QString chosen = list->currentItem()->text();
        auto *test = requireChild<QPushButton>(&window, "bTest");
        const bool opened = answerModal(
            [test] {
                test->setFocus(Qt::TabFocusReason);
                QTest::keyClick(test, Qt::Key_Space);
            },
            [](QWidget *) { QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return); });
        QVERIFY(opened);
        const QString printed = QStringLiteral("lp -d %1 ").arg(chosen);
        QVERIFY2(std::any_of(shell.commands().cbegin(), shell.commands().cend(),
                             [&](const QString &command) { return command.startsWith(printed); }),
                 qPrintable(shell.commands().join(QLatin1Char('\n'))));
    }

    void everyControlOfEveryWizardPageIsNamed_data()
    {
        QTest::addColumn<bool>("edit");
        QTest::addColumn<QString>("uri");
        QTest::newRow("new printer") << false << QString();
        QTest::newRow("edit a raw printer") << true << QStringLiteral("socket://10.0.0.5:9100");
        QTest::newRow("edit an lpd printer") << true << QStringLiteral("lpd://10.0.0.7/lp");
    }
    void everyControlOfEveryWizardPageIsNamed()
    {
        QFETCH(bool, edit);
        QFETCH(QString, uri);
        PPDSet catalogue;
        Printer printer;
        if (edit) {
            printer.name = QStringLiteral("Hall");
            printer.printer_class = QStringLiteral("network");
            printer.device_uri = uri;
            printer.model = QStringLiteral("Laser 9");
        }
        WizardDlg wizard(&catalogue, &printer, edit);
        wizard.show();
        QVERIFY(QTest::qWaitForWindowExposed(&wizard));
        auto *stack = requireChild<QStackedWidget>(&wizard, "stack");
        // Both button rows as a page can show them.
        for (const char *name : {"bBack", "bNext", "bSubmit", "bCancel"})
            requireChild<QPushButton>(&wizard, name)->show();
        // Every page is read before the test fails, so that one run tells them all.
        QStringList failures;
        for (const char *page : wizardPages) {
            stack->setCurrentWidget(requireChild<QWidget>(&wizard, page));
            const Census found = census(&wizard);
            const QString line = censusLine(QString::fromLatin1(page), found);
            qInfo().noquote() << line;
            if (found.focusable == 0 || !found.unnamed.isEmpty())
                failures << line;
        }
        QVERIFY2(failures.isEmpty(), qPrintable(failures.join(QStringLiteral("; "))));
    }

    void theWizardsControlsAreNamedByTheirLabels()
    {
        PPDSet catalogue;
        Printer printer;
        WizardDlg wizard(&catalogue, &printer, false);
        const QMap<QString, QString> labelled = {
            {QStringLiteral("leName"), QStringLiteral("Printer name :")},
            {QStringLiteral("leHost"), QStringLiteral("Host address/name :")},
            {QStringLiteral("leQueue"), QStringLiteral("Queue :")},
            {QStringLiteral("sbPort"), QStringLiteral("Port :")},
            {QStringLiteral("leName_2"), QStringLiteral("Printer name")},
            {QStringLiteral("leName_4"), QStringLiteral("Printer address/name")},
            {QStringLiteral("leQueue_2"), QStringLiteral("Queue")},
            {QStringLiteral("sbPort_2"), QStringLiteral("Port")},
            {QStringLiteral("leWinDriver"), QStringLiteral("Windows Driver")},
            {QStringLiteral("cbCUPSdrv"), QStringLiteral("CUPS Driver")},
            {QStringLiteral("cbPaperSize"), QStringLiteral("Paper Size")}};
        for (auto it = labelled.cbegin(); it != labelled.cend(); ++it) {
            auto *control = wizard.findChild<QWidget *>(it.key());
            QVERIFY2(control, qPrintable(it.key()));
            QCOMPARE(spokenName(QAccessible::queryAccessibleInterface(control)), it.value());
        }
        // A combo box still tells its value, as its name on Linux.
        QCOMPARE(nameOf(wizard.findChild<QWidget *>(QStringLiteral("cbCUPSdrv"))),
                 QStringLiteral("PCL B/W"));
    }

    void tabWalksThePreferencesPageInTheOrderOfTheScreen()
    {
        PPDSet catalogue;
        Printer printer;
        printer.device_uri =
            QStringLiteral("lpd://10.0.0.7/lp"); // every field enabled but the port
        printer.printer_class = QStringLiteral("network");
        WizardDlg wizard(&catalogue, &printer, false);
        wizard.show();
        QApplication::setActiveWindow(&wizard);
        QVERIFY(QTest::qWaitForWindowActive(&wizard));
        requireChild<QRadioButton>(&wizard, "b_radioButtonLPD")->setFocus(Qt::TabFocusReason);
        QCOMPARE(tabWalk(10),
                 QStringList({"leName_2", "leName_4", "leQueue_2", "cbCUPSdrv", "leWinDriver",
                              "cbDefault", "cbPaperSize", "cbDefaultSession", "bNext", "bCancel"}));
        // Round again, to the checked connection.
        QCOMPARE(tabWalk(1), QStringList{"b_radioButtonLPD"});
    }

    void tabLeavesTheSummaryTable()
    {
        // Tab moves on to the buttons; the arrow keys move between the table's cells.
        PPDSet catalogue;
        Printer printer;
        WizardDlg wizard(&catalogue, &printer, false);
        wizard.show();
        QApplication::setActiveWindow(&wizard);
        QVERIFY(QTest::qWaitForWindowActive(&wizard));
        requireChild<QStackedWidget>(&wizard, "stack")
            ->setCurrentWidget(requireChild<QWidget>(&wizard, "pwFinish"));
        requireChild<QPushButton>(&wizard, "bNext")->hide();
        requireChild<QPushButton>(&wizard, "bSubmit")->show();
        requireChild<QWidget>(&wizard, "twProps")->setFocus(Qt::TabFocusReason);
        QCOMPARE(tabWalk(3), QStringList({"bSubmit", "bCancel", "twProps"}));
    }

    void everyControlOfTheLoadingDialogIsNamed()
    {
        LoaderDlg dialog;
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        // It takes no focus at all; its busy bar is named by the label beside it.
        const Census found = census(&dialog);
        QCOMPARE(found.focusable, 0);
        QCOMPARE(nameOf(requireChild<QWidget>(&dialog, "pbLoadApp")),
                 QStringLiteral("Configuring CUPS Printer(s)..."));
    }

    void theMessageBoxesAreNamedAndAnsweredWithTheKeyboard()
    {
        // The test page box of the printer list.
        seed(local(QStringLiteral("Desk")));
        PrinterDlg window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        auto *list = requireChild<QListWidget>(&window, "lwPrinters");
        list->setCurrentRow(0);
        ShellRecorder shell;
        auto *test = requireChild<QPushButton>(&window, "bTest");
        QString answered;
        QVERIFY(answerBoxWithKey(test, QStringLiteral("test page box"), Qt::Key_Return, &answered));
        QCOMPARE(answered, QStringLiteral("OK"));

        // The wizard's refusal of a name with a blank.
        PPDSet catalogue;
        Printer printer;
        WizardDlg wizard(&catalogue, &printer, false);
        wizard.show();
        QVERIFY(QTest::qWaitForWindowExposed(&wizard));
        requireChild<QLineEdit>(&wizard, "leName_2")->setText(QStringLiteral("my printer"));
        auto *next = requireChild<QPushButton>(&wizard, "bNext");
        answered.clear();
        QVERIFY(answerBoxWithKey(next, QStringLiteral("name refusal"), Qt::Key_Space, &answered));
        QCOMPARE(answered, QStringLiteral("OK"));
    }
};

QTEST_MAIN(TestAccessibility)
#include "tst_accessibility.moc"
