#pragma once

#include <functional>
#include <string>

#include "xpccommon/UserAgentProtocol.h"

namespace cmn {

// Maps a browser's name to its current URL, empty when unknown. Called on any thread.
using URLExtractorDelegate = std::function<std::string(const std::string& browser)>;

// The extractor that the agent hands to the daemon.
class URLExtractorImpl final : public URLExtractor {
 public:
    explicit URLExtractorImpl(URLExtractorDelegate delegate);

    // An exception of the delegate (std::bad_function_call when it is empty) goes to the system log; `reply`
    // is then not called.
    void getURL(const std::string& browser, std::function<void(const std::string&)> reply) override;

 private:
    const URLExtractorDelegate delegate_;
};

}  // namespace cmn
