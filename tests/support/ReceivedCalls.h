#pragma once

#include <QDBusMessage>
#include <algorithm>
#include <iterator>
#include <mutex>
#include <string>
#include <vector>

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
        const std::lock_guard lock(mutex_);
        calls_.push_back({message.path().toStdString(), message.interface().toStdString(),
                          message.member().toStdString(), message.signature().toStdString(),
                          message.service().toStdString(), message.arguments(), message.isReplyRequired()});
    }
    std::vector<Call> all(const std::string& member) {
        const std::lock_guard lock(mutex_);
        std::vector<Call> found;
        std::copy_if(calls_.begin(), calls_.end(), std::back_inserter(found),
                     [&](const Call& call) { return call.member == member; });
        return found;
    }

 private:
    std::mutex mutex_;
    std::vector<Call> calls_;
};

}  // namespace fake
