#include "discovery/usbdevices.h"

#include "common/paths.h"
#include "discovery/backendrun.h"
#include "discovery/discovery.h"

#include <QFile>
#include <QProcess>

#include <sys/stat.h>

namespace usbdevices {

namespace {
const QLatin1String directClass("direct");
const QLatin1String usbScheme("usb://");

bool hasControlCharacter(const QString &text)
{
    for (const QChar c : text) {
        if (c.category() == QChar::Other_Control)
            return true;
    }
    return false;
}

// The backend runs as root, as the scheduler runs it to list devices: only a program
// that no one but root can have put there or changed is started.
bool isRootsProgram(const QString &path, QString *reason)
{
    struct stat st;
    if (::lstat(QFile::encodeName(path).constData(), &st) != 0) {
        *reason = QStringLiteral("%1 is missing").arg(path);
        return false;
    }
    if (!S_ISREG(st.st_mode) || st.st_uid != 0 || (st.st_mode & (S_IWGRP | S_IWOTH))) {
        *reason =
            QStringLiteral("%1 is not a program of root's that only root may change").arg(path);
        return false;
    }
    return true;
}
} // namespace

QStringList directUsbLines(const QByteArray &backendOutput)
{
    QStringList lines;
    const QString text = QString::fromUtf8(backendOutput.constData());
    DeviceLineMatch match;
    for (const QString &line : text.split(QLatin1Char('\n'))) {
        if (!findDeviceLine(line, &match) || match.position != 0)
            continue;
        if (match.deviceClass != directClass || !match.uri.startsWith(usbScheme) ||
            hasControlCharacter(match.uri))
            continue;
        lines += directClass + QLatin1Char(' ') + match.uri;
    }
    return lines;
}

bool list(QStringList *lines, QString *reason)
{
    const QString backend = paths::backendFolder() + QStringLiteral("/usb");
    if (!isRootsProgram(backend, reason))
        return false;
    QProcess process;
    // Its messages go where ours go (the journal, at boot); its input is nothing.
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(backend, QStringList(), QIODevice::ReadOnly);
    backendrun::Output output;
    if (!backendrun::waitFor(process, &output, listTimeoutMs)) {
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished();
            *reason = QStringLiteral("%1 did not end within %2 ms").arg(backend).arg(listTimeoutMs);
        } else if (output.overCap()) {
            *reason = QStringLiteral("%1 printed more than allowed").arg(backend);
        } else {
            *reason =
                QStringLiteral("%1 could not be started: %2").arg(backend, process.errorString());
        }
        return false;
    }
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        *reason = QStringLiteral("%1 failed (exit status %2)").arg(backend).arg(process.exitCode());
        return false;
    }
    *lines = directUsbLines(output.bytes());
    return true;
}

} // namespace usbdevices
