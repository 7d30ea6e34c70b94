#pragma once

#include "zeq/propertyset.h"

#include <QByteArray>
#include <QString>

namespace zeq {

// The property file format, internal to the library. A file is UTF-8 text, one
// "key=value" pair per line. We end lines with "\n"; a file from elsewhere may also end
// them with "\r\n" or a lone "\r". Lines that are empty or start with "#" are comments.
// In keys and values a backslash starts an escape: "\\" is a backslash, "\n" a line
// feed, "\r" a carriage return, "\=" an equals sign (keys only need it) and "\uXXXX" any
// other UTF-16 code unit below U+0020, U+007F, U+FEFF or an unpaired surrogate, so every
// QString round-trips. A byte-order mark at the very start of a file is an encoding mark
// and is dropped; anywhere else U+FEFF is an ordinary character and is kept. Booleans
// are stored as "true" or "false". Lines that do not parse are skipped.
namespace propertyformat {

QByteArray serialize(const PropertySet &properties);
void parse(const QByteArray &data, PropertySet &properties);
QString escape(const QString &text, bool isKey);
QString unescape(const QString &text);

} // namespace propertyformat
} // namespace zeq
