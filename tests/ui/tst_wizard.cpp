// The printer wizard on its preferences and summary pages, the pages a user works on:
// opening on a new or stored record, the connection choice, the driver and paper sizes,
// name checking, the summary and how the dialog ends. Runs in the sandbox, whose
// /usr/share/ppd holds our fixture PPDs.
#include "common/paths.h"
#include "ui/wizarddlg.h"

#include "drivers/ppdset.h"
#include "printer/printer.h"
#include "support/modal.h"
#include "support/sandbox.h"
#include "support/shellrecorder.h"
#include "support/watchdog.h"
#include "support/widgets.h"
#include "ui/windowchrome.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QRadioButton>
#include <QScreen>
#include <QSpinBox>
#include <QStackedWidget>
#include <QTableWidget>
#include <QtTest>

#include <memory>

namespace {

const QString pcl4Ppd = paths::newPrinterPaperSizesPpd();
const QString zebraPpd = QStringLiteral("/usr/share/ppd/std1/Zebra/zebra.ppd");
const QString epsonPpd = QStringLiteral("/usr/share/ppd/std1/Epson/tm-ba-thermal-rastertotmt.ppd");
const QString detectedDevice = QStringLiteral("usb://Acme/Laser%201?serial=42");
const QString lpinfoCache = paths::lpinfoCache();

const QStringList pcl4Sizes = {"Letter", "Legal", "A4", "Executive", "A5"};
const QStringList pcl5eSizes = {"Letter", "Legal", "A4", "Executive", "Env10"};
const QStringList zebraSizes = {"w288h432", "w288h288", "w144h72"};

QStringList itemTexts(const QComboBox *box)
{
    QStringList texts;
    for (int i = 0; i < box->count(); ++i)
        texts << box->itemText(i);
    return texts;
}

} // namespace

class TestWizard : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    // Opening
    void newPrinterOpensOnPreferencesWithDefaults();
    void newPrinterWindowIsFixedStyledAndCentred();
    void missingStyleSheetLeavesWizardUnstyled();
    void editingZebraPrinterShowsZebraSizesWithStoredSizeSelected();
    void storedSizeNotOfferedBySelectsFirstSize();
    void editingPrinterWithOwnPpdListsItsSizesAndNextStoresEntryZero();
    void unreadablePpdLeavesPaperSizesEmpty();
    void editModeDisablesNameField();
    void availableListOffersOnlyTheLocalUsbPrinter();

    // Driver and paper size
    void changingDriverRefillsPaperSizesAndSelectsFirst();
    void driverWithoutPaperSizesStoresEmptySize();

    // Connection
    void restoresConnectionFromStoredAddress_data();
    void restoresConnectionFromStoredAddress();
    void storedUsbAddressIsReplacedByDetectedDevice();
    void lpdFillsDefaultQueueRawFillsDefaultPortUsbDisablesFields();
    void emptyHostIsNotChecked();

    // Name check and saving
    void nameWithSpaceIsRefusedWithMessageAndFocus();
    void nameWithUnderscorePasses();
    void tabsAndEmptyNamesPass_data();
    void tabsAndEmptyNamesPass();
    void nextSavesPreferencesIntoRecordAndSummary();
    void summaryShowsYesWhenAlreadyDefaultWithBoxUnchecked();
    void uncheckedDefaultOnOtherPrinterShowsNoAndKeepsDefault();

    // Device addresses that would leave their quotes in the lpadmin command
    void usbAddressThatWouldLeaveItsQuotesIsRefused_data();
    void usbAddressThatWouldLeaveItsQuotesIsRefused();
    void storedUsbRecordWithAQuoteIsRefusedWhenTheListStillOffersIt();
    void typedHostOrQueueGoesIntoTheCommandAsTyped_data();
    void typedHostOrQueueGoesIntoTheCommandAsTyped();
    void storedNetworkAddressWithAQuoteIsKeptWhenEdited();

    // Page flow and ending
    void backOnSummaryReturnsToPreferencesWithBackHidden();
    void closeButtonIsIgnoredUntilOkOrCancel();
    void okEndsWithSubmittedAndAccepted();
    void cancelAfterNextLeavesSubmittedFalse();

private:
    template <typename T> T *child(const char *name) const
    {
        return requireChild<T>(wizard.get(), name);
    }
    void open(bool edit);
    void setName(const QString &name);
    // Clicks Next on the preferences page, answers the message box that must appear,
    // checks that it is the critical box with this message, and that the page stayed.
    void expectRefusal(const QString &message);
    // The same for the refusal of the device address, which saves nothing at all.
    void expectAddressRefused();

    PPDSet catalogue;
    Printer record;
    std::unique_ptr<WizardDlg> wizard;
};

void TestWizard::initTestCase()
{
    REQUIRE_SANDBOX();
}

