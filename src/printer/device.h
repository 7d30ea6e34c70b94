#pragma once

#include <QString>

// Parsing of the "lpinfo -v" device list, kept apart from the record so it can be
// exercised without a cache file: the URI of the first line that starts with
// "direct usb", or an empty text when there is none.
QString firstDirectUsbDevice(const QString &lpinfoOutput);
