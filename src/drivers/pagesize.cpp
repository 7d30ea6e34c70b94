#include "drivers/pagesize.h"

#include "fileio/read.h"

#include <QBuffer>
#include <QTextStream>

QString paperSizeFromPageSizeLine(const QString &line)
{
    const int space = line.indexOf(QLatin1Char(' '));
    const int slash = line.indexOf(QLatin1Char('/'));
    // Fixed arithmetic: the keyword starts at index 10 in "*PageSize <keyword>/...";
    // a negative length takes the rest of the line.
    return line.mid(space + 1, slash - 10);
}

QStringList paperSizesFromPpd(QTextStream &in)
{
    QStringList sizes;
    while (!in.atEnd()) {
        const QString line = in.readLine();
        if (line.startsWith(QLatin1String("*PageSize")))
            sizes.append(paperSizeFromPageSizeLine(line));
    }
    return sizes;
}

QStringList paperSizesFromPpd(const QByteArray &ppd)
{
    // Read as the text file it is: text mode, the locale's codec.
    QByteArray bytes = ppd;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly | QIODevice::Text);
    QTextStream in(&buffer);
    return paperSizesFromPpd(in);
}

bool paperSizesFromPpdFile(const QString &path, QStringList *sizes)
{
    const fileio::ReadResult read = fileio::read(path, {fileio::ppdFileCap});
    *sizes = read.ok() ? paperSizesFromPpd(read.data) : QStringList();
    return read.ok();
}