void TestWizard::init()
{
    // The device cache "lpinfo -v" would write: a network line first, then the USB printer.
    QVERIFY(sandbox::writeFile(lpinfoCache, "network socket\ndirect " + detectedDevice.toUtf8() +
                                                "\ndirect usb://Other/Second\n"));
    sandbox::removePath(windowchrome::styleSheetPath());
    Printer::setDefaultPrinterName(QString());
    record = Printer();
}

void TestWizard::cleanup()
{
    wizard.reset();
}

void TestWizard::open(bool edit)
{
    wizard.reset(new WizardDlg(&catalogue, &record, edit));
}

void TestWizard::setName(const QString &name)
{
    auto *field = child<QLineEdit>("leName_2");
    field->clear();
    QTest::keyClicks(field, name);
}

void TestWizard::newPrinterOpensOnPreferencesWithDefaults()
{
    open(false);
    QCOMPARE(wizard->windowTitle(), QStringLiteral("Printer Configuration Wizard"));
    QCOMPARE(child<QStackedWidget>("stack")->currentIndex(), 7);
    QCOMPARE(child<QLineEdit>("leName_2")->text(), QStringLiteral("Printer"));
    QCOMPARE(child<QLineEdit>("leName")->text(), QStringLiteral("Printer"));
    QVERIFY(child<QLineEdit>("leName_2")->isEnabled());
    QCOMPARE(record.name, QStringLiteral("Printer"));
    QCOMPARE(record.model, QStringLiteral("Printer"));

    QVERIFY(child<QRadioButton>("b_radioButtonUSB")->isChecked());
    QCOMPARE(record.device_uri, detectedDevice);
    QCOMPARE(record.printer_class, QStringLiteral("direct"));

    QCOMPARE(child<QComboBox>("cbCUPSdrv")->currentText(), QStringLiteral("PCL B/W"));
    // A new printer takes its paper sizes from the PCL 4 file, not from entry 0.
    QCOMPARE(record.ppd, pcl4Ppd);
    QCOMPARE(itemTexts(child<QComboBox>("cbPaperSize")), pcl4Sizes);
    QCOMPARE(child<QComboBox>("cbPaperSize")->currentIndex(), 0);

    QVERIFY(child<QCheckBox>("cbDefault")->isChecked());
    QVERIFY(!child<QCheckBox>("cbDefaultSession")->isChecked());
    QVERIFY(child<QPushButton>("bBack")->isHidden());
    QVERIFY(!child<QPushButton>("bNext")->isHidden());
    QVERIFY(child<QPushButton>("bSubmit")->isHidden());
    QVERIFY(!wizard->submitted);

    // The summary starts with the row labels in both columns.
    auto *table = child<QTableWidget>("twProps");
    QCOMPARE(table->rowCount(), 6);
    QCOMPARE(table->columnCount(), 2);
    const QStringList labels = {"Name",       "CUPS Driver", "Windows Driver",
                                "Connection", "Default",     "Paper Size"};
    for (int row = 0; row < labels.size(); ++row) {
        QCOMPARE(table->item(row, 0)->text(), labels.at(row));
        QCOMPARE(table->item(row, 1)->text(), labels.at(row));
    }
}

void TestWizard::newPrinterWindowIsFixedStyledAndCentred()
{
    // A NUL byte ends the style sheet; what follows it is not used.
    QVERIFY(sandbox::writeFile(windowchrome::styleSheetPath(),
                               QByteArray("QDialog { color: #123456; }\0QLabel { x }", 40)));
    open(false);
    QCOMPARE(wizard->styleSheet(), QStringLiteral("QDialog { color: #123456; }"));
    // Given exactly Qt::Dialog, a window reports the hints the toolkit adds to it.
    QWidget plainDialog;
    plainDialog.setWindowFlags(Qt::Dialog);
    QCOMPARE(wizard->windowFlags(), plainDialog.windowFlags());
    QVERIFY(!(wizard->windowFlags() & Qt::WindowMinMaxButtonsHint));
    QCOMPARE(wizard->minimumSize(), QSize(481, 494));
    QCOMPARE(wizard->maximumSize(), QSize(481, 494));
    QVERIFY(!wizard->windowIcon().isNull());
    QVERIFY(!wizard->parent());

    const QRect area = QGuiApplication::screens().first()->availableGeometry();
    const QRect frame = wizard->geometry();
    const int x = (area.left() + area.right()) / 2 - (frame.right() - frame.left()) / 2;
    const int y = (area.top() + area.bottom()) / 2 - (frame.bottom() - frame.top()) / 2;
    QCOMPARE(wizard->pos(), QPoint(x, y));
}

void TestWizard::missingStyleSheetLeavesWizardUnstyled()
{
    QVERIFY(!QFile::exists(windowchrome::styleSheetPath()));
    open(false);
    QCOMPARE(wizard->styleSheet(), QString());
}

