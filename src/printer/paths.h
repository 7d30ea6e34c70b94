#pragma once

#include <QString>

// Where the printer tool keeps and finds its files on the device.
namespace paths {

inline QString registryFolder() { return QStringLiteral("/tmp/config/registry/hardware/printer"); }
inline QString defaultEntry() { return QStringLiteral("/tmp/config/registry/hardware/printer/default"); }
inline QString stagingFolder() { return QStringLiteral("/tmp/config/files/cups"); }
inline QString lpinfoCache() { return QStringLiteral("/tmp/.lpinfo.log"); }
inline QString fallbackUsbDevice() { return QStringLiteral("usb:/dev/usb/lp0"); }
inline QString rawTextDriverMarker() { return QStringLiteral("-Generic-Text-Only-Raw.ppd"); }

} // namespace paths
