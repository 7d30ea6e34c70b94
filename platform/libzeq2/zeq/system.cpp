#include "zeq/system.h"

#include <QByteArray>

#include <cerrno>
#include <cstdio>
#include <spawn.h>
#include <sys/wait.h>

extern char **environ;

namespace zeq {
namespace System {

namespace {

// The command as one printable line: control characters are shown as escapes.
QByteArray printable(const QString &command)
{
    QString out;
    for (const QChar c : command) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7f)
            out += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        else
            out += c;
    }
    return out.toLocal8Bit();
}

} // namespace

int ExecShell(const QString &command)
{
    if (command.contains(QChar(0))) {
        std::fprintf(stderr, "libzeq2: not running a command that contains a NUL character: %s\n",
                     printable(command).constData());
        return -1;
    }
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