void TestWizard::editingZebraPrinterShowsZebraSizesWithStoredSizeSelected()
{
    record.name = QStringLiteral("Labels");
    record.ppd = zebraPpd;
    record.paper_size = QStringLiteral("w288h288");
    open(true);
    QCOMPARE(wizard->windowTitle(), QStringLiteral("Printer Configuration"));
    QCOMPARE(child<QComboBox>("cbCUPSdrv")->currentIndex(), 10);
    QCOMPARE(child<QComboBox>("cbCUPSdrv")->currentText(), QStringLiteral("Zebra"));
    QCOMPARE(itemTexts(child<QComboBox>("cbPaperSize")), zebraSizes);
    QCOMPARE(child<QComboBox>("cbPaperSize")->currentText(), QStringLiteral("w288h288"));
    QCOMPARE(record.ppd, zebraPpd);

    child<QPushButton>("bNext")->click();
    QCOMPARE(record.ppd, zebraPpd);
    QCOMPARE(record.paper_size, QStringLiteral("w288h288"));
}

void TestWizard::storedSizeNotOfferedBySelectsFirstSize()
{
    record.name = QStringLiteral("Labels");
    record.ppd = zebraPpd;
    record.paper_size = QStringLiteral("A4");
    open(true);
    QCOMPARE(child<QComboBox>("cbPaperSize")->currentIndex(), 0);
    QCOMPARE(child<QComboBox>("cbPaperSize")->currentText(), QStringLiteral("w288h432"));
}

void TestWizard::editingPrinterWithOwnPpdListsItsSizesAndNextStoresEntryZero()
{
    const QString own = QStringLiteral("/usr/share/ppd/vendor/own.ppd");
    QVERIFY(sandbox::writeFile(own, "*PPD-Adobe: \"4.3\"\n"
                                    "*DefaultPageSize: B5\n"
                                    "*PageSize Tabloid/11x17: \"a\"\n"
                                    "*PageSize B5/JIS B5: \"b\"\n"));
    record.name = QStringLiteral("Own");
    record.ppd = own;
    record.paper_size = QStringLiteral("B5");
    open(true);
    QCOMPARE(child<QComboBox>("cbCUPSdrv")->currentIndex(), 0);
    QCOMPARE(itemTexts(child<QComboBox>("cbPaperSize")), QStringList({"Tabloid", "B5"}));
    QCOMPARE(child<QComboBox>("cbPaperSize")->currentText(), QStringLiteral("B5"));
    QCOMPARE(record.ppd, own);

    child<QPushButton>("bNext")->click();
    QCOMPARE(record.ppd, builtinDrivers.at(0));
    QCOMPARE(record.paper_size, QStringLiteral("B5"));
}

void TestWizard::unreadablePpdLeavesPaperSizesEmpty()
{
    record.name = QStringLiteral("Gone");
    record.ppd = QStringLiteral("/usr/share/ppd/vendor/missing.ppd");
    record.paper_size = QStringLiteral("A4");
    open(true);
    QCOMPARE(child<QComboBox>("cbPaperSize")->count(), 0);
    child<QPushButton>("bNext")->click();
    QCOMPARE(record.paper_size, QString());
}

void TestWizard::editModeDisablesNameField()
{
    record.name = QStringLiteral("Office");
    record.model = QStringLiteral("Office Laser");
    record.win_driver = QStringLiteral("HP Universal");
    record.default_vdi_printer = true;
    record.ppd = builtinDrivers.at(2);
    open(true);
    auto *name = child<QLineEdit>("leName_2");
    QVERIFY(!name->isEnabled());
    QCOMPARE(name->text(), QStringLiteral("Office"));
    // The address page's name field is disabled as well and shows the model.
    QVERIFY(!child<QLineEdit>("leName")->isEnabled());
    QCOMPARE(child<QLineEdit>("leWinDriver")->text(), QStringLiteral("HP Universal"));
    QVERIFY(child<QCheckBox>("cbDefaultSession")->isChecked());
    QVERIFY(child<QCheckBox>("cbDefault")->isChecked());
    QCOMPARE(child<QComboBox>("cbCUPSdrv")->currentText(), QStringLiteral("Postscript"));

    // A disabled field takes no typing, so Next keeps the name.
    QTest::keyClicks(name, QStringLiteral("X"));
    child<QPushButton>("bNext")->click();
    QCOMPARE(record.name, QStringLiteral("Office"));
    QVERIFY(record.path().endsWith(QStringLiteral("/Office.pr")));
}

void TestWizard::availableListOffersOnlyTheLocalUsbPrinter()
{
    open(false);
    auto *list = child<QListWidget>("lwAvailable");
    QCOMPARE(list->count(), 1);
    QCOMPARE(list->item(0)->text(), QStringLiteral("USB printer"));
    QCOMPARE(list->item(0)->data(Qt::UserRole).toString(), detectedDevice);
    QVERIFY(!list->item(0)->icon().isNull());
    QCOMPARE(list->currentRow(), 0);
}

