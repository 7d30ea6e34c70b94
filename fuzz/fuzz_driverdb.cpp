// The driver database lines: the first line is the base folder, every further line is
// "relative path;manufacturer;model;driver". A line is taken exactly when splitting it at
// every ";" gives four fields, and then its fields are those four texts, untrimmed.

#include "fuzzcheck.h"

#include "drivers/ppdset.h"

#include <QTextStream>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray input = fuzzsupport::bytes(data, size);
    QTextStream stream(input, QIODevice::ReadOnly);
    const QString baseFolder = stream.readLine();

    QString line;
    while (stream.readLineInto(&line)) {
        DriverLine fields;
        const bool taken = parseDriverLine(line, &fields);
        const QStringList parts = line.split(QLatin1Char(';'), Qt::KeepEmptyParts);
        FUZZ_CHECK(taken == (parts.size() == 4));
        if (!taken)
            continue;
        FUZZ_CHECK(fields.relativePath == parts.at(0));
        FUZZ_CHECK(fields.manufacturer == parts.at(1));
        FUZZ_CHECK(fields.model == parts.at(2));
        FUZZ_CHECK(fields.driver == parts.at(3));

        const QString path = driverPath(baseFolder, fields.relativePath);
        FUZZ_CHECK(path == baseFolder + QLatin1Char('/') + parts.at(0));

        PPD ppd(path);
        ppd.setManufacturer(fields.manufacturer.toString());
        ppd.setModel(fields.model.toString());
        FUZZ_CHECK(ppd.path == path);
        FUZZ_CHECK(ppd.manufacturer ==
                   (parts.at(1).isEmpty() ? QStringLiteral("Unknown") : parts.at(1)));
        FUZZ_CHECK(ppd.model == (parts.at(2).isEmpty() ? QStringLiteral("Unknown") : parts.at(2)));
        FUZZ_CHECK(ppd.pathHash == qHash(ppd.path, 0));
    }
    return 0;
}
