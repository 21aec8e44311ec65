#include "common/causes.h"

namespace cmn {

namespace {

void AppendCauses(const std::exception& error, std::vector<std::string>& texts) {
    try {
        std::rethrow_if_nested(error);
    } catch (const std::exception& cause) {
        texts.emplace_back(cause.what());
        AppendCauses(cause, texts);
    }
}

}  // namespace

std::vector<std::string> CausesOf(const std::exception& error) {
    std::vector<std::string> texts;
    AppendCauses(error, texts);
    return texts;
}

}  // namespace cmn