void TestWizard::changingDriverRefillsPaperSizesAndSelectsFirst()
{
    open(false);
    auto *drivers = child<QComboBox>("cbCUPSdrv");
    auto *sizes = child<QComboBox>("cbPaperSize");
    sizes->setCurrentIndex(2);

    drivers->setCurrentIndex(4);
    QCOMPARE(record.ppd, epsonPpd);
    QCOMPARE(itemTexts(sizes), QStringList({"RP80x297", "RP58x297"}));
    QCOMPARE(sizes->currentIndex(), 0);

    sizes->setCurrentIndex(1);
    drivers->setCurrentIndex(0);
    QCOMPARE(record.ppd, builtinDrivers.at(0));
    QCOMPARE(itemTexts(sizes), pcl5eSizes);
    QCOMPARE(sizes->currentText(), QStringLiteral("Letter"));

    drivers->setCurrentIndex(10);
    QCOMPARE(itemTexts(sizes), zebraSizes);
    QCOMPARE(sizes->currentText(), QStringLiteral("w288h432"));
}

void TestWizard::driverWithoutPaperSizesStoresEmptySize()
{
    open(false);
    child<QComboBox>("cbCUPSdrv")->setCurrentIndex(5);
    QCOMPARE(record.ppd, builtinDrivers.at(5));
    QCOMPARE(child<QComboBox>("cbPaperSize")->count(), 0);
    child<QPushButton>("bNext")->click();
    QCOMPARE(record.ppd, builtinDrivers.at(5));
    QCOMPARE(record.paper_size, QString());
}

void TestWizard::restoresConnectionFromStoredAddress_data()
{
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QString>("checked"); // object name of the checked button, or empty
    QTest::addColumn<QString>("host");
    QTest::addColumn<QString>("queue");
    QTest::addColumn<int>("port");
    QTest::addColumn<QString>("saved");
    QTest::addColumn<QString>("savedClass");

    QTest::newRow("socket with port") << "socket://10.0.0.5:9100"
                                      << "b_radioButtonRAW"
                                      << "10.0.0.5"
                                      << "" << 9100 << "socket://10.0.0.5:9100"
                                      << "network";
    QTest::newRow("socket other port") << "socket://10.0.0.6:9101"
                                       << "b_radioButtonRAW"
                                       << "10.0.0.6"
                                       << "" << 9101 << "socket://10.0.0.6:9101"
                                       << "network";
    QTest::newRow("socket without port") << "socket://printer"
                                         << "b_radioButtonRAW"
                                         << "printer"
                                         << "" << 9100 << "socket://printer:9100"
                                         << "network";
    QTest::newRow("lpd with queue") << "lpd://server/queue1"
                                    << "b_radioButtonLPD"
                                    << "server"
                                    << "queue1" << 0 << "lpd://server/queue1"
                                    << "network";
    // Without a queue the host text lands in both fields.
    QTest::newRow("lpd without queue") << "lpd://server"
                                       << "b_radioButtonLPD"
                                       << "server"
                                       << "server" << 0 << "lpd://server/server"
                                       << "network";
    // Unknown schemes choose nothing; Next then asks for the local device, which keeps a
    // stored address without "usb" as it is, and marks the printer as a direct one.
    QTest::newRow("ipp") << "ipp://host/x"
                         << ""
                         << ""
                         << "" << 0 << "ipp://host/x"
                         << "direct";
}

void TestWizard::restoresConnectionFromStoredAddress()
{
    QFETCH(QString, stored);
    QFETCH(QString, checked);
    QFETCH(QString, host);
    QFETCH(QString, queue);
    QFETCH(int, port);
    QFETCH(QString, saved);
    QFETCH(QString, savedClass);

    record.name = QStringLiteral("Net");
    record.device_uri = stored;
    record.ppd = builtinDrivers.at(2);
    open(true);

    for (const char *name : {"b_radioButtonUSB", "b_radioButtonLPD", "b_radioButtonRAW"})
        QCOMPARE(child<QRadioButton>(name)->isChecked(), checked == QLatin1String(name));
    QCOMPARE(child<QLineEdit>("leName_4")->text(), host);
    QCOMPARE(child<QLineEdit>("leQueue_2")->text(), queue);
    QCOMPARE(child<QSpinBox>("sbPort_2")->value(), port);
    if (checked == QLatin1String("b_radioButtonRAW")) {
        QVERIFY(!child<QLineEdit>("leQueue_2")->isEnabled());
        QVERIFY(child<QSpinBox>("sbPort_2")->isEnabled());
        QVERIFY(child<QLineEdit>("leName_4")->isEnabled());
    } else if (checked == QLatin1String("b_radioButtonLPD")) {
        QVERIFY(child<QLineEdit>("leQueue_2")->isEnabled());
        QVERIFY(!child<QSpinBox>("sbPort_2")->isEnabled());
        QVERIFY(child<QLineEdit>("leName_4")->isEnabled());
    }
    // The stored address itself is kept until Next.
    QCOMPARE(record.device_uri, stored);

    child<QPushButton>("bNext")->click();
    QCOMPARE(child<QStackedWidget>("stack")->currentIndex(), 8);
    QCOMPARE(record.device_uri, saved);
    QCOMPARE(record.printer_class, savedClass);
    QCOMPARE(child<QTableWidget>("twProps")->item(3, 1)->text(), saved);
}

