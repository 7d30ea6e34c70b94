#include "ui/printerdlg.h"

#include "common/windowchrome.h"
#include "printer/paths.h"
#include "printer/printer.h"
#include "printer/staging.h"
#include "ui/wizarddlg.h"

#include <fileio/regularfile.h>
#include <zeq/system.h>

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

// The edited PPD is written by the shell's redirect into the world-writable /tmp (a
// redirect follows links) and then copied over the queue's PPD, so a file planted there
// could hand CUPS a driver of someone else's choosing. The file is therefore made afresh
// by us before the edit; when that cannot be done (or the name would reach outside /tmp)
// the edit and both copies are left out, with one line on standard error.
// The file stays readable by all (0644): it is a driver description with the paper size
// set, which holds no address or password and which the scheduler hands to any local
// client that asks for the queue's PPD. Its mode also reaches the copies made from it
// (a new queue PPD in /etc/cups/ppd, the staged copy), and CUPS's filters, running as
// user lp, must still read the queue's PPD.
bool makeScratchPpd(const QString &ppdFile)
{
    const QString scratch = paths::scratchFolder() + QLatin1Char('/') + ppdFile;
    QString reason;
    if (ppdFile.contains(QLatin1Char('/')))
        reason = QStringLiteral("the printer name holds a '/'");
    else if (fileio::createFreshFile(scratch, &reason))
        return true;
    fileio::report(
        QStringLiteral("not editing the queue's PPD: cannot create %1: %2").arg(scratch, reason));
    return false;
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
        lwPrinters->insertItem(lwPrinters->count(), item);
    }
    // Say explicitly that nothing is current. Otherwise the view makes its first item
    // current as soon as it gains keyboard focus (as it does when the window opens), and
    // Delete would then act on a printer the user never picked.
    lwPrinters->setCurrentIndex(QModelIndex());
}

void PrinterDlg::centerOnScreen()
{
    windowchrome::centreOnScreen0(this);
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

    const QString ppdFile = printer->name + QLatin1String(".ppd");
    // A raw text queue has no page sizes to set, so its PPD is left alone and not staged.
    if (!printer->ppd.contains(paths::rawTextDriverMarker()) && makeScratchPpd(ppdFile)) {
        // No blank before the pipe and two before the redirection: the line has always
        // been issued this way. The paper size goes into the sed expression as it is.
        const QString queuePpd = paths::queuePpdFolder() + QLatin1Char('/') + ppdFile;
        const QString scratchPpd = paths::scratchFolder() + QLatin1Char('/') + ppdFile;
        QString command = commands::cat() + QLatin1Char(' ') + queuePpd;
        command += QLatin1String("| ");
        command += commands::sed();
        command += QLatin1String(" -e \"s/DefaultPageSize.*/DefaultPageSize: ");
        command += printer->paper_size;
        command += QLatin1String("/g\" ");
        command += QLatin1String(" >");
        command += scratchPpd;
        zeq::System::ExecShell(command);
        zeq::System::ExecShell(commands::cp() + QLatin1Char(' ') + scratchPpd + QLatin1Char(' ') +
                               paths::queuePpdFolder());
        // cp follows a link standing in the target folder.
        if (stagingFolderIsOurs(QStringLiteral("not staging ") + scratchPpd))
            zeq::System::ExecShell(commands::cp() + QLatin1Char(' ') + scratchPpd +
                                   QLatin1Char(' ') + paths::stagingFolder());
    }

    zeq::System::ExecShell(commands::initIca());
    zeq::System::ExecShell(commands::citrixCupsPrinter());
    zeq::System::ExecShell(commands::waitForCups() + QLatin1Char('&'));
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
    zeq::System::ExecShell(commands::waitForCups() + QLatin1Char('&'));
}

void PrinterDlg::quit()
{
    qDebug() << "PrinterDlg::quit received";
    close();
}
