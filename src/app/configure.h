#pragma once

#include <QByteArray>
#include <QString>

// The headless start-up run ("--configure"): copies the staged CUPS files back into
// /etc/cups and points every USB device line of printers.conf at the attached printer.
// Always returns 0.
int runConfigure();

// printers.conf with every line that starts with "DeviceURI" and contains "usb" replaced
// by "DeviceURI <uri>"; every other line is kept. Lines end in "\n" whatever they ended in
// before. Every USB line gets the same URI, whichever printer section it belongs to: a
// thin client has a single local printer port.
QByteArray rewriteUsbDeviceLines(const QByteArray &conf, const QString &uri);
