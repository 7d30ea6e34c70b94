#pragma once

class QObject;

// Qt hands calls between threads under locks that ThreadSanitizer does not see. These add
// the same ordering in a form the tool does see, so that it can still tell a real race
// from Qt's own hand-over, and they let a test hold a worker thread while it looks at
// what a request did before the worker got to it.
//
// holdNext() queues, on the receiver's thread, a wait that ends with an acquiring read
// at the next release(), the matching releasing write. Everything this thread does
// before release() happens before whatever is queued behind the wait. One hold at a time.
namespace handover {

void holdNext(QObject *receiver);
void release();
// True when the last hold gave up after 20 s without a release().
bool heldTooLong();

} // namespace handover
