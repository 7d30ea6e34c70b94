// The catalogue loader: its own thread, the queued request and the completion signal.
// Writes its databases under /tmp, so it runs in the sandbox.
//
// Keeping ThreadSanitizer's view honest: Qt 5 passes events between threads under
// futex-based locks that the tool does not see, so the order that Qt guarantees between
// the test thread and the worker is invisible to it. The tests therefore
//  - create every object that both threads touch before the loader starts its thread
//    (thread creation is an ordering the tool sees);
//  - queue nothing of their own that carries data through Qt's queue;
//  - add explicit edges: a hold (support/handover.h, an acquiring wait that captures
//    nothing) queued on the worker ahead of each load and released by the test after its
//    own writes, and a completion record (std::mutex) that the worker fills by direct connection
//    and the test locks before it reads the catalogue, and the same record filled by the thread's
//    finished() and read from the loader's destroyed(), which stands for the join inside the
//    loader's destructor.
// The loader itself takes no locks; these edges stand for the ones Qt provides.

#include "drivers/ppdset.h"
#include "drivers/ppdsetloader.h"

#include "support/catalogue.h"
#include "support/handover.h"
#include "support/messages.h"
#include "support/sandbox.h"

#include <QElapsedTimer>
#include <QFile>
#include <QtTest>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// True while a descriptor of this process is open on path.
bool openInThisProcess(const QString &path)
{
    const QDir descriptors(QStringLiteral("/proc/self/fd"));
    const QStringList entries =
        descriptors.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    for (const QString &entry : entries) {
        if (QFile::symLinkTarget(descriptors.filePath(entry)) == path)
            return true;
    }
    return false;
}

const QString workFolder = QStringLiteral("/tmp/loadertest");
const QString databaseFile = workFolder + QStringLiteral("/std1.db");

void writeDatabase(const QStringList &files)
{
    QByteArray content = workFolder.toUtf8() + "\n";
    for (const QString &file : files) {
        QVERIFY(sandbox::writeFile(workFolder + "/" + file, "*PPD-Adobe: \"4.3\"\n"));
        content += file.toUtf8() + ";Maker " + file.left(1).toUtf8() + ";Model;Driver\n";
    }
    QVERIFY(sandbox::writeFile(databaseFile, content));
}

} // namespace

// What the worker records, on its own thread, when the loader emits completed() and
// when its thread ends; and whether that end came before the loader was torn down.
class LoaderWatch : public QObject
{
    Q_OBJECT
public:
    void watch(PPDSetLoader *loader)
    {
        connect(loader, SIGNAL(completed()), this, SLOT(recordCompleted()), Qt::DirectConnection);
        // The destructor joins the thread through Qt, which the tool cannot see; the
        // thread's last act and the teardown after the join meet on m_mutex instead.
        connect(loader->thread(), SIGNAL(finished()), this, SLOT(recordThreadEnd()),
                Qt::DirectConnection);
        connect(loader, SIGNAL(destroyed()), this, SLOT(recordDestroyed()), Qt::DirectConnection);
    }
    int emitted() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_completed;
    }
    QThread *emitter() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_emitter;
    }
    bool threadEndedBeforeTeardown() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_endedBeforeTeardown;
    }

private slots:
    void recordCompleted()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_completed;
        m_emitter = QThread::currentThread();
    }
    void recordThreadEnd()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_threadEnded = true;
    }
    void recordDestroyed()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_endedBeforeTeardown = m_threadEnded;
    }

private:
    mutable std::mutex m_mutex;
    int m_completed = 0;
    QThread *m_emitter = nullptr;
    bool m_threadEnded = false;
    bool m_endedBeforeTeardown = false;
};

class TestPpdSetLoader : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void livesOnItsOwnRunningThread();
    void loadReturnsBeforeAnyFileIsRead();
    void completedArrivesLaterOnTheGuiThread();
    void secondLoadReadsTheDatabasesAgain();
    void idleLoaderStopsAtOnceWhenDestroyed();
    void destroyedWhileLoadingWaitsForTheLoad();

