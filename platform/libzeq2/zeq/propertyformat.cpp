#include "zeq/propertyformat.h"

#include <QTextCodec>

namespace zeq {
namespace propertyformat {

namespace {

bool needsCodeEscape(const QString &text, int i)
{
    const QChar c = text.at(i);
    // U+FEFF is escaped because a decoder may take it for a byte-order mark and drop it.
    if (c.unicode() < 0x20 || c.unicode() == 0x7f || c.unicode() == 0xfeff)
        return true;
    if (c.isHighSurrogate())
        return i + 1 >= text.size() || !text.at(i + 1).isLowSurrogate();
    if (c.isLowSurrogate())
        return i == 0 || !text.at(i - 1).isHighSurrogate();
    return false;
}

int hexValue(QChar c)
{
    const ushort u = c.unicode();
    if (u >= '0' && u <= '9')
        return u - '0';
    if (u >= 'a' && u <= 'f')
        return u - 'a' + 10;
    if (u >= 'A' && u <= 'F')
        return u - 'A' + 10;
    return -1;
}

} // namespace

QString escape(const QString &text, bool isKey)
{
    QString out;
    out.reserve(text.size());
    for (int i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c == QLatin1Char('\\'))
            out += QLatin1String("\\\\");
        else if (c == QLatin1Char('\n'))
            out += QLatin1String("\\n");
        else if (c == QLatin1Char('\r'))
            out += QLatin1String("\\r");
        else if (isKey && c == QLatin1Char('='))
            out += QLatin1String("\\=");
        else if (isKey && i == 0 && c == QLatin1Char('#'))
            out += QLatin1String("\\u0023");
        else if (needsCodeEscape(text, i))
            out += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
        else
            out += c;
    }
    return out;
}

QString unescape(const QString &text)
{
    QString out;
    out.reserve(text.size());
    for (int i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c != QLatin1Char('\\') || i + 1 >= text.size()) {
            out += c;
            continue;
        }
        const QChar e = text.at(++i);
        if (e == QLatin1Char('n')) {
            out += QLatin1Char('\n');
        } else if (e == QLatin1Char('r')) {
            out += QLatin1Char('\r');
        } else if (e == QLatin1Char('u') && i + 4 < text.size()) {
            int code = 0;
            bool ok = true;
            for (int k = 1; k <= 4 && ok; ++k) {
                const int v = hexValue(text.at(i + k));
                ok = v >= 0;
                code = code * 16 + v;
            }
            if (ok) {
                out += QChar(ushort(code));
                i += 4;
            } else {
                out += e;
            }
        } else {
            out += e; // "\\", "\=" and any unknown escape stand for the character itself
        }
    }
    return out;
}

QByteArray serialize(const PropertySet &properties)
{
    QByteArray out;
    for (const QString &key : properties.keys()) {
        out += escape(key, true).toUtf8();
        out += '=';
        out += escape(properties.raw(key), false).toUtf8();
        out += '\n';
    }
    return out;
}

namespace {

// Decodes one line as UTF-8 keeping a leading U+FEFF: QString::fromUtf8 would take it
// for a byte-order mark and drop it, losing a character of the key.
QString decodeLine(const char *data, int size)
{
    static QTextCodec *const utf8 = QTextCodec::codecForMib(106);
    QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
    QString line = utf8->toUnicode(data, size, &state);
    if (state.remainingChars > 0) // a sequence cut off by the end of the line
        line += QChar(QChar::ReplacementCharacter);
    return line;
}

void parseLine(const QString &line, PropertySet &properties)
{
    if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
        return;
    // The key ends at the first "=" that is not escaped.
    int sep = -1;
    for (int i = 0; i < line.size(); ++i) {
        if (line.at(i) == QLatin1Char('\\')) {
            ++i;
        } else if (line.at(i) == QLatin1Char('=')) {
            sep = i;
            break;
        }
    }
    if (sep <= 0)
        return;
    properties.setRaw(unescape(line.left(sep)), unescape(line.mid(sep + 1)));
}

} // namespace

void parse(const QByteArray &data, PropertySet &properties)
{
    const char *const begin = data.constData();
    const char *const end = begin + data.size();
    const char *p = begin;
    if (data.startsWith("\xef\xbb\xbf"))
        p += 3;
    while (p < end) {
        // Lines end in "\n", "\r\n" or "\r". Neither byte occurs inside a UTF-8 sequence.
        const char *eol = p;
        while (eol < end && *eol != '\n' && *eol != '\r')
            ++eol;
        parseLine(decodeLine(p, int(eol - p)), properties);
        if (eol < end && *eol == '\r' && eol + 1 < end && eol[1] == '\n')
            ++eol;
        p = eol + 1;
    }
}

} // namespace propertyformat
} // namespace zeq
