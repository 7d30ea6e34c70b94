// The wizard's pages before the preferences page: start, discovery, available printers,
// address, and the manufacturer, model and driver lists filled from a driver catalogue.
// The dialog opens on the preferences page, so each test makes its page current itself
// and then drives Next and Back.
#include "common/paths.h"
#include "ui/wizarddlg.h"

#include "drivers/ppdset.h"
#include "printer/printer.h"
#include "support/catalogue.h"
#include "support/sandbox.h"
#include "support/widgets.h"

#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSpinBox>
#include <QStackedWidget>
#include <QtTest>

#include <memory>

namespace {

const QString folder = QStringLiteral("/tmp/wizardpages");
const QString database = folder + QStringLiteral("/drivers.db");
const QString ppdFolder = folder + QStringLiteral("/ppd");
const QString betaModel2 = ppdFolder + QStringLiteral("/beta/b2.ppd");
const QString betaModel2Alt = ppdFolder + QStringLiteral("/beta/b2x.ppd");

enum Page { Start, Discovery, Available, Add, Manu, Model, Driver, Pref, Finish };

QStringList texts(const QListWidget *list)
{
    QStringList all;
    for (int i = 0; i < list->count(); ++i)
        all << list->item(i)->text();
    return all;
}

QString currentText(const QListWidget *list)
{
    return list->currentItem() ? list->currentItem()->text() : QString();
}

} // namespace

class TestWizardPages : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void namedPagesAreTheFormsPagesInOrder();
    void updateButtonsFollowsPageIndex_data();
    void updateButtonsFollowsPageIndex();
    void startNextInAddModeGoesToDiscoveryAndHidesAllButtons();
    void startNextInEditModeShowsAddressOfStoredDevice_data();
    void startNextInEditModeShowsAddressOfStoredDevice();
    void discoveryNextShowsAvailablePrinters();
    void availableNextTakesCurrentConnection();
    void availableNextWithoutCurrentItemJustAdvances();
    void backOnAvailablePrintersDoesNothing();
    void backOnAddressPageInEditModeReturnsToStart();
    void backStepsThroughPagesInAddMode();

    void emptyCatalogueLeavesListsEmptyAndPagesStillAdvance();
    void editedPrintersCatalogueEntryIsPreselected();
    void ppdOutsideCataloguePreselectsFirstRows();
    void listsAreSortedAndKeepDuplicates();
    void returningToListPageRefillsAndKeepsEarlierChoice();
    void driverPageStoresChosenDriverAndFillsEmptyFields();

private:
    template <typename T> T *child(const char *name) const
    {
        return requireChild<T>(wizard.get(), name);
    }
    void open(bool edit);
    void loadCatalogue();
    QStackedWidget *stack() const { return child<QStackedWidget>("stack"); }
    void checkButtons(bool next, bool ok, bool back) const;

    PPDSet catalogue;
    Printer record;
    std::unique_ptr<WizardDlg> wizard;
};

void TestWizardPages::initTestCase()
{
    REQUIRE_SANDBOX();
    QVERIFY(sandbox::writeFile(paths::lpinfoCache(), "direct usb://Acme/One\n"));
}

void TestWizardPages::init()
{
    Printer::setDefaultPrinterName(QString());
    record = Printer();
}

void TestWizardPages::cleanup()
{
    wizard.reset();
    freeCatalogue(catalogue);
    catalogue.clear();
    sandbox::removePath(folder);
}

void TestWizardPages::open(bool edit)
{
    wizard.reset(new WizardDlg(&catalogue, &record, edit));
}

