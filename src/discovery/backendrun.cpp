#include "discovery/backendrun.h"

#include "common/report.h"

#include <QDeadlineTimer>
#include <QProcess>

#include <cstring>

namespace backendrun {

namespace {
// How long a backend killed at an output cap is given to go.
const int killWaitMs = 5000;
} // namespace

void Output::clear()
{
    m_bytes.clear();
    m_lineLength = 0;
    m_overCap = false;
}

bool Output::append(const QByteArray &chunk)
{
    if (m_overCap || m_bytes.size() + qint64(chunk.size()) > outputCap) {
        m_overCap = true;
        return false;
    }
    const char *next = chunk.constData();
    const char *const end = next + chunk.size();
    while (next < end) {
        const void *found = std::memchr(next, '\n', size_t(end - next));
        const char *lineEnd = found ? static_cast<const char *>(found) : end;
        if (m_lineLength + (lineEnd - next) > lineCap) {
            m_overCap = true;
            return false;
        }
        m_lineLength = found ? 0 : m_lineLength + (lineEnd - next);
        next = found ? lineEnd + 1 : end;
    }
    m_bytes += chunk;
    return true;
}

bool waitFor(QProcess &process, Output *output, int timeoutMs)
{
    const auto take = [&] {
        if (output->append(process.readAllStandardOutput()))
            return true;
        diagnostic::report(QStringLiteral("backend %1 cut off").arg(process.program()),
                           QStringLiteral("more output than allowed"));
        process.kill();
        process.waitForFinished(killWaitMs);
        return false;
    };
    const QDeadlineTimer deadline(timeoutMs);
    if (!process.waitForStarted(int(deadline.remainingTime())))
        return false; // it could not be started
    // Once the backend has closed its output there is nothing more to read, and waiting
    // for output would return at once, again and again: only its end is awaited then.
    bool outputClosed = false;
    const QMetaObject::Connection closed = QObject::connect(
        &process, &QProcess::readChannelFinished, [&outputClosed] { outputClosed = true; });
    while (process.state() == QProcess::Running && !deadline.hasExpired()) {
        if (outputClosed)
            process.waitForFinished(int(deadline.remainingTime()));
        else
            process.waitForReadyRead(int(deadline.remainingTime()));
        if (!take()) {
            QObject::disconnect(closed);
            return false;
        }
    }
    QObject::disconnect(closed);
    if (process.state() != QProcess::NotRunning)
        return false;
    return take();
}

} // namespace backendrun
