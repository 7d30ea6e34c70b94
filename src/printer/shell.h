#pragma once

#include <QString>

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

} // namespace shell
