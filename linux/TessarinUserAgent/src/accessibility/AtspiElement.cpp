#include "accessibility/AtspiElement.h"

#include <cstring>
#include <memory>
#include <utility>

namespace useragent {
namespace {

class Utf8String : public AXString {
 public:
    explicit Utf8String(std::string text) : text_(std::move(text)) {}

    const char* directUTF8() const override { return text_.c_str(); }
    std::size_t maximumUTF8Size() const override { return text_.size(); }

    bool copyUTF8(char* buffer, std::size_t size) const override {
        if (size <= text_.size()) {
            return false;
        }
        std::memcpy(buffer, text_.c_str(), text_.size() + 1);
        return true;
    }

 private:
    const std::string text_;
};

}  // namespace

AXStringRef MakeAXString(std::string text) {
    return std::make_shared<Utf8String>(std::move(text));
}

}  // namespace useragent
