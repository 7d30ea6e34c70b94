#include "support/sandbox.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace sandbox {

bool inside()
{
    return qEnvironmentVariableIsSet("SANDBOX_INSIDE") && qEnvironmentVariableIsSet("SANDBOX_LOG");
}

bool requireSandbox()
{
    return inside();
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

QString fixtures()
{
    return qEnvironmentVariable("SANDBOX_FIXTURES");
}

} // namespace sandbox
