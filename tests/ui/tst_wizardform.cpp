// The wizard's generated form on a dialog of its own: widgets, texts, settings and the
// connections it makes to the wizard's slots.
#include "ui_wizarddialog.h"

#include <QTextBlock>
#include <QTextDocument>
#include <QtTest>

namespace {

// Stands in for the wizard: it has the slots the form connects to and records each call.
class RecordingDialog : public QDialog
{
    Q_OBJECT
public:
    QStringList calls;

public slots:
    void next() { calls << QStringLiteral("next"); }
    void back() { calls << QStringLiteral("back"); }
    void cancel() { calls << QStringLiteral("cancel"); }
    void submit() { calls << QStringLiteral("submit"); }
    void radioButtonUSB() { calls << QStringLiteral("usb"); }
    void radioButtonLPD() { calls << QStringLiteral("lpd"); }
    void radioButtonRAW() { calls << QStringLiteral("raw"); }
    void driverChanged(int index) { calls << QStringLiteral("driver %1").arg(index); }
};

} // namespace

class TestWizardForm : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void dialogIs481By494WithEmptyTitle();
    void opensOnPreferencesPageWithFirstDriverAndLetter();
    void pagesAreInWizardOrder();
    void comboBoxesOfferDriversAndPaperSizes();
    void discoveryProgressBarIsBusyIndicator();
    void portSpinBoxesAccept0To65535();
    void summaryTableShowsNoHeaders();
    void widgetsSitAtTheirPositions_data();
    void widgetsSitAtTheirPositions();
    void widgetsCarryTheirTexts_data();
    void widgetsCarryTheirTexts();
    void addressLabelsAreRightAligned();
    void titleIsBoldAndIconsAreShown();
    void welcomeTextListsTheStepsInUbuntuFont();
    void buttonRowsAreLaidOutWithSpacers();
    void buttonsAndRadioButtonsReachTheWizardSlots();
    void radioButtonsFormOneExclusiveGroup();
    void tabOrderOfThePreferencesPageFollowsTheScreen();

private:
    RecordingDialog *dialog = nullptr;
    Ui::WizardDialog ui;
};

void TestWizardForm::init()
{
    dialog = new RecordingDialog;
    ui.setupUi(dialog);
}

void TestWizardForm::cleanup()
{
    delete dialog;
    dialog = nullptr;
}

void TestWizardForm::dialogIs481By494WithEmptyTitle()
{
    QCOMPARE(dialog->objectName(), QStringLiteral("WizardDialog"));
    QCOMPARE(dialog->size(), QSize(481, 494));
    QCOMPARE(dialog->windowTitle(), QString());
}

void TestWizardForm::opensOnPreferencesPageWithFirstDriverAndLetter()
{
    QCOMPARE(ui.stack->currentIndex(), 7);
    QCOMPARE(ui.stack->currentWidget(), ui.pwPref);
    QCOMPARE(ui.cbCUPSdrv->currentText(), QStringLiteral("PCL B/W"));
    QCOMPARE(ui.cbPaperSize->currentText(), QStringLiteral("Letter"));
    // Setting the page and filling the boxes calls no slot.
    QCOMPARE(dialog->calls, QStringList());
}

void TestWizardForm::pagesAreInWizardOrder()
{
    const QStringList expected = {"pwStart", "pwDiscovery", "pwAvailable", "pwAdd",   "pwManu",
                                  "pwModel", "pwDriver",    "pwPref",      "pwFinish"};
    QCOMPARE(ui.stack->count(), expected.size());
    for (int i = 0; i < expected.size(); ++i)
        QCOMPARE(ui.stack->widget(i)->objectName(), expected.at(i));
    // Every page widget lives on its page.
    QCOMPARE(ui.tb->parentWidget(), ui.pwStart);
    QCOMPARE(ui.progressBar->parentWidget(), ui.pwDiscovery);
    QCOMPARE(ui.lwAvailable->parentWidget(), ui.pwAvailable);
    QCOMPARE(ui.sbPort->parentWidget(), ui.pwAdd);
    QCOMPARE(ui.lwManu->parentWidget(), ui.pwManu);
    QCOMPARE(ui.lwModel->parentWidget(), ui.pwModel);
    QCOMPARE(ui.lwDriver->parentWidget(), ui.pwDriver);
    QCOMPARE(ui.cbCUPSdrv->parentWidget(), ui.pwPref);
    QCOMPARE(ui.twProps->parentWidget(), ui.pwFinish);
}

