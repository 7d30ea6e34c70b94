#pragma once

#include <QString>

namespace zeq {
namespace System {

// Runs one command line through "/bin/sh -c", waits for it and returns its exit status
// (-1 if it could not be run or was killed). Its standard streams are the caller's.
// A command line containing a NUL character is refused with one line on standard error
// and -1: the shell would only see the text before the NUL, a different command.
int ExecShell(const QString &command);

} // namespace System
} // namespace zeq