void TestWizard::storedUsbAddressIsReplacedByDetectedDevice()
{
    record.name = QStringLiteral("Local");
    record.device_uri = QStringLiteral("usb:/dev/usb/lp1");
    record.ppd = builtinDrivers.at(0);
    open(true);
    QVERIFY(child<QRadioButton>("b_radioButtonUSB")->isChecked());
    QCOMPARE(record.device_uri, detectedDevice);
    QCOMPARE(record.printer_class, QStringLiteral("direct"));

    // Next asks for the device again: a changed cache shows.
    QVERIFY(sandbox::writeFile(lpinfoCache, "direct usb://Newer/Printer\n"));
    child<QPushButton>("bNext")->click();
    QCOMPARE(record.device_uri, QStringLiteral("usb://Newer/Printer"));
    QCOMPARE(record.printer_class, QStringLiteral("direct"));
}

void TestWizard::lpdFillsDefaultQueueRawFillsDefaultPortUsbDisablesFields()
{
    open(false);
    auto *host = child<QLineEdit>("leName_4");
    auto *queue = child<QLineEdit>("leQueue_2");
    auto *port = child<QSpinBox>("sbPort_2");
    QVERIFY(!host->isEnabled() && !queue->isEnabled() && !port->isEnabled());
    QCOMPARE(queue->text(), QString());
    QCOMPARE(port->value(), 0);

    child<QRadioButton>("b_radioButtonLPD")->click();
    QCOMPARE(queue->text(), QStringLiteral("lp"));
    QVERIFY(host->isEnabled() && queue->isEnabled() && !port->isEnabled());
    QCOMPARE(record.printer_class, QStringLiteral("network"));
    QCOMPARE(record.device_uri, detectedDevice); // LPD leaves the address alone

    // A queue typed by the user is kept.
    queue->setText(QStringLiteral("raw"));
    child<QRadioButton>("b_radioButtonLPD")->click();
    QCOMPARE(queue->text(), QStringLiteral("raw"));

    child<QRadioButton>("b_radioButtonRAW")->click();
    QCOMPARE(port->value(), 9100);
    QVERIFY(host->isEnabled() && !queue->isEnabled() && port->isEnabled());
    port->setValue(515);
    child<QRadioButton>("b_radioButtonRAW")->click();
    QCOMPARE(port->value(), 515);

    QTest::keyClicks(host, QStringLiteral("10.1.1.1"));
    child<QRadioButton>("b_radioButtonUSB")->click();
    QVERIFY(!host->isEnabled() && !queue->isEnabled() && !port->isEnabled());
    QCOMPARE(host->text(), QStringLiteral("10.1.1.1"));
    QCOMPARE(queue->text(), QStringLiteral("raw"));
    QCOMPARE(port->value(), 515);
    QCOMPARE(record.printer_class, QStringLiteral("direct"));
    QCOMPARE(record.device_uri, QStringLiteral("usb:/dev/usb/lp0"));

    // Back to RAW: the address is built from the kept fields.
    child<QRadioButton>("b_radioButtonRAW")->click();
    child<QPushButton>("bNext")->click();
    QCOMPARE(record.device_uri, QStringLiteral("socket://10.1.1.1:515"));
}

void TestWizard::emptyHostIsNotChecked()
{
    open(false);
    child<QRadioButton>("b_radioButtonLPD")->click();
    child<QPushButton>("bNext")->click();
    QCOMPARE(record.device_uri, QStringLiteral("lpd:///lp"));
    child<QPushButton>("bBack")->click();
    child<QRadioButton>("b_radioButtonRAW")->click();
    child<QPushButton>("bNext")->click();
    QCOMPARE(record.device_uri, QStringLiteral("socket://:9100"));
}

void TestWizard::nameWithSpaceIsRefusedWithMessageAndFocus()
{
    open(false);
    wizard->show();
    QApplication::setActiveWindow(wizard.get());
    QVERIFY(QTest::qWaitForWindowActive(wizard.get()));
    setName(QStringLiteral("my printer"));
    child<QLineEdit>("leWinDriver")->setFocus();
    QTRY_COMPARE(QApplication::focusWidget(), child<QLineEdit>("leWinDriver"));

    expectRefusal(QStringLiteral("The printer name cannot contain spaces."));
    if (QTest::currentTestFailed())
        return;
    QCOMPARE(record.name, QStringLiteral("Printer"));
    QCOMPARE(record.ppd, pcl4Ppd); // nothing was saved
    QCOMPARE(record.paper_size, QString());
    QCOMPARE(child<QTableWidget>("twProps")->item(0, 1)->text(), QStringLiteral("Name"));
    QCOMPARE(wizard->focusWidget(), child<QLineEdit>("leName_2"));
    QApplication::setActiveWindow(wizard.get());
    QTRY_COMPARE(QApplication::focusWidget(), child<QLineEdit>("leName_2"));
    QVERIFY(child<QPushButton>("bBack")->isHidden());
}