void TestWizardForm::comboBoxesOfferDriversAndPaperSizes()
{
    const QStringList drivers = {"PCL B/W",
                                 "PCL Color",
                                 "Postscript",
                                 "Generic Text Only",
                                 "Epson TM/BA Series",
                                 "Raw driver",
                                 "Star TSP100GT Tear Bar",
                                 "Star TSP100 Tear Bar",
                                 "Star TSP100GT Cutter",
                                 "Star TSP100 Cutter",
                                 "Zebra"};
    QCOMPARE(ui.cbCUPSdrv->count(), drivers.size());
    for (int i = 0; i < drivers.size(); ++i) {
        QCOMPARE(ui.cbCUPSdrv->itemText(i), drivers.at(i));
        QVERIFY(ui.cbCUPSdrv->itemIcon(i).isNull());
    }
    const QStringList sizes = {"Letter", "Legal", "A4"};
    QCOMPARE(ui.cbPaperSize->count(), sizes.size());
    for (int i = 0; i < sizes.size(); ++i)
        QCOMPARE(ui.cbPaperSize->itemText(i), sizes.at(i));
}

void TestWizardForm::discoveryProgressBarIsBusyIndicator()
{
    // A range of 0 to 0 makes the bar an endless busy animation without a percentage.
    QCOMPARE(ui.progressBar->minimum(), 0);
    QCOMPARE(ui.progressBar->maximum(), 0);
    QCOMPARE(ui.progressBar->value(), -1);
}

void TestWizardForm::portSpinBoxesAccept0To65535()
{
    for (QSpinBox *box : {ui.sbPort, ui.sbPort_2}) {
        QCOMPARE(box->minimum(), 0);
        QCOMPARE(box->maximum(), 65535);
        box->setValue(65535);
        QCOMPARE(box->value(), 65535);
        box->setValue(65536);
        QCOMPARE(box->value(), 65535);
        box->setValue(-1);
        QCOMPARE(box->value(), 0);
    }
}

void TestWizardForm::summaryTableShowsNoHeaders()
{
    QVERIFY(ui.twProps->horizontalHeader()->isHidden());
    QVERIFY(ui.twProps->verticalHeader()->isHidden());
    QCOMPARE(ui.twProps->horizontalHeader()->defaultSectionSize(), 120);
    QVERIFY(ui.twProps->horizontalHeader()->stretchLastSection());
}

void TestWizardForm::widgetsSitAtTheirPositions_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QRect>("geometry");

    const QList<QPair<const char *, QRect>> table = {
        {"lIcon", {20, 25, 41, 40}},
        {"lTitle", {70, 30, 261, 25}},
        {"liTop", {0, 75, 481, 20}},
        {"stack", {0, 90, 481, 351}},
        {"liBottom", {-1, 430, 481, 20}},
        {"horizontalLayoutWidget", {7, 450, 190, 32}},
        {"horizontalLayoutWidget_2", {290, 450, 184, 32}},
        {"tb", {10, 10, 461, 271}},
        {"lLogo", {70, 100, 41, 51}},
        {"lDiscovery", {120, 100, 261, 20}},
        {"progressBar", {120, 130, 271, 23}},
        {"lAvailable", {10, 10, 421, 21}},
        {"lwAvailable", {10, 40, 461, 231}},
        {"lPrinterName", {50, 70, 101, 27}},
        {"leName", {160, 70, 301, 27}},
        {"lHost", {10, 110, 141, 27}},
        {"leHost", {160, 110, 151, 27}},
        {"lPort", {330, 110, 41, 27}},
        {"sbPort", {380, 110, 81, 27}},
        {"lQueue", {90, 150, 61, 27}},
        {"leQueue", {160, 150, 191, 27}},
        {"lManu", {10, 10, 401, 21}},
        {"lwManu", {10, 40, 461, 231}},
        {"lModel", {10, 10, 321, 21}},
        {"lwModel", {10, 40, 461, 231}},
        {"lDriver", {10, 10, 321, 21}},
        {"lwDriver", {10, 40, 461, 231}},
        {"lPref", {10, 10, 221, 20}},
        {"b_radioButtonUSB", {20, 50, 111, 23}},
        {"b_radioButtonLPD", {150, 50, 141, 23}},
        {"b_radioButtonRAW", {300, 50, 141, 23}},
        {"lPrinterName_2", {20, 90, 111, 27}},
        {"leName_2", {150, 90, 301, 27}},
        {"lWinDriver_4", {20, 130, 171, 27}},
        {"leName_4", {190, 130, 261, 27}},
        {"lWinDriver_2", {20, 170, 121, 27}},
        {"leQueue_2", {150, 170, 101, 27}},
        {"lWinDriver_3", {320, 170, 41, 27}},
        {"sbPort_2", {370, 170, 81, 27}},
        {"lWinDriver_5", {20, 210, 121, 27}},
        {"cbCUPSdrv", {150, 210, 301, 27}},
        {"lWinDriver", {20, 250, 121, 27}},
        {"leWinDriver", {150, 250, 301, 27}},
        {"cbDefault", {20, 290, 181, 27}},
        {"lPaperSz", {210, 290, 81, 27}},
        {"cbPaperSize", {310, 290, 141, 27}},
        {"cbDefaultSession", {20, 320, 181, 27}},
        {"lSucess", {20, 10, 351, 17}},
        {"lSucess2", {20, 40, 251, 17}},
        {"twProps", {20, 71, 441, 201}},
    };
    for (const auto &row : table)
        QTest::newRow(row.first) << QString::fromLatin1(row.first) << row.second;
}

