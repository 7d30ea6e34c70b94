#pragma once

#include <QString>

class Printer;

// The staging folder keeps each queue's edited PPD for the configure run, which copies
// everything in it into /etc/cups. Commands copy into it, copy from it and remove from
// it as root, so each of them first makes sure that no one else controls it: a missing
// folder is made by us (each part checked as it is made or found, so no one can make it
// first, full of files or links), and one that someone else controls is not used.
// Returns false then, with one line on standard error: refusal, ": " and the reason.
bool stagingFolderIsOurs(const QString &refusal);

// Writes the record's paper size into its queue's PPD (/etc/cups/ppd/NAME.ppd, edited
// through /tmp/NAME.ppd) and stages the edited copy for the configure run. A raw text
// queue has no page sizes, so its PPD is left alone.
void stageQueuePpd(const Printer &printer);

// Tells the device's session about the changed queues (init_ica, CitrixCUPSPrinter) and
// starts waitForPrintService().
void announceQueues();

// Starts the device's wait for the print service in the background.
void waitForPrintService();
