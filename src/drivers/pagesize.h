#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

class QTextStream;

// The paper sizes a PPD file offers, read from its "*PageSize" lines.

// The paper size named by one "*PageSize" line of a PPD file: the text after the first
// space, as long as the index of the first "/" minus ten. For the usual
// "*PageSize A4/A4: ..." that is exactly the option keyword; a line without "/" gives
// everything after the first space.
QString paperSizeFromPageSizeLine(const QString &line);
// The paper sizes of every line starting with "*PageSize", in file order, duplicates kept.
QStringList paperSizesFromPpd(QTextStream &in);
// The same over the bytes of a whole PPD file.
QStringList paperSizesFromPpd(const QByteArray &ppd);
// The same over the PPD file at path, read only when it is a regular file of at most
// 16 MiB (one of ours, under /tmp). Returns false, with *sizes empty, when it cannot be
// read; a file that is there but refused is reported on standard error.
bool paperSizesFromPpdFile(const QString &path, QStringList *sizes);
