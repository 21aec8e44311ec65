#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "usercommon/XPCConnection.h"

namespace cmn {

inline constexpr const char* kUserAgentMachServiceName = "com.tessarin.UserAgent";

// How long the daemon waits for the answer to `getURL`. The transports give the call up then.
inline constexpr std::chrono::seconds kGetURLDeadline{3};

// What the agent hands to the daemon: asks a browser's current URL. Travels as a callable remote object.
class URLExtractor {
 public:
    virtual ~URLExtractor() = default;

    // `reply` receives the URL as text, empty when unknown; it is destroyed when no answer can come any more.
    // May be called from any thread.
    virtual void getURL(const std::string& browser, std::function<void(const std::string&)> reply) = 0;
};

// Messages of the service "com.tessarin.UserAgent".
class UserAgentProtocol : public XPCVersioning {
 public:
    virtual void setURLExtractor(std::shared_ptr<URLExtractor> extractor,
                                 std::function<void(bool)> reply) = 0;

    // No reply: returns as soon as the message is queued.
    virtual void sendURL(const std::string& url, const std::string& browser, std::int32_t processID) = 0;
};

// The interface description used on both ends. Provided by each platform end.
std::shared_ptr<const XPCInterface> CreateUserAgentInterface();

}  // namespace cmn
