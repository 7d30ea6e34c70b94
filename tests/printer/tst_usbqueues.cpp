// The device's USB queues and the device list cache following the USB printers attached
// now: which queues are the device's, which of them follow which printer, the busy
// printers kept in the list, the "lpadmin -p NAME -v URI" lines, and how the cache is
// written. The scheduler's answer is given as data here; tst_hostile_usb_cups asks CUPS's
// own scheduler.
#include "common/paths.h"
#include "printer/device.h"
#include "printer/printer.h"
#include "printer/shell.h"
#include "printer/usbqueues.h"
#include "support/sandbox.h"
#include "support/stderrcapture.h"

#include <QDir>
#include <QFile>
#include <QTest>

namespace {

const QString cache = paths::lpinfoCache();
const QString label = QStringLiteral("usb://Acme/Label?serial=42");
const QString swapped = QStringLiteral("usb://Acme/Label?serial=43");
const QString receipt = QStringLiteral("usb://Star/TSP143?serial=7");

// Installs itself as the program runner for its lifetime: records every call and answers
// each with the status given for its queue (0 when none is given).
class ProgramRecorder
{
public:
    explicit ProgramRecorder(const QHash<QString, int> &statusOfQueue = {})
        : m_previous(shell::setProgramRunner([=](const QStringList &argv, QByteArray *) {
            calls += argv;
            return argv.size() > 2 ? statusOfQueue.value(argv.at(2), 0) : 0;
        }))
    {
    }
    ~ProgramRecorder() { shell::setProgramRunner(std::move(m_previous)); }
    QList<QStringList> calls;

private:
    shell::ProgramRunner m_previous;
};

scheduler::Queue queue(const QString &name, const QString &uri, bool processing = false,
                       bool temporary = false)
{
    scheduler::Queue q;
    q.name = name;
    q.deviceUri = uri;
    q.processing = processing;
    q.temporary = temporary;
    return q;
}

// A queue whose job waits for its printer and whose backend says it is connecting to it
// (CUPS's usb backend does not say so: such a queue is plainly processing).
scheduler::Queue connecting(const QString &name, const QString &uri)
{
    scheduler::Queue q = queue(name, uri, true);
    q.connecting = true;
    return q;
}

bool storeRecord(const QString &name, const QString &uri)
{
    Printer p;
    p.name = name;
    p.printer_class =
        uri.startsWith(QLatin1String("usb")) ? QStringLiteral("direct") : QStringLiteral("network");
    p.device_uri = uri;
    p.UpdatePath();
    return p.Commit();
}

QStringList leftovers()
{
    return QDir(paths::scratchFolder())
        .entryList({QStringLiteral(".lpinfo.log.*")},
                   QDir::AllEntries | QDir::Hidden | QDir::System);
}

void removeCacheAndLeftovers()
{
    sandbox::removePath(cache);
    for (const QString &name : leftovers())
        sandbox::removePath(paths::scratchFolder() + QLatin1Char('/') + name);
}

const QString backend = paths::backendFolder() + QStringLiteral("/usb");

// The usb backend as a shell script of ours, mode 0755.
bool installBackend(const QByteArray &script)
{
    return sandbox::writeFile(backend, "#!/bin/sh\n" + script) &&
           QFile::setPermissions(backend, QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                              QFileDevice::ExeOwner | QFileDevice::ReadGroup |
                                              QFileDevice::ExeGroup | QFileDevice::ReadOther |
                                              QFileDevice::ExeOther);
}

// Runs the helper as the hot-plug unit does, in the sandbox without a scheduler: it writes
// the device list and moves no queue.
bool followWithoutScheduler()
{
    const sandbox::ProcessRun run =
        sandbox::runProgram(sandbox::helperPath(), {QStringLiteral("--follow")});
    if (run.status != 0 || !run.output.contains(QLatin1String(
                               "printerconfig: not following the attached printers: cannot "
                               "reach the scheduler"))) {
        qWarning("printerconfig-usb --follow ended with %d: %s", run.status,
                 qPrintable(run.output));
        return false;
    }
    return true;
}

} // namespace

