#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QMap>
#include <QString>
#include <atomic>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/RawPeer.h"
#include "support/ReceivedCalls.h"

// An authority of the test's own on a real bus. It notes what it is asked and answers checks as told.
class MockPolkit {
 public:
    static constexpr const char* kName = "org.freedesktop.PolicyKit1";

    // A check as the authority sees it.
    struct Check {
        explicit Check(const fake::ReceivedCalls::Call& call);

        std::string sender, subjectKind, subjectName, action, cancellationId;
        qsizetype subjectSize = 0;  // properties of the subject
        std::map<std::string, std::string> details;
        unsigned flags = 0;
    };
    struct Verdict {
        bool isAuthorized = false;
        bool isChallenge = false;
        QMap<QString, QString> details;
    };
    // Called on a thread of the mock's own.
    using Handler = std::function<void(const QDBusMessage& question, const QDBusConnection& connection)>;

    MockPolkit(const std::string& address, Handler onCheck);

    static Handler answering(const Verdict& verdict);
    static Handler failing(const char* name, const char* text);
    static Handler hanging();

    std::vector<Check> checks();
    std::vector<fake::ReceivedCalls::Call> calls(const std::string& member) { return calls_.all(member); }
    fake::RawPeer& peer() { return peer_; }

    std::atomic<bool> answersWithdrawals{true};

 private:
    fake::ReceivedCalls calls_;
    fake::RawPeer peer_;  // last: the first to go
};
