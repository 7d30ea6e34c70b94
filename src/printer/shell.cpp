#include "printer/shell.h"

#include "common/report.h"

#include <zeq/system.h>

#include <QDeadlineTimer>
#include <QProcess>
#include <QProcessEnvironment>

namespace shell {

namespace {

Runner &installedRunner()
{
    static Runner runner;
    return runner;
}

ProgramRunner &installedProgramRunner()
{
    static ProgramRunner runner;
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

ProgramRunner setProgramRunner(ProgramRunner runner)
{
    ProgramRunner previous = std::move(installedProgramRunner());
    installedProgramRunner() = std::move(runner);
    return previous;
}

int runProgram(const QStringList &argv, QByteArray *output, int timeoutMs)
{
    if (argv.isEmpty())
        return -1;
    if (const ProgramRunner &runner = installedProgramRunner())
        return runner(argv, output);
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C"));
    process.setProcessEnvironment(environment);
    process.setStandardInputFile(QProcess::nullDevice());
    process.setProcessChannelMode(output ? QProcess::ForwardedErrorChannel
                                         : QProcess::ForwardedChannels);
    process.start(argv.first(), argv.mid(1), QIODevice::ReadOnly);
    if (!process.waitForStarted()) {
        diagnostic::report(QStringLiteral("cannot run %1").arg(argv.first()),
                           process.errorString());
        return -1;
    }
    QByteArray kept;
    const QDeadlineTimer deadline(timeoutMs);
    while (process.state() == QProcess::Running && !deadline.hasExpired()) {
        // Without output to take, or once the program has closed it, only its end is awaited.
        if (!output || !process.waitForReadyRead(int(deadline.remainingTime())))
            process.waitForFinished(int(deadline.remainingTime()));
        const QByteArray chunk = process.readAllStandardOutput();
        if (output && kept.size() < programOutputCap)
            kept += chunk.left(programOutputCap - kept.size());
    }
    if (process.state() != QProcess::NotRunning) {
        diagnostic::report(QStringLiteral("stopping %1").arg(argv.first()),
                           QStringLiteral("it did not end within %1 ms").arg(timeoutMs));
        process.kill();
        process.waitForFinished();
        return -1;
    }
    const QByteArray rest = process.readAllStandardOutput();
    if (output) {
        kept += rest.left(programOutputCap - kept.size());
        *output = kept;
    }
    if (process.exitStatus() != QProcess::NormalExit)
        return -1;
    return process.exitCode();
}

} // namespace shell
