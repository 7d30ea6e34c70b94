#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

// Helpers shared by the fuzz targets. A broken property aborts, so libFuzzer keeps the
// input as a crash and the replay test fails on it.

#define FUZZ_CHECK(cond)                                                                           \
    do {                                                                                           \
        if (!(cond)) {                                                                             \
            std::fprintf(stderr, "%s:%d: property failed: %s\n", __FILE__, __LINE__, #cond);       \
            std::abort();                                                                          \
        }                                                                                          \
    } while (0)

namespace fuzzsupport {

// The parsers log trace lines for every record they find; at a million inputs a second
// that is only noise, so the targets drop the debug stream.
inline void silenceTraceLines()
{
    static const bool installed = [] {
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
        return true;
    }();
    Q_UNUSED(installed);
}

inline QByteArray bytes(const uint8_t *data, size_t size)
{
    return QByteArray(reinterpret_cast<const char *>(data), int(size));
}

} // namespace fuzzsupport
