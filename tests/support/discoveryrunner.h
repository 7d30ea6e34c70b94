#pragma once

#include "discovery/discovery.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>

#include <atomic>

class QThread;

// Fixture backends for the discovery tests, written into the sandbox's private copy of
// the CUPS backend folder.
namespace backends {

QString folder();
// Empties the backend folder (the folder itself is a mount point and stays).
void clear();
// An executable /bin/sh script "<folder>/<name>" with the given body.
bool addScript(const QString &name, const QByteArray &body);
// A backend that prints exactly these bytes on its standard output and exits with 0.
bool addPrinting(const QString &name, const QByteArray &output);

} // namespace backends

// Owns one Discovery, starts its runs and waits for each run's completed(). It follows
// completed() twice: as it is emitted, directly on the emitting thread, and as the queued
// call reaches the thread the runner lives on.
//
// Both hand-overs are ordered for ThreadSanitizer as well: start() holds the run behind
// handover::holdNext()/release(); completed() bumps an atomic with release order on the
// worker, and the waits read it with acquire order before the test looks at the results.
class DiscoveryRunner : public QObject
{
public:
    static constexpr int defaultTimeoutMs = 20000;

    DiscoveryRunner();

    Discovery &discovery() { return m_discovery; }

    // Starts a run and waits for it; true when it completed in time with exactly one
    // completed() more, emitted and received.
    bool run(int timeoutMs = defaultTimeoutMs);
    // The models found by the last run, in their order.
    QStringList models() const;

    // Discovery::start(), with this thread's work so far ordered before the run.
    void start();
    // Waits, running this thread's event loop, until `count` completed() calls have
    // arrived here in all; true when they did in time and as many were emitted.
    bool waitForRuns(int count, int timeoutMs = defaultTimeoutMs);

    int emitted() const { return m_emitted.load(std::memory_order_acquire); }
    QThread *emittingThread() const { return m_emittingThread.load(std::memory_order_acquire); }
    QThread *receivingThread() const { return m_receivingThread; }

private:
    Discovery m_discovery;
    std::atomic<int> m_emitted{0};
    std::atomic<QThread *> m_emittingThread{nullptr};
    int m_received = 0;
    QThread *m_receivingThread = nullptr;
};
