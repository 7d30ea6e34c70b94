// Feeds every file of a fuzz target's committed corpus to LLVMFuzzerTestOneInput once, so
// that an ordinary build replays the corpus as a test without libFuzzer. Folders given on
// the command line replace the built-in one.

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv)
{
    QStringList folders;
    for (int i = 1; i < argc; ++i)
        folders.append(QString::fromLocal8Bit(argv[i]));
#ifdef FUZZ_CORPUS_DIR
    if (folders.isEmpty())
        folders.append(QStringLiteral(FUZZ_CORPUS_DIR));
#endif
    if (folders.isEmpty()) {
        std::fprintf(stderr, "usage: %s CORPUS_FOLDER...\n", argv[0]);
        return 2;
    }

    int replayed = 0;
    for (const QString &folder : folders) {
        const QFileInfoList files =
            QDir(folder).entryInfoList(QDir::Files | QDir::Hidden, QDir::Name);
        for (const QFileInfo &file : files) {
            QFile input(file.filePath());
            if (!input.open(QIODevice::ReadOnly)) {
                std::fprintf(stderr, "cannot read %s\n", qPrintable(file.filePath()));
                return 1;
            }
            const QByteArray data = input.readAll();
            std::fprintf(stderr, "replaying %s (%d bytes)\n", qPrintable(file.fileName()),
                         int(data.size()));
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(data.constData()),
                                   size_t(data.size()));
            ++replayed;
        }
    }
    // An empty or missing corpus would make this test pass without checking anything.
    if (replayed == 0) {
        std::fprintf(stderr, "no input found in %s\n", qPrintable(folders.join(", ")));
        return 1;
    }
    std::printf("replayed %d inputs\n", replayed);
    return 0;
}
