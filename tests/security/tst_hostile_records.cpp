#include "support/childprocess.h"
#include "support/sandbox.h"

#include <zeq/persistentobject.h>
#include <zeq/persistentproperties.h>

#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString dir = QStringLiteral("/tmp/hostile");
constexpr int fileCap = 1 << 20;

class Item final : public zeq::PersistentObject
{
public:
    void AccessProperties(zeq::PersistentProperties &p) override
    {
        p.AccessString(key, text, QStringLiteral("dflt"));
        p.AccessBoolean(QStringLiteral("flag"), flag, true);
    }
    QString key = QStringLiteral("text");
    QString text = QStringLiteral("unset");
    bool flag = false;
};

// What a load in a child process saw: the fields, Load's result and standard error.
struct Loaded
{
    bool finished = false;
    qint64 elapsedMs = 0;
    QString text;
    bool flag = false;
    bool loaded = false;
    QString errors;
};

Loaded loadInChild(const QString &path, const QString &key = QStringLiteral("text"))
{
    const childprocess::Outcome outcome = childprocess::run(
        [&] {
            Item item;
            item.key = key;
            item.set_path(path);
            const bool loaded = item.Load();
            QByteArray out;
            QDataStream stream(&out, QIODevice::WriteOnly);
            stream << item.text << item.flag << loaded;
            return out;
        },
        2000); // short: a load that reads /dev/zero grows by the second
    Loaded result;
    result.finished = outcome.finished;
    result.elapsedMs = outcome.elapsedMs;
    result.errors = QString::fromLocal8Bit(outcome.errors);
    QDataStream stream(outcome.result);
    stream >> result.text >> result.flag >> result.loaded;
    return result;
}

QStringList enumerate()
{
    return zeq::PersistentProperties::EnumPropertyFiles(dir, QStringLiteral("*.pr"));
}

} // namespace

class TestHostileRecords : public QObject
{
    Q_OBJECT

private:
    // A refused file loads like a missing one, at once, with one line naming it.
    void verifyRefused(const QString &path, const QString &reason)
    {
        const Loaded r = loadInChild(path);
        QVERIFY2(r.finished, "the load did not end");
        QVERIFY2(r.elapsedMs < 1000, qPrintable(QString::number(r.elapsedMs)));
        QCOMPARE(r.loaded, false);
        QCOMPARE(r.text, QStringLiteral("dflt"));
        QCOMPARE(r.flag, true);
        QCOMPARE(r.errors, QStringLiteral("libzeq2: ignoring %1: %2\n").arg(path, reason));
    }

private slots:
    void initTestCase() { REQUIRE_SANDBOX(); }
    void init()
    {
        sandbox::removePath(dir);
        QVERIFY(QDir().mkpath(dir));
    }

    void namedPipeAsRecordLoadsDefaultsWithoutWaiting()
    {
        const QString path = dir + QStringLiteral("/pipe.pr");
        QCOMPARE(::mkfifo(QFile::encodeName(path).constData(), 0644), 0);
        verifyRefused(path, QStringLiteral("not a regular file"));
    }

    void linkToDevZeroAsRecordLoadsDefaultsWithoutReading()
    {
        const QString path = dir + QStringLiteral("/zero.pr");
        QVERIFY(QFile::link(QStringLiteral("/dev/zero"), path));
        verifyRefused(path, QStringLiteral("not a regular file"));
    }

    void recordOverOneMebibyteLoadsDefaults()
    {
        const QString path = dir + QStringLiteral("/big.pr");
        QByteArray content = "text=";
        content += QByteArray(fileCap - content.size() - 1, 'v');
        content += "\n"; // exactly the cap
        QVERIFY(sandbox::writeFile(path, content));
        const Loaded atCap = loadInChild(path);
        QCOMPARE(atCap.loaded, true);
        QCOMPARE(atCap.text.size(), fileCap - 6);
        QCOMPARE(atCap.errors, QString());

        QVERIFY(sandbox::writeFile(path, content + "x"));
        verifyRefused(path, QStringLiteral("larger than %1 bytes").arg(fileCap));
    }

    void missingRecordLoadsDefaultsSilently()
    {
        const Loaded r = loadInChild(dir + QStringLiteral("/missing.pr"));
        QVERIFY(r.finished);
        QCOMPARE(r.text, QStringLiteral("dflt"));
        QCOMPARE(r.errors, QString());
    }

    void enumerationListsHiddenRecords()
    {
        sandbox::writeFile(dir + QStringLiteral("/.pr"), "text=unnamed\n");
        sandbox::writeFile(dir + QStringLiteral("/.hidden.pr"), "");
        sandbox::writeFile(dir + QStringLiteral("/a.pr"), "");
        QCOMPARE(enumerate(),
                 (QStringList{dir + QStringLiteral("/.hidden.pr"), dir + QStringLiteral("/.pr"),
                              dir + QStringLiteral("/a.pr")}));
    }