void TestWizard::expectRefusal(const QString &message)
{
    bool seen = false;
    auto answer = [&](QWidget *modal) {
        auto *box = qobject_cast<QMessageBox *>(modal);
        QVERIFY(box);
        seen = true;
        QCOMPARE(box->windowTitle(), QStringLiteral("Printer Configuration"));
        QCOMPARE(box->text(), message);
        QCOMPARE(box->icon(), QMessageBox::Critical);
        QCOMPARE(box->standardButtons(), QMessageBox::StandardButtons(QMessageBox::Ok));
        box->accept();
    };
    auto *next = child<QPushButton>("bNext");
    QVERIFY(answerModal([next] { next->click(); }, answer));
    QVERIFY(seen);
    // The page stays and nothing of it reached the record or the summary.
    QCOMPARE(child<QStackedWidget>("stack")->currentIndex(), 7);
    QCOMPARE(record.paper_size, QString());
    QCOMPARE(child<QTableWidget>("twProps")->item(0, 1)->text(), QStringLiteral("Name"));
}

void TestWizard::expectAddressRefused()
{
    expectRefusal(
        QStringLiteral("The device address cannot contain a quote or a control character."));
    if (QTest::currentTestFailed())
        return;
    QCOMPARE(record.win_driver, QString());
    QVERIFY(record.path().isEmpty());
    QCOMPARE(child<QTableWidget>("twProps")->item(3, 1)->text(), QStringLiteral("Connection"));
}

void TestWizard::usbAddressThatWouldLeaveItsQuotesIsRefused_data()
{
    // What a USB device says about itself ends up in the device list cache as it is.
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("quote in the maker") << QByteArray("direct usb://Evil';touch /tmp/owned;'/X");
    QTest::newRow("escape sequence") << QByteArray("direct usb://Acme/\x1b[2JLaser");
    QTest::newRow("C1 control character") << QByteArray("direct usb://Acme/\xc2\x9bLaser");
}

void TestWizard::usbAddressThatWouldLeaveItsQuotesIsRefused()
{
    QFETCH(QByteArray, line);
    QVERIFY(sandbox::writeFile(lpinfoCache, "network socket\n" + line + "\n"));
    open(false);
    setName(QStringLiteral("Desk"));
    expectAddressRefused();
    if (QTest::currentTestFailed())
        return;
    QCOMPARE(record.name, QStringLiteral("Printer"));
    // The admin can still leave; nothing else happens.
    child<QPushButton>("bCancel")->click();
    QVERIFY(!wizard->submitted);
}

void TestWizard::storedUsbRecordWithAQuoteIsRefusedWhenTheListStillOffersIt()
{
    const QByteArray quoted = "usb://Evil';touch /tmp/owned;'/X";
    QVERIFY(sandbox::writeFile(lpinfoCache, "direct " + quoted + "\n"));
    record.name = QStringLiteral("Hall");
    record.device_uri = QString::fromLatin1(quoted);
    record.ppd = pcl4Ppd;
    open(true);
    QVERIFY(child<QRadioButton>("b_radioButtonUSB")->isChecked());
    expectRefusal(
        QStringLiteral("The device address cannot contain a quote or a control character."));
}

void TestWizard::typedHostOrQueueGoesIntoTheCommandAsTyped_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("host");
    QTest::addColumn<QString>("queue");
    QTest::addColumn<QString>("address");
    QTest::newRow("socket host with a quote") << QStringLiteral("socket") << QStringLiteral("ho'st")
                                              << QString() << QStringLiteral("socket://ho'st:9100");
    QTest::newRow("socket host with a control character")
        << QStringLiteral("socket") << QStringLiteral("ho\x1bst") << QString()
        << QStringLiteral("socket://ho\x1bst:9100");
    QTest::newRow("lpd host with a quote")
        << QStringLiteral("lpd") << QStringLiteral("ho'st") << QStringLiteral("lp")
        << QStringLiteral("lpd://ho'st/lp");
    QTest::newRow("lpd queue with a quote")
        << QStringLiteral("lpd") << QStringLiteral("host") << QStringLiteral("q'ueue")
        << QStringLiteral("lpd://host/q'ueue");
}

