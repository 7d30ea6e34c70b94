#pragma once

#include <QString>

// The staging folder keeps each queue's edited PPD for the configure run, which copies
// everything in it into /etc/cups. Commands copy into it, copy from it and remove from
// it as root, so each of them first makes sure that no one else controls it: a missing
// folder is made by us (each part checked as it is made or found, so no one can make it
// first, full of files or links), and one that someone else controls is not used.
// Returns false then, with one line on standard error: refusal, ": " and the reason.
bool stagingFolderIsOurs(const QString &refusal);
