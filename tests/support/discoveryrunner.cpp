#include "support/discoveryrunner.h"

#include "common/paths.h"
#include "support/handover.h"
#include "support/sandbox.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>
#include <QThread>

namespace backends {

QString folder()
{
    return paths::backendFolder();
}

void clear()
{
    const QFileInfoList entries =
        QDir(folder()).entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    for (const QFileInfo &entry : entries)
        sandbox::removePath(entry.filePath());
}

bool addScript(const QString &name, const QByteArray &body)
{
    const QString path = folder() + QLatin1Char('/') + name;
    if (!sandbox::writeFile(path, QByteArray("#!/bin/sh\n") + body))
        return false;
    return QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                           QFile::ReadGroup | QFile::ExeGroup | QFile::ReadOther |
                                           QFile::ExeOther);
}

bool addPrinting(const QString &name, const QByteArray &output)
{
    // The text lives outside the backend folder so that it is not taken for a backend.
    const QString textPath = QStringLiteral("/tmp/backend-output/") + name;
    if (!sandbox::writeFile(textPath, output))
        return false;
    return addScript(name, "exec cat '" + textPath.toUtf8() + "'\n");
}

} // namespace backends

DiscoveryRunner::DiscoveryRunner()
{
    connect(
        &m_discovery, &Discovery::completed, this,
        [this] {
            m_receivingThread = QThread::currentThread();
            ++m_received;
        },
        Qt::QueuedConnection);
    // Connected last, so that it runs after the emission has posted the queued call and
    // is done with the worker object.
    connect(
        &m_discovery, &Discovery::completed, this,
        [this] {
            m_emittingThread.store(QThread::currentThread(), std::memory_order_release);
            m_emitted.fetch_add(1, std::memory_order_release);
        },
        Qt::DirectConnection);
}

bool DiscoveryRunner::run(int timeoutMs)
{
    const int count = m_received + 1;
    start();
    return waitForRuns(count, timeoutMs);
}

QStringList DiscoveryRunner::models() const
{
    QStringList list;
    for (const Printer &printer : m_discovery.printers())
        list.append(printer.model);
    return list;
}

void DiscoveryRunner::start()
{
    handover::holdNext(&m_discovery);
    handover::release();
    m_discovery.start();
}

bool DiscoveryRunner::waitForRuns(int count, int timeoutMs)
{
    const bool arrived =
        QTest::qWaitFor([&] { return m_received >= count && emitted() >= count; }, timeoutMs);
    return arrived && m_received == count && emitted() == count;
}
