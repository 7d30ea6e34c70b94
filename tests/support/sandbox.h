#pragma once

#include <QByteArray>
#include <QFileInfo>
#include <QList>
#include <QString>
#include <QStringList>

// Helpers for tests that run inside tests/sandbox/run-in-sandbox.
namespace sandbox {

// True inside the sandbox. Tests that write system paths call requireSandbox() first.
bool inside();
// Fails the calling test (returns false) when not inside the sandbox, so that running a
// test binary by hand can never write to the host's /tmp or /etc/cups.
bool requireSandbox();

// True in "run-in-sandbox --real-cups": CUPS's own scheduler and the loopback printer are
// there (CUPS_SERVER, SANDBOX_PRINTER_PORT and SANDBOX_JOBS_DIR are set).
bool realCups();
// True when lpstat says the scheduler is running; what it said in *said.
bool schedulerRunning(QString *said);
// The device address of the loopback printer of the real-CUPS mode.
QString loopbackPrinterUri();

// The built program and its helper, as CTest names them to every test
// (PRINTERCONFIG_BIN, PRINTERCONFIG_USB_BIN).
QString programPath();
QString helperPath();

// Every invocation of a fake CUPS tool or device script so far: the program's name
// followed by its arguments.
QList<QStringList> fakeCalls();
void clearFakeCalls();

// Small file helpers; writeFile creates missing parent folders.
bool writeFile(const QString &path, const QByteArray &content);
QByteArray readFile(const QString &path);
// Removes a file or a whole folder.
void removePath(const QString &path);
// The fixture folder (tests/data).
QString fixtures();

// The sandbox's USB bus: run-in-sandbox gives paths::usbDeviceFolder() a folder of its own,
// empty at the start, where the helper counts the printers on the bus. plantUsbDevice
// writes into folder a USB device as the kernel shows it: the device's folder (device,
// "1-1") and one folder for each of interfaces ("1-1:1.0", "1-1:1.1", ...), each given as
// its class, subclass and protocol in hexadecimal, "07/01/02" for a bidirectional printer.
bool plantUsbDevice(const QString &folder, const QString &device, const QStringList &interfaces);
// Empties the sandbox's USB bus and puts that many bidirectional printers on it ("1-1",
// "1-2", ...).
bool putPrintersOnBus(int count);

// What lstat says about a path: the thing at the path itself, never a link's target.
struct PathEntry
{
    bool exists = false;
    bool link = false;
    bool regular = false;
    bool folder = false;
    uint ownerId = 0;
    uint groupId = 0;
    int mode = 0;  // the permission bits
    int names = 0; // hard links
    // For failure messages: "a regular file of 0:0, mode 0600", "nothing", ...
    QString describe() const;
};
PathEntry entryAt(const QString &path);

// A program run to its end, standard output and error merged. status is -1 when it
// crashed or did not finish within the time limit (it is killed then).
struct ProcessRun
{
    int status = -1;
    QString output;
};
ProcessRun runProgram(const QString &program, const QStringList &arguments, int timeoutMs = 60000);

// The loopback printer of the real-CUPS mode saves each job it receives, once complete,
// as $SANDBOX_JOBS_DIR/job-N (N from 1).
QString loopbackJobPath(int number);
int loopbackJobsReceived();
// Waits for job N and returns its bytes; empty when it did not arrive in time.
QByteArray waitForLoopbackJob(int number, int timeoutMs = 30000);

} // namespace sandbox

#define REQUIRE_SANDBOX()                                                                          \
    do {                                                                                           \
        if (!sandbox::requireSandbox())                                                            \
            QFAIL("This test writes system paths and must run inside run-in-sandbox");             \
    } while (0)

// REQUIRE_SANDBOX(), then skips the calling test, saying why, unless the sandbox runs CUPS's
// own scheduler and the loopback printer, and fails it unless the scheduler answers.
#define REQUIRE_REAL_CUPS()                                                                        \
    do {                                                                                           \
        REQUIRE_SANDBOX();                                                                         \
        if (!sandbox::realCups())                                                                  \
            QSKIP("needs the scheduler and loopback printer of run-in-sandbox --real-cups");       \
        QString schedulerSaid;                                                                     \
        QVERIFY2(sandbox::schedulerRunning(&schedulerSaid), qPrintable(schedulerSaid));            \
    } while (0)

// Fails the calling test unless CTest named the built program (or helper) it runs.
#define REQUIRE_BUILT_PROGRAM()                                                                    \
    QVERIFY2(QFileInfo(sandbox::programPath()).isExecutable(),                                     \
             "PRINTERCONFIG_BIN must name the built program")
#define REQUIRE_BUILT_HELPER()                                                                     \
    QVERIFY2(QFileInfo(sandbox::helperPath()).isExecutable(),                                      \
             "PRINTERCONFIG_USB_BIN must name the built helper")