void TestWizard::typedHostOrQueueGoesIntoTheCommandAsTyped()
{
    QFETCH(QString, kind);
    QFETCH(QString, host);
    QFETCH(QString, queue);
    QFETCH(QString, address);
    open(false);
    setName(QStringLiteral("Lab"));
    if (kind == QLatin1String("socket")) {
        child<QRadioButton>("b_radioButtonRAW")->click();
    } else {
        child<QRadioButton>("b_radioButtonLPD")->click();
        child<QLineEdit>("leQueue_2")->setText(queue);
    }
    // Set rather than typed: a control character cannot be typed into a line edit.
    child<QLineEdit>("leName_4")->setText(host);
    {
        // A refusal would open a modal message box that nothing here answers.
        Watchdog guard("Next with a typed address (a message box?)", 20);
        child<QPushButton>("bNext")->click();
    }
    QCOMPARE(child<QStackedWidget>("stack")->currentIndex(), 8);
    QCOMPARE(record.device_uri, address);
    QCOMPARE(record.name, QStringLiteral("Lab"));

    // The queue is made with the address between its quotes, as typed.
    ShellRecorder shell;
    record.Install();
    QCOMPARE(
        shell.commands().value(0),
        QStringLiteral("lpadmin  -p Lab -D 'Lab' -v '%1' -P '%2' -E").arg(address, record.ppd));
}

void TestWizard::storedNetworkAddressWithAQuoteIsKeptWhenEdited()
{
    // An address of another kind than the wizard builds is the administrator's: Next
    // keeps it as it is.
    const QString stored = QStringLiteral("ipp://host/printers/x'y");
    record.name = QStringLiteral("Hall");
    record.device_uri = stored;
    record.ppd = pcl4Ppd;
    open(true);
    {
        Watchdog guard("Next with a stored network address (a message box?)", 20);
        child<QPushButton>("bNext")->click();
    }
    QCOMPARE(child<QStackedWidget>("stack")->currentIndex(), 8);
    QCOMPARE(record.device_uri, stored);
}

void TestWizard::nameWithUnderscorePasses()
{
    open(false);
    setName(QStringLiteral("my_printer"));
    child<QPushButton>("bNext")->click();
    QCOMPARE(child<QStackedWidget>("stack")->currentIndex(), 8);
    QCOMPARE(record.name, QStringLiteral("my_printer"));
    QVERIFY(record.path().endsWith(QStringLiteral("/my_printer.pr")));
}

void TestWizard::tabsAndEmptyNamesPass_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("empty") << QString();
    QTest::newRow("tab") << QStringLiteral("my\tprinter");
}

void TestWizard::tabsAndEmptyNamesPass()
{
    QFETCH(QString, name);
    open(false);
    // A tab cannot be typed into a line edit (it moves the focus), so it is set.
    child<QLineEdit>("leName_2")->setText(name);
    child<QPushButton>("bNext")->click();
    QCOMPARE(child<QStackedWidget>("stack")->currentIndex(), 8);
    QCOMPARE(record.name, name);
    QCOMPARE(child<QTableWidget>("twProps")->item(0, 1)->text(), name);
}

void TestWizard::nextSavesPreferencesIntoRecordAndSummary()
{
    open(false);
    setName(QStringLiteral("Front"));
    child<QRadioButton>("b_radioButtonRAW")->click();
    QTest::keyClicks(child<QLineEdit>("leName_4"), QStringLiteral("192.168.1.20"));
    child<QComboBox>("cbCUPSdrv")->setCurrentIndex(1);
    child<QComboBox>("cbPaperSize")->setCurrentIndex(1);
    QTest::keyClicks(child<QLineEdit>("leWinDriver"), QStringLiteral("HP OfficeJet"));
    child<QCheckBox>("cbDefaultSession")->setChecked(true);

    child<QPushButton>("bNext")->click();

    QCOMPARE(record.name, QStringLiteral("Front"));
    QCOMPARE(record.model, QStringLiteral("Printer"));
    QCOMPARE(record.device_uri, QStringLiteral("socket://192.168.1.20:9100"));
    QCOMPARE(record.printer_class, QStringLiteral("network"));
    QCOMPARE(record.ppd, builtinDrivers.at(1));
    QCOMPARE(record.paper_size, QStringLiteral("A4")); // second size of the PCL Color file
    QCOMPARE(record.win_driver, QStringLiteral("HP OfficeJet"));
    QVERIFY(record.default_vdi_printer);
    QVERIFY(record.IsDefault());
    QCOMPARE(Printer::defaultPrinterName(), QStringLiteral("Front"));
    QVERIFY(record.path().endsWith(QStringLiteral("/Front.pr")));

    auto *table = child<QTableWidget>("twProps");
    const QStringList values = {
        "Front", builtinDrivers.at(1), "HP OfficeJet", "socket://192.168.1.20:9100", "Yes", "A4"};
    for (int row = 0; row < values.size(); ++row)
        QCOMPARE(table->item(row, 1)->data(Qt::DisplayRole).toString(), values.at(row));
    QCOMPARE(table->item(4, 0)->text(), QStringLiteral("Default"));

    QCOMPARE(child<QStackedWidget>("stack")->currentIndex(), 8);
    QVERIFY(child<QPushButton>("bNext")->isHidden());
    QVERIFY(!child<QPushButton>("bSubmit")->isHidden());
    QVERIFY(!child<QPushButton>("bBack")->isHidden());
}

