#include "ui/wizarddlg.h"

#include "common/paths.h"
#include "drivers/pagesize.h"
#include "drivers/ppdset.h"
#include "printer/device.h"
#include "printer/deviceaddress.h"
#include "printer/printer.h"
#include "ui/windowchrome.h"

#include <QCloseEvent>
#include <QDebug>
#include <QIcon>
#include <QListWidget>
#include <QListWidgetItem>
#include <QMessageBox>
#include <QTableWidgetItem>

namespace {

const QString networkClass = QStringLiteral("network");
const QString directClass = QStringLiteral("direct");
const QString usbMarker = QStringLiteral("usb: ");
const QString lpdMarker = QStringLiteral("lpd: ");
const QString socketMarker = QStringLiteral("socket: ");

// A new printer has no driver yet; its paper sizes are read from the PCL 4 file. Next
// on the preferences page then stores entry 0 of the built-in table, which is the PCL 5e
// driver: the two differ on purpose.
const QString newPrinterPpd = paths::newPrinterPaperSizesPpd();

// Labels of the summary table, by row; also the first values of its second column.
const QStringList summaryLabels = {QStringLiteral("Name"),           QStringLiteral("CUPS Driver"),
                                   QStringLiteral("Windows Driver"), QStringLiteral("Connection"),
                                   QStringLiteral("Default"),        QStringLiteral("Paper Size")};

} // namespace

WizardDlg::WizardDlg(PPDSet *catalogue, Printer *printer, bool edit)
    : QDialog(nullptr)
    , loader(nullptr)
{
    setupUi(this);
    setWindowFlags(Qt::Dialog);
    setFixedSize(size());
    setStyleSheet(windowchrome::loadStyleSheet());

    this->catalogue = catalogue;
    this->printer = printer;
    editMode = edit;
    mayClose = false;
    submitted = false;

    lwManu->setSortingEnabled(true);
    lwModel->setSortingEnabled(true);
    lwDriver->setSortingEnabled(true);

    cbDefault->setChecked(true);
    cbDefaultSession->setChecked(printer->default_vdi_printer);

    if (editMode) {
        if (const PPD *entry = catalogue ? catalogue->findByPath(printer->ppd) : nullptr) {
            selManufacturer = entry->manufacturer;
            selModel = entry->model;
            selDriver = entry->driver;
        }
        leWinDriver->setText(printer->win_driver);
        printerModel = printer->model;
        deviceUri = printer->device_uri;
    }

    setupSummary();
    discovered();

    if (editMode) {
        // The name is the file name and the queue name; an edit keeps both.
        leName_2->setEnabled(false);
        setupConnection();
        updateButtons();
    }

    stack->setCurrentWidget(pwPref);
    bBack->hide();

    if (!printer->name.isEmpty()) {
        leName_2->setText(printer->name);
        leName->setText(printer->name);
    } else {
        printer->name = QStringLiteral("Printer");
        printer->model = QStringLiteral("Printer");
        leName_2->setText(printer->name);
        leName->setText(printer->name);
    }

    restoreConnection();

    if (!printer->ppd.isEmpty()) {
        for (int i = 0; i < builtinDrivers.size() && !builtinDrivers.at(i).isEmpty(); ++i) {
            if (builtinDrivers.at(i) == printer->ppd) {
                cbCUPSdrv->setCurrentIndex(i);
                break;
            }
        }
    } else {
        cbCUPSdrv->setCurrentIndex(0);
        printer->ppd = newPrinterPpd;
    }

    loadPaperSizes();

    qDebug().noquote() << "WizardDlg::WizardDlg - stored paper size:" << printer->paper_size;
    for (int i = 0; i < cbPaperSize->count(); ++i) {
        if (cbPaperSize->itemText(i) == printer->paper_size) {
            cbPaperSize->setCurrentIndex(i);
            break;
        }
    }

    setWindowTitle(editMode ? QStringLiteral("Printer Configuration")
                            : QStringLiteral("Printer Configuration Wizard"));
    setWindowIcon(QIcon(windowchrome::windowIconPath()));
    centerOnScreen();
}

// The loader member stops and joins its thread on destruction.
WizardDlg::~WizardDlg() = default;

