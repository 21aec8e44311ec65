#pragma once

#include <memory>
#include <string>

namespace cmn {
class FinderExtensionXPCClient;
class LinuxDispatch;
class XPCTransport;
}  // namespace cmn

// The product's own two ends.
namespace ours {

// What all clients of one process share. Stopped with this object.
class Surroundings {
 public:
    Surroundings();
    ~Surroundings();
    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;

    const std::shared_ptr<cmn::LinuxDispatch> dispatch;
    const std::shared_ptr<cmn::XPCTransport> transport;
};

class Client {
 public:
    explicit Client(const Surroundings& surroundings);
    // Whether the right version came.
    bool version();
    // Asks for the version, then for so many records; whether they came.
    bool ask(int count);

 private:
    const std::shared_ptr<cmn::FinderExtensionXPCClient> client_;
};

// Serves until the process is killed; needs an application object. The service's log goes to that folder.
int RunService(const std::string& installPath);

}  // namespace ours