void TestWizard::summaryShowsYesWhenAlreadyDefaultWithBoxUnchecked()
{
    Printer::setDefaultPrinterName(QStringLiteral("Office"));
    record.name = QStringLiteral("Office");
    record.ppd = builtinDrivers.at(0);
    open(true);
    child<QCheckBox>("cbDefault")->setChecked(false);
    child<QPushButton>("bNext")->click();
    QCOMPARE(child<QTableWidget>("twProps")->item(4, 1)->text(), QStringLiteral("Yes"));
    QCOMPARE(Printer::defaultPrinterName(), QStringLiteral("Office"));
}

void TestWizard::uncheckedDefaultOnOtherPrinterShowsNoAndKeepsDefault()
{
    Printer::setDefaultPrinterName(QStringLiteral("Office"));
    open(false);
    setName(QStringLiteral("Second"));
    child<QCheckBox>("cbDefault")->setChecked(false);
    child<QPushButton>("bNext")->click();
    QCOMPARE(child<QTableWidget>("twProps")->item(4, 1)->text(), QStringLiteral("No"));
    QCOMPARE(Printer::defaultPrinterName(), QStringLiteral("Office"));
}

void TestWizard::backOnSummaryReturnsToPreferencesWithBackHidden()
{
    open(false);
    auto *stack = child<QStackedWidget>("stack");
    auto *back = child<QPushButton>("bBack");
    auto *next = child<QPushButton>("bNext");
    auto *ok = child<QPushButton>("bSubmit");

    next->click();
    QCOMPARE(stack->currentIndex(), 8);
    QVERIFY(!back->isHidden());

    back->click();
    QCOMPARE(stack->currentIndex(), 7);
    QVERIFY(back->isHidden());
    QVERIFY(!next->isHidden());
    QVERIFY(ok->isHidden());

    // A second Next saves the fields again.
    setName(QStringLiteral("Renamed"));
    next->click();
    QCOMPARE(stack->currentIndex(), 8);
    QVERIFY(!back->isHidden());
    QVERIFY(next->isHidden());
    QCOMPARE(record.name, QStringLiteral("Renamed"));

    // Next on the last page leaves it there.
    wizard->next();
    QCOMPARE(stack->currentIndex(), 8);
}

void TestWizard::closeButtonIsIgnoredUntilOkOrCancel()
{
    open(false);
    wizard->show();
    QVERIFY(QTest::qWaitForWindowExposed(wizard.get()));

    QCloseEvent event;
    QApplication::sendEvent(wizard.get(), &event);
    QVERIFY(!event.isAccepted());
    QVERIFY(!wizard->close());
    QVERIFY(wizard->isVisible());

    child<QPushButton>("bCancel")->click();
    QVERIFY(!wizard->isVisible());
    QCOMPARE(wizard->result(), int(QDialog::Rejected));

    QCloseEvent later;
    QApplication::sendEvent(wizard.get(), &later);
    QVERIFY(later.isAccepted());
}

void TestWizard::okEndsWithSubmittedAndAccepted()
{
    open(false);
    bool stillOpen = false;
    bool closedByOk = false;
    auto useOk = [&](QWidget *modal) {
        QCOMPARE(modal, static_cast<QWidget *>(wizard.get()));
        // The close button does nothing while the wizard runs.
        wizard->close();
        stillOpen = wizard->isVisible();
        child<QPushButton>("bNext")->click();
        child<QPushButton>("bSubmit")->click();
        closedByOk = !wizard->isVisible();
    };
    int result = -1;
    QVERIFY(answerModal([&] { result = wizard->exec(); }, useOk));
    QVERIFY(stillOpen);
    // OK itself closed the wizard; the helper did not have to.
    QVERIFY(closedByOk);
    QCOMPARE(result, int(QDialog::Accepted));
    QVERIFY(wizard->submitted);
    QVERIFY(!wizard->isVisible());
}

void TestWizard::cancelAfterNextLeavesSubmittedFalse()
{
    open(false);
    bool closedByCancel = false;
    auto nextThenCancel = [&](QWidget *modal) {
        QCOMPARE(modal, static_cast<QWidget *>(wizard.get()));
        setName(QStringLiteral("Changed"));
        child<QPushButton>("bNext")->click();
        child<QPushButton>("bCancel")->click();
        closedByCancel = !wizard->isVisible();
    };
    int result = -1;
    QVERIFY(answerModal([&] { result = wizard->exec(); }, nextThenCancel));
    // Cancel itself closed the wizard; the helper did not have to.
    QVERIFY(closedByCancel);
    QCOMPARE(result, int(QDialog::Rejected));
    QVERIFY(!wizard->submitted);
    // The record keeps what Next wrote; the caller stores nothing without submitted.
    QCOMPARE(record.name, QStringLiteral("Changed"));
}

QTEST_MAIN(TestWizard)
#include "tst_wizard.moc"
