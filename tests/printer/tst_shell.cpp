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
};

QTEST_GUILESS_MAIN(TestShell)
#include "tst_shell.moc"
