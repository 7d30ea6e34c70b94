#pragma once

#include "zeq/system.h"

#include <functional>

// Test hook of our own build of the library; not part of the installed interface.
namespace zeq {
namespace System {

// While a runner is installed, ExecShell hands every command line it accepts to it
// instead of the shell. A line ExecShell refuses never reaches the runner. Returns the
// runner that was installed before.
using ShellRunner = std::function<int(const QString &command)>;
ShellRunner SetShellRunner(ShellRunner runner);

} // namespace System
} // namespace zeq
