// Driver catalogue timings over databases of 50,000 driver lines whose PPD files all
// exist, generated in a temporary folder, in two shapes that differ only in the model
// column: "repeated", where 200 model names recur over the whole file, and "distinct",
// where every line names a model of its own, as in a real driver collection (one PPD per
// printer model).
//
// readDatabases() is compared with a plain loop that reads the same lines through the
// same text stream and checks the same paths, i.e. the file system work that any reader
// has to do; the ratio between the two is the cost of the catalogue on top of that.
// A loop over stdio and stat(2) is timed as well, for reference.

#include "drivers/ppdset.h"

#include <benchmark/benchmark.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTextStream>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <type_traits>
#include <unistd.h>
#include <utility>

namespace {

constexpr int lineCount = 50000;
constexpr int manufacturerCount = 50;
constexpr int folderCount = 100;

enum Shape { RepeatedModels = 0, DistinctModels = 1 };

const char *shapeName(int shape)
{
    return shape == DistinctModels ? "distinct" : "repeated";
}

struct Catalogue
{
    QTemporaryDir dir;
    QString database[2]; // by Shape
    QString firstPath;
    QString lastPath;
};

// Writes the PPD files and both databases once per process.
Catalogue &catalogue()
{
    static std::unique_ptr<Catalogue> data = [] {
        auto c = std::make_unique<Catalogue>();
        if (!c->dir.isValid()) {
            std::fprintf(stderr, "cannot create a temporary folder\n");
            std::exit(1);
        }
        const QString base = c->dir.path() + QStringLiteral("/ppd");
        for (int f = 0; f < folderCount; ++f)
            QDir().mkpath(base + QStringLiteral("/Maker%1").arg(f));

        QFile db[2];
        QTextStream out[2];
        for (int shape : {RepeatedModels, DistinctModels}) {
            c->database[shape] =
                c->dir.path() + QStringLiteral("/drivers-%1.db").arg(shapeName(shape));
            db[shape].setFileName(c->database[shape]);
            if (!db[shape].open(QIODevice::WriteOnly | QIODevice::Text)) {
                std::fprintf(stderr, "cannot write %s\n", qPrintable(c->database[shape]));
                std::exit(1);
            }
            out[shape].setDevice(&db[shape]);
            out[shape] << base << '\n';
        }
        for (int i = 0; i < lineCount; ++i) {
            const QString relative =
                QStringLiteral("Maker%1/driver-%2.ppd").arg(i % folderCount).arg(i);
            QFile ppd(base + '/' + relative);
            if (!ppd.open(QIODevice::WriteOnly)) {
                std::fprintf(stderr, "cannot write %s\n", qPrintable(ppd.fileName()));
                std::exit(1);
            }
            ppd.write("*PPD-Adobe: \"4.3\"\n");
            const int maker = i % manufacturerCount;
            out[RepeatedModels] << relative << ";Maker " << maker << ";Model "
                                << (i / manufacturerCount) % 200 << ";Driver " << i << " for Maker "
                                << maker << '\n';
            out[DistinctModels] << relative << ";Maker " << maker << ";Series " << i % 97
                                << " Model " << 1000 + i << ";Driver " << i << " for Maker "
                                << maker << '\n';
            if (i == 0)
                c->firstPath = base + '/' + relative;
            c->lastPath = base + '/' + relative;
        }
        return c;
    }();
    return *data;
}

void releaseRecords(PPDSet &set)
{
    // The catalogue keeps its records for the program's life; the benchmark reads many
    // times and frees them itself.
    qDeleteAll(set.ppds);
    set.ppds.clear();
}

void BM_PlainLoop(benchmark::State &state)
{
    const QString database = catalogue().database[state.range(0)];
    for (auto _ : state) {
        int found = 0;
        QFile file(database);
        if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
            state.SkipWithError("cannot open the database");
        QTextStream stream(&file);
        const QString base = stream.readLine();
        QString line;
        while (!stream.atEnd()) {
            stream.readLineInto(&line);
            const int end = line.indexOf(QLatin1Char(';'));
            if (end < 0)
                continue;
            if (QFileInfo::exists(base + QLatin1Char('/') + line.midRef(0, end)))
                ++found;
        }
        benchmark::DoNotOptimize(found);
        if (found != lineCount)
            state.SkipWithError("not every PPD file was found");
    }
    state.SetItemsProcessed(state.iterations() * lineCount);
}
BENCHMARK(BM_PlainLoop)->Arg(RepeatedModels)->Arg(DistinctModels)->Unit(benchmark::kMillisecond);

void BM_PosixLoop(benchmark::State &state)
{
    const QByteArray database = QFile::encodeName(catalogue().database[DistinctModels]);
    for (auto _ : state) {
        int found = 0;
        FILE *file = std::fopen(database.constData(), "r");
        if (!file) {
            state.SkipWithError("cannot open the database");
            break;
        }
        char *buffer = nullptr;
        size_t capacity = 0;
        ssize_t length = getline(&buffer, &capacity, file);
        std::string base(buffer, length > 0 ? size_t(length) - 1 : 0);
        std::string path;
        struct stat info;
        while ((length = getline(&buffer, &capacity, file)) > 0) {
            const char *end = static_cast<const char *>(std::memchr(buffer, ';', size_t(length)));
            if (!end)
                continue;
            path.assign(base).append(1, '/').append(buffer, size_t(end - buffer));
            if (::stat(path.c_str(), &info) == 0)
                ++found;
        }
        std::free(buffer);
        std::fclose(file);
        benchmark::DoNotOptimize(found);
        if (found != lineCount)
            state.SkipWithError("not every PPD file was found");
    }
    state.SetItemsProcessed(state.iterations() * lineCount);
}
BENCHMARK(BM_PosixLoop)->Unit(benchmark::kMillisecond);

void BM_ReadDatabases(benchmark::State &state)
{
    const QString database = catalogue().database[state.range(0)];
    for (auto _ : state) {
        PPDSet set;
        set.addDatabase(database);
        set.readDatabases();
        benchmark::DoNotOptimize(set.ppds.size());
        state.PauseTiming();
        const bool complete =
            set.ppds.size() == lineCount && set.manufacturers().size() == manufacturerCount;
        releaseRecords(set);
        state.ResumeTiming();
        if (!complete)
            state.SkipWithError("the catalogue is incomplete");
    }
    state.SetItemsProcessed(state.iterations() * lineCount);
}
BENCHMARK(BM_ReadDatabases)
    ->Arg(RepeatedModels)
    ->Arg(DistinctModels)
    ->Unit(benchmark::kMillisecond);

// A catalogue read once and kept for the query benchmarks.
PPDSet &loadedSet()
{
    static PPDSet *set = [] {
        auto *s = new PPDSet;
        s->addDatabase(catalogue().database[RepeatedModels]);
        s->readDatabases();
        return s;
    }();
    return *set;
}

void BM_Models(benchmark::State &state)
{
    const PPDSet &set = loadedSet();
    const QString maker = QStringLiteral("Maker 25");
    for (auto _ : state) {
        const QStringList models = set.models(maker);
        benchmark::DoNotOptimize(models.size());
        if (models.size() != lineCount / manufacturerCount)
            state.SkipWithError("wrong number of models");
    }
}
BENCHMARK(BM_Models)->Unit(benchmark::kMicrosecond);

void BM_Drivers(benchmark::State &state)
{
    const PPDSet &set = loadedSet();
    const QString maker = QStringLiteral("Maker 25");
    const QString model = QStringLiteral("Model 7");
    for (auto _ : state) {
        const QList<PPD *> drivers = set.drivers(maker, model);
        benchmark::DoNotOptimize(drivers.size());
        if (drivers.isEmpty())
            state.SkipWithError("no drivers found");
    }
}
BENCHMARK(BM_Drivers)->Unit(benchmark::kMicrosecond);

void BM_FindByPathLast(benchmark::State &state)
{
    const PPDSet &set = loadedSet();
    const QString path = catalogue().lastPath;
    for (auto _ : state) {
        PPD *ppd = set.findByPath(path);
        benchmark::DoNotOptimize(ppd);
        if (!ppd)
            state.SkipWithError("the last entry was not found");
    }
}
BENCHMARK(BM_FindByPathLast)->Unit(benchmark::kMicrosecond);

void BM_FindByPathMissing(benchmark::State &state)
{
    const PPDSet &set = loadedSet();
    const QString path = catalogue().firstPath.toUpper();
    for (auto _ : state) {
        PPD *ppd = set.findByPath(path);
        benchmark::DoNotOptimize(ppd);
        if (ppd)
            state.SkipWithError("a path differing in case was found");
    }
}
BENCHMARK(BM_FindByPathMissing)->Unit(benchmark::kMicrosecond);

// Whether a run ended early (SkipWithError) and so has no time worth keeping. Google
// Benchmark 1.7 (Debian 12) says so in Run::error_occurred; from 1.8 on (Debian 13 has
// 1.9) the field is Run::skipped, which also covers a run skipped with a message. The
// field the installed header has is the one read.
template <typename R, typename = void> struct HasSkipped : std::false_type
{
};
template <typename R>
struct HasSkipped<R, std::void_t<decltype(std::declval<const R &>().skipped)>> : std::true_type
{
};

template <typename R> bool endedEarly(const R &run)
{
    if constexpr (HasSkipped<R>::value)
        return run.skipped != decltype(run.skipped){};
    else
        return run.error_occurred;
}

// Keeps the fastest time of every benchmark while the console shows them as usual. The
// time is the process's CPU time (user and system) per iteration: the machine the
// benchmarks run on is often shared, and time spent waiting for a processor is not the
// catalogue's.
class FastestTimes : public benchmark::ConsoleReporter
{
public:
    FastestTimes()
        : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_ColorTabular : OO_Tabular)
    {
    }

    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            if (run.run_type != Run::RT_Iteration || endedEarly(run))
                continue;
            // The function name with its argument, e.g. BM_ReadDatabases/1.
            std::string name = run.run_name.function_name;
            if (!run.run_name.args.empty())
                name += '/' + run.run_name.args;
            // CPU seconds per iteration.
            const double seconds = run.cpu_accumulated_time / double(run.iterations);
            auto it = fastest.find(name);
            if (it == fastest.end() || seconds < it->second)
                fastest[name] = seconds;
        }
        ConsoleReporter::ReportRuns(runs);
    }

    std::map<std::string, double> fastest;
};

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    catalogue(); // generate the files before any timing starts
    FastestTimes reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);

    const auto &t = reporter.fastest;
    for (int shape : {RepeatedModels, DistinctModels}) {
        const std::string read = "BM_ReadDatabases/" + std::to_string(shape);
        const std::string plain = "BM_PlainLoop/" + std::to_string(shape);
        if (!t.count(read) || !t.count(plain))
            continue;
        // One line per shape for bench/run-all to pick up.
        std::printf("\ncatalogue %s %.2f %.2f %.3f   (readDatabases over %d lines, %s model "
                    "names: %.1f ms; plain loop %.1f ms; ratio %.2f)\n",
                    shapeName(shape), t.at(read) * 1e3, t.at(plain) * 1e3, t.at(read) / t.at(plain),
                    lineCount, shapeName(shape), t.at(read) * 1e3, t.at(plain) * 1e3,
                    t.at(read) / t.at(plain));
    }
    if (t.count("BM_PosixLoop") && t.count("BM_ReadDatabases/1"))
        std::printf("for reference, stdio+stat loop %.1f ms; readDatabases (distinct) / that "
                    "%.2f\n",
                    t.at("BM_PosixLoop") * 1e3, t.at("BM_ReadDatabases/1") / t.at("BM_PosixLoop"));
    for (const char *query :
         {"BM_Models", "BM_Drivers", "BM_FindByPathLast", "BM_FindByPathMissing"}) {
        if (t.count(query))
            std::printf("%s over %d entries: %.1f us per query (target < 1000)\n", query, lineCount,
                        t.at(query) * 1e6);
    }
    benchmark::Shutdown();
    return 0;
}
