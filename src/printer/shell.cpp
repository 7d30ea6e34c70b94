#include "printer/shell.h"

#include "common/report.h"

#include <zeq/system.h>

namespace shell {

namespace {

Runner &installedRunner()
{
    static Runner runner;
    return runner;
}

// The command as one printable line: control characters are shown as escapes.
QString printable(const QString &command)
{
    QString out;
    for (const QChar c : command) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7f)
            out += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        else
            out += c;
    }
    return out;
}

} // namespace

Runner setRunner(Runner runner)
{
    Runner previous = std::move(installedRunner());
    installedRunner() = std::move(runner);
    return previous;
}

int run(const QString &command)
{
    if (command.contains(QChar(0))) {
        diagnostic::report(QStringLiteral("not running a command that contains a NUL character"),
                           printable(command));
        return -1;
    }
    if (const Runner &runner = installedRunner())
        return runner(command);
    return zeq::System::ExecShell(command);
}

} // namespace shell
