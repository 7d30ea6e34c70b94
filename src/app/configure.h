#pragma once

#include <QByteArray>
#include <QString>

// The headless start-up run ("--configure"): copies the staged CUPS files back into
// /etc/cups and points every USB device line of printers.conf at the attached printer.
// Always returns 0.
int runConfigure();

// printers.conf with every USB device line (one that starts with "DeviceURI" and
// mentions "usb" anywhere, both case-sensitive, on the raw bytes) replaced by
// "DeviceURI " and uri. Every other line comes back byte for byte: a byte order mark,
// a carriage return inside a line and bytes that are not UTF-8 all stay. Only the line
// ends change: each line, the last one included, ends in "\n". A line end is "\n" or
// "\r\n" (the carriage return before the line feed belongs to the line end, as it did
// when the file was read as text), and a carriage return that is the file's very last
// byte ends the last line the same way, so that a second rewrite changes nothing.
QByteArray rewriteUsbDeviceLines(const QByteArray &conf, const QString &uri);
