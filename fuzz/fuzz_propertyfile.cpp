// The property file reader: any bytes parse without harm, and whatever was parsed,
// written back and parsed again gives the same keys, in the same order, with the same
// values. The escaping alone must also round-trip every text, unpaired surrogates
// included, which the bytes reinterpreted as UTF-16 reach.

#include "fuzzcheck.h"

#include <zeq/propertyformat.h>
#include <zeq/propertyset.h>

using zeq::PropertySet;
namespace format = zeq::propertyformat;

namespace {

void checkSameProperties(const PropertySet &a, const PropertySet &b)
{
    FUZZ_CHECK(a.keys() == b.keys());
    for (const QString &key : a.keys()) {
        FUZZ_CHECK(b.containsRaw(key));
        FUZZ_CHECK(a.raw(key) == b.raw(key));
    }
}

// The record's own exchange on a parsed file: every key is looked up, missing ones give
// the defaults.
void readAsRecord(PropertySet &properties)
{
    static const char *const textKeys[] = {"name", "class",      "model",     "device_uri",
                                           "ppd",  "win_driver", "paper_size"};
    for (const char *key : textKeys) {
        QString value;
        properties.AccessString(QString::fromLatin1(key), value, QString());
        FUZZ_CHECK(value == properties.raw(QString::fromLatin1(key)));
    }
    bool flag = true;
    properties.AccessBoolean(QStringLiteral("default_vdi_printer"), flag, false);
    const QString stored = properties.raw(QStringLiteral("default_vdi_printer"));
    if (stored == QLatin1String("true") || stored == QLatin1String("1"))
        FUZZ_CHECK(flag);
    else
        FUZZ_CHECK(!flag);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray input = fuzzsupport::bytes(data, size);

    PropertySet parsed(PropertySet::Read);
    format::parse(input, parsed);
    for (const QString &key : parsed.keys())
        FUZZ_CHECK(!key.isEmpty());
    readAsRecord(parsed);

    const QByteArray written = format::serialize(parsed);
    PropertySet reparsed(PropertySet::Read);
    format::parse(written, reparsed);
    checkSameProperties(parsed, reparsed);
    FUZZ_CHECK(format::serialize(reparsed) == written);

    const QString text =
        QString::fromUtf16(reinterpret_cast<const char16_t *>(data), int(size / 2));
    FUZZ_CHECK(format::unescape(format::escape(text, true)) == text);
    FUZZ_CHECK(format::unescape(format::escape(text, false)) == text);

    // A record written through the file format and read back keeps its texts exactly.
    if (!text.isEmpty()) {
        PropertySet record(PropertySet::Write);
        QString key = text.left(text.size() / 2 + 1);
        QString value = text.mid(key.size());
        record.AccessString(key, value, QString());
        PropertySet loaded(PropertySet::Read);
        format::parse(format::serialize(record), loaded);
        checkSameProperties(record, loaded);
    }
    return 0;
}
