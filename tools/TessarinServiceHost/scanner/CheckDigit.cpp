#include "CheckDigit.h"

namespace host {

bool PassesLuhn(std::string_view text) {
    int sum = 0;
    bool doubled = false;  // every other digit, seen from the check digit
    bool any = false;
    for (auto it = text.rbegin(); it != text.rend(); ++it) {
        if (*it < '0' || *it > '9') {
            continue;
        }
        const int digit = *it - '0';
        const int value = doubled ? 2 * digit : digit;
        sum += value > 9 ? value - 9 : value;
        doubled = !doubled;
        any = true;
    }
    return any && sum % 10 == 0;
}

}  // namespace host
