// A backend that outlives its 30 second wait. Slow by nature: the limit is fixed, so this
// test takes a little over half a minute.
#include "support/discoveryrunner.h"
#include "support/sandbox.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTest>

class TestStalledBackend : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void laterBackendsWaitOnStalledOneAndItsOutputStillCounts();
};

void TestStalledBackend::initTestCase()
{
    REQUIRE_SANDBOX();
    backends::clear();
    QVERIFY(QDir().mkpath(QStringLiteral("/tmp/marks")));
}

void TestStalledBackend::laterBackendsWaitOnStalledOneAndItsOutputStillCounts()
{
    // "a-stalled" overruns its 30 s wait by one second, so it ends during the wait that
    // follows the refused start of "b-refused"; "c-after" then starts normally.
    QVERIFY(backends::addScript(QStringLiteral("a-stalled"),
                                "echo 'network socket://early \"Early\" \"d\"'\n"
                                "sleep 31\n"
                                "echo 'network socket://late \"Late\" \"d\"'\n"
                                "touch /tmp/marks/stalled-done\n"));
    QVERIFY(backends::addScript(QStringLiteral("b-refused"),
                                "touch /tmp/marks/refused-ran\n"
                                "echo 'network socket://refused \"Refused\" \"d\"'\n"));
    QVERIFY(backends::addScript(QStringLiteral("c-after"),
                                "touch /tmp/marks/after-ran\n"
                                "echo 'network socket://after \"After\" \"d\"'\n"));

    DiscoveryRunner runner;
    QElapsedTimer clock;
    clock.start();
    QVERIFY(runner.run(90000));
    const qint64 elapsed = clock.elapsed();
    qInfo("run took %lld ms", elapsed);

    // Both of the stalled backend's lines are read once it ends; the refused backend
    // never ran; the one after it ran as usual.
    QCOMPARE(runner.models(), (QStringList{QStringLiteral("Early"), QStringLiteral("Late"),
                                           QStringLiteral("After")}));
    QVERIFY(QFile::exists(QStringLiteral("/tmp/marks/stalled-done")));
    QVERIFY(!QFile::exists(QStringLiteral("/tmp/marks/refused-ran")));
    QVERIFY(QFile::exists(QStringLiteral("/tmp/marks/after-ran")));
    // The first wait ran out at 30 s; the second ended when the stalled backend did, not
    // at its own limit.
    QVERIFY2(elapsed >= 31000, qPrintable(QString::number(elapsed)));
    QVERIFY2(elapsed < 55000, qPrintable(QString::number(elapsed)));
}

QTEST_GUILESS_MAIN(TestStalledBackend)
#include "tst_stalledbackend.moc"
