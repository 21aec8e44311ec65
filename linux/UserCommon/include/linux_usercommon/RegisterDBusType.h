#pragma once

#include <QDBusMetaType>
#include <QMetaType>

namespace cmn {

// Makes a type known to the bus library, with its signature. The library would work that out at the type's
// first use, in every thread that comes at that moment, its own included: one may then free what another has
// just been given, and the process ends for the broken signature. To be called by one thread at a time.
template <typename Type>
void RegisterDBusType() {
    qDBusRegisterMetaType<Type>();
    QDBusMetaType::typeToSignature(QMetaType::fromType<Type>());
}

}  // namespace cmn
