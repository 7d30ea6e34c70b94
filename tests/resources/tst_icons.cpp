#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QIcon>
#include <QImage>
#include <QPainter>
#include <QProcess>
#include <QRegularExpression>
#include <QResource>
#include <QStandardPaths>
#include <QtTest>

namespace {
const QString folder = QStringLiteral(":/zeq-icons/printer/");

// The printer list draws its items at 24 x 24, so those icons are drawn on that grid;
// the rest sit unscaled in 32 to 41 pixel wide labels and buttons.
const QStringList listIcons = {QStringLiteral("deflocal.png"), QStringLiteral("defnet.png"),
                               QStringLiteral("list-add.png"), QStringLiteral("local.png"),
                               QStringLiteral("net.png")};
const QStringList largeIcons = {QStringLiteral("add.png"),
                                QStringLiteral("default.png"),
                                QStringLiteral("delete.png"),
                                QStringLiteral("edit.png"),
                                QStringLiteral("loading.png"),
                                QStringLiteral("print32.png"),
                                QStringLiteral("printer-printing.png"),
                                QStringLiteral("search.png")};

QStringList allIcons()
{
    QStringList names = listIcons + largeIcons;
    names.sort();
    return names;
}

int sideOf(const QString &name)
{
    return listIcons.contains(name) ? 24 : 32;
}

QImage load(const QString &name)
{
    return QImage(folder + name).convertToFormat(QImage::Format_ARGB32);
}

int luminance(QRgb c)
{
    return (299 * qRed(c) + 587 * qGreen(c) + 114 * qBlue(c)) / 1000;
}

// Number of pixels where the two images differ by more than `tolerance` in some channel.
int differingPixels(const QImage &a, const QImage &b, int tolerance)
{
    int count = 0;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width(); ++x) {
            const QRgb p = a.pixel(x, y);
            const QRgb q = b.pixel(x, y);
            if (qAbs(qRed(p) - qRed(q)) > tolerance || qAbs(qGreen(p) - qGreen(q)) > tolerance ||
                qAbs(qBlue(p) - qBlue(q)) > tolerance || qAbs(qAlpha(p) - qAlpha(q)) > tolerance)
                ++count;
        }
    }
    return count;
}

void addIconRows()
{
    QTest::addColumn<QString>("name");
    for (const QString &name : allIcons())
        QTest::newRow(qPrintable(name)) << name;
}
} // namespace

class TestIcons : public QObject
{
    Q_OBJECT

private slots:
    void folderHoldsExactlyTheThirteenIcons()
    {
        QStringList present = QDir(folder).entryList(QDir::Files);
        present.sort();
        QCOMPARE(present, allIcons());
        QCOMPARE(present.size(), 13);
    }

    void everyIconLoadsAtItsDrawnSize_data() { addIconRows(); }
    void everyIconLoadsAtItsDrawnSize()
    {
        QFETCH(QString, name);
        const QImage image(folder + name);
        QVERIFY2(!image.isNull(), qPrintable(folder + name));
        QCOMPARE(image.size(), QSize(sideOf(name), sideOf(name)));
        QVERIFY(image.hasAlphaChannel());
    }