void WizardDlg::centerOnScreen()
{
    windowchrome::centerOnScreen(this);
}

void WizardDlg::updateButtons()
{
    const int i = stack->currentIndex();
    const int n = stack->count();
    bNext->setVisible(i != n - 1);
    bSubmit->setVisible(i == n - 1);
    bBack->setVisible(i > DiscoveryPage);
}

void WizardDlg::advance()
{
    stack->setCurrentIndex(stack->currentIndex() + 1);
    updateButtons();
}

void WizardDlg::loadPaperSizes()
{
    qDebug().noquote() << "WizardDlg::loadPaperSizes - PPD:" << printer->ppd;
    cbPaperSize->clear();
    // The path comes from the record; only a regular file of at most 16 MiB is read.
    QStringList sizes;
    if (!paperSizesFromPpdFile(printer->ppd, &sizes)) {
        qDebug() << "Cant open file";
        return;
    }
    for (const QString &size : sizes) {
        qDebug().noquote() << "WizardDlg::loadPaperSizes - paper size:" << size;
        cbPaperSize->addItem(size);
    }
}

void WizardDlg::driverChanged(int newdriver)
{
    // The combo box only offers indices that exist in the table.
    qDebug().noquote() << "Driver chaning" << builtinDrivers.at(newdriver);
    printer->ppd = builtinDrivers.at(newdriver);
    loadPaperSizes();
}

void WizardDlg::setupSummary()
{
    twProps->setRowCount(summaryLabels.size());
    twProps->setColumnCount(2);
    for (int row = 0; row < summaryLabels.size(); ++row) {
        twProps->setItem(row, 0, new QTableWidgetItem(summaryLabels.at(row)));
        twProps->setItem(row, 1, new QTableWidgetItem(summaryLabels.at(row)));
    }
}

void WizardDlg::fillSummary()
{
    const QStringList values = {printer->name,
                                printer->ppd,
                                printer->win_driver,
                                printer->device_uri,
                                printer->IsDefault() ? QStringLiteral("Yes") : QStringLiteral("No"),
                                printer->paper_size};
    for (int row = 0; row < values.size(); ++row)
        twProps->item(row, 1)->setData(Qt::DisplayRole, values.at(row));
}

void WizardDlg::radioButtonUSB()
{
    leQueue_2->setEnabled(false);
    sbPort_2->setEnabled(false);
    leName_4->setEnabled(false);
    printer->printer_class = directClass;
    printer->device_uri = QStringLiteral("usb:/dev/usb/lp0");
    connectionType = usbMarker;
}

void WizardDlg::radioButtonLPD()
{
    leQueue_2->setEnabled(true);
    sbPort_2->setEnabled(false);
    leName_4->setEnabled(true);
    if (leQueue_2->text().isEmpty())
        leQueue_2->setText(QStringLiteral("lp"));
    // The address itself is built from the fields when Next is pressed.
    printer->printer_class = networkClass;
    connectionType = lpdMarker;
}

void WizardDlg::radioButtonRAW()
{
    leQueue_2->setEnabled(false);
    sbPort_2->setEnabled(true);
    leName_4->setEnabled(true);
    if (sbPort_2->value() == 0)
        sbPort_2->setValue(9100);
    printer->printer_class = networkClass;
    connectionType = socketMarker;
}

void WizardDlg::restoreConnection()
{
    const QString uri = printer->device_uri;
    qDebug().noquote() << "WizardDlg::restoreConnection - stored device:" << uri;
    const DeviceAddress stored = DeviceAddress::fromStored(uri);
    if (stored.kind == DeviceAddress::Usb) {
        b_radioButtonUSB->setChecked(true);
        radioButtonUSB();
        // A USB address goes stale when another printer is plugged in: use the one there now.
        printer->device_uri = printer->GetPrinterDevice();
    } else if (stored.kind == DeviceAddress::Lpd) {
        b_radioButtonLPD->setChecked(true);
        leName_4->setText(stored.host);
        leQueue_2->setText(stored.queue);
        radioButtonLPD();
    } else if (stored.kind == DeviceAddress::Socket) {
        b_radioButtonRAW->setChecked(true);
        qDebug().noquote() << "socket : " + uri;
        leName_4->setText(stored.host);
        sbPort_2->setValue(stored.port);
        radioButtonRAW();
    }
    // Any other address leaves the connection unchosen; Next then uses the local device.
}

