#pragma once

#include <QString>

#include <functional>

namespace zeq {
namespace System {

// Runs one command line through "/bin/sh -c", waits for it and returns its exit status
// (-1 if it could not be run or was killed). Its standard streams are the caller's.
int ExecShell(const QString &command);

// Test hook: while a runner is installed, ExecShell hands every command line to it
// instead of the shell. Returns the runner that was installed before.
using ShellRunner = std::function<int(const QString &command)>;
ShellRunner SetShellRunner(ShellRunner runner);

} // namespace System
} // namespace zeq
