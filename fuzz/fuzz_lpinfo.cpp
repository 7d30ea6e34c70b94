// The "lpinfo -v" cache: the URI of the first line that starts with "direct usb" (the
// line without its "direct "), taken as it is, or nothing when no line is; and whether an
// address is safe to place between single quotes, and whether it fits on a printers.conf
// line.

#include "fuzzcheck.h"

#include "printer/device.h"

#include <QStringList>

namespace {

// The address a "direct usb" line offers. Lines end in "\n" or "\r\n", and a "\r" that
// ends the whole text ends its last line: the line reading drops that one "\r".
QString addressOf(QString line)
{
    if (line.endsWith(QLatin1Char('\r')))
        line.chop(1);
    return line.mid(7);
}

// A control character as Unicode lists them (category Cc): C0, DEL and C1.
bool isControl(QChar c)
{
    return c.unicode() < 0x20 || (c.unicode() >= 0x7f && c.unicode() <= 0x9f);
}

// No single quote and no control character.
bool safeByDefinition(const QString &uri)
{
    for (const QChar c : uri) {
        if (c == QLatin1Char('\'') || isControl(c))
            return false;
    }
    return true;
}

// No character that ends or breaks a line: C0 controls and DEL.
bool fitsByDefinition(const QString &uri)
{
    for (const QChar c : uri) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7f)
            return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString text = QString::fromUtf8(fuzzsupport::bytes(data, size));
    const QString device = firstDirectUsbDevice(text);

    if (!device.isEmpty())
        FUZZ_CHECK(device.startsWith(QLatin1String("usb")));

    // The answer is the first "direct usb" line, whatever it holds.
    QString expected;
    for (const QString &line : text.split(QLatin1Char('\n'))) {
        if (line.startsWith(QLatin1String("direct usb"))) {
            expected = addressOf(line);
            break;
        }
    }
    FUZZ_CHECK(device == expected);

    // Safety is decided where the address is used.
    FUZZ_CHECK(isSafeDeviceUri(device) == safeByDefinition(device));
    FUZZ_CHECK(isSafeDeviceUri(text) == safeByDefinition(text));
    FUZZ_CHECK(fitsOnPrintersConfLine(device) == fitsByDefinition(device));
    FUZZ_CHECK(fitsOnPrintersConfLine(text) == fitsByDefinition(text));
    // What is safe in a command is safe on a line.
    FUZZ_CHECK(!isSafeDeviceUri(text) || fitsOnPrintersConfLine(text));
    return 0;
}