void TestWizardPages::loadCatalogue()
{
    // Catalogue order differs from sorted order on purpose; Beta's "Model 2" has two drivers.
    QVERIFY(sandbox::writeFile(database, ppdFolder.toUtf8() +
                                             "\n"
                                             "gamma/g1.ppd;Gamma;G-Model;Gamma Driver\n"
                                             "beta/b2.ppd;Beta;Model 2;Driver B\n"
                                             "beta/b1.ppd;Beta;Model 1;Driver A\n"
                                             "beta/b2x.ppd;Beta;Model 2;Driver A2\n"
                                             "alpha/a1.ppd;Alpha;A-Model;Alpha Driver\n"));
    for (const char *file :
         {"gamma/g1.ppd", "beta/b2.ppd", "beta/b1.ppd", "beta/b2x.ppd", "alpha/a1.ppd"}) {
        QVERIFY(sandbox::writeFile(ppdFolder + QLatin1Char('/') + QLatin1String(file),
                                   "*PageSize A4/A4: \"\"\n*PageSize Letter/Letter: \"\"\n"));
    }
    catalogue.addDatabase(database);
    catalogue.readDatabases();
    QCOMPARE(catalogue.ppds.size(), 5);
}

void TestWizardPages::checkButtons(bool next, bool ok, bool back) const
{
    QCOMPARE(!child<QPushButton>("bNext")->isHidden(), next);
    QCOMPARE(!child<QPushButton>("bSubmit")->isHidden(), ok);
    QCOMPARE(!child<QPushButton>("bBack")->isHidden(), back);
}

void TestWizardPages::namedPagesAreTheFormsPagesInOrder()
{
    open(false);
    const QList<QPair<const char *, int>> pages = {
        {"pwStart", WizardDlg::StartPage},         {"pwDiscovery", WizardDlg::DiscoveryPage},
        {"pwAvailable", WizardDlg::AvailablePage}, {"pwAdd", WizardDlg::AddPage},
        {"pwManu", WizardDlg::ManufacturerPage},   {"pwModel", WizardDlg::ModelPage},
        {"pwDriver", WizardDlg::DriverPage},       {"pwPref", WizardDlg::PreferencesPage},
        {"pwFinish", WizardDlg::SummaryPage}};
    for (const auto &page : pages)
        QCOMPARE(stack()->indexOf(child<QWidget>(page.first)), page.second);
    QCOMPARE(stack()->count(), int(WizardDlg::SummaryPage) + 1);
}

void TestWizardPages::updateButtonsFollowsPageIndex_data()
{
    QTest::addColumn<int>("page");
    for (int page = Start; page <= Finish; ++page)
        QTest::newRow(qPrintable(QString::number(page))) << page;
}

void TestWizardPages::updateButtonsFollowsPageIndex()
{
    QFETCH(int, page);
    open(false);
    stack()->setCurrentIndex(page);
    wizard->updateButtons();
    // Next everywhere but on the last page, OK only there, Back from the third page on.
    checkButtons(page != Finish, page == Finish, page > Discovery);
}

void TestWizardPages::startNextInAddModeGoesToDiscoveryAndHidesAllButtons()
{
    open(false);
    stack()->setCurrentIndex(Start);
    wizard->updateButtons();
    wizard->next();
    QCOMPARE(stack()->currentIndex(), int(Discovery));
    checkButtons(false, false, false);
}

void TestWizardPages::startNextInEditModeShowsAddressOfStoredDevice_data()
{
    QTest::addColumn<QString>("uri");
    QTest::addColumn<QString>("host");  // empty: host fields hidden
    QTest::addColumn<int>("port");      // 0: port fields hidden
    QTest::addColumn<QString>("queue"); // empty: queue fields hidden
    QTest::addColumn<QString>("printerClass");

    QTest::newRow("socket") << "socket://10.1.2.3:9200"
                            << "10.1.2.3" << 9200 << ""
                            << "network";
    QTest::newRow("socket without port") << "socket://printer"
                                         << "printer" << 9100 << ""
                                         << "network";
    QTest::newRow("lpd") << "lpd://srv/q%201"
                         << "srv" << 0 << "q 1"
                         << "network";
    QTest::newRow("usb") << "usb://Acme/One"
                         << "" << 0 << ""
                         << "direct";
}

