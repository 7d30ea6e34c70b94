#pragma once

#include <QString>

// A printer's device address as the wizard's connection fields see it: a local USB
// printer, an LPD queue on a host, or a raw socket on a host and port. Parsed and built
// here only, so that every place that turns an address into fields, or fields into an
// address, agrees.
class DeviceAddress
{
public:
    enum Kind { Usb, Lpd, Socket, Other };

    // How the wizard remembers the chosen connection ("usb: ", "lpd: ", "socket: "), as a
    // kind; any other text is Usb, the local printer.
    static Kind kindOfConnectionType(const QString &connectionType);
    static bool isNetwork(Kind kind) { return kind == Lpd || kind == Socket; }

    // The fields of a stored address, cut at fixed places: "lpd://HOST/QUEUE" with the
    // host from index 6 up to the last "/", "socket://HOST:PORT" with the host from index
    // 9 up to the last ":" and the port after it (0 when it is not a number). An empty
    // address or one starting with "usb" is Usb; anything else is Other, with no fields.
    static DeviceAddress fromStored(const QString &uri);
    // The fields of an address read as a URL (tolerantly, percent-escapes decoded):
    // "socket" gives host and port (9100 when none is given), "lpd" host and queue (the
    // path without its leading "/"); every other address is Usb, with no fields.
    static DeviceAddress fromUrl(const QString &uri);

    static DeviceAddress lpd(const QString &host, const QString &queue);
    static DeviceAddress socket(const QString &host, int port);

    // "lpd://HOST/QUEUE" or "socket://HOST:PORT", the fields as they are; an empty text
    // for the other kinds, whose address is not built from fields.
    QString uri() const;

    Kind kind = Other;
    QString host;
    QString queue;
    int port = 0;
};
