#pragma once

#include "ui_mainwindow.h"

#include "drivers/ppdset.h"

#include <QIcon>
#include <QMainWindow>

#include <array>
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
    // The four list pictures (local, network, each also as the default), built once and
    // shared by every item instead of decoding the image again for each printer.
    std::array<QIcon, 4> itemIcons;
    // The records behind the list. List items and the wizard hold plain pointers to
    // them, and the edit action still uses its record after the list has been rebuilt,
    // so a record outlives the refresh that replaced it by one refresh: m_currentRecords
    // are those of the list as shown, m_previousRecords those of the list before it. Any
    // older generation can no longer be reached and is freed.
    std::vector<std::unique_ptr<Printer>> m_currentRecords;
    std::vector<std::unique_ptr<Printer>> m_previousRecords;
};
