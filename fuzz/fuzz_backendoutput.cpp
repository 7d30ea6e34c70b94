// What a backend prints when it lists its devices: one record per line that holds a
// device line (class, URI with a scheme, quoted make-and-model, a space and anything),
// with exactly the class, URI and model filled in; and the device list the boot and
// hot-plug units write from the usb backend's output, which goes into printers.conf and
// lpadmin's arguments.

#include "fuzzcheck.h"

#include "discovery/discovery.h"
#include "discovery/usbdevices.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzzsupport::silenceTraceLines();
    const QByteArray output = fuzzsupport::bytes(data, size);
    const QList<Printer> printers = parseBackendOutput(output);

    // Only the text before the first zero byte counts.
    const QByteArray text =
        output.left(output.indexOf('\0') < 0 ? output.size() : output.indexOf('\0'));
    FUZZ_CHECK(printers.size() <= text.count('\n') + 1);
    const QString decoded = QString::fromUtf8(text);
    for (const Printer &printer : printers) {
        FUZZ_CHECK(!printer.printer_class.isEmpty());
        FUZZ_CHECK(!printer.printer_class.contains(QLatin1Char(' ')));
        FUZZ_CHECK(printer.device_uri.contains(QLatin1String("://")));
        FUZZ_CHECK(!printer.device_uri.contains(QLatin1Char(' ')));
        FUZZ_CHECK(!printer.device_uri.contains(QLatin1Char('\n')));
        FUZZ_CHECK(!printer.model.contains(QLatin1Char('"')));
        FUZZ_CHECK(!printer.model.contains(QLatin1Char('\n')));
        // The device line, as captured, stands in the output.
        FUZZ_CHECK(decoded.contains(printer.printer_class + QLatin1Char(' ') + printer.device_uri +
                                    QLatin1String(" \"") + printer.model + QLatin1String("\" ")));
        FUZZ_CHECK(printer.name.isEmpty());
        FUZZ_CHECK(printer.ppd.isEmpty());
        FUZZ_CHECK(printer.win_driver.isEmpty());
        FUZZ_CHECK(printer.paper_size.isEmpty());
    }

    // Each listed device is a USB address of one word without control characters, taken
    // from a line of the output that begins with it.
    const QStringList devices = usbdevices::directUsbLines(output);
    FUZZ_CHECK(devices.size() <= printers.size());
    for (const QString &device : devices) {
        FUZZ_CHECK(device.startsWith(QLatin1String("direct usb://")));
        FUZZ_CHECK(device.count(QLatin1Char(' ')) == 1);
        for (const QChar c : device)
            FUZZ_CHECK(c == QLatin1Char(' ') ||
                       (c.category() != QChar::Other_Control && !c.isSpace()));
        FUZZ_CHECK(decoded.startsWith(device + QLatin1String(" \"")) ||
                   decoded.contains(QLatin1Char('\n') + device + QLatin1String(" \"")));
    }
    return 0;
}
