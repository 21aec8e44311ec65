#pragma once

#import "macos_xpccommon/UserAgentProtocol.h"
#include "xpccommon/UserAgentProtocol.h"

// The portable classes have the same names.
using RemoteUserAgent = id<UserAgentProtocol>;
using RemoteURLExtractor = id<URLExtractor>;

namespace cmn {

// The user agent service, as the agent holds it.
class UserAgentProxy final : public UserAgentProtocol {
 public:
    explicit UserAgentProxy(RemoteUserAgent remote) : remote_(remote) {}

    void version(std::function<void(const std::string&)> reply) override;
    void setURLExtractor(std::shared_ptr<URLExtractor> extractor, std::function<void(bool)> reply) override;
    void sendURL(const std::string& url, const std::string& browser, std::int32_t processID) override;

 private:
    const RemoteUserAgent remote_;
};

// The agent's extractor, as the daemon holds it.
class URLExtractorProxy final : public URLExtractor {
 public:
    explicit URLExtractorProxy(RemoteURLExtractor remote) : remote_(remote) {}

    void getURL(const std::string& browser, std::function<void(const std::string&)> reply) override;

 private:
    const RemoteURLExtractor remote_;
};

}  // namespace cmn