void TestWizardForm::widgetsSitAtTheirPositions()
{
    QFETCH(QString, name);
    QFETCH(QRect, geometry);
    const QWidget *widget = dialog->findChild<QWidget *>(name);
    QVERIFY2(widget, qPrintable(name));
    QCOMPARE(widget->geometry(), geometry);
}

void TestWizardForm::widgetsCarryTheirTexts_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("text");

    const QList<QPair<const char *, const char *>> table = {
        {"lTitle", "Printer Configuration Wizard"},
        {"lIcon", ""},
        {"lLogo", ""},
        {"lDiscovery", "Looking for available printers..."},
        {"lAvailable", "Select a printer or create a new connection :"},
        {"lPrinterName", "Printer name :"},
        {"lHost", "Host address/name :"},
        {"lPort", "Port :"},
        {"lQueue", "Queue :"},
        {"lManu", "Select a manufacturer:"},
        {"lModel", "Select a model:"},
        {"lDriver", "Select a driver:"},
        {"lPref", "Printer Preferences"},
        {"b_radioButtonUSB", "USB Printer"},
        {"b_radioButtonLPD", "LPD/LPR Printer"},
        {"b_radioButtonRAW", "RAW Printer"},
        {"lPrinterName_2", "Printer name"},
        {"lWinDriver_4", "Printer address/name"},
        {"lWinDriver_2", "Queue"},
        {"lWinDriver_3", "Port"},
        {"lWinDriver_5", "CUPS Driver"},
        {"lWinDriver", "Windows Driver"},
        {"cbDefault", "Default Local Printer"},
        {"lPaperSz", "Paper Size"},
        {"cbDefaultSession", "Default VDI Printer"},
        {"lSucess", "You have sucessfully completed the printer wizard."},
        {"lSucess2", "You specified the following settings :"},
        {"bBack", "<< &Back"},
        {"bNext", "&Next >>"},
        {"bSubmit", "&OK"},
        {"bCancel", "&Cancel"},
    };
    for (const auto &row : table)
        QTest::newRow(row.first) << QString::fromLatin1(row.first)
                                 << QString::fromLatin1(row.second);
}

void TestWizardForm::widgetsCarryTheirTexts()
{
    QFETCH(QString, name);
    QFETCH(QString, text);
    QObject *widget = dialog->findChild<QObject *>(name);
    QVERIFY2(widget, qPrintable(name));
    QCOMPARE(widget->property("text").toString(), text);
}

void TestWizardForm::addressLabelsAreRightAligned()
{
    for (QLabel *label : {ui.lPrinterName, ui.lHost, ui.lPort, ui.lQueue}) {
        QVERIFY(label->alignment() & Qt::AlignRight);
        QVERIFY(label->alignment() & Qt::AlignVCenter);
    }
}

void TestWizardForm::titleIsBoldAndIconsAreShown()
{
    QVERIFY(ui.lTitle->font().bold());
    QCOMPARE(ui.lTitle->font().weight(), 75);
    QVERIFY(!ui.lIcon->pixmap(Qt::ReturnByValue).isNull());
    QVERIFY(!ui.lLogo->pixmap(Qt::ReturnByValue).isNull());
    for (QFrame *line : {ui.liTop, ui.liBottom}) {
        QCOMPARE(line->frameShape(), QFrame::HLine);
        QCOMPARE(line->frameShadow(), QFrame::Sunken);
    }
}

