// The device line scanner against the pattern it stands for, and its speed on long lines.
#include "discovery/discovery.h"

#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QTest>

namespace {

// What the pattern finds in line, searched from position 0 as the discovery did.
DeviceLineMatch byPattern(const QString &line)
{
    QRegExp pattern = deviceLinePattern();
    DeviceLineMatch match;
    match.position = pattern.indexIn(line, 0);
    if (match.position >= 0) {
        match.deviceClass = pattern.cap(1);
        match.uri = pattern.cap(2);
        match.model = pattern.cap(3);
    }
    return match;
}

DeviceLineMatch byScanner(const QString &line)
{
    DeviceLineMatch match;
    if (!findDeviceLine(line, &match))
        match.position = -1;
    return match;
}

QString describe(const QString &line, const DeviceLineMatch &expected,
                 const DeviceLineMatch &actual)
{
    QString codes;
    for (const QChar c : line)
        codes += QStringLiteral("%1 ").arg(c.unicode(), 4, 16, QLatin1Char('0'));
    return QStringLiteral("line [%1]: pattern %2 '%3' '%4' '%5', scanner %6 '%7' '%8' '%9'")
        .arg(codes.trimmed())
        .arg(expected.position)
        .arg(expected.deviceClass, expected.uri, expected.model)
        .arg(actual.position)
        .arg(actual.deviceClass, actual.uri, actual.model);
}

bool same(const DeviceLineMatch &a, const DeviceLineMatch &b)
{
    if (a.position != b.position)
        return false;
    return a.position < 0 ||
           (a.deviceClass == b.deviceClass && a.uri == b.uri && a.model == b.model);
}

// Characters of every class the pattern tells apart: ASCII and other letters, digits of
// other scripts, combining marks, the underscore, blanks of several kinds, the quote, the
// URI punctuation, other punctuation, and lone halves of surrogate pairs.
const QList<QChar> alphabet = {
    QLatin1Char('a'),  QLatin1Char('Z'),  QLatin1Char('0'), QLatin1Char('_'), QChar(0x00e9),
    QChar(0x0663),     QChar(0x0301),     QChar(0x4e2d),    QChar(0x2160),    QLatin1Char(' '),
    QLatin1Char('\t'), QChar(0x00a0),     QChar(0x2003),    QChar(0x3000),    QLatin1Char('"'),
    QLatin1Char(':'),  QLatin1Char('/'),  QLatin1Char('-'), QLatin1Char('.'), QLatin1Char('?'),
    QChar(0x201c),     QLatin1Char('\r'), QChar(0xd835),    QChar(0xdc00),    QChar(0x0000),
    QChar(0x0085)};

// Pieces of device lines, so that random lines match often and nearly match more often.
const QStringList fragments = {
    QStringLiteral("network"),    QStringLiteral("direct"),       QStringLiteral(" "),
    QStringLiteral("socket://"),  QStringLiteral("usb://"),       QStringLiteral("://"),
    QStringLiteral("\""),         QStringLiteral("\" "),          QStringLiteral(" \""),
    QStringLiteral("Acme Laser"), QStringLiteral("h:9100"),       QStringLiteral("x"),
    QStringLiteral("caf\u00e9"),  QStringLiteral("\u0663\u0301"), QStringLiteral("\t"),
    QStringLiteral("\u00a0"),     QStringLiteral("a_b"),          QStringLiteral("//"),
    QStringLiteral(":")};

QString randomPiece(QRandomGenerator &random, int maxParts)
{
    QString text;
    const int parts = random.bounded(0, maxParts + 1);
    for (int i = 0; i < parts; ++i) {
        if (random.bounded(3) == 0)
            text += alphabet.at(random.bounded(alphabet.size()));
        else
            text += fragments.at(random.bounded(fragments.size()));
    }
    return text;
}

// Either random pieces, or a device line whose every part may be replaced by random
// text, so that lines that match, nearly match and match twice all come up often.
QString randomLine(QRandomGenerator &random)
{
    if (random.bounded(3) == 0)
        return randomPiece(random, 14);
    const QStringList usual = {QString(),
                               QStringLiteral("network"),
                               QStringLiteral(" "),
                               QStringLiteral("socket"),
                               QStringLiteral("://"),
                               QStringLiteral("10.0.0.5:9100"),
                               QStringLiteral(" \""),
                               QStringLiteral("Acme Laser 9"),
                               QStringLiteral("\" "),
                               QStringLiteral("\"d\"")};
    QString line;
    for (const QString &part : usual)
        line += random.bounded(5) == 0 ? randomPiece(random, 2) : part;
    if (random.bounded(2) == 0)
        line += randomLine(random);
    return line;
}

} // namespace

class TestDeviceLineScanner : public QObject
{
    Q_OBJECT
private slots:
    void agreesWithThePatternOnHandPickedLines_data();
    void agreesWithThePatternOnHandPickedLines();
    void agreesWithThePatternOnRandomLines();
    void agreesWithThePatternOnEveryShortLineOfAFewCharacters();
    void longHostileLinesTakeLinearTime_data();
    void longHostileLinesTakeLinearTime();
};