private:
    QList<PPDSet *> m_sets;
    std::unique_ptr<MessageCapture> messages;
    // A catalogue that knows the test's database (and owns nothing yet).
    PPDSet *newSet();
};

void TestPpdSetLoader::initTestCase()
{
    REQUIRE_SANDBOX();
    messages.reset(new MessageCapture);
}

void TestPpdSetLoader::init()
{
    sandbox::removePath(workFolder);
    messages->clear();
}

void TestPpdSetLoader::cleanup()
{
    for (PPDSet *set : qAsConst(m_sets)) {
        freeCatalogue(*set);
        delete set;
    }
    m_sets.clear();
    // A request the meta-object system cannot queue is only reported as a warning.
    const QStringList warnings = messages->warnings();
    QVERIFY2(warnings.isEmpty(), qPrintable(warnings.join('\n')));
}

// Watches the loader's completed() and asks it to load the set, with the worker held
// (handover::holdNext) until the test calls handover::release().
void startHeldLoad(PPDSetLoader &loader, PPDSet *set, LoaderWatch &completion)
{
    completion.watch(&loader);
    handover::holdNext(&loader);
    loader.load(set);
}

PPDSet *TestPpdSetLoader::newSet()
{
    m_sets.append(new PPDSet);
    m_sets.last()->addDatabase(databaseFile);
    return m_sets.last();
}

void TestPpdSetLoader::livesOnItsOwnRunningThread()
{
    PPDSetLoader loader;
    QVERIFY(loader.parent() == nullptr);
    QVERIFY(loader.thread() != QThread::currentThread());
    QVERIFY(loader.thread()->isRunning());
    QCOMPARE(loader.thread()->priority(), QThread::InheritPriority);
    // The thread belongs to the loader: it is neither a child nor shared with others.
    QVERIFY(loader.thread()->parent() == nullptr);
    PPDSetLoader other;
    QVERIFY(other.thread() != loader.thread());

    const QMetaObject *meta = loader.metaObject();
    QVERIFY(meta->indexOfSignal("completed()") >= 0);
    QVERIFY(meta->indexOfSlot("load(PPDSet*)") >= 0);
    const int doLoading = meta->indexOfSlot("doLoading(void*)");
    QVERIFY(doLoading >= 0);
    QCOMPARE(meta->method(doLoading).access(), QMetaMethod::Private);
}

void TestPpdSetLoader::loadReturnsBeforeAnyFileIsRead()
{
    PPDSet *set = newSet();
    LoaderWatch completion;
    PPDSetLoader loader;
    startHeldLoad(loader, set, completion);
    // load() has returned while the worker is held: nothing is read yet.
    QVERIFY(!set->loaded);
    QVERIFY(set->ppds.isEmpty());
    QCOMPARE(completion.emitted(), 0);

    // The database and its drivers only come into being now, after load() returned, so
    // finding them in the catalogue shows that the reading happened afterwards.
    writeDatabase({"a.ppd", "b.ppd"});
    handover::release();

    QTRY_COMPARE(completion.emitted(), 1);
    QVERIFY(!handover::heldTooLong());
    QVERIFY(set->loaded);
    QCOMPARE(set->ppds.size(), 2);
    QCOMPARE(set->ppds.at(0)->path, workFolder + "/a.ppd");
    QCOMPARE(set->ppds.at(1)->path, workFolder + "/b.ppd");
}

void TestPpdSetLoader::completedArrivesLaterOnTheGuiThread()
{
    writeDatabase({"a.ppd", "b.ppd", "c.ppd"});
    PPDSet *set = newSet();
    LoaderWatch completion;

    PPDSetLoader loader;
    QObject receiver;
    int arrivals = 0;
    QThread *arrivedOn = nullptr;
    int entriesOnArrival = -1;
    int emittedOnArrival = -1;
    connect(&loader, &PPDSetLoader::completed, &receiver, [&] {
        ++arrivals;
        arrivedOn = QThread::currentThread();
        // Locking the record also orders the worker's writes before our reads.
        emittedOnArrival = completion.emitted();
        entriesOnArrival = set->ppds.size();
    });
    completion.watch(&loader);
    handover::holdNext(&loader);

    loader.load(set);
    QCOMPARE(arrivals, 0);
    handover::release();

    QTRY_COMPARE(arrivals, 1);
    QCOMPARE(arrivedOn, QThread::currentThread());
    QCOMPARE(completion.emitter(), loader.thread());
    QVERIFY(completion.emitter() != QThread::currentThread());
    QCOMPARE(emittedOnArrival, 1);
    QCOMPARE(entriesOnArrival, 3);
    QVERIFY(set->loaded);
    QVERIFY(!handover::heldTooLong());

    // One load, one signal.
    QTest::qWait(100);
    QCOMPARE(arrivals, 1);
    QCOMPARE(completion.emitted(), 1);
}

