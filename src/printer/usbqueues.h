#pragma once

#include "printer/schedulerqueues.h"

#include <QList>
#include <QString>
#include <QStringList>

// Keeping the device's USB queues and the device list cache in step with the USB printers
// attached now, for the units that run at boot and when a printer is plugged in. The
// program itself makes the cache only when it is missing (see Printer::GetPrinterDevice);
// these are the only places that write it afresh.
//
// A hot-plug run, step by step: the device's own USB queues are named by root's registry
// (deviceQueueNames); the scheduler says, as attributes, where each of them points and
// whether it has a job under way (scheduler::listQueues, deviceQueues); a printer busy with
// a job, which the usb backend cannot open and so does not list, is kept in the device
// list (withBusyPrinters); the list becomes the cache (writeDeviceListCache); and each
// queue whose printer is gone follows an attached one (movesToAttached, follow).
//
// Busy or gone? A queue whose address the backend did not list is processing in two
// cases: its job prints on a printer that is attached (the backend holds it, so it cannot
// list it), or its job waits for a printer that is gone (the backend waits for it to come
// back). The scheduler shows both alike: CUPS's usb backend says nothing but "Waiting for
// printer to become available." while it waits, no state reason. The kernel tells them
// apart: it has every attached printer on its bus, printing or not
// (usbdevices::printersOnBus). A printer that the backend left out is attached and busy
// only when the bus holds more printers than the backend listed; otherwise every
// attached printer is listed and the unlisted queue's printer is gone.
namespace usbqueues {

// The names of the queues of root's registry records whose device address is a USB
// address (isUsbDeviceUri), read as the window and the configure run read them
// (Printer::GetPrinters): a registry that another user could have changed names none.
QStringList deviceQueueNames();

// The device's USB queues among the scheduler's: each queue named by one of names, as the
// scheduler matches a name (ASCII letters without regard to case), that is not temporary
// (such a queue may be any local user's) and whose current address is a USB address. Each
// carries the record's name, so that no name the scheduler reports reaches a command.
QList<scheduler::Queue> deviceQueues(const QStringList &names,
                                     const QList<scheduler::Queue> &queues);

// Whether the queue's printer is attached and busy printing its job, though the backend
// did not list it: the scheduler reports the queue processing a job on an address that is
// not among listed (the usb backend's addresses), the bus holds more printers than listed
// (printersOnBus: one of them could not be opened), and the queue's backend is not looking
// for the printer (connecting-to-device, which some backends report while they wait; CUPS's
// usb backend does not, which is why the bus is asked).
bool isPrinting(const scheduler::Queue &queue, const QStringList &listed, int printersOnBus);

// The device list with the printers that are busy: after lines (the backend's, "direct
// URI"), "direct URI" for each of queues that isPrinting on an address not listed yet,
// when the address may stand in the list ("usb://", no blank, no control character). CUPS's
// usb backend cannot open a printer that is printing, so it does not list it; it is
// attached all the same.
QStringList withBusyPrinters(const QStringList &lines, const QList<scheduler::Queue> &queues,
                             int printersOnBus);

// The addresses of the device list's lines ("direct URI"), in its order.
QStringList addressesOf(const QStringList &lines);

// The make and model part of a USB printer's address: "Acme/Label" of
// "usb://Acme/Label?serial=42"; empty for an address without one (usb:/dev/usb/lp0).
QString makeAndModel(const QString &uri);

struct Move
{
    QString queue;
    QString uri;
    bool operator==(const Move &other) const { return queue == other.queue && uri == other.uri; }
};

// Which of queues follow which attached printer. The attached printers are those the
// backend listed (addresses, in its order) and the busy ones withBusyPrinters adds after
// them. A queue whose address is attached, or that isPrinting, stays. One whose printer is
// gone follows the first attached printer of the same make and model, else the first
// attached printer. Nothing follows when nothing is attached.
QList<Move> movesToAttached(const QList<scheduler::Queue> &queues, const QStringList &listed,
                            int printersOnBus);

// Points each queue at its printer by "lpadmin -p NAME -v URI", run without a shell since
// the address comes from the device. The scheduler changes and saves the queue itself, so
// jobs queued on it stay, and its next save of its state keeps the new address. Returns
// the queues it changed.
QStringList follow(const QList<Move> &moves);

// Writes the device list cache: lines, each ending in "\n", as many of the first ones as
// fit within deviceListCap (the rest are left out and said so), in a complete new file of
// root's alone (mode 0600: the list names the devices found), put in the place of what
// stands at the cache's path in one step. Whatever stands there in /tmp is never followed
// or written through; a folder is moved aside whole (fileio::placeFile). False with the
// reason when it cannot be written.
bool writeDeviceListCache(const QStringList &lines, QString *reason);

} // namespace usbqueues
