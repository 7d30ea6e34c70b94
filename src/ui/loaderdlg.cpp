#include "ui/loaderdlg.h"

#include "ui/windowchrome.h"

#include <QIcon>

LoaderDlg::LoaderDlg()
    : QDialog(nullptr)
{
    setupUi(this);
    setWindowFlags(Qt::Dialog);
    setFixedSize(size());
    windowchrome::centerOnScreen(this);
    setWindowTitle(QStringLiteral("Printer Configuration"));
    setWindowIcon(QIcon(windowchrome::windowIconPath()));
    setStyleSheet(windowchrome::loadStyleSheet());
}
