#pragma once

#include <QString>

// Every place on the device that the printer tool reads or writes, and every program it
// runs, named once. The command lines themselves are built where they are issued; they
// take the program names from here.
// One definition a line, as a table: clang-format would spread each over four.
// clang-format off
namespace paths {

// The configuration registry and the staged CUPS files.
inline QString registryFolder() { return QStringLiteral("/tmp/config/registry/hardware/printer"); }
inline QString defaultEntry() { return registryFolder() + QStringLiteral("/default"); }
inline QString stagingFolder() { return QStringLiteral("/tmp/config/files/cups"); }

// Files of ours in /tmp.
inline QString scratchFolder() { return QStringLiteral("/tmp"); }
inline QString lpinfoCache() { return QStringLiteral("/tmp/.lpinfo.log"); }
inline QString styleSheet() { return QStringLiteral("/tmp/.config/default.css"); }
inline QString scratchPrintersConf() { return QStringLiteral("/tmp/printers.conf"); }
inline QString testPageSettings() { return QStringLiteral("/tmp/prtestinfo"); }
inline QString testPageFile() { return QStringLiteral("/tmp/prtest"); }

// CUPS's configuration, data and backends.
inline QString cupsFolder() { return QStringLiteral("/etc/cups"); }
inline QString printersConf() { return QStringLiteral("/etc/cups/printers.conf"); }
inline QString queuePpdFolder() { return QStringLiteral("/etc/cups/ppd"); }
inline QString postScriptTestPage() { return QStringLiteral("/usr/share/cups/data/test.ps"); }
inline QString textPrinterPreamble() { return QStringLiteral("/usr/share/cups/data/textonly.prn"); }
inline QString backendFolder() { return QStringLiteral("/usr/lib/cups/backend"); }

// Driver descriptions and the databases that list them.
inline QString ppdFolder() { return QStringLiteral("/usr/share/ppd"); }
inline QString driverDatabase() { return QStringLiteral("/usr/share/ppd/std1.db"); }
inline QString localDriverDatabase() { return QStringLiteral("/tmp/config/files/printdrivers.db"); }
// The paper sizes a new printer is offered are read from this description.
inline QString newPrinterPaperSizesPpd() { return QStringLiteral("/usr/share/ppd/std1/Generic/Generic-PCL_4_Printer-laserjet.ppd"); }

// The kernel's USB devices and their interfaces, one folder each ("1-1", "1-1:1.0").
inline QString usbDeviceFolder() { return QStringLiteral("/sys/bus/usb/devices"); }

inline QString fallbackUsbDevice() { return QStringLiteral("usb:/dev/usb/lp0"); }
inline QString rawTextDriverMarker() { return QStringLiteral("-Generic-Text-Only-Raw.ppd"); }

} // namespace paths

// The programs the tool runs, by the names it calls them. CUPS's tools and the device's
// scripts are found on PATH; the shell utilities inside command lines are the shell's.
namespace commands {

inline QString lpadmin() { return QStringLiteral("lpadmin"); }
inline QString cupsaccept() { return QStringLiteral("cupsaccept"); }
inline QString lp() { return QStringLiteral("lp"); }
inline QString lpinfo() { return QStringLiteral("lpinfo"); }
inline QString initIca() { return QStringLiteral("init_ica"); }
inline QString citrixCupsPrinter() { return QStringLiteral("CitrixCUPSPrinter"); }
inline QString waitForCups() { return QStringLiteral("waitforCUPS"); }
inline QString cat() { return QStringLiteral("cat"); }
inline QString sed() { return QStringLiteral("sed"); }
inline QString cp() { return QStringLiteral("cp"); }
inline QString mv() { return QStringLiteral("mv"); }
inline QString rm() { return QStringLiteral("rm"); }

} // namespace commands
// clang-format on