void TestPpdSetLoader::secondLoadReadsTheDatabasesAgain()
{
    writeDatabase({"a.ppd", "b.ppd"});
    PPDSet *set = newSet();
    LoaderWatch completion;
    PPDSetLoader loader;
    startHeldLoad(loader, set, completion);
    handover::release();
    QTRY_COMPARE(completion.emitted(), 1);
    QCOMPARE(set->ppds.size(), 2);

    // Held again before the second request is queued, released after our reads above.
    handover::holdNext(&loader);
    loader.load(set);
    handover::release();
    QTRY_COMPARE(completion.emitted(), 2);
    QVERIFY(!handover::heldTooLong());
    QCOMPARE(set->ppds.size(), 4);
    QStringList manufacturers = set->manufacturers();
    std::sort(manufacturers.begin(), manufacturers.end());
    QCOMPARE(manufacturers, QStringList({"Maker a", "Maker b"}));
}

void TestPpdSetLoader::idleLoaderStopsAtOnceWhenDestroyed()
{
    LoaderWatch watch;
    auto *loader = new PPDSetLoader;
    QVERIFY(loader->thread()->isRunning());
    watch.watch(loader);

    QElapsedTimer timer;
    timer.start();
    delete loader;
    const qint64 elapsed = timer.elapsed();

    QVERIFY(watch.threadEndedBeforeTeardown());
    QCOMPARE(watch.emitted(), 0);
    // Quitting an idle event loop is immediate; the bound only leaves room for slow
    // sanitizer builds.
    QVERIFY2(elapsed < 2000, qPrintable(QString::number(elapsed) + " ms"));
}

void TestPpdSetLoader::destroyedWhileLoadingWaitsForTheLoad()
{
    // A long database: three entries whose files exist, then 300,000 lines for a file that
    // does not, each looked up on the file system. The loader is destroyed as soon as the
    // worker has the database open, so its load is certainly running. (A named pipe would
    // block the worker for as long as needed, but the catalogue reads only regular files.)
    QVERIFY(QDir().mkpath(workFolder));
    QByteArray content = workFolder.toUtf8() + "\n";
    for (const char *file : {"a.ppd", "b.ppd", "c.ppd"}) {
        QVERIFY(sandbox::writeFile(workFolder + "/" + file, "*PPD-Adobe: \"4.3\"\n"));
        content += QByteArray(file) + ";HP;Model;Driver\n";
    }
    content += QByteArray("missing.ppd;HP;Model;Driver\n").repeated(300000);
    QVERIFY(sandbox::writeFile(databaseFile, content));
    PPDSet *set = newSet();
    LoaderWatch completion;

    auto *loader = new PPDSetLoader;
    completion.watch(loader);
    loader->load(set);

    bool reading = false;
    QElapsedTimer waiting;
    waiting.start();
    while (!reading && waiting.elapsed() < 20000) {
        reading = openInThisProcess(databaseFile);
        if (!reading)
            QThread::msleep(1);
    }
    QVERIFY2(reading, "the worker never opened the database");
    delete loader;

    QVERIFY(completion.threadEndedBeforeTeardown());
    QCOMPARE(completion.emitted(), 1);
    QVERIFY(set->loaded);
    QCOMPARE(set->ppds.size(), 3);
}

QTEST_GUILESS_MAIN(TestPpdSetLoader)
#include "tst_ppdsetloader.moc"
