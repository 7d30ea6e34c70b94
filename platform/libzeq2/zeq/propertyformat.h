#pragma once

#include <QByteArray>

namespace zeq {

class PersistentProperties;

// The property file format. A file is UTF-8 text, one "key=value" pair per line, lines
// ending in "\n". Lines that are empty or start with "#" are comments. In keys and values
// a backslash starts an escape: "\\" is a backslash, "\n" a line feed, "\r" a carriage
// return, "\=" an equals sign (keys only need it) and "\uXXXX" any other UTF-16 code
// unit below U+0020, U+007F or an unpaired surrogate, so every QString round-trips.
// Booleans are stored as "true" or "false". Lines that do not parse are skipped.
namespace propertyformat {

QByteArray serialize(const PersistentProperties &properties);
void parse(const QByteArray &data, PersistentProperties &properties);
QString escape(const QString &text, bool isKey);
QString unescape(const QString &text);

} // namespace propertyformat
} // namespace zeq