    void enumerationMatchesTheWildcardCaseSensitively()
    {
        sandbox::writeFile(dir + QStringLiteral("/Upper.PR"), "");
        sandbox::writeFile(dir + QStringLiteral("/Mixed.Pr"), "");
        sandbox::writeFile(dir + QStringLiteral("/lower.pr"), "");
        QCOMPARE(enumerate(), QStringList{dir + QStringLiteral("/lower.pr")});
    }

    void enumerationListsOnlyRegularFilesAndLinksToThem()
    {
        sandbox::writeFile(dir + QStringLiteral("/real.pr"), "");
        sandbox::writeFile(dir + QStringLiteral("/sub/inner.pr"), "");
        QVERIFY(QFile::link(dir + QStringLiteral("/real.pr"), dir + QStringLiteral("/link.pr")));
        QVERIFY(QFile::link(QStringLiteral("/dev/zero"), dir + QStringLiteral("/zero.pr")));
        QVERIFY(QFile::link(dir + QStringLiteral("/none"), dir + QStringLiteral("/broken.pr")));
        QCOMPARE(::mkfifo(QFile::encodeName(dir + QStringLiteral("/pipe.pr")).constData(), 0644),
                 0);
        QVERIFY(QDir().mkpath(dir + QStringLiteral("/folder.pr")));
        QCOMPARE(enumerate(),
                 (QStringList{dir + QStringLiteral("/link.pr"), dir + QStringLiteral("/real.pr")}));
    }

    void keyAndValueBeginningWithAByteOrderMarkRoundTrip()
    {
        const QString bom(QChar(0xfeff));
        Item out;
        out.key = bom + QStringLiteral("name");
        out.text = bom + QStringLiteral("value") + bom;
        out.set_path(dir + QStringLiteral("/bom.pr"));
        QVERIFY(out.Commit());
        // The key opens the file, where a reader would take a raw U+FEFF for a mark.
        QVERIFY(!sandbox::readFile(dir + QStringLiteral("/bom.pr")).startsWith("\xef\xbb\xbf"));
        const Loaded in = loadInChild(dir + QStringLiteral("/bom.pr"), out.key);
        QCOMPARE(in.loaded, true);
        QCOMPARE(in.text, out.text);
        // Without the mark the key is a different one.
        QCOMPARE(loadInChild(dir + QStringLiteral("/bom.pr")).text, QStringLiteral("dflt"));
    }

    void foreignByteOrderMarksAreKeptInsideAndDroppedAtTheStartOfTheFile()
    {
        const QString path = dir + QStringLiteral("/foreign.pr");
        // A mark opening the file is an encoding mark; one opening a later line is text.
        QVERIFY(sandbox::writeFile(path, "\xef\xbb\xbftext=first\n\xef\xbb\xbf"
                                         "flag=false\n"));
        Loaded r = loadInChild(path);
        QCOMPARE(r.text, QStringLiteral("first"));
        QCOMPARE(r.flag, true); // "\ufeffflag" is not "flag"
        r = loadInChild(path, QString(QChar(0xfeff)) + QStringLiteral("flag"));
        QCOMPARE(r.text, QStringLiteral("false"));
    }

    void foreignRecordsWithCarriageReturnLineEndsLoadLineByLine_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("CR only") << QByteArray("text=one\rflag=false\r");
        QTest::newRow("CRLF") << QByteArray("text=one\r\nflag=false\r\n");
        QTest::newRow("mixed, no final end") << QByteArray("# c\r\r\ntext=one\nflag=false");
    }
    void foreignRecordsWithCarriageReturnLineEndsLoadLineByLine()
    {
        QFETCH(QByteArray, content);
        const QString path = dir + QStringLiteral("/foreign.pr");
        QVERIFY(sandbox::writeFile(path, content));
        const Loaded r = loadInChild(path);
        QCOMPARE(r.loaded, true);
        QCOMPARE(r.text, QStringLiteral("one"));
        QCOMPARE(r.flag, false);
    }

    void carriageReturnsInsideValuesStillRoundTrip()
    {
        Item out;
        out.text = QStringLiteral("a\rb\r\nc\n");
        out.set_path(dir + QStringLiteral("/cr.pr"));
        QVERIFY(out.Commit());
        QCOMPARE(loadInChild(dir + QStringLiteral("/cr.pr")).text, out.text);
    }
};

QTEST_GUILESS_MAIN(TestHostileRecords)
#include "tst_hostile_records.moc"
