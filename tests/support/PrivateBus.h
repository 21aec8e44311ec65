#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/LogCapture.h"

namespace fake {

// A message bus of the test's own: a dbus-daemon with its own configuration and socket. Ends with this
// object.
class PrivateBus {
 public:
    struct WithService {
        std::string name;
    };

    enum class Names { free, refused };

    // The rules and limits of a distribution's system bus, and the product's policy on top of them.
    struct OfSystem {
        std::filesystem::path policy;
        std::string otherRules = {};           // of other packages' files, read before
        std::string administratorsRules = {};  // of a file of this machine, read after
    };

    PrivateBus() : PrivateBus(WithService{}) {}
    // The bus starts a program when somebody wants the service of that name.
    explicit PrivateBus(const WithService& service, Names names = Names::free);
    // Whether the bus lets its clients own names.
    explicit PrivateBus(Names names) : PrivateBus(WithService{}, names) {}
    // Every user of the system reaches it.
    explicit PrivateBus(const OfSystem& system);
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    std::string address() const;
    std::string socket() const;
    // Other users of the system reach it, too.
    void openToOthers() const;

    // Ends the daemon at once; `start` brings up a new one under the same address.
    void kill();
    void start();
    // Brings it up as a process of another user; only root can.
    void startAs(unsigned user);
    // A bus that accepts connections but does not do anything.
    void freeze() const;
    void thaw() const;

    bool serviceWasStarted() const;

 private:
    // Writes the bus's configuration: its type and what follows the socket.
    void configure(const std::string& type, const std::string& rules) const;
    // `prefix` is the command that runs the daemon, if any.
    void startWith(const std::vector<std::string>& prefix);

    TemporaryFolder folder_;
    std::unique_ptr<ChildProcess> daemon_;
};

}  // namespace fake
