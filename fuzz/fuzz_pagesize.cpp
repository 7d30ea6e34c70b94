// The paper sizes of a PPD file: every line that starts with "*PageSize" gives one entry,
// in file order, taken with the fixed arithmetic (after the first space, as long as the
// index of the first "/" minus ten). For a line of the usual form that is the option
// keyword; for any line it is a piece of the text after the first space.

#include "fuzzcheck.h"

#include "drivers/pagesize.h"

#include <QBuffer>
#include <QTextStream>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzzsupport::silenceTraceLines();
    const QByteArray input = fuzzsupport::bytes(data, size);

    // The wizard hands over the file's bytes, read as a text file.
    const QStringList sizes = paperSizesFromPpd(input);

    // The same file read line by line again, as a text file (line ends "\n", "\r\n"):
    // one size per "*PageSize" line, in order.
    QByteArray bytes = input;
    QBuffer file(&bytes);
    file.open(QIODevice::ReadOnly | QIODevice::Text);
    QTextStream again(&file);
    int index = 0;
    QString line;
    while (again.readLineInto(&line)) {
        if (!line.startsWith(QLatin1String("*PageSize")))
            continue;
        FUZZ_CHECK(index < sizes.size());
        const QString size = sizes.at(index++);
        FUZZ_CHECK(size == paperSizeFromPageSizeLine(line));

        const int space = line.indexOf(QLatin1Char(' '));
        const QString rest = line.mid(space + 1);
        FUZZ_CHECK(rest.startsWith(size));
        const int slash = line.indexOf(QLatin1Char('/'));
        if (slash < 0)
            FUZZ_CHECK(size == rest);
        // "*PageSize KEY/..." with nothing but the keyword between the space and the "/".
        const int secondSpace = line.indexOf(QLatin1Char(' '), space + 1);
        if (space == 9 && slash > space && (secondSpace < 0 || secondSpace > slash))
            FUZZ_CHECK(size == line.mid(10, slash - 10));
    }
    FUZZ_CHECK(index == sizes.size());

    // Any single text as a line, as the paper-size box would get it.
    const QString text = QString::fromUtf8(input);
    const QString single = paperSizeFromPageSizeLine(text);
    FUZZ_CHECK(text.mid(text.indexOf(QLatin1Char(' ')) + 1).startsWith(single));
    return 0;
}