Q_DECLARE_METATYPE(scheduler::Queue)
Q_DECLARE_METATYPE(QList<scheduler::Queue>)
Q_DECLARE_METATYPE(QList<usbqueues::Move>)

class TestUsbQueues : public QObject
{
    Q_OBJECT

private slots:
    void theDevicesQueuesAreTheRegistrysUsbRecords()
    {
        REQUIRE_SANDBOX();
        sandbox::removePath(QStringLiteral("/tmp/config"));
        QVERIFY(storeRecord(QStringLiteral("Label"), label));
        QVERIFY(storeRecord(QStringLiteral("Desk"), QStringLiteral("usb:/dev/usb/lp0")));
        QVERIFY(storeRecord(QStringLiteral("Net"), QStringLiteral("socket://usbhost:9100")));
        QVERIFY(storeRecord(QStringLiteral("Lpd"), QStringLiteral("lpd://printhost/usb")));
        QCOMPARE(usbqueues::deviceQueueNames(),
                 QStringList({QStringLiteral("Desk"), QStringLiteral("Label")}));
        sandbox::removePath(QStringLiteral("/tmp/config"));
        QCOMPARE(usbqueues::deviceQueueNames(), QStringList());
    }

    void theSchedulersQueuesOfTheRecordsAreTheDevices()
    {
        const QList<scheduler::Queue> scheduled = {
            queue(QStringLiteral("LABEL"), label),
            queue(QStringLiteral("Desk"), QStringLiteral("usb:/dev/usb/lp0"), true),
            queue(QStringLiteral("Temp"), label, false, true),
            queue(QStringLiteral("Net"), QStringLiteral("socket://10.0.0.1:9100")),
            queue(QStringLiteral("Other"), receipt),
            queue(QStringLiteral("Läbel"), receipt),
        };
        const QList<scheduler::Queue> own = usbqueues::deviceQueues(
            {QStringLiteral("Desk"), QStringLiteral("Label"), QStringLiteral("label"),
             QStringLiteral("Missing"), QStringLiteral("Net"), QStringLiteral("Temp"),
             QStringLiteral("LÄBEL")},
            scheduled);
        // Matched as the scheduler matches names, under the record's own name; a queue
        // two records name is the device's once. Non-ASCII letters are not folded.
        QCOMPARE(own.size(), 2);
        QCOMPARE(own.at(0).name, QStringLiteral("Desk"));
        QCOMPARE(own.at(0).deviceUri, QStringLiteral("usb:/dev/usb/lp0"));
        QVERIFY(own.at(0).processing);
        QCOMPARE(own.at(1).name, QStringLiteral("Label"));
        QCOMPARE(own.at(1).deviceUri, label);
    }

    // A queue processing a job on an address the backend did not list prints on an
    // attached printer only when the bus holds a printer the backend could not open.
    void aQueueIsPrintingOnlyWhenTheBusHoldsAnUnlistedPrinter_data()
    {
        QTest::addColumn<scheduler::Queue>("queue");
        QTest::addColumn<QStringList>("listed");
        QTest::addColumn<int>("printersOnBus");
        QTest::addColumn<bool>("printing");
        const QString name = QStringLiteral("Label");
        QTest::newRow("busy: the only printer, unlisted")
            << queue(name, label, true) << QStringList{} << 1 << true;
        QTest::newRow("busy: another one plugged in and listed")
            << queue(name, label, true) << QStringList{swapped} << 2 << true;
        QTest::newRow("gone: its job waits, the new printer listed")
            << queue(name, label, true) << QStringList{swapped} << 1 << false;
        QTest::newRow("gone: its job waits, nothing attached")
            << queue(name, label, true) << QStringList{} << 0 << false;
        QTest::newRow("gone: the bus counted fewer than listed")
            << queue(name, label, true) << QStringList{swapped, receipt} << 1 << false;
        QTest::newRow("listed: the backend could open it")
            << queue(name, label, true) << QStringList{label} << 2 << false;
        QTest::newRow("idle") << queue(name, label) << QStringList{} << 1 << false;
        QTest::newRow("its backend says it is connecting")
            << connecting(name, label) << QStringList{} << 1 << false;
    }
    void aQueueIsPrintingOnlyWhenTheBusHoldsAnUnlistedPrinter()
    {
        QFETCH(scheduler::Queue, queue);
        QFETCH(QStringList, listed);
        QFETCH(int, printersOnBus);
        QFETCH(bool, printing);
        QCOMPARE(usbqueues::isPrinting(queue, listed, printersOnBus), printing);
    }

