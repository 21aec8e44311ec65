#pragma once

#include <QDBusMessage>
#include <string>
#include <vector>

#include "support/Recorder.h"

namespace fake {

// Calls that a raw peer received. Thread-safe.
class ReceivedCalls {
 public:
    struct Call {
        std::string path, interface, member, signature, sender;
        QVariantList arguments;
        bool wantsAnswer;
    };

    void add(const QDBusMessage& message) {
        calls_.add({message.path().toStdString(), message.interface().toStdString(),
                    message.member().toStdString(), message.signature().toStdString(),
                    message.service().toStdString(), message.arguments(), message.isReplyRequired()});
    }
    std::vector<Call> all(const std::string& member) {
        std::vector<Call> found = calls_.all();
        std::erase_if(found, [&](const Call& call) { return call.member != member; });
        return found;
    }

 private:
    const Recorder<Call> calls_;
};

}  // namespace fake
