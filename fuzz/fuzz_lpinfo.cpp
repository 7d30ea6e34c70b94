// The "lpinfo -v" cache: the URI of the first line that starts with "direct usb" (the
// line without its "direct ") and is fit for a shell word and a printers.conf line, or
// nothing when no line is.

#include "fuzzcheck.h"

#include "printer/device.h"

#include <QStringList>

namespace {

// What the device detection accepts as an address: no quote, blank or control character.
bool usable(const QString &uri)
{
    for (const QChar c : uri) {
        if (c == QLatin1Char('\'') || c.isSpace() || c.unicode() < 0x20 || c.unicode() == 0x7f)
            return false;
    }
    return true;
}

// The address a "direct usb" line offers; lines end in "\n" or "\r\n".
QString addressOf(QString line)
{
    if (line.endsWith(QLatin1Char('\r')))
        line.chop(1);
    return line.mid(7);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString text = QString::fromUtf8(fuzzsupport::bytes(data, size));
    const QString device = firstDirectUsbDevice(text);

    if (!device.isEmpty()) {
        FUZZ_CHECK(device.startsWith(QLatin1String("usb")));
        FUZZ_CHECK(usable(device));
    }

    // The answer is the first usable "direct usb" line; every earlier one is unusable.
    QString expected;
    for (const QString &line : text.split(QLatin1Char('\n'))) {
        if (!line.startsWith(QLatin1String("direct usb")))
            continue;
        const QString address = addressOf(line);
        if (usable(address)) {
            expected = address;
            break;
        }
    }
    FUZZ_CHECK(device == expected);
    return 0;
}
