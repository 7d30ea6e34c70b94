#include "printer/deviceaddress.h"

#include "printer/device.h"

#include <QRegularExpression>
#include <QUrl>

DeviceAddress::Kind DeviceAddress::kindOfConnectionType(const QString &connectionType)
{
    if (connectionType.startsWith(QLatin1String("socket:")))
        return Socket;
    if (connectionType.startsWith(QLatin1String("lpd:")))
        return Lpd;
    return Usb;
}

DeviceAddress DeviceAddress::fromStored(const QString &uri)
{
    DeviceAddress address;
    if (uri.isEmpty() || isUsbDeviceUri(uri)) {
        address.kind = Usb;
    } else if (uri.startsWith(QLatin1String("lpd"))) {
        // Fixed arithmetic: the host starts after "lpd://", whatever the text says.
        const int p = uri.lastIndexOf(QLatin1Char('/'));
        address = lpd(uri.mid(6, p - 6), uri.mid(p + 1));
    } else if (uri.startsWith(QLatin1String("socket"))) {
        // Likewise after "socket://".
        const int p = uri.lastIndexOf(QLatin1Char(':'));
        address = socket(uri.mid(9, p - 9), uri.mid(p + 1).toInt());
    }
    return address;
}

DeviceAddress DeviceAddress::fromUrl(const QString &uri)
{
    const QUrl url(uri, QUrl::TolerantMode);
    const QString scheme = url.scheme();
    if (scheme == QLatin1String("socket"))
        return socket(url.host(QUrl::FullyDecoded), url.port(9100));
    if (scheme == QLatin1String("lpd"))
        return lpd(url.host(QUrl::FullyDecoded),
                   url.path(QUrl::FullyDecoded).remove(QRegularExpression(QStringLiteral("^/"))));
    DeviceAddress address;
    address.kind = Usb;
    return address;
}

DeviceAddress DeviceAddress::lpd(const QString &host, const QString &queue)
{
    DeviceAddress address;
    address.kind = Lpd;
    address.host = host;
    address.queue = queue;
    return address;
}

DeviceAddress DeviceAddress::socket(const QString &host, int port)
{
    DeviceAddress address;
    address.kind = Socket;
    address.host = host;
    address.port = port;
    return address;
}

QString DeviceAddress::uri() const
{
    switch (kind) {
    case Socket:
        return QStringLiteral("socket://%1:%2").arg(host, QString::number(port));
    case Lpd:
        return QStringLiteral("lpd://%1/%2").arg(host, queue);
    default:
        return QString();
    }
}
