#pragma once

#include <QList>
#include <QString>

// The scheduler's own account of its queues, asked through libcups as IPP attributes
// (CUPS-Get-Printers), never read from a text listing: any local user may make a queue
// with an address of their choosing, a line feed included, and in a listing such as
// "lpstat -v" prints that reads as lines of other queues.
namespace scheduler {

struct Queue
{
    QString name;            // printer-name
    QString deviceUri;       // device-uri, as the scheduler shows it (without a password)
    bool processing = false; // printer-state "processing": it has a job under way
    // printer-state-reasons holds "connecting-to-device": the job's backend says it is
    // looking for the printer. Not every backend says so: CUPS's usb backend, waiting for
    // a printer that is not attached, shows only the message "Waiting for printer to
    // become available." and no reason at all.
    bool connecting = false;
    // printer-is-temporary: a queue made for a printer found on the network, or by any
    // local user with CUPS-Create-Local-Printer; the scheduler forgets it again.
    bool temporary = false;
};

// The scheduler gets this long to take the connection, and again to answer.
constexpr int answerTimeoutMs = 30000;

// The scheduler's printers (not its classes), in its order: the scheduler libcups finds
// as every CUPS tool does (CUPS_SERVER, client.conf, else the local socket). False, with
// the reason, when it cannot be reached, does not answer within answerTimeoutMs or
// refuses.
bool listQueues(QList<Queue> *queues, QString *reason);

} // namespace scheduler
