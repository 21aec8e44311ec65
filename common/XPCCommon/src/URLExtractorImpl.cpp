#include "xpccommon/URLExtractorImpl.h"

#include <exception>
#include <utility>

#include "common/SystemUtils.h"

namespace cmn {

URLExtractorImpl::URLExtractorImpl(URLExtractorDelegate delegate) : delegate_(std::move(delegate)) {}

void URLExtractorImpl::getURL(const std::string& browser, std::function<void(const std::string&)> reply) {
    try {
        reply(delegate_(browser));
    } catch (const std::exception& e) {
        SystemLog(e.what());
    }
}

}  // namespace cmn
