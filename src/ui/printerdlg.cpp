#include "ui/printerdlg.h"

#include "printer/deviceaddress.h"
#include "printer/printer.h"
#include "printer/staging.h"
#include "ui/windowchrome.h"
#include "ui/wizarddlg.h"

#include <QDebug>
#include <QHash>
#include <QIcon>
#include <QListWidgetItem>
#include <QMessageBox>
#include <QVariant>

#include <unistd.h>

namespace {

// Positions in PrinterDlg::itemIcons.
enum ItemIcon { LocalIcon, DefaultLocalIcon, NetworkIcon, DefaultNetworkIcon };

int itemIconIndex(const Printer &printer)
{
    if (printer.IsNetwork())
        return printer.IsDefault() ? DefaultNetworkIcon : NetworkIcon;
    return printer.IsDefault() ? DefaultLocalIcon : LocalIcon;
}

// What the item's picture shows, in words for a screen reader: how the printer is
// connected, in the wizard's own terms, and whether it is the default printer. The address
// itself is left out: it may carry a password.
QString itemDescription(const Printer &printer)
{
    QString connection;
    switch (DeviceAddress::fromStored(printer.device_uri).kind) {
    case DeviceAddress::Usb:
        connection = QStringLiteral("USB printer");
        break;
    case DeviceAddress::Lpd:
        connection = QStringLiteral("LPD/LPR printer");
        break;
    case DeviceAddress::Socket:
        connection = QStringLiteral("RAW printer");
        break;
    default:
        connection = printer.IsNetwork() ? QStringLiteral("network printer")
                                         : QStringLiteral("local printer");
        break;
    }
    return printer.IsDefault() ? connection + QStringLiteral(", the default printer") : connection;
}

} // namespace

PrinterDlg::PrinterDlg()
    : QMainWindow(nullptr)
{
    setupUi(this);
    setWindowFlags(Qt::Dialog);
    setFixedSize(width(), height());
    setStyleSheet(windowchrome::loadStyleSheet());

    // The catalogue only learns where its databases are; the window never reads them.
    ppdSet.addDatabase(paths::driverDatabase());
    ppdSet.addDatabase(paths::localDriverDatabase());

    wizard = nullptr;
    itemIcons[LocalIcon] = QIcon(QStringLiteral(":/zeq-icons/printer/local.png"));
    itemIcons[DefaultLocalIcon] = QIcon(QStringLiteral(":/zeq-icons/printer/deflocal.png"));
    itemIcons[NetworkIcon] = QIcon(QStringLiteral(":/zeq-icons/printer/net.png"));
    itemIcons[DefaultNetworkIcon] = QIcon(QStringLiteral(":/zeq-icons/printer/defnet.png"));
    updatePrinterList();

    setWindowTitle(QStringLiteral("Printer Configuration"));
    setWindowIcon(QIcon(windowchrome::windowIconPath()));
    centerOnScreen();
}

PrinterDlg::~PrinterDlg()
{
    delete wizard;
}

void PrinterDlg::updatePrinterList()
{
    const QHash<QString, Printer *> printers = Printer::GetPrinters();
    lwPrinters->clear();

    // The list as it was becomes the previous generation; the one before it goes.
    m_previousRecords = std::move(m_currentRecords);
    m_currentRecords.clear();
    m_currentRecords.reserve(size_t(printers.size()));

    // The hash's own order is the list's order; the names are deliberately not sorted.
    for (auto it = printers.cbegin(); it != printers.cend(); ++it) {
        qDebug().noquote() << "key : " + it.key();
        Printer *p = it.value();
        m_currentRecords.emplace_back(p);

        auto *item = new QListWidgetItem(itemIcons[itemIconIndex(*p)], p->name);
        item->setData(Qt::UserRole, QVariant::fromValue(static_cast<void *>(p)));
        // The name is the item's text; a screen reader adds this after it.
        item->setData(Qt::AccessibleDescriptionRole, itemDescription(*p));
        lwPrinters->insertItem(lwPrinters->count(), item);
    }
    // Say explicitly that nothing is current. Otherwise the view makes its first item
    // current as soon as it gains keyboard focus (as it does when the window opens), and
    // Delete would then act on a printer the user never picked.
    lwPrinters->setCurrentIndex(QModelIndex());
}

void PrinterDlg::centerOnScreen()
{
    windowchrome::centerOnScreen(this);
}

Printer *PrinterDlg::currentPrinter() const
{
    QListWidgetItem *item = lwPrinters->currentItem();
    if (!item)
        return nullptr;
    return static_cast<Printer *>(item->data(Qt::UserRole).value<void *>());
}

void PrinterDlg::testPrinter()
{
    Printer *p = currentPrinter();
    if (!p)
        return;
    p->PrintTestPage();
    // Shown whatever the print command did: nothing here learns its outcome.
    QMessageBox::information(this, QStringLiteral("Printer"),
                             QStringLiteral("Test page sent to printer"), QMessageBox::Ok);
}

void PrinterDlg::defaultPrinter()
{
    Printer *p = currentPrinter();
    if (!p)
        return;
    p->SetDefault();
    p->Commit();
    p->SetCupsDefault();
    updatePrinterList();
}

void PrinterDlg::WaitForCUPS(Printer *printer)
{
    // A public slot, so it can be reached through the meta-object without a record.
    if (!printer)
        return;
    usleep(10000);

    stageQueuePpd(*printer);
    announceQueues();
}

void PrinterDlg::addPrinter()
{
    Printer printer;

    delete wizard;
    wizard = new WizardDlg(&ppdSet, &printer, false);

    hide();
    wizard->exec();
    show();

    if (wizard->submitted) {
        printer.Commit();
        printer.Install();
        updatePrinterList();
        WaitForCUPS(&printer);
    }
}

void PrinterDlg::editPrinter()
{
    Printer *p = currentPrinter();
    if (!p)
        return;

    delete wizard;
    wizard = new WizardDlg(&ppdSet, p, true);

    hide();
    wizard->exec();
    show();

    if (wizard->submitted) {
        p->Commit();
        // The queue is rebuilt from scratch with the edited settings.
        p->Uninstall();
        p->Install();
        updatePrinterList();
        // p belongs to the list as it was before the refresh, which m_previousRecords keeps.
        WaitForCUPS(p);
    }
}

void PrinterDlg::deletePrinter()
{
    Printer *p = currentPrinter();
    if (!p)
        return;
    p->Remove();
    p->Uninstall();
    updatePrinterList();
    // Deleting restages nothing; only the wait for the print service is started.
    waitForPrintService();
}

void PrinterDlg::quit()
{
    qDebug() << "PrinterDlg::quit - received";
    close();
}