void TestWizardPages::startNextInEditModeShowsAddressOfStoredDevice()
{
    QFETCH(QString, uri);
    QFETCH(QString, host);
    QFETCH(int, port);
    QFETCH(QString, queue);
    QFETCH(QString, printerClass);

    record.name = QStringLiteral("Office");
    record.model = QStringLiteral("Laser");
    record.device_uri = uri;
    record.ppd = builtinDrivers.at(0);
    open(true);
    record.printer_class.clear();
    stack()->setCurrentIndex(Start);
    wizard->next();

    QCOMPARE(stack()->currentIndex(), int(Add));
    checkButtons(true, false, true);
    QCOMPARE(child<QLineEdit>("leName")->text(), QStringLiteral("Laser"));
    QVERIFY(!child<QLineEdit>("leName")->isEnabled());
    QCOMPARE(record.model, QStringLiteral("Laser"));
    QCOMPARE(record.printer_class, printerClass);

    QCOMPARE(!child<QLabel>("lHost")->isHidden(), !host.isEmpty());
    QCOMPARE(!child<QLineEdit>("leHost")->isHidden(), !host.isEmpty());
    QCOMPARE(!child<QLabel>("lPort")->isHidden(), port != 0);
    QCOMPARE(!child<QSpinBox>("sbPort")->isHidden(), port != 0);
    QCOMPARE(!child<QLabel>("lQueue")->isHidden(), !queue.isEmpty());
    QCOMPARE(!child<QLineEdit>("leQueue")->isHidden(), !queue.isEmpty());
    if (!host.isEmpty())
        QCOMPARE(child<QLineEdit>("leHost")->text(), host);
    if (port != 0)
        QCOMPARE(child<QSpinBox>("sbPort")->value(), port);
    if (!queue.isEmpty())
        QCOMPARE(child<QLineEdit>("leQueue")->text(), queue);
}

void TestWizardPages::discoveryNextShowsAvailablePrinters()
{
    open(false);
    stack()->setCurrentIndex(Discovery);
    wizard->next();
    QCOMPARE(stack()->currentIndex(), int(Available));
    checkButtons(true, false, true);
}

void TestWizardPages::availableNextTakesCurrentConnection()
{
    open(false);
    stack()->setCurrentIndex(Available);
    record.printer_class.clear();
    wizard->next();
    QCOMPARE(stack()->currentIndex(), int(Add));
    QCOMPARE(child<QLineEdit>("leName")->text(), QStringLiteral("USB printer"));
    QVERIFY(child<QLineEdit>("leName")->isEnabled());
    QCOMPARE(record.model, QStringLiteral("USB printer"));
    // A USB address shows no host, port or queue.
    QVERIFY(child<QLineEdit>("leHost")->isHidden());
    QVERIFY(child<QSpinBox>("sbPort")->isHidden());
    QVERIFY(child<QLineEdit>("leQueue")->isHidden());
    QCOMPARE(record.printer_class, QStringLiteral("direct"));
}

void TestWizardPages::availableNextWithoutCurrentItemJustAdvances()
{
    open(false);
    child<QListWidget>("lwAvailable")->clear();
    stack()->setCurrentIndex(Available);
    wizard->next();
    QCOMPARE(stack()->currentIndex(), int(Add));
    QCOMPARE(child<QLineEdit>("leName")->text(), QStringLiteral("Printer"));
    QCOMPARE(record.model, QStringLiteral("Printer"));
}

void TestWizardPages::backOnAvailablePrintersDoesNothing()
{
    open(false);
    stack()->setCurrentIndex(Available);
    wizard->updateButtons();
    QVERIFY(!child<QPushButton>("bBack")->isHidden());
    child<QPushButton>("bBack")->click();
    QCOMPARE(stack()->currentIndex(), int(Available));
    checkButtons(true, false, true);
}

