// What another local user can do to the device list cache that the units following the
// attached printer write (printerconfig-usb, run as root at boot and when a printer is
// plugged in): any user can plant things in /tmp, where the cache is written, before the
// boot unit runs. Each case runs the built helper as the units do; what the hot-plug run
// does with the scheduler's queues is tst_hostile_usb_cups's.
#include "common/paths.h"
#include "printer/printer.h"
#include "support/attacker.h"
#include "support/sandbox.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString cache = paths::lpinfoCache();
const QString backend = paths::backendFolder() + QStringLiteral("/usb");
const QString victim = QStringLiteral("/tmp/victim");

// The usb backend, listing one printer with the given address.
bool attach(const QByteArray &uri)
{
    return sandbox::writeFile(backend, "#!/bin/sh\ncat <<'END'\ndirect " + uri +
                                           " \"Acme Label\" \"Label\" \"\" \"\"\nEND\n") &&
           ::chmod(QFile::encodeName(backend).constData(), 0755) == 0;
}

// The helper, run as the given command line of a unit; prefix (such as setpriv) first.
sandbox::ProcessRun helper(const QString &mode, const QStringList &prefix = {})
{
    const QString program = sandbox::helperPath();
    if (prefix.isEmpty())
        return sandbox::runProgram(program, {mode});
    return sandbox::runProgram(prefix.first(), prefix.mid(1) + QStringList{program, mode});
}

// Whether the tool ran "lpinfo" (the sandbox's recording fake) since the last clear.
bool lpinfoRan()
{
    for (const QStringList &call : sandbox::fakeCalls()) {
        if (call.first() == QLatin1String("lpinfo"))
            return true;
    }
    return false;
}

// The helper as the units run it: without any capability (the hot-plug unit has none,
// the boot unit only the one to give printers.conf its group back), so without the
// rights to override file permissions and ownership.
const QStringList withoutCapabilities = {QStringLiteral("setpriv"),
                                         QStringLiteral("--bounding-set=-all"),
                                         QStringLiteral("--inh-caps=-all")};

// A USB printer's record, as the configure run asks it for the address to use.
QString configureRunAddress()
{
    Printer record;
    record.name = QStringLiteral("Label");
    record.printer_class = QStringLiteral("direct");
    record.device_uri = QStringLiteral("usb://Acme/Label?serial=42");
    return record.GetPrinterDevice();
}

QStringList leftovers()
{
    return QDir(paths::scratchFolder())
        .entryList({QStringLiteral(".lpinfo.log.*")},
                   QDir::AllEntries | QDir::Hidden | QDir::System);
}

} // namespace

