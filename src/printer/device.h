#pragma once

#include <QString>

// The one size limit of the device list cache: printerconfig-usb writes no more than this
// (whole lines, the first printers listed), and the tool reads no larger cache (it is
// replaced, by running lpinfo, as one that is not ours).
constexpr qint64 deviceListCap = qint64(1) << 20;

// Parsing of the "lpinfo -v" device list, kept apart from the record so it can be
// exercised without a cache file: the URI of the first line that starts with
// "direct usb", or an empty text when there is none.
QString firstDirectUsbDevice(const QString &lpinfoOutput);

// A device address is placed between single quotes in the "lpadmin" command that the
// shell runs as root. One holding a single quote or a control character (C0, DEL or C1)
// could break out of the quotes or garble the command line, so it is never put there
// when it came from a device (a USB device's own description of itself, or a stored
// USB record); what the administrator types is theirs to run.
bool isSafeDeviceUri(const QString &uri);

// A printers.conf line holds "DeviceURI " and the address up to the line's end; it is
// no shell word, so a quote (or a C1 character, which the file does not take for a line
// break) is written as it stands. Only a character that ends or breaks the line (CR,
// LF, NUL and the other C0 controls, DEL) could add lines of its own to the file.
bool fitsOnPrintersConfLine(const QString &uri);

// Whether a record's address names a USB device: the "usb" scheme prefix, the same test
// the wizard uses to restore a USB connection. Every address the device list offers
// starts so (its lines start with "direct usb"), as does the fallback "usb:/dev/usb/lp0";
// the socket and LPD addresses built from the administrator's fields never do.
bool isUsbDeviceUri(const QString &uri);

// Whether the address may go into the "lpadmin" command: a USB address only when it is
// safe there (isSafeDeviceUri); any other address is the administrator's and goes as it is.
bool mayInstallDeviceUri(const QString &uri);