    void aBusyPrinterStaysInTheList()
    {
        const QStringList listed = {QStringLiteral("direct ") + swapped};
        const QList<scheduler::Queue> queues = {
            queue(QStringLiteral("Label"), label, true),
            queue(QStringLiteral("Idle"), receipt),
            queue(QStringLiteral("Same"), swapped, true),
            queue(QStringLiteral("Twice"), label, true),
            queue(QStringLiteral("Blank"), QStringLiteral("usb://Acme/Label Two"), true),
            queue(QStringLiteral("Control"), QStringLiteral("usb://Acme/\x1b]0;"), true),
            queue(QStringLiteral("Desk"), QStringLiteral("usb:/dev/usb/lp0"), true),
            connecting(QStringLiteral("Waiting"), receipt),
        };
        QCOMPARE(
            usbqueues::withBusyPrinters(listed, queues, 2),
            QStringList({QStringLiteral("direct ") + swapped, QStringLiteral("direct ") + label}));
        QCOMPARE(usbqueues::withBusyPrinters(listed, {}, 2), listed);
        // Every printer on the bus listed: the processing queues wait for printers that
        // are gone, and none of their addresses is added.
        QCOMPARE(usbqueues::withBusyPrinters(listed, queues, 1), listed);
        QCOMPARE(usbqueues::withBusyPrinters({}, queues, 0), QStringList());
        QCOMPARE(
            usbqueues::withBusyPrinters({}, queues, 1),
            QStringList({QStringLiteral("direct ") + label, QStringLiteral("direct ") + swapped}));
    }

    void theMakeAndModelOfAnAddress_data()
    {
        QTest::addColumn<QString>("uri");
        QTest::addColumn<QString>("model");
        QTest::newRow("serial") << label << QStringLiteral("Acme/Label");
        QTest::newRow("two parameters")
            << QStringLiteral("usb://HP/LaserJet%20P1005?serial=1&interface=1")
            << QStringLiteral("HP/LaserJet%20P1005");
        QTest::newRow("none") << QStringLiteral("usb://Acme/Label") << QStringLiteral("Acme/Label");
        QTest::newRow("device node") << QStringLiteral("usb:/dev/usb/lp0") << QString();
        QTest::newRow("network") << QStringLiteral("socket://10.0.0.1:9100") << QString();
    }
    void theMakeAndModelOfAnAddress()
    {
        QFETCH(QString, uri);
        QFETCH(QString, model);
        QCOMPARE(usbqueues::makeAndModel(uri), model);
    }

