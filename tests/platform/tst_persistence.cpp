#include "support/sandbox.h"

#include <zeq/persistentobject.h>
#include <zeq/persistentproperties.h>

#include <QtTest>

#include <sys/stat.h>

namespace {

class Item final : public zeq::PersistentObject
{
public:
    void AccessProperties(zeq::PersistentProperties &p) override
    {
        p.AccessString(QStringLiteral("text"), text, QStringLiteral("dflt"));
        p.AccessBoolean(QStringLiteral("flag"), flag, true);
        ++exchanges;
    }
    // The library takes the path but does not hand it back; keep a copy, as Printer does.
    void set_path(const QString &p)
    {
        m_path = p;
        zeq::PersistentObject::set_path(p);
    }
    QString path() const { return m_path; }
    QString text = QStringLiteral("unset");
    bool flag = false;
    int exchanges = 0;

private:
    QString m_path;
};

const QString dir = QStringLiteral("/tmp/persist");

} // namespace

class TestPersistence : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { REQUIRE_SANDBOX(); }
    void init() { sandbox::removePath(dir); }

    void newObjectHasNoFileToCommitOrLoad()
    {
        Item item;
        QVERIFY(!item.Commit());
        QVERIFY(!item.Load());
        QCOMPARE(item.text, QStringLiteral("dflt"));
        QVERIFY(!QFileInfo::exists(dir));
    }

    void commitThenLoadRestoresEveryField()
    {
        Item a;
        a.set_path(dir + QStringLiteral("/a.pr"));
        a.text = QStringLiteral("x = %1 \"q\"\nnext");
        a.flag = false;
        QVERIFY(a.Commit());
        Item b;
        b.set_path(a.path());
        QVERIFY(b.Load());
        QCOMPARE(b.text, a.text);
        QCOMPARE(b.flag, false);
    }

    void commitCreatesMissingParentFolders()
    {
        Item a;
        a.set_path(dir + QStringLiteral("/deep/er/a.pr"));
        QVERIFY(a.Commit());
        QVERIFY(QFileInfo::exists(a.path()));
    }

    void committedRecordIsReadableByItsOwnerOnly()
    {
        // A record holds a device address, which may carry a password. Both a new record
        // and one that replaces a wider one end up 0600.
        Item a;
        a.set_path(dir + QStringLiteral("/secret.pr"));
        QVERIFY(a.Commit());
        struct stat st;
        QCOMPARE(::stat(QFile::encodeName(a.path()).constData(), &st), 0);
        QCOMPARE(int(st.st_mode & 07777), 0600);
        QVERIFY(QFile::setPermissions(a.path(), QFile::ReadOwner | QFile::WriteOwner |
                                                    QFile::ReadGroup | QFile::ReadOther));
        a.text = QStringLiteral("again");
        QVERIFY(a.Commit());
        QCOMPARE(::stat(QFile::encodeName(a.path()).constData(), &st), 0);
        QCOMPARE(int(st.st_mode & 07777), 0600);
    }

    void commitToOtherPathLeavesOwnPathAlone()
    {
        Item a;
        a.set_path(dir + QStringLiteral("/own.pr"));
        QVERIFY(a.Commit(dir + QStringLiteral("/copy")));
        QCOMPARE(a.path(), dir + QStringLiteral("/own.pr"));
        QVERIFY(QFileInfo::exists(dir + QStringLiteral("/copy")));
        QVERIFY(!QFileInfo::exists(dir + QStringLiteral("/own.pr")));
    }

    void commitReplacesTheFileWithoutLeavingTemporaries()
    {
        Item a;
        a.set_path(dir + QStringLiteral("/a.pr"));
        a.text = QString(100000, QLatin1Char('x'));
        QVERIFY(a.Commit());
        a.text = QStringLiteral("short");
        QVERIFY(a.Commit());
        QCOMPARE(QDir(dir).entryList(QDir::Files | QDir::Hidden),
                 QStringList{QStringLiteral("a.pr")});
        Item b;
        b.set_path(a.path());
        b.Load();
        QCOMPARE(b.text, QStringLiteral("short"));
    }

    void failedCommitKeepsThePreviousFile()
    {
        Item a;
        a.set_path(dir + QStringLiteral("/a.pr"));
        a.text = QStringLiteral("kept");
        QVERIFY(a.Commit());
        // A read-only folder makes the temporary file impossible to create (root ignores
        // permissions, so use a path whose parent is a file instead).
        QVERIFY(sandbox::writeFile(dir + QStringLiteral("/notadir"), "x"));
        a.text = QStringLiteral("lost");
        QVERIFY(!a.Commit(dir + QStringLiteral("/notadir/a.pr")));
        Item b;
        b.set_path(a.path());
        b.Load();
        QCOMPARE(b.text, QStringLiteral("kept"));
    }

    void commitOntoAFolderFails()
    {
        QVERIFY(QDir().mkpath(dir + QStringLiteral("/folder.pr")));
        Item a;
        a.set_path(dir + QStringLiteral("/folder.pr"));
        QVERIFY(!a.Commit());
        QVERIFY(QFileInfo(dir + QStringLiteral("/folder.pr")).isDir());
    }

    void loadOfMissingFileGivesDefaultsAndStillExchanges()
    {
        Item a;
        a.set_path(dir + QStringLiteral("/missing.pr"));
        QVERIFY(!a.Load());
        QCOMPARE(a.exchanges, 1);
        QCOMPARE(a.text, QStringLiteral("dflt"));
        QCOMPARE(a.flag, true);
    }

    void loadOfAFolderGivesDefaults()
    {
        QVERIFY(QDir().mkpath(dir + QStringLiteral("/x.pr")));
        Item a;
        a.set_path(dir + QStringLiteral("/x.pr"));
        a.Load();
        QCOMPARE(a.text, QStringLiteral("dflt"));
    }

    void loadWithEmptyPathGivesDefaults()
    {
        Item a;
        a.Load();
        QCOMPARE(a.text, QStringLiteral("dflt"));
    }

    void removeDeletesTheFile()
    {
        Item a;
        a.set_path(dir + QStringLiteral("/a.pr"));
        QVERIFY(a.Commit());
        QVERIFY(a.Remove());
        QVERIFY(!QFileInfo::exists(a.path()));
        QVERIFY(!a.Remove());
    }

    void staticRemoveDeletesByPath()
    {
        QVERIFY(sandbox::writeFile(dir + QStringLiteral("/default"), "text=a\n"));
        QVERIFY(zeq::PersistentProperties::Remove(dir + QStringLiteral("/default")));
        QVERIFY(!QFileInfo::exists(dir + QStringLiteral("/default")));
        QVERIFY(!zeq::PersistentProperties::Remove(QString()));
    }

    void enumMatchesTheWildcardInTheFolderOnly()
    {
        sandbox::writeFile(dir + QStringLiteral("/b.pr"), "");
        sandbox::writeFile(dir + QStringLiteral("/a.pr"), "");
        sandbox::writeFile(dir + QStringLiteral("/default"), "");
        sandbox::writeFile(dir + QStringLiteral("/a.pr.bak"), "");
        sandbox::writeFile(dir + QStringLiteral("/sub/c.pr"), "");
        QDir().mkpath(dir + QStringLiteral("/folder.pr"));
        QCOMPARE(zeq::PersistentProperties::EnumPropertyFiles(dir, QStringLiteral("*.pr")),
                 (QStringList{dir + QStringLiteral("/a.pr"), dir + QStringLiteral("/b.pr")}));
    }

    void enumOfMissingFolderIsEmpty()
    {
        QVERIFY(zeq::PersistentProperties::EnumPropertyFiles(dir + QStringLiteral("/none"),
                                                             QStringLiteral("*.pr"))
                    .isEmpty());
    }

    void enumReturnsPathsUsableWithSetPath()
    {
        Item a;
        a.set_path(dir + QStringLiteral("/Office.pr"));
        a.text = QStringLiteral("hello");
        QVERIFY(a.Commit());
        const QStringList found =
            zeq::PersistentProperties::EnumPropertyFiles(dir, QStringLiteral("*.pr"));
        QCOMPARE(found.size(), 1);
        Item b;
        b.set_path(found.first());
        QVERIFY(b.Load());
        QCOMPARE(b.text, QStringLiteral("hello"));
    }

    void loadsAFileOfOneMebibyteWithoutLosingTheValue()
    {
        // Exactly the size cap of a record file; one byte more is refused.
        const QByteArray big((1 << 20) - int(sizeof "text=\nflag=false\n") + 1, 'v');
        QVERIFY(
            sandbox::writeFile(dir + QStringLiteral("/big.pr"), "text=" + big + "\nflag=false\n"));
        Item a;
        a.set_path(dir + QStringLiteral("/big.pr"));
        QVERIFY(a.Load());
        QCOMPARE(a.text.size(), big.size());
        QCOMPARE(a.flag, false);
    }
};

QTEST_GUILESS_MAIN(TestPersistence)
#include "tst_persistence.moc"