void TestWizardPages::backOnAddressPageInEditModeReturnsToStart()
{
    record.name = QStringLiteral("Office");
    record.ppd = builtinDrivers.at(0);
    open(true);
    stack()->setCurrentIndex(Add);
    wizard->back();
    QCOMPARE(stack()->currentIndex(), int(Start));
    checkButtons(true, false, false);
}

void TestWizardPages::backStepsThroughPagesInAddMode()
{
    open(false);
    stack()->setCurrentIndex(Driver);
    wizard->back();
    QCOMPARE(stack()->currentIndex(), int(Model));
    wizard->back();
    QCOMPARE(stack()->currentIndex(), int(Manu));
    wizard->back();
    QCOMPARE(stack()->currentIndex(), int(Add));
    checkButtons(true, false, true);
    wizard->back();
    QCOMPARE(stack()->currentIndex(), int(Available));

    stack()->setCurrentIndex(Discovery);
    wizard->back();
    QCOMPARE(stack()->currentIndex(), int(Start));
    checkButtons(true, false, false);
    // There is nothing before the first page.
    wizard->back();
    QCOMPARE(stack()->currentIndex(), int(Start));
}

void TestWizardPages::emptyCatalogueLeavesListsEmptyAndPagesStillAdvance()
{
    open(false);
    const QString ppdBefore = record.ppd;
    stack()->setCurrentIndex(Add);

    wizard->next();
    QCOMPARE(stack()->currentIndex(), int(Manu));
    QCOMPARE(child<QListWidget>("lwManu")->count(), 0);
    checkButtons(true, false, true);
    wizard->next();
    QCOMPARE(stack()->currentIndex(), int(Model));
    QCOMPARE(child<QListWidget>("lwModel")->count(), 0);
    wizard->next();
    QCOMPARE(stack()->currentIndex(), int(Driver));
    QCOMPARE(child<QListWidget>("lwDriver")->count(), 0);
    wizard->next();
    QCOMPARE(stack()->currentIndex(), int(Pref));
    // No driver item, so the record's driver stays.
    QCOMPARE(record.ppd, ppdBefore);
    QCOMPARE(child<QLineEdit>("leWinDriver")->text(), QString());
    checkButtons(true, false, true);
}

void TestWizardPages::editedPrintersCatalogueEntryIsPreselected()
{
    loadCatalogue();
    record.name = QStringLiteral("Office");
    record.ppd = betaModel2;
    open(true);
    stack()->setCurrentIndex(Add);

    wizard->next();
    QCOMPARE(currentText(child<QListWidget>("lwManu")), QStringLiteral("Beta"));
    wizard->next();
    QCOMPARE(currentText(child<QListWidget>("lwModel")), QStringLiteral("Model 2"));
    wizard->next();
    auto *drivers = child<QListWidget>("lwDriver");
    QCOMPARE(currentText(drivers), QStringLiteral("Driver B"));
    QCOMPARE(drivers->currentItem()->data(Qt::UserRole).toString(), betaModel2);

    // Choosing the other driver of the model makes it the record's driver.
    drivers->setCurrentRow(0);
    QCOMPARE(currentText(drivers), QStringLiteral("Driver A2"));
    wizard->next();
    QCOMPARE(stack()->currentIndex(), int(Pref));
    QCOMPARE(record.ppd, betaModel2Alt);
    QCOMPARE(child<QLineEdit>("leWinDriver")->text(), QStringLiteral("Model 2"));
}

void TestWizardPages::ppdOutsideCataloguePreselectsFirstRows()
{
    loadCatalogue();
    record.name = QStringLiteral("Labels");
    record.ppd = builtinDrivers.at(10);
    open(true);
    stack()->setCurrentIndex(Add);
    wizard->next();
    QCOMPARE(child<QListWidget>("lwManu")->currentRow(), 0);
    QCOMPARE(currentText(child<QListWidget>("lwManu")), QStringLiteral("Alpha"));
    wizard->next();
    QCOMPARE(currentText(child<QListWidget>("lwModel")), QStringLiteral("A-Model"));
    wizard->next();
    QCOMPARE(currentText(child<QListWidget>("lwDriver")), QStringLiteral("Alpha Driver"));
}