    void onlyAQueueWhosePrinterIsGoneFollows_data()
    {
        QTest::addColumn<QList<scheduler::Queue>>("queues");
        QTest::addColumn<QStringList>("listed");
        QTest::addColumn<int>("printersOnBus");
        QTest::addColumn<QList<usbqueues::Move>>("moves");
        const QString other = QStringLiteral("usb://Other/Printer?serial=1");
        QTest::newRow("still attached")
            << QList<scheduler::Queue>{queue(QStringLiteral("Label"), label),
                                       queue(QStringLiteral("Receipt"), receipt)}
            << QStringList{receipt, label} << 2 << QList<usbqueues::Move>{};
        QTest::newRow("gone: its make and model, though listed second")
            << QList<scheduler::Queue>{queue(QStringLiteral("Label"), label),
                                       queue(QStringLiteral("Receipt"), receipt)}
            << QStringList{receipt, swapped} << 2
            << QList<usbqueues::Move>{{QStringLiteral("Label"), swapped}};
        QTest::newRow("gone: no printer of its model, the first listed")
            << QList<scheduler::Queue>{queue(QStringLiteral("Label"), label)}
            << QStringList{other, receipt} << 2
            << QList<usbqueues::Move>{{QStringLiteral("Label"), other}};
        QTest::newRow("the fallback address: the first listed")
            << QList<scheduler::Queue>{queue(QStringLiteral("Desk"),
                                             QStringLiteral("usb:/dev/usb/lp0"))}
            << QStringList{receipt, swapped} << 2
            << QList<usbqueues::Move>{{QStringLiteral("Desk"), receipt}};
        QTest::newRow("busy with a job, another printer plugged in")
            << QList<scheduler::Queue>{queue(QStringLiteral("Label"), label, true)}
            << QStringList{swapped} << 2 << QList<usbqueues::Move>{};
        QTest::newRow("a job waiting for the printer that is gone")
            << QList<scheduler::Queue>{queue(QStringLiteral("Label"), label, true)}
            << QStringList{swapped} << 1
            << QList<usbqueues::Move>{{QStringLiteral("Label"), swapped}};
        QTest::newRow("a job waiting, its backend connecting, another printer busy")
            << QList<scheduler::Queue>{connecting(QStringLiteral("Label"), label)}
            << QStringList{swapped} << 2
            << QList<usbqueues::Move>{{QStringLiteral("Label"), swapped}};
        QTest::newRow("gone, and only a busy printer of its model attached")
            << QList<scheduler::Queue>{queue(QStringLiteral("Label"), label),
                                       queue(QStringLiteral("Busy"), swapped, true)}
            << QStringList{receipt} << 2
            << QList<usbqueues::Move>{{QStringLiteral("Label"), swapped}};
        QTest::newRow("nothing attached")
            << QList<scheduler::Queue>{queue(QStringLiteral("Label"), label)} << QStringList{} << 0
            << QList<usbqueues::Move>{};
        QTest::newRow("a job waiting, nothing attached")
            << QList<scheduler::Queue>{queue(QStringLiteral("Label"), label, true)} << QStringList{}
            << 0 << QList<usbqueues::Move>{};
        QTest::newRow("each queue by itself")
            << QList<scheduler::Queue>{queue(QStringLiteral("Label"), label),
                                       queue(QStringLiteral("Desk1"), swapped),
                                       queue(QStringLiteral("Receipt"), receipt)}
            << QStringList{other, swapped} << 2
            << QList<usbqueues::Move>{{QStringLiteral("Label"), swapped},
                                      {QStringLiteral("Receipt"), other}};
    }
    void onlyAQueueWhosePrinterIsGoneFollows()
    {
        QFETCH(QList<scheduler::Queue>, queues);
        QFETCH(QStringList, listed);
        QFETCH(int, printersOnBus);
        QFETCH(QList<usbqueues::Move>, moves);
        QCOMPARE(usbqueues::movesToAttached(queues, listed, printersOnBus), moves);
    }

    void eachMoveIsOneLpadminWithoutAShell()
    {
        ProgramRecorder programs({{QStringLiteral("Fails"), 1}});
        const QString odd = QStringLiteral("usb://X/Y';touch${IFS}/tmp/owned;'");
        const QStringList changed = usbqueues::follow({{QStringLiteral("Label"), swapped},
                                                       {QStringLiteral("Fails"), swapped},
                                                       {QStringLiteral("Odd"), odd}});
        QCOMPARE(changed, QStringList({QStringLiteral("Label"), QStringLiteral("Odd")}));
        const auto lpadmin = [](const QString &queue, const QString &uri) {
            return QStringList{QStringLiteral("lpadmin"), QStringLiteral("-p"), queue,
                               QStringLiteral("-v"), uri};
        };
        QCOMPARE(programs.calls, QList<QStringList>({lpadmin(QStringLiteral("Label"), swapped),
                                                     lpadmin(QStringLiteral("Fails"), swapped),
                                                     lpadmin(QStringLiteral("Odd"), odd)}));
    }

