#pragma once

#include "zeq/persistentproperties.h"

namespace zeq {

// The library's own side of a property set: it is created for one direction and gives
// the file reader and writer the stored texts. Not part of the installed interface.
class PropertySet final : public PersistentProperties
{
public:
    enum Mode { Read, Write };

    explicit PropertySet(Mode mode)
        : PersistentProperties(mode == Write)
    {
    }

    Mode mode() const { return m_writing ? Write : Read; }

    using PersistentProperties::setRaw;
    bool containsRaw(const QString &key) const { return m_values.contains(key); }
    QString raw(const QString &key) const { return m_values.value(key); }
    QStringList keys() const { return m_order; }
};

} // namespace zeq