QString WizardDlg::connectionAddress() const
{
    switch (DeviceAddress::kindOfConnectionType(connectionType)) {
    case DeviceAddress::Socket:
        return DeviceAddress::socket(leName_4->text(), sbPort_2->value()).uri();
    case DeviceAddress::Lpd:
        return DeviceAddress::lpd(leName_4->text(), leQueue_2->text()).uri();
    default:
        return printer->GetPrinterDevice();
    }
}

void WizardDlg::storeConnection(const QString &address)
{
    printer->device_uri = address;
    const bool network =
        DeviceAddress::isNetwork(DeviceAddress::kindOfConnectionType(connectionType));
    printer->printer_class = network ? networkClass : directClass;
}

void WizardDlg::setupConnection()
{
    leName->setEnabled(!editMode);
    leName->setText(printerModel);
    printer->model = printerModel;

    const DeviceAddress address = DeviceAddress::fromUrl(deviceUri);
    if (address.kind == DeviceAddress::Socket) {
        lHost->show();
        leHost->show();
        leHost->setText(address.host);
        lPort->show();
        sbPort->show();
        sbPort->setValue(address.port);
        lQueue->hide();
        leQueue->hide();
        printer->printer_class = networkClass;
    } else if (address.kind == DeviceAddress::Lpd) {
        lHost->show();
        leHost->show();
        leHost->setText(address.host);
        lPort->hide();
        sbPort->hide();
        lQueue->show();
        leQueue->show();
        leQueue->setText(address.queue);
        printer->printer_class = networkClass;
    } else {
        lHost->hide();
        leHost->hide();
        lPort->hide();
        sbPort->hide();
        lQueue->hide();
        leQueue->hide();
        printer->printer_class = directClass;
    }
}

void WizardDlg::discovered()
{
    qDebug() << "WizardDlg::discovered()";
    updateButtons();
    lwAvailable->clear();
    // No device search runs here: the local printer is the one connection offered.
    auto *item = new QListWidgetItem(QIcon(QStringLiteral(":/zeq-icons/printer/list-add.png")),
                                     QStringLiteral("USB printer"));
    item->setData(Qt::UserRole, printer->GetPrinterDevice());
    lwAvailable->addItem(item);
    lwAvailable->setCurrentRow(0);
}

void WizardDlg::preselect(QListWidget *list, const QString &wanted)
{
    const QList<QListWidgetItem *> found =
        list->findItems(wanted, Qt::MatchExactly | Qt::MatchCaseSensitive);
    if (!found.isEmpty())
        list->setCurrentItem(found.first());
    else
        list->setCurrentRow(0);
}

void WizardDlg::fillManufacturers()
{
    const QStringList manufacturers = catalogue ? catalogue->manufacturers() : QStringList();
    lwManu->clear();
    for (const QString &manufacturer : manufacturers)
        lwManu->addItem(manufacturer);
    preselect(lwManu, selManufacturer);
}

void WizardDlg::fillModels()
{
    const QListWidgetItem *current = lwManu->currentItem();
    if (!current)
        return;
    selManufacturer = current->text();
    lwModel->clear();
    const QStringList models = catalogue ? catalogue->models(selManufacturer) : QStringList();
    for (const QString &model : models)
        lwModel->addItem(model);
    preselect(lwModel, selModel);
}

void WizardDlg::fillDrivers()
{
    const QListWidgetItem *current = lwModel->currentItem();
    if (!current)
        return;
    selModel = current->text();
    lwDriver->clear();
    const QList<PPD *> entries =
        catalogue ? catalogue->drivers(selManufacturer, selModel) : QList<PPD *>();
    for (const PPD *entry : entries) {
        auto *item = new QListWidgetItem(entry->driver);
        item->setData(Qt::UserRole, entry->path);
        lwDriver->addItem(item);
    }
    preselect(lwDriver, selDriver);
}

