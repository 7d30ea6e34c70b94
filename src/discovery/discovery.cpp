#include "discovery/discovery.h"

#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QMetaObject>
#include <QProcess>
#include <QString>
#include <QStringList>

namespace {
const char backendFolder[] = "/usr/lib/cups/backend";
// A backend gets this long to finish; there is deliberately no way to change it.
const int backendTimeoutMs = 30000;
} // namespace

QRegExp deviceLinePattern()
{
    return QRegExp(QStringLiteral("(\\w+) (\\w+://\\S+) \"([^\"]*)\" .*"), Qt::CaseSensitive,
                   QRegExp::RegExp);
}

QList<Printer> parseBackendOutput(const QByteArray &output, const QRegExp &pattern)
{
    QList<Printer> printers;
    // Anything after a zero byte is not text the backend meant for us.
    const QString text = QString::fromUtf8(output.constData());
    const QStringList lines = text.split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        // Not anchored: a device line preceded by other text on the same line still counts.
        if (pattern.indexIn(line, 0) < 0)
            continue;
        Printer printer;
        printer.printer_class = pattern.cap(1);
        printer.device_uri = pattern.cap(2);
        printer.model = pattern.cap(3);
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
    // not killed: the toolkit refuses to start the following backends while it runs, their
    // waits wait on it instead, and what it has printed when it ends is still taken.
    // Leaving this function destroys the runner, which kills a backend still running.
    QProcess process;
    const QRegExp pattern = deviceLinePattern();
    const QFileInfoList entries = QDir(QString::fromLatin1(backendFolder)).entryInfoList();

    results.clear();
    for (const QFileInfo &entry : entries) {
        if (!entry.isFile())
            continue;
        process.start(entry.absoluteFilePath(), QStringList(), QIODevice::ReadWrite);
        if (!process.waitForFinished(backendTimeoutMs))
            continue;
        results += parseBackendOutput(process.readAllStandardOutput(), pattern);
    }
    emit completed();
}