    void aSchedulerThatCannotBeReachedListsNothing()
    {
        REQUIRE_SANDBOX();
        // The sandbox's CUPS_SERVER names a socket that does not exist.
        QList<scheduler::Queue> queues{queue(QStringLiteral("Stale"), label)};
        QString reason;
        QVERIFY(!scheduler::listQueues(&queues, &reason));
        QVERIFY2(reason.startsWith(QLatin1String("cannot reach the scheduler at /tmp/.sandbox/")),
                 qPrintable(reason));
        QCOMPARE(queues.size(), 0);
    }

    // The hot-plug run without a scheduler to ask: the device list is written all the
    // same, and no queue is touched.
    void withoutTheSchedulerTheHelperWritesTheListAndMovesNothing()
    {
        REQUIRE_SANDBOX();
        removeCacheAndLeftovers();
        sandbox::removePath(QStringLiteral("/tmp/config"));
        QVERIFY(storeRecord(QStringLiteral("Label"), label));
        QVERIFY(installBackend("echo 'direct " + swapped.toUtf8() +
                               " \"Acme Label\" \"Label\" \"\" \"\"'\n"));
        sandbox::clearFakeCalls();
        QVERIFY(followWithoutScheduler());
        QCOMPARE(sandbox::readFile(cache), "direct " + swapped.toUtf8() + '\n');
        QCOMPARE(sandbox::fakeCalls(), QList<QStringList>());
        sandbox::removePath(backend);
        sandbox::removePath(QStringLiteral("/tmp/config"));
        removeCacheAndLeftovers();
    }

    // Printers plugged in while the backend lists: the kernel's count changed meanwhile,
    // so the hot-plug run lists again until the listing and the count describe one moment,
    // three listings at most. The device list is the last listing's.
    void aPrinterPluggedInWhileTheBackendListsIsListedAgain_data()
    {
        QTest::addColumn<int>("plugs");
        QTest::addColumn<int>("listings");
        QTest::newRow("none") << 0 << 1;
        QTest::newRow("one") << 1 << 2;
        QTest::newRow("one during each listing") << 10 << 3;
    }
    void aPrinterPluggedInWhileTheBackendListsIsListedAgain()
    {
        QFETCH(int, plugs);
        QFETCH(int, listings);
        REQUIRE_SANDBOX();
        removeCacheAndLeftovers();
        sandbox::removePath(QStringLiteral("/tmp/config"));
        QVERIFY(storeRecord(QStringLiteral("Label"), label));
        QVERIFY(sandbox::putPrintersOnBus(1));
        // Listing N prints N printers, then plugs in printer N + 1 while plugs last.
        const QString counter = QStringLiteral("/tmp/.listings");
        sandbox::removePath(counter);
        QVERIFY(installBackend(
            "n=$(($(cat " + counter.toUtf8() +
            " 2>/dev/null || echo 0) + 1))\n"
            "echo $n >" +
            counter.toUtf8() +
            "\n"
            "i=1\n"
            "while [ $i -le $n ]; do\n"
            "    echo \"direct usb://Acme/Label?serial=$i \\\"Acme Label\\\" \\\"Label\\\" "
            "\\\"\\\" \\\"\\\"\"\n"
            "    i=$((i + 1))\n"
            "done\n"
            "if [ $n -le " +
            QByteArray::number(plugs) +
            " ]; then\n"
            "    d=" +
            QFile::encodeName(paths::usbDeviceFolder()) +
            "/1-$((n + 1)):1.0\n"
            "    mkdir -p $d && echo 07 >$d/bInterfaceClass && echo 01 >$d/bInterfaceSubClass &&\n"
            "        echo 02 >$d/bInterfaceProtocol\n"
            "fi\n"));
        QVERIFY(followWithoutScheduler());
        QCOMPARE(sandbox::readFile(counter).trimmed().toInt(), listings);
        QByteArray expected;
        for (int i = 1; i <= listings; ++i)
            expected += "direct usb://Acme/Label?serial=" + QByteArray::number(i) + '\n';
        QCOMPARE(sandbox::readFile(cache), expected);
        sandbox::removePath(backend);
        sandbox::removePath(counter);
        sandbox::removePath(QStringLiteral("/tmp/config"));
        QVERIFY(sandbox::putPrintersOnBus(0));
        removeCacheAndLeftovers();
    }

