#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>

// The one way the program runs a command line. In the program it goes to the platform
// library's shell (zeq::System::ExecShell, "/bin/sh -c"); tests install a runner of their
// own to record the lines instead, so they run the same whichever library is linked.
namespace shell {

// Runs one command line and returns its exit status (-1 if it could not be run). A line
// containing a NUL character is never run, whoever would run it: the shell would see only
// the text before the NUL, a different command. It is reported once and gives -1.
int run(const QString &command);

// While a runner is installed, run() hands every line it accepts to it instead of the
// platform library. Returns the runner that was installed before.
using Runner = std::function<int(const QString &command)>;
Runner setRunner(Runner runner);

// Runs a program with its arguments directly, without a shell: for commands that carry text
// a device or a backend reported, no word of which may ever be read as shell syntax.
// argv[0] is found on PATH. Its input is empty, it runs in the C locale (so that what it
// prints is not translated), and its standard output goes to *output when given (at most
// programOutputCap bytes are kept), otherwise where ours goes. A program that has not
// ended within timeoutMs (programTimeoutMs, unless a test chooses a shorter time) is
// killed. Returns its exit status, or -1 when it could not be started, was killed or did
// not end in time.
constexpr int programOutputCap = 1024 * 1024;
constexpr int programTimeoutMs = 30000;
int runProgram(const QStringList &argv, QByteArray *output = nullptr,
               int timeoutMs = programTimeoutMs);

// While a program runner is installed, runProgram() hands every call to it instead.
// Returns the runner that was installed before.
using ProgramRunner = std::function<int(const QStringList &argv, QByteArray *output)>;
ProgramRunner setProgramRunner(ProgramRunner runner);

} // namespace shell
