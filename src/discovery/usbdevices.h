#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

// The USB printers attached now, as CUPS's own usb backend lists them when it is run
// without arguments. This is what "lpinfo -v" reports of them, without asking the
// scheduler: at boot the scheduler is not running yet, and the network backends that
// lpinfo also probes take seconds to give up.
namespace usbdevices {

// The usb backend gets this long to list the devices; it answers in milliseconds.
constexpr int listTimeoutMs = 5000;

// The device lines of the usb backend's output, in its order, as "lpinfo -v" prints
// them: "direct " and the device address. A line counts when it is a whole device line
// from its first character (class "direct", an address beginning "usb://", the make and
// model in double quotes); the address holds no blank by construction and no control
// character, since the text comes from the device. The text up to the first zero byte
// is read as UTF-8.
QStringList directUsbLines(const QByteArray &backendOutput);

// Runs the usb backend of the CUPS backend folder once and gives its device lines.
// False, with the reason, when it is missing, is not a program of root's that only root
// may change, cannot be started, prints past the output caps, fails or does not end
// within listTimeoutMs (it is then killed).
bool list(QStringList *lines, QString *reason);

// How many USB devices the kernel has on its buses with a printer interface that the usb
// backend prints through (class 07 printer, subclass 01, protocol 01 unidirectional or 02
// bidirectional), as the kernel shows them in folder (paths::usbDeviceFolder(); a test
// gives a folder of its own): one folder an interface, "BUS-PORTS:CONFIG.INTERFACE", with
// the attributes bInterfaceClass, bInterfaceSubClass and bInterfaceProtocol in
// hexadecimal. The backend leaves out a printer it cannot open, and it cannot open one
// that is printing; the kernel counts every printer attached. Only those three numbers
// are read, a few bytes each, and at most busEntryCap entries of the folder: no text
// that a device chooses (serial number, names) is read. 0 when the folder is missing (a
// machine without USB).
int printersOnBus(const QString &folder);

// A bus holds a few dozen entries; a folder with more is not the kernel's.
constexpr int busEntryCap = 4096;

} // namespace usbdevices
