#import "accessibility/MacAXElement.h"

#include <memory>
#include <vector>

namespace useragent {

namespace {

constexpr CFStringEncoding kUTF8 = kCFStringEncodingUTF8;

class MacAXString final : public AXString {
 public:
    explicit MacAXString(cmn::CFAutoPointer string) : string_(std::move(string)) {}

    const char* directUTF8() const override { return CFStringGetCStringPtr(string(), kUTF8); }
    std::size_t maximumUTF8Size() const override {
        return static_cast<std::size_t>(
            CFStringGetMaximumSizeForEncoding(CFStringGetLength(string()), kUTF8));
    }
    bool copyUTF8(char* buffer, std::size_t size) const override {
        return CFStringGetCString(string(), buffer, static_cast<CFIndex>(size), kUTF8);
    }

 private:
    CFStringRef string() const { return static_cast<CFStringRef>(string_.get()); }

    const cmn::CFAutoPointer string_;
};

std::vector<AXValue> ToAXValues(CFArrayRef array) {
    const CFIndex count = CFArrayGetCount(array);
    std::vector<AXValue> values;
    values.reserve(static_cast<std::size_t>(count));
    for (CFIndex index = 0; index < count; ++index) {
        values.push_back(ToAXValue(cmn::CFAutoPointer::Retained(CFArrayGetValueAtIndex(array, index))));
    }
    return values;
}

}  // namespace

AXUIElementRef MacAXElement::Of(const AXElementRef& element) {
    const auto mac = std::dynamic_pointer_cast<const MacAXElement>(element);
    return mac ? mac->get() : nullptr;
}

AXValue ToAXValue(const cmn::CFAutoPointer& value) {
    if (value.as<CFStringRef>(CFStringGetTypeID()) != nullptr) {
        return AXStringRef(std::make_shared<MacAXString>(value));
    }
    if (value.as<AXUIElementRef>(AXUIElementGetTypeID()) != nullptr) {
        return AXElementRef(std::make_shared<MacAXElement>(value));
    }
    if (const auto array = value.as<CFArrayRef>(CFArrayGetTypeID())) {
        return ToAXValues(array);
    }
    return {};
}

}  // namespace useragent
