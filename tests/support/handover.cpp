#include "support/handover.h"

#include <QDeadlineTimer>
#include <QMetaObject>
#include <QObject>

#include <atomic>
#include <thread>

namespace handover {

namespace {
std::atomic<bool> released{false};
std::atomic<bool> tooLong{false};
} // namespace

void holdNext(QObject *receiver)
{
    tooLong.store(false, std::memory_order_relaxed);
    // Captures nothing: anything it read before its acquiring load would be handed over
    // unordered itself. Queued events reach a thread in order, so whatever is queued after
    // this waits for it.
    QMetaObject::invokeMethod(
        receiver,
        [] {
            const QDeadlineTimer limit(20000);
            while (!released.exchange(false, std::memory_order_acquire)) {
                if (limit.hasExpired()) {
                    tooLong.store(true, std::memory_order_relaxed);
                    return;
                }
                std::this_thread::yield();
            }
        },
        Qt::QueuedConnection);
}

void release()
{
    released.store(true, std::memory_order_release);
}

bool heldTooLong()
{
    return tooLong.load(std::memory_order_relaxed);
}

} // namespace handover
