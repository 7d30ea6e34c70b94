#include "discovery/usbdevices.h"

#include "common/paths.h"
#include "discovery/backendrun.h"
#include "discovery/discovery.h"

#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>

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

// An attribute the kernel writes as a number in hexadecimal ("07\n"); -1 when it cannot
// be read or is not such a number. A few bytes are read at most.
int hexAttribute(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray text = file.read(8).trimmed();
    bool ok = false;
    const int value = text.toInt(&ok, 16);
    return ok && !text.isEmpty() && text.size() <= 2 ? value : -1;
}

// Whether the interface is one the usb backend prints through: the printer class, the
// printer subclass, and the unidirectional or bidirectional protocol (not IEEE 1284.4,
// not IPP over USB).
bool isPrinterInterface(const QString &interfaceFolder)
{
    const int protocol = hexAttribute(interfaceFolder + QStringLiteral("/bInterfaceProtocol"));
    return hexAttribute(interfaceFolder + QStringLiteral("/bInterfaceClass")) == 0x07 &&
           hexAttribute(interfaceFolder + QStringLiteral("/bInterfaceSubClass")) == 0x01 &&
           (protocol == 0x01 || protocol == 0x02);
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

int printersOnBus(const QString &folder)
{
    // An interface's folder: bus, ports, configuration and interface numbers
    // ("1-1.4:1.0"); the device is the part before the colon. Root hubs ("usb1") and
    // devices ("1-1") have other names.
    static const QRegularExpression interfaceName(
        QStringLiteral("^([0-9]{1,3}-[0-9]{1,3}(?:\\.[0-9]{1,3}){0,6}):[0-9]{1,3}\\.[0-9]{1,3}$"));
    QSet<QString> printers;
    QDirIterator entries(folder, QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    for (int seen = 0; entries.hasNext() && seen < busEntryCap; ++seen) {
        entries.next();
        const QRegularExpressionMatch match = interfaceName.match(entries.fileName());
        if (match.hasMatch() && isPrinterInterface(entries.filePath()))
            printers.insert(match.captured(1));
    }
    return printers.size();
}

} // namespace usbdevices