    void everyIconCoversAFairPartOfItsSquare_data() { addIconRows(); }
    void everyIconCoversAFairPartOfItsSquare()
    {
        QFETCH(QString, name);
        const QImage image = load(name);
        QVERIFY(!image.isNull());
        int opaque = 0;
        int clear = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                const int alpha = qAlpha(image.pixel(x, y));
                opaque += alpha >= 128;
                clear += alpha == 0;
            }
        }
        const int area = image.width() * image.height();
        // A picture, not a speck, and not a filled square: some of it is see-through.
        QVERIFY2(opaque * 4 >= area, qPrintable(QStringLiteral("%1 of %2").arg(opaque).arg(area)));
        QVERIFY2(clear > 0, "no transparent pixel at all");
    }

    void windowIconLoadsThroughTheDoubleSlashPath()
    {
        const QString windowPath = QStringLiteral("://zeq-icons/printer/print32.png");
        const QImage viaWindowPath(windowPath);
        QVERIFY(!viaWindowPath.isNull());
        QCOMPARE(viaWindowPath, QImage(folder + QStringLiteral("print32.png")));
        // The window hands the path to QIcon, which finds the picture by the same lookup.
        const QIcon icon(windowPath);
        QVERIFY(!icon.isNull());
        QCOMPARE(icon.availableSizes(), QList<QSize>{QSize(32, 32)});
    }

    void listIconsArePairwiseDistinct()
    {
        // The four ways a printer can appear in the main list must be told apart at a
        // glance, so each pair differs in a visible patch, not in a stray pixel.
        const QStringList kinds = {QStringLiteral("local.png"), QStringLiteral("net.png"),
                                   QStringLiteral("deflocal.png"), QStringLiteral("defnet.png")};
        for (int i = 0; i < kinds.size(); ++i) {
            for (int j = i + 1; j < kinds.size(); ++j) {
                const QImage a = load(kinds[i]);
                const QImage b = load(kinds[j]);
                QCOMPARE(a.size(), b.size());
                const int differing = differingPixels(a, b, 32);
                QVERIFY2(differing >= 20, qPrintable(QStringLiteral("%1 and %2 differ in %3 pixels")
                                                         .arg(kinds[i], kinds[j])
                                                         .arg(differing)));
            }
        }
    }

    void iconsStandOutOnLightAndMidGreyBackgrounds_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QColor>("background");
        for (const QString &name : allIcons()) {
            QTest::newRow(qPrintable(name + QStringLiteral(" on white")))
                << name << QColor(Qt::white);
            QTest::newRow(qPrintable(name + QStringLiteral(" on light grey")))
                << name << QColor(0xef, 0xef, 0xef);
            QTest::newRow(qPrintable(name + QStringLiteral(" on mid grey")))
                << name << QColor(0x80, 0x80, 0x80);
        }
    }
    void iconsStandOutOnLightAndMidGreyBackgrounds()
    {
        QFETCH(QString, name);
        QFETCH(QColor, background);
        const QImage icon = load(name);
        QImage composed(icon.size(), QImage::Format_RGB32);
        composed.fill(background);
        {
            QPainter painter(&composed);
            painter.drawImage(0, 0, icon);
        }
        // The shape's edge must show all round it: every opaque pixel at the edge of the
        // shape, or one next to it, is clearly brighter or darker than the background.
        const int base = luminance(background.rgb());
        const QRect bounds = icon.rect();
        const auto opaque = [&](int x, int y) {
            return bounds.contains(x, y) && qAlpha(icon.pixel(x, y)) >= 128;
        };
        const auto standsOut = [&](int x, int y) {
            return bounds.contains(x, y) && qAbs(luminance(composed.pixel(x, y)) - base) >= 64;
        };
        int edge = 0;
        int visible = 0;
        for (int y = 0; y < icon.height(); ++y) {
            for (int x = 0; x < icon.width(); ++x) {
                if (!opaque(x, y) ||
                    (opaque(x - 1, y) && opaque(x + 1, y) && opaque(x, y - 1) && opaque(x, y + 1)))
                    continue;
                ++edge;
                bool seen = false;
                for (int dy = -1; dy <= 1 && !seen; ++dy)
                    for (int dx = -1; dx <= 1 && !seen; ++dx)
                        seen = opaque(x + dx, y + dy) && standsOut(x + dx, y + dy);
                visible += seen;
            }
        }
        QVERIFY(edge > 0);
        QVERIFY2(
            visible * 100 >= edge * 95,
            qPrintable(QStringLiteral("%1 of %2 edge pixels stand out").arg(visible).arg(edge)));
    }

    void compiledIconsMatchAFreshRenderingOfTheirSources_data() { addIconRows(); }
    void compiledIconsMatchAFreshRenderingOfTheirSources()
    {
        QFETCH(QString, name);
        const QString rsvg = QStandardPaths::findExecutable(QStringLiteral("rsvg-convert"));
        if (rsvg.isEmpty())
            QSKIP("rsvg-convert (librsvg2-bin) is not installed, so the sources cannot be "
                  "rendered again to compare");
        const QString svg = QStringLiteral(ICON_SOURCE_DIR "/") +
                            QFileInfo(name).completeBaseName() + QStringLiteral(".svg");
        QVERIFY2(QFileInfo::exists(svg), qPrintable(svg));
        const QString side = QString::number(sideOf(name));
        // Rendered to standard output so nothing is written anywhere.
        QProcess process;
        process.start(rsvg, {QStringLiteral("--width"), side, QStringLiteral("--height"), side,
                             QStringLiteral("--format"), QStringLiteral("png"), svg});
        QVERIFY(process.waitForFinished(30000));
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QVERIFY2(process.exitCode() == 0, process.readAllStandardError().constData());
        const QImage fresh = QImage::fromData(process.readAllStandardOutput(), "PNG")
                                 .convertToFormat(QImage::Format_ARGB32);
        QVERIFY(!fresh.isNull());
        const QImage compiled = load(name);
        QCOMPARE(fresh.size(), compiled.size());
        // A little room for another librsvg's antialiasing; a changed drawing that was not
        // rendered again with scripts/render-icons shows up as whole shapes.
        QCOMPARE(differingPixels(fresh, compiled, 24), 0);
    }

    void iconsAreCompiledInResourceFormatVersionTwo()
    {
        // The objects this test links were compiled from rcc's generated source; the
        // version it registers the tree with is the format the tree was written in.
        QString generated;
        QDirIterator it(QStringLiteral(ICONS_AUTOGEN_DIR), {QStringLiteral("qrc_icons.cpp")},
                        QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext() && generated.isEmpty())
            generated = it.next();
        QVERIFY2(!generated.isEmpty(), "no qrc_icons.cpp below " ICONS_AUTOGEN_DIR);
        QFile file(generated);
        QVERIFY(file.open(QIODevice::ReadOnly | QIODevice::Text));
        const QString source = QString::fromUtf8(file.readAll());
        const QRegularExpression registration(
            QStringLiteral(R"(qInitResources_icons\)\(\)\s*\{\s*int version = (\d+);\s*)"
                           R"(QT_RCC_PREPEND_NAMESPACE\(qRegisterResourceData\)\s*\(version,)"));
        const QRegularExpressionMatch match = registration.match(source);
        QVERIFY2(match.hasMatch(), qPrintable(generated));
        QCOMPARE(match.captured(1), QStringLiteral("2"));
        // Version 2 trees carry a modification time for each file; version 1 trees do not.
        QVERIFY(QResource(folder + QStringLiteral("print32.png")).lastModified().isValid());
    }
};

// Images only: no window system is needed, and none is started.
QTEST_GUILESS_MAIN(TestIcons)
#include "tst_icons.moc"
