#include "drivers/ppdsetloader.h"

#include "drivers/ppdset.h"

PPDSetLoader::PPDSetLoader(QObject *parent)
    : QObject(parent)
{
    // Only an object without a parent can move; callers pass none.
    moveToThread(&workerThread);
    workerThread.start(QThread::InheritPriority);
}

PPDSetLoader::~PPDSetLoader()
{
    if (workerThread.isRunning()) {
        // A load in progress finishes first: the event loop quits after the slot returns.
        workerThread.quit();
        workerThread.wait();
    }
}

void PPDSetLoader::load(PPDSet *ppd_set)
{
    // From any thread but the worker's this is queued, so it returns at once.
    QMetaObject::invokeMethod(this, "doLoading", Qt::AutoConnection, Q_ARG(void *, ppd_set));
}

void PPDSetLoader::doLoading(void *ppd_set)
{
    static_cast<PPDSet *>(ppd_set)->readDatabases();
    emit completed();
}
