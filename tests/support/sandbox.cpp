#include "support/sandbox.h"

#include "common/paths.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QThread>

#include <sys/stat.h>

namespace sandbox {

bool inside()
{
    return qEnvironmentVariableIsSet("SANDBOX_INSIDE") && qEnvironmentVariableIsSet("SANDBOX_LOG");
}

bool requireSandbox()
{
    return inside();
}

bool realCups()
{
    return qEnvironmentVariableIsSet("CUPS_SERVER") &&
           qEnvironmentVariableIsSet("SANDBOX_PRINTER_PORT") &&
           qEnvironmentVariableIsSet("SANDBOX_JOBS_DIR");
}

bool schedulerRunning(QString *said)
{
    const ProcessRun run = runProgram(QStringLiteral("lpstat"), {QStringLiteral("-r")});
    *said = run.output;
    return run.output.contains(QLatin1String("scheduler is running"));
}

QString loopbackPrinterUri()
{
    return QStringLiteral("socket://127.0.0.1:%1")
        .arg(qEnvironmentVariable("SANDBOX_PRINTER_PORT"));
}

QString programPath()
{
    return qEnvironmentVariable("PRINTERCONFIG_BIN");
}

QString helperPath()
{
    return qEnvironmentVariable("PRINTERCONFIG_USB_BIN");
}

QList<QStringList> fakeCalls()
{
    QList<QStringList> calls;
    const QByteArray log = readFile(qEnvironmentVariable("SANDBOX_LOG"));
    for (const QByteArray &line : log.split('\n')) {
        if (!line.isEmpty())
            calls.append(QString::fromUtf8(line).split(QLatin1Char('\t')));
    }
    return calls;
}

void clearFakeCalls()
{
    writeFile(qEnvironmentVariable("SANDBOX_LOG"), QByteArray());
}

bool writeFile(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    return file.write(content) == content.size();
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}

void removePath(const QString &path)
{
    QFileInfo info(path);
    if (info.isDir() && !info.isSymLink())
        QDir(path).removeRecursively();
    else
        QFile::remove(path);
}

bool plantUsbDevice(const QString &folder, const QString &device, const QStringList &interfaces)
{
    if (!QDir().mkpath(folder + QLatin1Char('/') + device))
        return false;
    for (int i = 0; i < interfaces.size(); ++i) {
        const QStringList numbers = interfaces.at(i).split(QLatin1Char('/'));
        if (numbers.size() != 3)
            return false;
        const QString interface = QStringLiteral("%1/%2:1.%3/").arg(folder, device).arg(i);
        if (!writeFile(interface + QStringLiteral("bInterfaceClass"),
                       numbers.at(0).toLatin1() + '\n') ||
            !writeFile(interface + QStringLiteral("bInterfaceSubClass"),
                       numbers.at(1).toLatin1() + '\n') ||
            !writeFile(interface + QStringLiteral("bInterfaceProtocol"),
                       numbers.at(2).toLatin1() + '\n'))
            return false;
    }
    return true;
}

bool putPrintersOnBus(int count)
{
    const QString bus = paths::usbDeviceFolder();
    const QDir folder(bus);
    if (!folder.exists())
        return false;
    for (const QString &name :
         folder.entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot))
        removePath(bus + QLatin1Char('/') + name);
    for (int i = 1; i <= count; ++i) {
        if (!plantUsbDevice(bus, QStringLiteral("1-%1").arg(i), {QStringLiteral("07/01/02")}))
            return false;
    }
    return true;
}

QString PathEntry::describe() const
{
    if (!exists)
        return QStringLiteral("nothing");
    QString kind = QStringLiteral("something");
    if (link)
        kind = QStringLiteral("a link");
    else if (regular)
        kind = QStringLiteral("a regular file");
    else if (folder)
        kind = QStringLiteral("a folder");
    return QStringLiteral("%1 of %2:%3, mode %4")
        .arg(kind)
        .arg(ownerId)
        .arg(groupId)
        .arg(mode, 4, 8, QLatin1Char('0'));
}

PathEntry entryAt(const QString &path)
{
    PathEntry entry;
    struct stat st;
    if (::lstat(QFile::encodeName(path).constData(), &st) != 0)
        return entry;
    entry.exists = true;
    entry.link = S_ISLNK(st.st_mode);
    entry.regular = S_ISREG(st.st_mode);
    entry.folder = S_ISDIR(st.st_mode);
    entry.ownerId = st.st_uid;
    entry.groupId = st.st_gid;
    entry.mode = int(st.st_mode & 07777);
    entry.names = int(st.st_nlink);
    return entry;
}

QString fixtures()
{
    return qEnvironmentVariable("SANDBOX_FIXTURES");
}

ProcessRun runProgram(const QString &program, const QStringList &arguments, int timeoutMs)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    ProcessRun result;
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished();
        return result;
    }
    result.output = QString::fromLocal8Bit(process.readAll());
    result.status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    return result;
}

QString loopbackJobPath(int number)
{
    return QStringLiteral("%1/job-%2").arg(qEnvironmentVariable("SANDBOX_JOBS_DIR")).arg(number);
}

int loopbackJobsReceived()
{
    // Jobs still arriving are "job-N.part"; only complete ones count.
    return QDir(qEnvironmentVariable("SANDBOX_JOBS_DIR"))
        .entryList({QStringLiteral("job-*")}, QDir::Files)
        .filter(QRegularExpression(QStringLiteral("^job-\\d+$")))
        .size();
}

QByteArray waitForLoopbackJob(int number, int timeoutMs)
{
    const QString path = loopbackJobPath(number);
    QDeadlineTimer deadline(timeoutMs);
    while (!QFileInfo::exists(path) && !deadline.hasExpired())
        QThread::msleep(50);
    return readFile(path);
}

} // namespace sandbox
