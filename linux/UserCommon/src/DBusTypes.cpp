#include "linux_usercommon/DBusTypes.h"

#include <array>

namespace cmn {

std::string_view DBusSignature(const DBusValue& value) {
    static constexpr std::array<std::string_view, std::variant_size_v<DBusValue>> kSignatures{
        "b", "i", "u", "s", "o", "as", "aa{ss}", "a{sb}"};
    return kSignatures[value.index()];
}

std::string DBusSignature(const DBusArguments& arguments) {
    std::string signature;
    for (const DBusValue& argument : arguments) {
        signature += DBusSignature(argument);
    }
    return signature;
}

}  // namespace cmn
