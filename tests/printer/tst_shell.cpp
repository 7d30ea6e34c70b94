#include "printer/shell.h"
#include "support/childprocess.h"
#include "support/sandbox.h"

#include <QtTest>

// The program's own way of running command lines: what reaches an installed runner, what
// reaches the platform library, and what reaches neither.
class TestShell : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { REQUIRE_SANDBOX(); }
    void init() { sandbox::removePath(QStringLiteral("/tmp/ran")); }

    void withoutARunnerTheLineRunsThroughThePlatformShell()
    {
        QCOMPARE(shell::run(QStringLiteral("touch /tmp/ran; exit 4")), 4);
        QVERIFY(QFileInfo::exists(QStringLiteral("/tmp/ran")));
    }

    void installedRunnerReceivesCommandsInsteadOfTheShell()
    {
        QStringList seen;
        shell::Runner previous = shell::setRunner([&](const QString &c) {
            seen << c;
            return 7;
        });
        const int status = shell::run(QStringLiteral("touch /tmp/ran"));
        shell::setRunner(previous);
        QCOMPARE(status, 7);
        QCOMPARE(seen, QStringList{QStringLiteral("touch /tmp/ran")});
        QVERIFY(!QFileInfo::exists(QStringLiteral("/tmp/ran")));
    }

    void lineWithNulReachesNeitherTheRunnerNorTheShell()
    {
        const childprocess::Outcome run = childprocess::run([] {
            QStringList seen;
            shell::setRunner([&](const QString &c) {
                seen << c;
                return 0;
            });
            const int refused =
                shell::run(QStringLiteral("lpadmin -x A") + QChar(0) + QStringLiteral("B"));
            const int accepted = shell::run(QStringLiteral("lpadmin -x A"));
            shell::setRunner(nullptr);
            const int unrun = shell::run(QStringLiteral("touch /tmp/ran") + QChar(0));
            return QStringLiteral("%1 %2 %3 %4")
                .arg(refused)
                .arg(accepted)
                .arg(unrun)
                .arg(seen.join(QLatin1Char('|')))
                .toUtf8();
        });
        QVERIFY(run.finished);
        QCOMPARE(run.result, QByteArray("-1 0 -1 lpadmin -x A"));
        QVERIFY(!QFileInfo::exists(QStringLiteral("/tmp/ran")));
        QCOMPARE(run.errors, QByteArray("printerconfig: not running a command that contains a NUL "
                                        "character: lpadmin -x A\\x00B\n"
                                        "printerconfig: not running a command that contains a NUL "
                                        "character: touch /tmp/ran\\x00\n"));
    }

    void programsAreGivenThirtySecondsByDefault()
    {
        // The tests below choose a shorter time so as not to wait half a minute; what they
        // show holds for the default alike.
        QCOMPARE(shell::programTimeoutMs, 30000);
    }

    void aProgramThatOutstaysItsTimeIsKilledThen_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<bool>("takesOutput");
        QTest::newRow("output taken, still printing")
            << QStringLiteral("while :; do echo line; sleep 0.05; done") << true;
        QTest::newRow("output taken, closed") << QStringLiteral("exec >&-; exec sleep 30") << true;
        QTest::newRow("output not taken") << QStringLiteral("exec sleep 30") << false;
    }
    void aProgramThatOutstaysItsTimeIsKilledThen()
    {
        QFETCH(QString, script);
        QFETCH(bool, takesOutput);
        const childprocess::Outcome run = childprocess::run(
            [&] {
                QByteArray output;
                QElapsedTimer clock;
                clock.start();
                const int status =
                    shell::runProgram({QStringLiteral("sh"), QStringLiteral("-c"), script},
                                      takesOutput ? &output : nullptr, 1500);
                return QStringLiteral("%1 %2").arg(status).arg(clock.elapsed()).toUtf8();
            },
            20000);
        QVERIFY(run.finished);
        const QList<QByteArray> fields = run.result.split(' ');
        QCOMPARE(fields.size(), 2);
        QCOMPARE(fields.at(0), QByteArray("-1"));
        const int elapsedMs = fields.at(1).toInt();
        QVERIFY2(elapsedMs >= 1500 && elapsedMs < 6000, run.result.constData());
        // The child's standard error closes only once the killed program has gone.
        QCOMPARE(run.errors,
                 QByteArray("printerconfig: stopping sh: it did not end within 1500 ms\n"));
    }

    void aProgramThatEndsInTimeGivesItsStatusAndOutput()
    {
        QByteArray output;
        QCOMPARE(shell::runProgram({QStringLiteral("sh"), QStringLiteral("-c"),
                                    QStringLiteral("sleep 0.2; echo done; exit 3")},
                                   &output, 1500),
                 3);
        QCOMPARE(output, QByteArray("done\n"));
    }
};

QTEST_GUILESS_MAIN(TestShell)
#include "tst_shell.moc"
