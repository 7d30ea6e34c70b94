// What a backend prints when it lists its devices: one record per line that holds a
// device line (class, URI with a scheme, quoted make-and-model, a space and anything),
// with exactly the class, URI and model filled in.

#include "fuzzcheck.h"

#include "discovery/discovery.h"

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
    return 0;
}