void TestDeviceLineScanner::agreesWithThePatternOnHandPickedLines_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<bool>("matches");
    QTest::newRow("usual") << QStringLiteral("network socket://h \"Acme\" \"d\"") << true;
    QTest::newRow("ends after model") << QStringLiteral("network socket://h \"Acme\"") << false;
    QTest::newRow("leading text") << QStringLiteral("xx: direct usb://a \"M\" x") << true;
    QTest::newRow("second of two")
        << QStringLiteral("a b \"c\" d network socket://h \"M\" ") << true;
    QTest::newRow("first of two") << QStringLiteral(
                                         "network socket://a \"A\" network socket://b \"B\" ")
                                  << true;
    QTest::newRow("empty model") << QStringLiteral("direct usb://x \"\" \"d\"") << true;
    QTest::newRow("empty uri rest") << QStringLiteral("direct usb:// \"M\" d") << false;
    QTest::newRow("uri with quote") << QStringLiteral("d a://b\"c \"M\" e") << true;
    QTest::newRow("word in the middle") << QStringLiteral("-xnetwork socket://h \"M\" ") << true;
    QTest::newRow("tab instead of blank") << QStringLiteral("network\tsocket://h \"M\" ") << false;
    QTest::newRow("non-breaking space ends the uri")
        << QString::fromUtf8("network socket://h\u00a0x \"M\" ") << false;
    QTest::newRow("marks and other digits")
        << QString::fromUtf8("e\u0301\u0663 s\u0301://h \"M\" ") << true;
    QTest::newRow("model not closed") << QStringLiteral("network socket://h \"Acme d") << false;
    QTest::newRow("quote then no blank, later match")
        << QStringLiteral("n s://h \"M\"x n t://h \"N\" ") << true;
}

void TestDeviceLineScanner::agreesWithThePatternOnHandPickedLines()
{
    QFETCH(QString, line);
    QFETCH(bool, matches);
    const DeviceLineMatch expected = byPattern(line);
    const DeviceLineMatch actual = byScanner(line);
    QCOMPARE(expected.position >= 0, matches);
    QVERIFY2(same(expected, actual), qPrintable(describe(line, expected, actual)));
}

void TestDeviceLineScanner::agreesWithThePatternOnRandomLines()
{
    QRandomGenerator random(0x5eed);
    int matched = 0;
    for (int i = 0; i < 60000; ++i) {
        const QString line = randomLine(random);
        const DeviceLineMatch expected = byPattern(line);
        const DeviceLineMatch actual = byScanner(line);
        if (!same(expected, actual))
            QFAIL(qPrintable(describe(line, expected, actual)));
        if (expected.position >= 0)
            ++matched;
    }
    // The generator must reach both answers, or the comparison proves little.
    qInfo("%d of 60000 lines matched", matched);
    QVERIFY2(matched > 6000 && matched < 54000, qPrintable(QString::number(matched)));
}

void TestDeviceLineScanner::agreesWithThePatternOnEveryShortLineOfAFewCharacters()
{
    // Every line of up to five characters over a small alphabet that still holds every
    // distinction: word, blank, other space, quote, colon, slash, other.
    const QString letters = QStringLiteral("a \t\":/-");
    QStringList lines = {QString()};
    int compared = 0;
    for (int length = 1; length <= 5; ++length) {
        QStringList longer;
        for (const QString &line : qAsConst(lines)) {
            for (const QChar c : letters)
                longer.append(line + c);
        }
        lines = longer;
        for (const QString &line : qAsConst(lines)) {
            const DeviceLineMatch expected = byPattern(line);
            const DeviceLineMatch actual = byScanner(line);
            if (!same(expected, actual))
                QFAIL(qPrintable(describe(line, expected, actual)));
            ++compared;
        }
    }
    QCOMPARE(compared, 7 + 49 + 343 + 2401 + 16807);
}

void TestDeviceLineScanner::longHostileLinesTakeLinearTime_data()
{
    QTest::addColumn<QString>("line");
    const int n = 40000;
    QTest::newRow("one long word") << QString(n, QLatin1Char('a'));
    QTest::newRow("words and blanks") << QStringLiteral("a ").repeated(n / 2);
    QTest::newRow("uri without a model") << QStringLiteral("a a://a ").repeated(n / 8);
    QTest::newRow("open model never closed")
        << QStringLiteral("a b://c \"") + QString(n, QLatin1Char('x'));
    QTest::newRow("models closed without a blank")
        << QStringLiteral("a b://c \"x\"").repeated(n / 11);
    QTest::newRow("long uri") << QStringLiteral("a b://") + QString(n, QLatin1Char('c'));
    QTest::newRow("nested starts") << QStringLiteral("w ").repeated(n / 4) +
                                          QStringLiteral("s://") + QString(n / 2, QLatin1Char('u'));
}

void TestDeviceLineScanner::longHostileLinesTakeLinearTime()
{
    QFETCH(QString, line);
    QElapsedTimer timer;
    timer.start();
    DeviceLineMatch match;
    for (int i = 0; i < 10; ++i)
        findDeviceLine(line, &match);
    const qint64 elapsed = timer.elapsed();
    qInfo("10 scans of %d characters: %lld ms", line.size(), elapsed);
    // The pattern took 13.6 s for one such line; a linear scan takes a few milliseconds
    // even unoptimised and under a sanitizer.
    QVERIFY2(elapsed < 2000, qPrintable(QString::number(elapsed)));
}

QTEST_GUILESS_MAIN(TestDeviceLineScanner)
#include "tst_devicelinescanner.moc"
