#pragma once

// The headless start-up run ("--configure"): copies the staged CUPS files back into
// /etc/cups and points every USB device line of printers.conf at the attached printer.
// Always returns 0.
int runConfigure();
