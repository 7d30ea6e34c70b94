#include "zeq/system.h"

#include <QByteArray>

#include <cerrno>
#include <spawn.h>
#include <sys/wait.h>

extern char **environ;

namespace zeq {
namespace System {

namespace {
ShellRunner &installedRunner()
{
    static ShellRunner runner;
    return runner;
}
} // namespace

ShellRunner SetShellRunner(ShellRunner runner)
{
    ShellRunner previous = std::move(installedRunner());
    installedRunner() = std::move(runner);
    return previous;
}

int ExecShell(const QString &command)
{
    if (const ShellRunner &runner = installedRunner())
        return runner(command);

    const QByteArray line = command.toLocal8Bit();
    char shell[] = "/bin/sh";
    char dashC[] = "-c";
    char *argv[] = {shell, dashC, const_cast<char *>(line.constData()), nullptr};
    pid_t pid = 0;
    if (posix_spawn(&pid, shell, nullptr, nullptr, argv, environ) != 0)
        return -1;
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR)
            return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace System
} // namespace zeq
