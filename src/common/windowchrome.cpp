#include "common/windowchrome.h"

#include <QFile>
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
    QFile file(styleSheetPath());
    // A missing file gives no style and no message; reading an unopened QFile would
    // make Qt print a warning.
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return styleSheetFromBytes(file.readAll());
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

void centreOnScreen0(QWidget *window)
{
    window->move(centredTopLeft(availableGeometryOfScreen0(), window->size()));
}

} // namespace windowchrome
