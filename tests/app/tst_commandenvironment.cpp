// The environment of the commands the window program runs: whatever the program sets for
// the toolkit while it starts, a command started through the shell runner afterwards
// gets exactly the environment the program was started with. Each case starts this test
// program again as a child with a chosen environment; the child makes the application
// object as the program does and runs a command through the program's shell (no
// recorder installed) that writes its own environment to a file.
#include "app/startup.h"
#include "printer/shell.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <cstring>

namespace {

const char childOption[] = "--run-command-and-write-its-environment";

// The child: the program's start, then one command through the shell. The shell's own
// starting environment is what the runner passed on; cat reads it from /proc.
int runChild(int argc, char **argv, const QString &output)
{
    auto app = makeApplication(argc, argv);
    return shell::run(QStringLiteral("cat /proc/$$/environ > '%1'").arg(output));
}

QStringList sorted(QStringList entries)
{
    entries.sort();
    return entries;
}

} // namespace

class TestCommandEnvironment : public QObject
{
    Q_OBJECT

private slots:
    void commandSeesTheEnvironmentTheProgramStartedWith_data()
    {
        QTest::addColumn<QString>("variable");
        QTest::addColumn<QString>("value");
        QTest::newRow("nothing chosen by the user") << QString() << QString();
        QTest::newRow("user's GL integration")
            << QStringLiteral("QT_XCB_GL_INTEGRATION") << QStringLiteral("xcb_glx");
        QTest::newRow("user's empty GL integration")
            << QStringLiteral("QT_XCB_GL_INTEGRATION") << QString();
        QTest::newRow("user's GL flavour")
            << QStringLiteral("QT_OPENGL") << QStringLiteral("desktop");
    }
    void commandSeesTheEnvironmentTheProgramStartedWith()
    {
        QFETCH(QString, variable);
        QFETCH(QString, value);
        QTemporaryDir folder;
        QVERIFY(folder.isValid());
        const QString output = folder.filePath(QStringLiteral("environ"));

        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.remove(QStringLiteral("QT_XCB_GL_INTEGRATION"));
        env.remove(QStringLiteral("QT_OPENGL"));
        if (!variable.isEmpty())
            env.insert(variable, value);
        QProcess child;
        child.setProcessEnvironment(env);
        child.setProcessChannelMode(QProcess::ForwardedChannels);
        child.start(QCoreApplication::applicationFilePath(),
                    {QString::fromLatin1(childOption), output});
        QVERIFY(child.waitForFinished(60000));
        QCOMPARE(child.exitStatus(), QProcess::NormalExit);
        QCOMPARE(child.exitCode(), 0);

        QFile file(output);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QStringList seen;
        for (const QByteArray &entry : file.readAll().split('\0')) {
            if (!entry.isEmpty())
                seen.append(QString::fromLocal8Bit(entry));
        }
        QCOMPARE(sorted(seen), sorted(env.toStringList()));
    }
};

int main(int argc, char **argv)
{
    if (argc == 3 && std::strcmp(argv[1], childOption) == 0)
        return runChild(argc, argv, QString::fromLocal8Bit(argv[2]));
    QCoreApplication app(argc, argv);
    TestCommandEnvironment test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_commandenvironment.moc"
