#pragma once

#include <pwd.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/PrivateBus.h"

// Several users of one machine on a bus with the product's policy. Only root can play them.
class BusUsers {
 public:
    // Accounts that every distribution has and that may do nothing special.
    static constexpr const char* kFirst = "daemon";
    static constexpr const char* kSecond = "bin";
    static constexpr const char* kNobody = "nobody";
    static constexpr const char* kRoot = "root";

    static bool canBePlayed() { return ::geteuid() == 0; }

    explicit BusUsers(std::string address) : address_(std::move(address)) {}

    static uid_t idOf(const std::string& user) {
        const passwd* account = ::getpwnam(user.c_str());
        if (account == nullptr) {
            throw std::runtime_error("no user " + user);
        }
        return account->pw_uid;
    }

    // The program BusUser as that user; see there for the arguments.
    std::unique_ptr<fake::ChildProcess> start(const std::string& user,
                                              std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {TESSARIN_BUS_USER, std::to_string(idOf(user))});
        return std::make_unique<fake::ChildProcess>(
            arguments, std::map<std::string, std::string>{{"DBUS_SYSTEM_BUS_ADDRESS", address_}});
    }

    // One call: "ok" with the text of the answer, or the error's name without its
    // "org.freedesktop.DBus.Error.".
    std::string call(const std::string& user, const std::string& destination, const std::string& path,
                     const std::string& interface, const std::string& member,
                     const std::vector<std::string>& signatureAndArguments = {}) const {
        std::vector<std::string> arguments{"call", destination, path, interface, member};
        arguments.insert(arguments.end(), signatureAndArguments.begin(), signatureAndArguments.end());
        const auto process = start(user, arguments);
        std::string answer = process->readLine(std::chrono::seconds(60)).value_or("");
        if (answer.empty()) {
            process->wait();
            return "nothing; " + process->errors();
        }
        const std::string prefix = "org.freedesktop.DBus.Error.";
        return answer.starts_with(prefix) ? answer.substr(prefix.size()) : answer;
    }

 private:
    const std::string address_;
};
