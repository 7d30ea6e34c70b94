#pragma once

#include "discovery/discovery.h"

#include <QByteArray>
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

// Qt hands calls between threads under locks that ThreadSanitizer does not see. These
// two add the same ordering in a form the tool does see, so that it can still tell a real
// race from Qt's own hand-over: holdNext() queues, on the receiver's thread, a wait that
// ends with an acquiring read; release() is the matching releasing write. Everything
// this thread does before release() happens before whatever is queued behind the wait.
void holdNext(QObject *receiver);
void release();

// Starts runs of one Discovery and follows its completed() twice: as it is emitted,
// directly on the emitting thread, and as the queued call reaches the thread this watch
// lives on.
//
// Both hand-overs are ordered for ThreadSanitizer as well: start() holds the run behind
// holdNext()/release(); completed() bumps an atomic with release order on the worker,
// and waitForRuns() reads it with acquire order before the test looks at the results.
class CompletionWatch : public QObject
{
public:
    explicit CompletionWatch(Discovery &discovery);

    // Discovery::start(), with this thread's work so far ordered before the run.
    void start();

    int emitted() const { return m_emitted.load(std::memory_order_acquire); }
    QThread *emittingThread() const { return m_emittingThread.load(std::memory_order_acquire); }
    QThread *receivingThread() const { return m_receivingThread; }

    // Waits, running this thread's event loop, until `count` completed() calls have
    // arrived here; true when they did in time and as many were emitted.
    bool waitForRuns(int count, int timeoutMs);

private:
    Discovery &m_discovery;
    std::atomic<int> m_emitted{0};
    std::atomic<QThread *> m_emittingThread{nullptr};
    int m_received = 0;
    QThread *m_receivingThread = nullptr;
};