void TestWizardPages::listsAreSortedAndKeepDuplicates()
{
    loadCatalogue();
    open(false);
    stack()->setCurrentIndex(Add);
    wizard->next();
    QCOMPARE(texts(child<QListWidget>("lwManu")), QStringList({"Alpha", "Beta", "Gamma"}));
    child<QListWidget>("lwManu")->setCurrentRow(1);
    wizard->next();
    // One model item per driver of the catalogue.
    QCOMPARE(texts(child<QListWidget>("lwModel")), QStringList({"Model 1", "Model 2", "Model 2"}));
    child<QListWidget>("lwModel")->setCurrentRow(2);
    wizard->next();
    QCOMPARE(texts(child<QListWidget>("lwDriver")), QStringList({"Driver A2", "Driver B"}));
}

void TestWizardPages::returningToListPageRefillsAndKeepsEarlierChoice()
{
    loadCatalogue();
    open(false);
    stack()->setCurrentIndex(Add);
    wizard->next();
    auto *manufacturers = child<QListWidget>("lwManu");
    auto *models = child<QListWidget>("lwModel");
    manufacturers->setCurrentRow(1); // Beta
    wizard->next();
    models->setCurrentRow(1); // Model 2
    wizard->next();
    QCOMPARE(stack()->currentIndex(), int(Driver));

    child<QPushButton>("bBack")->click();
    child<QPushButton>("bBack")->click();
    QCOMPARE(stack()->currentIndex(), int(Manu));
    models->setCurrentRow(0);
    wizard->next();
    QCOMPARE(models->count(), 3);
    QCOMPARE(currentText(models), QStringLiteral("Model 2"));
    QCOMPARE(models->currentRow(), 1);

    // Back on the address page the manufacturer list is refilled with Beta kept.
    child<QPushButton>("bBack")->click();
    child<QPushButton>("bBack")->click();
    QCOMPARE(stack()->currentIndex(), int(Add));
    manufacturers->setCurrentRow(2);
    wizard->next();
    QCOMPARE(manufacturers->count(), 3);
    QCOMPARE(currentText(manufacturers), QStringLiteral("Beta"));

    // A manufacturer without the chosen model starts on its first model.
    manufacturers->setCurrentRow(2); // Gamma
    wizard->next();
    QCOMPARE(texts(models), QStringList({"G-Model"}));
    QCOMPARE(models->currentRow(), 0);
}

void TestWizardPages::driverPageStoresChosenDriverAndFillsEmptyFields()
{
    loadCatalogue();
    open(false);
    // A new record's name and model are both "Printer" now; the model comes from the
    // address page, which is what Next on the driver page falls back on.
    record.model = QStringLiteral("Acme Model");
    stack()->setCurrentIndex(Add);
    wizard->next();
    child<QListWidget>("lwManu")->setCurrentRow(0); // Alpha
    wizard->next();
    wizard->next();
    child<QLineEdit>("leName")->clear();
    wizard->next();

    QCOMPARE(stack()->currentIndex(), int(Pref));
    // Back was hidden and then shown again by the page change.
    checkButtons(true, false, true);
    QCOMPARE(record.ppd, ppdFolder + QStringLiteral("/alpha/a1.ppd"));
    QCOMPARE(child<QLineEdit>("leName")->text(), QStringLiteral("Acme Model"));
    QCOMPARE(child<QLineEdit>("leWinDriver")->text(), QStringLiteral("A-Model"));

    // Saving the preferences replaces the catalogue driver by the built-in one.
    wizard->next();
    QCOMPARE(stack()->currentIndex(), int(Finish));
    QCOMPARE(record.ppd, builtinDrivers.at(0));
    QCOMPARE(record.win_driver, QStringLiteral("A-Model"));
}

QTEST_MAIN(TestWizardPages)
#include "tst_wizardpages.moc"
