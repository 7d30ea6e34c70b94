#pragma once

#include <QString>

// Parsing of the "lpinfo -v" device list, kept apart from the record so it can be
// exercised without a cache file: the URI of the first line that starts with
// "direct usb", or an empty text when there is none.
QString firstDirectUsbDevice(const QString &lpinfoOutput);

// A device address is placed between single quotes in the "lpadmin" command that the
// shell runs as root, and on a line of printers.conf. One holding a single quote or a
// control character (C0, DEL or C1) could break out of either, so it is never used.
// The address may come from a USB device's own description of itself.
bool isSafeDeviceUri(const QString &uri);