void TestWizardForm::welcomeTextListsTheStepsInUbuntuFont()
{
    const QStringList paragraphs = {
        "This wizard helps you install a printer or make printer connections.",
        "",
        "* Select local or network printer",
        "* Select printer driver",
        "* Choose printer name",
        "* Print test page",
        "",
        "To continue, click next."};
    const QTextDocument *document = ui.tb->document();
    QCOMPARE(document->blockCount(), paragraphs.size());
    QTextBlock block = document->begin();
    for (const QString &paragraph : paragraphs) {
        QCOMPARE(block.text(), paragraph);
        const QTextBlockFormat format = block.blockFormat();
        QCOMPARE(format.topMargin(), 0.0);
        QCOMPARE(format.bottomMargin(), 0.0);
        QCOMPARE(format.leftMargin(), 0.0);
        QCOMPARE(format.rightMargin(), 0.0);
        // An empty paragraph carries the Ubuntu font itself; the others keep the body's
        // font and set Ubuntu on their text.
        const QTextCharFormat own = block.charFormat();
        QCOMPARE(own.fontFamily(),
                 paragraph.isEmpty() ? QStringLiteral("Ubuntu") : QStringLiteral("Sans Serif"));
        QCOMPARE(own.fontPointSize(), paragraph.isEmpty() ? 11.0 : 9.0);
        for (auto it = block.begin(); !it.atEnd(); ++it) {
            QCOMPARE(it.fragment().charFormat().fontFamily(), QStringLiteral("Ubuntu"));
            QCOMPARE(it.fragment().charFormat().fontPointSize(), 11.0);
        }
        block = block.next();
    }
}

void TestWizardForm::buttonRowsAreLaidOutWithSpacers()
{
    const QList<QPair<QHBoxLayout *, QList<QWidget *>>> rows = {
        {ui.hl1, {ui.bBack, ui.bNext, nullptr}},
        {ui.hl2, {nullptr, ui.bSubmit, ui.bCancel}},
    };
    for (const auto &row : rows) {
        QHBoxLayout *layout = row.first;
        QCOMPARE(layout->contentsMargins(), QMargins(0, 0, 0, 0));
        QCOMPARE(layout->count(), row.second.size());
        for (int i = 0; i < row.second.size(); ++i) {
            QLayoutItem *item = layout->itemAt(i);
            if (row.second.at(i)) {
                QCOMPARE(item->widget(), row.second.at(i));
            } else {
                QSpacerItem *spacer = item->spacerItem();
                QVERIFY(spacer);
                QCOMPARE(spacer->sizeHint(), QSize(40, 20));
                QCOMPARE(spacer->sizePolicy().horizontalPolicy(), QSizePolicy::Expanding);
            }
        }
    }
    QCOMPARE(ui.hl1->parentWidget(), ui.horizontalLayoutWidget);
    QCOMPARE(ui.hl2->parentWidget(), ui.horizontalLayoutWidget_2);
}

void TestWizardForm::buttonsAndRadioButtonsReachTheWizardSlots()
{
    ui.bNext->click();
    ui.bBack->click();
    ui.bCancel->click();
    ui.b_radioButtonUSB->click();
    ui.b_radioButtonLPD->click();
    ui.b_radioButtonRAW->click();
    // A click on the button already checked reaches its slot again.
    ui.b_radioButtonRAW->click();
    ui.bSubmit->click();
    ui.cbCUPSdrv->setCurrentIndex(10);
    // Checking a radio button from code calls nothing.
    ui.b_radioButtonUSB->setChecked(true);
    QCOMPARE(dialog->calls, QStringList({"next", "back", "cancel", "usb", "lpd", "raw", "raw",
                                         "submit", "driver 10"}));
}

void TestWizardForm::radioButtonsFormOneExclusiveGroup()
{
    ui.b_radioButtonUSB->setChecked(true);
    ui.b_radioButtonLPD->setChecked(true);
    QVERIFY(!ui.b_radioButtonUSB->isChecked());
    ui.b_radioButtonRAW->setChecked(true);
    QVERIFY(!ui.b_radioButtonLPD->isChecked());
    QVERIFY(ui.b_radioButtonRAW->isChecked());
}

void TestWizardForm::tabOrderOfThePreferencesPageFollowsTheScreen()
{
    // The form's tab order walks the preferences page as it is read: the connection row,
    // then each field from top to bottom, left to right.
    const QList<QWidget *> order = {ui.b_radioButtonUSB, ui.b_radioButtonLPD, ui.b_radioButtonRAW,
                                    ui.leName_2,         ui.leName_4,         ui.leQueue_2,
                                    ui.sbPort_2,         ui.cbCUPSdrv,        ui.leWinDriver,
                                    ui.cbDefault,        ui.cbPaperSize,      ui.cbDefaultSession};
    for (int i = 0; i + 1 < order.size(); ++i) {
        QWidget *next = order.at(i)->nextInFocusChain();
        // Skip labels and the inner parts of composite widgets.
        while (next && next != order.at(i + 1) &&
               (next->parentWidget() != ui.pwPref || !(next->focusPolicy() & Qt::TabFocus)))
            next = next->nextInFocusChain();
        QCOMPARE(next, order.at(i + 1));
    }
}

QTEST_MAIN(TestWizardForm)
#include "tst_wizardform.moc"
