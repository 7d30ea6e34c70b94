#pragma once

#include "ui_loaderdialog.h"

#include <QDialog>

// A small window that says the printer setup is busy, with an endless progress bar.
// Its caller shows and closes it.
class LoaderDlg : public QDialog, private Ui::LoaderDialog
{
    Q_OBJECT
public:
    LoaderDlg();
};
