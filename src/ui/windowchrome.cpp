#include "ui/windowchrome.h"

#include "fileio/read.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWidget>

namespace windowchrome {

QString styleSheetFromBytes(const QByteArray &bytes)
{
    const int nul = bytes.indexOf('\0');
    return QString::fromLatin1(nul < 0 ? bytes : bytes.left(nul));
}

QString loadStyleSheet()
{
    // Any user can put something at this path in /tmp. A missing file gives no style and
    // no message. Anything but a regular file of ours that no one else can write (a
    // named pipe would keep the window from ever appearing; another user's file would
    // dress root's window) and an oversized file give no style and one line on
    // standard error.
    const fileio::ReadResult read = fileio::read(styleSheetPath(), {fileio::smallFileCap});
    return read.ok() ? styleSheetFromBytes(read.data) : QString();
}

QPoint centredTopLeft(const QRect &available, const QSize &size)
{
    return available.center() - QRect(QPoint(0, 0), size).center();
}

QRect availableGeometryOfScreen0()
{
    const QList<QScreen *> screens = QGuiApplication::screens();
    return screens.isEmpty() ? QRect() : screens.first()->availableGeometry();
}

void centerOnScreen(QWidget *window)
{
    window->move(centredTopLeft(availableGeometryOfScreen0(), window->size()));
}

} // namespace windowchrome
