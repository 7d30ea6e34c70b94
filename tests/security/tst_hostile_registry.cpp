#include "common/paths.h"
#include "printer/printer.h"
#include "support/childprocess.h"
#include "support/printermap.h"
#include "support/sandbox.h"
#include "support/shellrecorder.h"

#include <QtTest>

#include <sys/stat.h>

namespace {

const QString registry = paths::registryFolder();
const QString defaultEntry = registry + QStringLiteral("/default");

// Reads the registry in a child process, so that a read that blocks fails the test at
// the time limit instead of hanging it. Returns "default name|path=name;path=name..."
// with the paths in sorted order.
struct Read
{
    childprocess::Outcome outcome;
    QString defaultName;
    QMap<QString, QString> names; // path -> name
};

Read readRegistry()
{
    Read read;
    read.outcome = childprocess::run(
        [] {
            const QHash<QString, Printer *> printers = Printer::GetPrinters();
            QMap<QString, QString> names;
            for (auto it = printers.cbegin(); it != printers.cend(); ++it)
                names.insert(it.key(), it.value()->name);
            qDeleteAll(printers);
            QByteArray out;
            QDataStream stream(&out, QIODevice::WriteOnly);
            stream << Printer::defaultPrinterName() << names;
            return out;
        },
        2000); // short: a read of /dev/zero grows by the second
    QDataStream stream(read.outcome.result);
    stream >> read.defaultName >> read.names;
    return read;
}

bool makeFifo(const QString &path)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    return ::mkfifo(QFile::encodeName(path).constData(), 0644) == 0;
}

bool linkToDevZero(const QString &path)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    return QFile::link(QStringLiteral("/dev/zero"), path);
}

} // namespace

class TestHostileRegistry : public QObject
{
    Q_OBJECT

private:
    void verifyPromptRead(const Read &read)
    {
        QVERIFY2(read.outcome.finished, "reading the registry did not end");
        QVERIFY2(read.outcome.elapsedMs < 1000,
                 qPrintable(QString::number(read.outcome.elapsedMs)));
    }

private slots:
    void initTestCase() { REQUIRE_SANDBOX(); }
    void init()
    {
        sandbox::removePath(QStringLiteral("/tmp/config"));
        sandbox::removePath(QStringLiteral("/etc/cups/x.pr"));
        Printer::setDefaultPrinterName(QString());
        QVERIFY(postScriptPrinter(QStringLiteral("Office")).Commit());
    }

    void namedPipeAsDefaultEntryGivesNoDefaultWithoutWaiting()
    {
        QVERIFY(makeFifo(defaultEntry));
        const Read read = readRegistry();
        verifyPromptRead(read);
        QCOMPARE(read.defaultName, QString());
        QCOMPARE(read.names.values(), QStringList{QStringLiteral("Office")});
        QCOMPARE(read.outcome.errors, QByteArray("libzeq2: ignoring " + defaultEntry.toUtf8() +
                                                 ": not a regular file\n"));
    }

    void devZeroAsDefaultEntryGivesNoDefaultWithoutReading()
    {
        QVERIFY(linkToDevZero(defaultEntry));
        const Read read = readRegistry();
        verifyPromptRead(read);
        QCOMPARE(read.defaultName, QString());
        QCOMPARE(read.names.size(), 1);
        QVERIFY(read.outcome.errors.contains(defaultEntry.toUtf8()));
    }

    void namedPipeOrDevZeroAsRecordIsNoPrinter()
    {
        QVERIFY(makeFifo(registry + QStringLiteral("/Pipe.pr")));
        QVERIFY(linkToDevZero(registry + QStringLiteral("/Zero.pr")));
        const Read read = readRegistry();
        verifyPromptRead(read);
        QCOMPARE(read.names.keys(), QStringList{registry + QStringLiteral("/Office.pr")});
    }

    void namedPipeOrDevZeroAtARecordPathLoadsDefaults()
    {
        QVERIFY(makeFifo(registry + QStringLiteral("/Pipe.pr")));
        QVERIFY(linkToDevZero(registry + QStringLiteral("/Zero.pr")));
        for (const QString &name : {QStringLiteral("Pipe"), QStringLiteral("Zero")}) {
            const childprocess::Outcome run = childprocess::run(
                [&] {
                    Printer p;
                    p.ppd = QStringLiteral("stale");
                    p.set_path(registry + QLatin1Char('/') + name + QStringLiteral(".pr"));
                    p.Load();
                    return (p.name + QLatin1Char('|') + p.ppd).toUtf8();
                },
                2000);
            QVERIFY(run.finished);
            QVERIFY2(run.elapsedMs < 1000, qPrintable(QString::number(run.elapsedMs)));
            QCOMPARE(run.result, QByteArray("|"));
            QCOMPARE(run.errors.count('\n'), 1);
        }
    }