class TestHostileUsb : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        REQUIRE_SANDBOX();
        REQUIRE_BUILT_HELPER();
    }
    void init()
    {
        for (const QString &path : {cache, victim, backend})
            sandbox::removePath(path);
        for (const QString &name : leftovers())
            sandbox::removePath(paths::scratchFolder() + QLatin1Char('/') + name);
        sandbox::clearFakeCalls();
    }

    // A link another user plants at the cache's path, pointing at a file of root's: the
    // cache is never written through it.
    void aLinkPlantedAtTheCacheIsNeverWrittenThrough()
    {
        REQUIRE_ATTACKER();
        QVERIFY(sandbox::writeFile(victim, "root's own\n"));
        QVERIFY(attacker::plantLink(cache, victim));
        QVERIFY(attach("usb://Acme/Label?serial=42"));
        const sandbox::ProcessRun run = helper(QStringLiteral("--cache"));
        QVERIFY2(run.status == 0, qPrintable(run.output));
        QCOMPARE(sandbox::readFile(victim), QByteArray("root's own\n"));
        QCOMPARE(leftovers(), QStringList());
    }

    // In the units the helper runs without the rights to override file permissions and
    // ownership. /tmp is root's folder, so root may still replace another user's entry
    // there despite the sticky bit: a planted link or file is replaced by the helper's own
    // cache, never followed or written through.
    void withoutOverridingRightsAPlantedEntryIsReplacedNotFollowed_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::newRow("link") << QStringLiteral("link");
        QTest::newRow("file") << QStringLiteral("file");
    }
    void withoutOverridingRightsAPlantedEntryIsReplacedNotFollowed()
    {
        REQUIRE_ATTACKER();
        QFETCH(QString, kind);
        QVERIFY(sandbox::writeFile(victim, "root's own\n"));
        if (kind == QLatin1String("link"))
            QVERIFY(attacker::plantLink(cache, victim));
        else
            QVERIFY(attacker::plantFile(cache, "direct usb://Attacker/Choice\n", 0666));
        QVERIFY(attach("usb://Acme/Label?serial=42"));
        const sandbox::ProcessRun run = helper(
            QStringLiteral("--cache"),
            {QStringLiteral("setpriv"), QStringLiteral("--bounding-set=-fowner,-dac_override"),
             QStringLiteral("--inh-caps=-fowner,-dac_override")});
        QVERIFY2(run.status == 0, qPrintable(run.output));
        const sandbox::PathEntry entry = sandbox::entryAt(cache);
        QVERIFY2(entry.regular && entry.ownerId == 0 && entry.mode == 0600 && entry.names == 1,
                 qPrintable(entry.describe()));
        QCOMPARE(sandbox::readFile(cache), QByteArray("direct usb://Acme/Label?serial=42\n"));
        QCOMPARE(sandbox::readFile(victim), QByteArray("root's own\n"));
        QCOMPARE(leftovers(), QStringList());
    }

    // A pipe at the cache's path would block a reader forever; the helper never opens it.
    void aPipePlantedAtTheCacheDoesNotBlock()
    {
        REQUIRE_ATTACKER();
        QVERIFY(attacker::act([] { return ::mkfifo("/tmp/.lpinfo.log", 0666) == 0; }));
        QVERIFY(attach("usb://Acme/Label?serial=42"));
        const sandbox::ProcessRun run = helper(QStringLiteral("--cache"), {});
        QVERIFY2(run.status == 0, qPrintable(run.output));
        QCOMPARE(sandbox::readFile(cache), QByteArray("direct usb://Acme/Label?serial=42\n"));
        const sandbox::PathEntry entry = sandbox::entryAt(cache);
        QVERIFY2(entry.regular && entry.ownerId == 0 && entry.mode == 0600,
                 qPrintable(entry.describe()));
    }

    // A folder planted at the cache's path before the boot unit runs (a local user's
    // @reboot job can race it) is renamed out of the way whole, never followed into or
    // emptied, and the cache is written; the configure run then finds the attached
    // printer there instead of falling back to usb:/dev/usb/lp0.
    void aFolderPlantedAtTheCacheIsMovedAsideAndTheBootFindsThePrinter()
    {
        REQUIRE_ATTACKER();
        QVERIFY(attacker::plantFolder(cache, 0777));
        QVERIFY(attacker::plantFolder(cache + QStringLiteral("/inside"), 0755));
        QVERIFY(attacker::plantFile(cache + QStringLiteral("/inside/note"), "nobody's\n"));
        QVERIFY(attach("usb://Acme/Label?serial=43"));
        const sandbox::ProcessRun run = helper(QStringLiteral("--cache"), withoutCapabilities);
        QVERIFY2(run.status == 0, qPrintable(run.output));
        const sandbox::PathEntry entry = sandbox::entryAt(cache);
        QVERIFY2(entry.regular && entry.ownerId == 0 && entry.mode == 0600 && entry.names == 1,
                 qPrintable(entry.describe()));
        QCOMPARE(sandbox::readFile(cache), QByteArray("direct usb://Acme/Label?serial=43\n"));

        const QStringList aside = leftovers();
        QCOMPARE(aside.size(), 1);
        QVERIFY2(aside.first().startsWith(QLatin1String(".lpinfo.log.aside-")),
                 qPrintable(aside.first()));
        const QString moved = paths::scratchFolder() + QLatin1Char('/') + aside.first();
        const sandbox::PathEntry folder = sandbox::entryAt(moved);
        QVERIFY2(folder.folder && folder.ownerId == attacker::userId,
                 qPrintable(folder.describe()));
        QCOMPARE(sandbox::readFile(moved + QStringLiteral("/inside/note")),
                 QByteArray("nobody's\n"));
        QVERIFY2(run.output.contains(moved), qPrintable(run.output));

        QCOMPARE(configureRunAddress(), QStringLiteral("usb://Acme/Label?serial=43"));
        QVERIFY(!lpinfoRan());
    }

    // The helper writes no device list that the configure run would refuse as too large
    // (and then replace by running lpinfo, which cannot reach the scheduler at boot): a
    // backend listing more printers than fit keeps the first ones, in whole lines, within
    // the one limit of the cache, 1 MiB.
    void theDeviceListStaysWithinTheLimitTheConfigureRunReads()
    {
        // 20000 printers: about 1.8 MB of device list, within what a backend may print.
        QVERIFY(sandbox::writeFile(
            backend, "#!/bin/sh\n"
                     "i=0\n"
                     "while [ $i -lt 20000 ]; do\n"
                     "    printf 'direct usb://Acme/Label?serial=%060d \"Acme Label\" \"Label\" "
                     "\"\" \"\"\\n' $i\n"
                     "    i=$((i + 1))\n"
                     "done\n"));
        QVERIFY(::chmod(QFile::encodeName(backend).constData(), 0755) == 0);
        const sandbox::ProcessRun run = helper(QStringLiteral("--cache"));
        QVERIFY2(run.status == 0, qPrintable(run.output));
        const QByteArray list = sandbox::readFile(cache);
        QVERIFY2(list.size() <= 1024 * 1024, qPrintable(QString::number(list.size())));
        QVERIFY2(list.size() > 1024 * 1024 - 100, qPrintable(QString::number(list.size())));
        QVERIFY(list.endsWith('\n'));
        const QByteArray first = "usb://Acme/Label?serial=" + QByteArray(60, '0');
        QVERIFY(list.startsWith("direct " + first + '\n'));
        const QList<QByteArray> lines = list.split('\n');
        for (int i = 0; i + 1 < lines.size(); ++i)
            QCOMPARE(lines.at(i), "direct usb://Acme/Label?serial=" +
                                      QByteArray::number(i).rightJustified(60, '0'));

        QCOMPARE(configureRunAddress(), QString::fromLatin1(first));
        QVERIFY(!lpinfoRan());
        QCOMPARE(sandbox::readFile(cache), list);
    }
};

QTEST_GUILESS_MAIN(TestHostileUsb)
#include "tst_hostile_usb.moc"
