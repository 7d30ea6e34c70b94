#pragma once

#include "ui_mainwindow.h"

#include "drivers/ppdset.h"

#include <QMainWindow>

#include <memory>
#include <vector>

class Printer;
class WizardDlg;

// The printer list window: every stored printer as an icon item, and the buttons that add,
// edit, delete, test and choose the default printer.
class PrinterDlg : public QMainWindow, private Ui::MainWindow
{
    Q_OBJECT

public:
    PrinterDlg();
    ~PrinterDlg() override;

    // Rebuilds the list from the registry; no item is current afterwards.
    void updatePrinterList();
    // Moves the window to the middle of the available area of screen 0.
    void centerOnScreen();

public slots:
    void testPrinter();
    void defaultPrinter();
    // Gives the queue's PPD the printer's paper size, stages it and starts the device
    // scripts that follow a queue change.
    void WaitForCUPS(Printer *printer);
    void addPrinter();
    void editPrinter();
    void deletePrinter();
    void quit();

private:
    Printer *currentPrinter() const;

    PPDSet ppdSet;
    WizardDlg *wizard = nullptr;
    // Every record the list has ever shown. List items and the wizard hold plain
    // pointers to them, and the edit action still uses its record after the list has
    // been rebuilt, so a record must outlive the refresh that replaced it. Keeping them
    // all until the window goes costs a few hundred bytes per refresh and means no
    // pointer handed out by this window can ever dangle.
    std::vector<std::unique_ptr<Printer>> records;
};
