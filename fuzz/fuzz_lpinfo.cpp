// The "lpinfo -v" cache: the URI of the first line that starts with "direct usb" (the
// line without its "direct "), or nothing when no line does.

#include "fuzzcheck.h"

#include "printer/device.h"

#include <QStringList>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString text = QString::fromUtf8(fuzzsupport::bytes(data, size));
    const QString device = firstDirectUsbDevice(text);

    if (!text.contains(QLatin1String("direct usb"))) {
        FUZZ_CHECK(device.isEmpty());
        return 0;
    }
    if (device.isEmpty()) {
        // Then no line starts with it: the only occurrences are inside lines.
        FUZZ_CHECK(!text.startsWith(QLatin1String("direct usb")));
        FUZZ_CHECK(!text.contains(QLatin1String("\ndirect usb")));
        return 0;
    }
    FUZZ_CHECK(device.startsWith(QLatin1String("usb")));
    FUZZ_CHECK(!device.contains(QLatin1Char('\n')));

    // The answer is a whole line of the text, and no earlier line starts with
    // "direct usb".
    const QString line = QStringLiteral("direct ") + device;
    const QStringList lines = text.split(QLatin1Char('\n'));
    int first = -1;
    for (int i = 0; i < lines.size() && first < 0; ++i) {
        if (lines.at(i).startsWith(QLatin1String("direct usb")))
            first = i;
    }
    FUZZ_CHECK(first >= 0);
    // Lines end in "\n" or "\r\n"; a carriage return anywhere else stays in the line.
    const QString &expected = lines.at(first);
    FUZZ_CHECK(expected.startsWith(line));
    if (!expected.contains(QLatin1Char('\r')))
        FUZZ_CHECK(line == expected);
    else
        FUZZ_CHECK(line == expected || line + QLatin1Char('\r') == expected);
    return 0;
}