void WizardDlg::next()
{
    QWidget *page = stack->currentWidget();

    if (page == pwStart) {
        if (editMode) {
            setupConnection();
            stack->setCurrentWidget(pwAdd);
            updateButtons();
        } else {
            // The discovery page shows no buttons while it searches.
            stack->setCurrentIndex(DiscoveryPage);
            bNext->setVisible(false);
            bSubmit->setVisible(false);
            bBack->setVisible(false);
        }
    } else if (page == pwAvailable) {
        if (const QListWidgetItem *item = lwAvailable->currentItem()) {
            printerModel = item->text();
            deviceUri = item->data(Qt::UserRole).toString();
            setupConnection();
        }
        advance();
    } else if (page == pwAdd) {
        fillManufacturers();
        advance();
    } else if (page == pwManu) {
        fillModels();
        advance();
    } else if (page == pwModel) {
        fillDrivers();
        advance();
    } else if (page == pwDriver) {
        const QListWidgetItem *item = lwDriver->currentItem();
        bBack->hide();
        if (item)
            printer->ppd = item->data(Qt::UserRole).toString();
        if (leName->text().isEmpty())
            leName->setText(printer->model);
        if (leWinDriver->text().isEmpty())
            leWinDriver->setText(selModel);
        advance();
    } else if (page == pwPref) {
        const QString name = leName_2->text();
        // Only the blank is refused: the name becomes a queue name and a file name.
        if (name.contains(QLatin1String(" "))) {
            QMessageBox::critical(this, QStringLiteral("Printer Configuration"),
                                  QStringLiteral("The printer name cannot contain spaces."),
                                  QMessageBox::Ok);
            leName_2->setFocus(Qt::OtherFocusReason);
            return;
        }
        // The address goes between quotes into a command run as root. A USB address from
        // the device list (a USB device's description of itself) or from a stored USB
        // record that could leave its quotes is refused here, before anything changes.
        // What the administrator typed into the host and queue fields goes as typed.
        const QString address = connectionAddress();
        if (!mayInstallDeviceUri(address)) {
            QMessageBox::critical(
                this, QStringLiteral("Printer Configuration"),
                QStringLiteral("The device address cannot contain a quote or a control character."),
                QMessageBox::Ok);
            if (leName_4->isEnabled())
                leName_4->setFocus(Qt::OtherFocusReason);
            return;
        }
        printer->name = name;
        deviceUri = printer->device_uri;
        if (printer->model.isEmpty())
            printer->model = selModel;
        qDebug().noquote() << "WizardDlg::next - connection:" << connectionType;
        storeConnection(address);
        printer->win_driver = leWinDriver->text();
        printer->paper_size = cbPaperSize->currentText();
        qDebug().noquote() << "WizardDlg::next - paper size:" << printer->paper_size;
        printer->default_vdi_printer = cbDefaultSession->isChecked();
        // An unchecked box leaves an existing default as it is.
        if (cbDefault->isChecked())
            printer->SetDefault();
        // The built-in choice wins over a driver picked from the catalogue.
        printer->ppd = builtinDrivers.at(cbCUPSdrv->currentIndex());
        fillSummary();
        printer->UpdatePath();
        advance();
    } else {
        advance();
    }
}

void WizardDlg::back()
{
    const int i = stack->currentIndex();
    // Back on the list of available printers deliberately does nothing.
    if (i == AvailablePage)
        return;
    if (stack->currentWidget() == pwAvailable) {
        stack->setCurrentWidget(pwStart);
        updateButtons();
    } else if (stack->currentWidget() == pwAdd && editMode) {
        stack->setCurrentWidget(pwStart);
        updateButtons();
    } else {
        stack->setCurrentIndex(i - 1);
        updateButtons();
        // The preferences page is the first page a user sees, so it has no Back.
        if (stack->currentIndex() == PreferencesPage)
            bBack->hide();
    }
}

void WizardDlg::submit()
{
    mayClose = true;
    submitted = true;
    setResult(QDialog::Accepted);
    close();
}

void WizardDlg::cancel()
{
    setResult(QDialog::Rejected);
    mayClose = true;
    close();
}

void WizardDlg::closeEvent(QCloseEvent *event)
{
    // The title bar's close button does nothing until OK or Cancel was used.
    event->setAccepted(mayClose);
}
