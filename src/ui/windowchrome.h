#pragma once

#include "common/paths.h"

#include <QByteArray>
#include <QPoint>
#include <QRect>
#include <QSize>
#include <QString>

class QWidget;

// What the tool's three top-level windows share: the device style sheet and the
// placement in the middle of the first screen.
namespace windowchrome {

inline QString styleSheetPath()
{
    return paths::styleSheet();
}

// The style sheet bytes as Latin-1 text up to the first NUL byte.
QString styleSheetFromBytes(const QByteArray &bytes);
// Reads styleSheetPath(); a missing file, or one that is not a regular file of ours
// (fileio::read, as every file under /tmp) of at most 1 MiB, gives an empty text.
QString loadStyleSheet();

// Top-left position that puts a window of the given size in the middle of the area:
// the area's centre minus the window's own centre, both by QRect's centre rule
// (right = left + width - 1, integer halves truncated toward zero).
QPoint centredTopLeft(const QRect &available, const QSize &size);
// The available area of screen 0 (the first screen, not the one the window is on).
QRect availableGeometryOfScreen0();
// Moves window to the middle of availableGeometryOfScreen0() (centredTopLeft).
void centerOnScreen(QWidget *window);

// Window icon resource; written with a double slash after the colon, as the windows
// have always named it.
inline QString windowIconPath()
{
    return QStringLiteral("://zeq-icons/printer/print32.png");
}

} // namespace windowchrome