    void recordOverOneMebibyteAppearsWithDefaultFields()
    {
        const QString big = registry + QStringLiteral("/Big.pr");
        QVERIFY(sandbox::writeFile(big, "name=Big\nmodel=" + QByteArray(1 << 20, 'm') + "\n"));
        const Read read = readRegistry();
        verifyPromptRead(read);
        QCOMPARE(read.names.size(), 2);
        QVERIFY(read.names.contains(big));
        QCOMPARE(read.names.value(big), QString());
        QCOMPARE(read.outcome.errors,
                 QByteArray("libzeq2: ignoring " + big.toUtf8() + ": larger than 1048576 bytes\n"));
    }

    void printerWithEmptyNameIsListedAndDeletable()
    {
        Printer unnamed = postScriptPrinter(QString());
        QCOMPARE(unnamed.path(), registry + QStringLiteral("/.pr"));
        QVERIFY(unnamed.Commit());
        QHash<QString, Printer *> printers = Printer::GetPrinters();
        QVERIFY(printers.contains(registry + QStringLiteral("/.pr")));
        QVERIFY(printers.value(registry + QStringLiteral("/.pr"))->Remove());
        qDeleteAll(printers);
        QVERIFY(!QFileInfo::exists(registry + QStringLiteral("/.pr")));
    }

    void filesEndingInUpperOrMixedCaseExtensionsAreNoPrinters()
    {
        QVERIFY(sandbox::writeFile(registry + QStringLiteral("/Upper.PR"), "name=Upper\n"));
        QVERIFY(sandbox::writeFile(registry + QStringLiteral("/Mixed.Pr"), "name=Mixed\n"));
        const Read read = readRegistry();
        QCOMPARE(read.names.values(), QStringList{QStringLiteral("Office")});
    }

    void nameWithNulNeverReachesTheShell()
    {
        // With an ordinary name the same calls do run commands.
        const auto commandsFor = [](const QString &name) {
            return childprocess::run([name] {
                ShellRecorder shell;
                Printer p = postScriptPrinter(name);
                p.SetDefault();
                p.Uninstall();
                p.SetCupsDefault();
                p.PrintTestPage();
                return shell.commands().join(QLatin1Char('\n')).toUtf8();
            });
        };
        const childprocess::Outcome plain = commandsFor(QStringLiteral("A"));
        QVERIFY(plain.finished);
        QVERIFY(plain.result.contains("lpadmin -x A\n"));

        const childprocess::Outcome run =
            commandsFor(QStringLiteral("A") + QChar(0) + QStringLiteral("B"));
        QVERIFY(run.finished);
        QCOMPARE(run.result, QByteArray());
        QCOMPARE(run.errors.count("NUL character"), 4);
    }

    void commitOutsideTheRegistryWritesNothing_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("target");
        QTest::newRow("three levels up")
            << QStringLiteral("../../../etc/x") << QStringLiteral("/tmp/config/etc/x.pr");
        QTest::newRow("into /etc/cups")
            << QStringLiteral("../../../../../etc/cups/x") << QStringLiteral("/etc/cups/x.pr");
        QTest::newRow("down and up again") << QStringLiteral("sub/../../x")
                                           << QStringLiteral("/tmp/config/registry/hardware/x.pr");
    }
    void commitOutsideTheRegistryWritesNothing()
    {
        QFETCH(QString, name);
        QFETCH(QString, target);
        const childprocess::Outcome run = childprocess::run([&] {
            Printer p = postScriptPrinter(name);
            p.SetDefault();
            return QByteArray(p.Commit() ? "written" : "refused");
        });
        QCOMPARE(run.result, QByteArray("refused"));
        QVERIFY(!QFileInfo::exists(target));
        QVERIFY(!QFileInfo::exists(defaultEntry)); // nothing at all is done
        QVERIFY(run.errors.contains("printerconfig: not writing "));
        QVERIFY(run.errors.contains(name.toUtf8()));
    }

    void removeOutsideTheRegistryDeletesNothing()
    {
        const QString target = QStringLiteral("/tmp/config/etc/x.pr");
        QVERIFY(sandbox::writeFile(target, "name=../../../etc/x\n"));
        Printer office = postScriptPrinter(QStringLiteral("Office"));
        office.SetDefault();
        QVERIFY(office.Commit());
        const childprocess::Outcome run = childprocess::run([] {
            Printer p = postScriptPrinter(QStringLiteral("../../../etc/x"));
            Printer::setDefaultPrinterName(p.name);
            return QByteArray(p.Remove() ? "removed" : "refused");
        });
        QCOMPARE(run.result, QByteArray("refused"));
        QVERIFY(QFileInfo::exists(target));
        QVERIFY(QFileInfo::exists(defaultEntry));
        QVERIFY(run.errors.contains("printerconfig: not removing "));
    }

    void nameWithASlashStayingInsideWritesIntoASubfolder()
    {
        Printer p = postScriptPrinter(QStringLiteral("floor2/Office"));
        QVERIFY(p.Commit());
        QVERIFY(QFileInfo(registry + QStringLiteral("/floor2/Office.pr")).isFile());
        QVERIFY(p.Remove());
        QVERIFY(!QFileInfo::exists(registry + QStringLiteral("/floor2/Office.pr")));
    }
};

QTEST_GUILESS_MAIN(TestHostileRegistry)
#include "tst_hostile_registry.moc"
