#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

// Keeping the USB queues and the device list cache in step with the USB printer attached
// now, for the units that run at boot and when a printer is plugged in. The program
// itself makes the cache only when it is missing (see Printer::GetPrinterDevice); these
// are the only places that write it afresh.
namespace usbqueues {

struct QueueDevice
{
    QString queue;
    QString uri;
    bool operator==(const QueueDevice &other) const
    {
        return queue == other.queue && uri == other.uri;
    }
};

// The queues and device addresses that "lpstat -v" prints in the C locale, one line
// "device for NAME: URI" each, in its order. Other lines are skipped.
QList<QueueDevice> parseLpstatDevices(const QByteArray &lpstatOutput);

// Writes the device list cache: lines, each ending in "\n", as many of the first ones as
// fit within deviceListCap (the rest are left out and said so), in a complete new file of
// root's alone (mode 0600: the list names the devices found), put in the place of what
// stands at the cache's path in one step. Whatever stands there in /tmp is never followed
// or written through; a folder is moved aside whole (fileio::placeFile). False with the
// reason when it cannot be written.
bool writeDeviceListCache(const QStringList &lines, QString *reason);

// Points every queue with a USB device address (one that isUsbDeviceUri accepts) that
// is not uri at uri, by "lpadmin -p NAME -v URI", run without a shell since the address
// comes from the device. The scheduler changes and saves the queue itself, so jobs
// queued on it stay, and its next save of its state keeps the new address. Returns the
// queues it changed; nothing when the scheduler cannot be asked ("lpstat -v" fails).
QStringList followAttachedPrinter(const QString &uri);

} // namespace usbqueues