    void theCacheIsACompleteFileOfRootsAloneInOneStep()
    {
        REQUIRE_SANDBOX();
        removeCacheAndLeftovers();
        QString reason;
        QVERIFY2(usbqueues::writeDeviceListCache({QStringLiteral("direct usb://A/B?serial=1"),
                                                  QStringLiteral("direct usb://C/D")},
                                                 &reason),
                 qPrintable(reason));
        QCOMPARE(sandbox::readFile(cache),
                 QByteArray("direct usb://A/B?serial=1\ndirect usb://C/D\n"));
        const sandbox::PathEntry entry = sandbox::entryAt(cache);
        QVERIFY2(entry.regular && entry.ownerId == 0 && entry.mode == 0600 && entry.names == 1,
                 qPrintable(entry.describe()));
        // The cache that stood there is replaced, and no file of the write is left beside it.
        QVERIFY(usbqueues::writeDeviceListCache({}, &reason));
        QCOMPARE(sandbox::readFile(cache), QByteArray());
        QCOMPARE(leftovers(), QStringList());
    }

    void aFolderAtTheCachesPathIsMovedAsideWhole()
    {
        REQUIRE_SANDBOX();
        removeCacheAndLeftovers();
        QVERIFY(sandbox::writeFile(cache + QStringLiteral("/inside/note"), "kept\n"));
        StderrCapture err;
        QString reason;
        QVERIFY2(usbqueues::writeDeviceListCache({QStringLiteral("direct usb://A/B")}, &reason),
                 qPrintable(reason));
        QCOMPARE(sandbox::readFile(cache), QByteArray("direct usb://A/B\n"));
        const QStringList aside = leftovers();
        QCOMPARE(aside.size(), 1);
        const QString moved = paths::scratchFolder() + QLatin1Char('/') + aside.first();
        QVERIFY2(aside.first().startsWith(QLatin1String(".lpinfo.log.aside-")), qPrintable(moved));
        QCOMPARE(sandbox::readFile(moved + QStringLiteral("/inside/note")), QByteArray("kept\n"));
        QCOMPARE(err.diagnostics(),
                 QStringList({QStringLiteral("printerconfig: replacing /tmp/.lpinfo.log: a "
                                             "folder, moved aside to ") +
                              moved}));
        removeCacheAndLeftovers();
    }

    void aListLongerThanTheCacheMayHoldKeepsItsFirstLines()
    {
        REQUIRE_SANDBOX();
        removeCacheAndLeftovers();
        // 100 lines of 16 KiB: 64 fit within 1 MiB, with room to spare for no other.
        QStringList lines;
        for (int i = 0; i < 100; ++i)
            lines += QStringLiteral("direct usb://A/B?serial=%1")
                         .arg(i, 16384 - 25, 10, QLatin1Char('0'));
        QCOMPARE(lines.first().size() + 1, 16384);
        StderrCapture err;
        QString reason;
        QVERIFY2(usbqueues::writeDeviceListCache(lines, &reason), qPrintable(reason));
        const QByteArray written = sandbox::readFile(cache);
        QCOMPARE(written.size(), int(deviceListCap));
        QCOMPARE(written, lines.mid(0, 64).join(QLatin1Char('\n')).toUtf8() + '\n');
        QCOMPARE(err.diagnostics(),
                 QStringList({QStringLiteral("printerconfig: leaving 36 of 100 printers out of "
                                             "/tmp/.lpinfo.log: the device list holds 1048576 "
                                             "bytes at most")}));
        removeCacheAndLeftovers();
    }
};

QTEST_GUILESS_MAIN(TestUsbQueues)
#include "tst_usbqueues.moc"
