// The printer list window's memory over a long session: rebuilding the list again and
// again must not pile up the records of every earlier list, while the record an action
// is still working on after its refresh stays valid.
#include "support/printerdlgfixture.h"

#include "support/shellrecorder.h"
#include "ui/printerdlg.h"

#include <QApplication>
#include <QListWidget>
#include <QPushButton>
#include <QTimer>
#include <QtTest>

#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define MEMORY_UNDER_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define MEMORY_UNDER_SANITIZER 1
#endif
#endif
#ifdef MEMORY_UNDER_SANITIZER
// Part of the sanitizers' common allocator interface; declared here because not every
// compiler ships the header that declares it.
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

using namespace fixture;

namespace {

// Fewer under a sanitizer, whose every allocation is several times slower; a generation
// of records is still far larger than the bound below.
#ifdef MEMORY_UNDER_SANITIZER
const int printerCount = 500;
#else
const int printerCount = 2000;
#endif
const int refreshes = 50;

// The memory the process holds, in bytes. Normally its resident set; under a sanitizer,
// whose allocator keeps freed blocks in quarantine for a while (resident, but no longer
// ours), the bytes of the blocks still allocated.
qint64 memoryInUse()
{
#ifdef MEMORY_UNDER_SANITIZER
    return qint64(__sanitizer_get_current_allocated_bytes());
#else
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly))
        return -1;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.size() > 1 ? fields.at(1).toLongLong() * sysconf(_SC_PAGESIZE) : -1;
#endif
}

// The list's trace lines, one per printer and refresh, would flood the test's output.
void dropDebugMessages(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (type == QtDebugMsg)
        return;
    qt_message_output(type, context, message);
}

} // namespace

class TestPrinterDlgMemory : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void memoryStaysBoundedOverManyRefreshes();
    void editedRecordIsStillValidWhenStagedAfterTheRefresh();
};

void TestPrinterDlgMemory::initTestCase()
{
    REQUIRE_SANDBOX();
}

void TestPrinterDlgMemory::init()
{
    reset();
    sandbox::writeFile(paths::lpinfoCache(), QByteArray());
}

void TestPrinterDlgMemory::cleanup()
{
    reset();
}

void TestPrinterDlgMemory::memoryStaysBoundedOverManyRefreshes()
{
    for (int i = 0; i < printerCount; ++i) {
        Seed printer = i % 2 ? network(QStringLiteral("Printer%1").arg(i))
                             : local(QStringLiteral("Printer%1").arg(i));
        seed(printer, i == 0);
    }

    const QtMessageHandler previous = qInstallMessageHandler(dropDebugMessages);
    PrinterDlg window;
    auto *list = window.findChild<QListWidget *>(QStringLiteral("lwPrinters"));
    QVERIFY(list);
    QCOMPARE(list->count(), printerCount);

    // A few refreshes first, until the window holds as many generations of records as
    // it ever will and the allocator has settled.
    for (int i = 0; i < 3; ++i)
        window.updatePrinterList();
    const qint64 settled = memoryInUse();
    QVERIFY(settled > 0);
    for (int i = 0; i < refreshes; ++i)
        window.updatePrinterList();
    const qint64 after = memoryInUse();
    qInstallMessageHandler(previous);

    QCOMPARE(list->count(), printerCount);
    // Keeping every generation costs about 1.5 MiB per refresh with 2000 printers, some
    // 70 MiB over the whole run (a quarter of that with 500); the bound is a fraction of
    // what a single generation holds.
    const qint64 growth = after - settled;
    qInfo("memory in use: %lld KiB after 3 refreshes, %lld KiB after %d more (growth %lld KiB)",
          settled / 1024, after / 1024, refreshes, growth / 1024);
    QVERIFY2(growth < 1024 * 1024,
             qPrintable(QStringLiteral("memory grew by %1 KiB").arg(growth / 1024)));
}

void TestPrinterDlgMemory::editedRecordIsStillValidWhenStagedAfterTheRefresh()
{
    // Letter is one of the sizes of the network printer's PPD, so the wizard keeps it.
    seed(network(QStringLiteral("Office")));
    seed(local(QStringLiteral("Desk")));

    PrinterDlg window;
    auto *list = window.findChild<QListWidget *>(QStringLiteral("lwPrinters"));
    QVERIFY(list);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));

    ShellRecorder shell;
    // Edit the same printer several times: every edit refreshes the list before it
    // stages the PPD from its record, and every later edit works on a record of a newer
    // list, so older ones have been freed by then.
    for (int round = 0; round < 3; ++round) {
        list->setCurrentItem(itemNamed(list, QStringLiteral("Office")));
        QVERIFY(list->currentItem());
        const Printer *edited = recordOf(list->currentItem());
        shell.clear();

        bool submitted = false;
        QTimer::singleShot(0, [&] {
            QWidget *wizard = QApplication::activeModalWidget();
            if (!wizard)
                return;
            auto *next = wizard->findChild<QPushButton *>(QStringLiteral("bNext"));
            auto *submit = wizard->findChild<QPushButton *>(QStringLiteral("bSubmit"));
            if (next && submit) {
                next->click();
                submit->click();
                submitted = true;
            }
            if (wizard->isVisible())
                wizard->close();
        });
        window.findChild<QPushButton *>(QStringLiteral("bEdit"))->click();
        QVERIFY(submitted);

        // The list was rebuilt from fresh records...
        QVERIFY(recordOf(itemNamed(list, QStringLiteral("Office"))) != edited);
        // ...and the staging after it read the edited record's name and paper size
        // (AddressSanitizer would report a freed record here).
        const QStringList commands = shell.commands();
        const QString sed = QStringLiteral(
            "cat /etc/cups/ppd/Office.ppd| sed -e \"s/DefaultPageSize.*/DefaultPageSize: "
            "Letter/g\"  >/tmp/Office.ppd");
        QVERIFY2(commands.contains(sed), qPrintable(commands.join(QLatin1Char('\n'))));
        QCOMPARE(edited->name, QStringLiteral("Office"));
        QCOMPARE(edited->paper_size, QStringLiteral("Letter"));
    }
}

QTEST_MAIN(TestPrinterDlgMemory)
#include "tst_printerdlg_memory.moc"
