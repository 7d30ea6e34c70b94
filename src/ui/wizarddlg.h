#pragma once

// The form class is a private base of the dialog, so its declaration is needed here.
#include "ui_wizarddialog.h"

#include "drivers/ppdsetloader.h"

#include <QDialog>
#include <QString>

class PPDSet;
class Printer;
class QCloseEvent;
class QListWidget;

// The dialog that creates or edits one printer record in place. The user works on the
// preferences page and the summary page; the catalogue pages before them are complete
// but only reachable through their own transitions.
class WizardDlg : public QDialog, private Ui::WizardDialog
{
    Q_OBJECT
public:
    // The pages of the form's stack, in their order there.
    enum Page {
        StartPage,
        DiscoveryPage,
        AvailablePage,
        AddPage,
        ManufacturerPage,
        ModelPage,
        DriverPage,
        PreferencesPage,
        SummaryPage
    };

    WizardDlg(PPDSet *catalogue, Printer *printer, bool edit);
    ~WizardDlg() override;

    // Shows Next, OK and Back according to the current page.
    void updateButtons();
    // Refills the paper size box from the record's PPD file.
    void loadPaperSizes();
    void centerOnScreen();

public slots:
    void next();
    void back();
    void submit();
    void cancel();
    void radioButtonUSB();
    void radioButtonLPD();
    void radioButtonRAW();
    void driverChanged(int newdriver);
    void discovered();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void advance();
    void setupConnection();
    void restoreConnection();
    // The device address the connection page describes, and storing it with its class in
    // the record; Next on the preferences page checks the one before doing the other.
    QString connectionAddress() const;
    void storeConnection(const QString &address);
    void setupSummary();
    void fillSummary();
    void fillManufacturers();
    void fillModels();
    void fillDrivers();
    static void preselect(QListWidget *list, const QString &wanted);

    bool editMode = false;
    bool mayClose = false;

public:
    // Set only by OK; the main window stores and installs the record only then.
    bool submitted = false;

private:
    PPDSet *catalogue = nullptr;
    PPDSetLoader loader;
    QString selManufacturer;
    QString selModel;
    QString selDriver;
    Printer *printer = nullptr;
    QString deviceUri;
    QString connectionType;
    QString printerModel;
};
