#include "discovery/discovery.h"

#include "common/paths.h"
#include "common/report.h"
#include "discovery/backendrun.h"

#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QMetaObject>
#include <QProcess>
#include <QStringList>

namespace {
// A backend gets this long to finish; there is deliberately no way to change it.
const int backendTimeoutMs = 30000;

// The characters \w stands for in the pattern (QRegExp's Unicode sense).
bool isWordChar(QChar c)
{
    return c.isLetterOrNumber() || c.isMark() || c == QLatin1Char('_');
}
} // namespace

QRegExp deviceLinePattern()
{
    return QRegExp(QStringLiteral("(\\w+) (\\w+://\\S+) \"([^\"]*)\" .*"), Qt::CaseSensitive,
                   QRegExp::RegExp);
}

// The pattern leaves no choice once its first word is fixed: each part ends where the
// characters it accepts end. So the leftmost match starts at the first run of word
// characters from whose end the rest fits, and each run is tried once. The parts that
// are tried do not overlap from one run to the next (a later try starts past the blank
// or quote where an earlier one stopped), so the search reads each character a bounded
// number of times.
bool findDeviceLine(const QString &line, DeviceLineMatch *match)
{
    const QChar *const text = line.constData();
    const int size = line.size();
    int start = 0;
    for (;;) {
        while (start < size && !isWordChar(text[start]))
            ++start;
        if (start == size)
            return false;
        int classEnd = start;
        while (classEnd < size && isWordChar(text[classEnd]))
            ++classEnd;

        const int uriStart = classEnd + 1;
        if (classEnd < size && text[classEnd] == QLatin1Char(' ')) {
            int schemeEnd = uriStart;
            while (schemeEnd < size && isWordChar(text[schemeEnd]))
                ++schemeEnd;
            if (schemeEnd > uriStart && line.midRef(schemeEnd, 3) == QLatin1String("://")) {
                int uriEnd = schemeEnd + 3;
                while (uriEnd < size && !text[uriEnd].isSpace())
                    ++uriEnd;
                if (uriEnd > schemeEnd + 3 && uriEnd + 1 < size &&
                    text[uriEnd] == QLatin1Char(' ') && text[uriEnd + 1] == QLatin1Char('"')) {
                    const int modelStart = uriEnd + 2;
                    const int modelEnd = line.indexOf(QLatin1Char('"'), modelStart);
                    // Without a closing quote no later start can have two quotes either.
                    if (modelEnd < 0)
                        return false;
                    if (modelEnd + 1 < size && text[modelEnd + 1] == QLatin1Char(' ')) {
                        match->position = start;
                        match->deviceClass = line.mid(start, classEnd - start);
                        match->uri = line.mid(uriStart, uriEnd - uriStart);
                        match->model = line.mid(modelStart, modelEnd - modelStart);
                        return true;
                    }
                }
            }
        }
        start = classEnd;
    }
}

QList<Printer> parseBackendOutput(const QByteArray &output)
{
    QList<Printer> printers;
    // Anything after a zero byte is not text the backend meant for us.
    const QString text = QString::fromUtf8(output.constData());
    const QStringList lines = text.split(QLatin1Char('\n'));
    DeviceLineMatch match;
    for (const QString &line : lines) {
        // Not anchored: a device line preceded by other text on the same line still counts.
        if (!findDeviceLine(line, &match))
            continue;
        Printer printer;
        printer.printer_class = match.deviceClass;
        printer.device_uri = match.uri;
        printer.model = match.model;
        qDebug().noquote().nospace() << "-->" << printer.model << ", " << printer.device_uri;
        printers.append(printer);
    }
    return printers;
}

Discovery::Discovery(QObject *parent)
    : QObject(parent)
{
    moveToThread(&workerThread);
    workerThread.start(QThread::InheritPriority);
}

Discovery::~Discovery()
{
    if (workerThread.isRunning()) {
        workerThread.quit();
        workerThread.wait();
    }
}

QList<Printer> Discovery::printers() const
{
    return results;
}

void Discovery::start()
{
    // Queued onto the worker thread when called from elsewhere, direct when called on it.
    QMetaObject::invokeMethod(this, "doTask", Qt::AutoConnection);
}

void Discovery::doTask()
{
    // One runner for the whole run, and a backend that outlives its wait is deliberately
    // not killed: the following backends are not started while it runs, their waits
    // wait on it instead, and what it has printed when it ends is still taken.
    // Leaving this function destroys the runner, which kills a backend still running.
    QProcess process;
    // Nobody reads a backend's messages; they must not pile up in memory either.
    process.setStandardErrorFile(QProcess::nullDevice());
    backendrun::Output output;
    const QFileInfoList entries = QDir(paths::backendFolder()).entryInfoList();

    results.clear();
    for (const QFileInfo &entry : entries) {
        if (!entry.isFile())
            continue;
        // The toolkit would refuse to start a runner that is still running.
        if (process.state() == QProcess::NotRunning) {
            output.clear();
            process.start(entry.absoluteFilePath(), QStringList(), QIODevice::ReadWrite);
        }
        if (!backendrun::waitFor(process, &output, backendTimeoutMs))
            continue;
        results += parseBackendOutput(output.bytes());
    }
    emit completed();
}
