#pragma once

#include <QDBusMessage>
#include <optional>
#include <string>

// What is said to polkit and what it answers, in the terms of its interface on the bus. Any thread.
namespace cmn::polkit {

struct Question {
    std::string callerName;  // unique bus name of the process that wants the right
    std::string action;
    std::string message;  // for the user; empty: the action's own
    bool mayAskUser = false;
    unsigned cancellationId = 0;  // of the caller's choice, for one question
};

struct Verdict {
    bool isAuthorized = false;
    bool isChallenge = false;  // would have to ask the user
    bool wasDismissed = false;
};

QDBusMessage CheckAuthorization(const Question& question);
QDBusMessage CancelCheckAuthorization(unsigned cancellationId);

// Nothing when the message is no answer to a check.
std::optional<Verdict> ReadVerdict(const QDBusMessage& answer);

// Whether this is polkit's error for callers that it does not trust, for example to choose the message.
bool IsNotAuthorized(const QDBusMessage& answer);

}  // namespace cmn::polkit
