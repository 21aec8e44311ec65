#include "linux_bus/Message.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <utility>

#include "Wire.h"
#include "common/log.h"
#include "common/utf8.h"
#include "linux_bus/WellKnown.h"

namespace cmn::bus {

namespace {

// Once a minute.
bool IsToBeSaidOf(std::string_view peer) {
    using Clock = std::chrono::steady_clock;
    static std::mutex mutex;
    static std::map<std::string, Clock::time_point, std::less<>> said;
    const std::lock_guard lock(mutex);
    const auto now = Clock::now();
    std::erase_if(said, [now](const auto& item) { return item.second < now - std::chrono::minutes(1); });
    return said.emplace(peer, now).second;
}

std::string_view View(const char* text) {
    return text != nullptr ? text : std::string_view();
}

// The wire knows fewer characters than Unicode: none of those that stand for no character.
bool CanTravel(std::string_view sequence) {
    if (sequence.size() < 3) {
        return !sequence.empty();
    }
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(sequence[i]); };
    const std::size_t last = sequence.size() - 1;
    const bool endsAPlane = (at(last) & 0xfeU) == 0xbeU && at(last - 1) == 0xbfU &&
                            (sequence.size() == 3 ? at(0) == 0xefU : (at(1) & 0x0fU) == 0x0fU);
    const bool reserved = at(0) == 0xefU && at(1) == 0xb7U && at(2) >= 0x90U && at(2) <= 0xafU;
    return !endsAPlane && !reserved;
}

// ASCII without NUL.
bool IsPlain(std::string_view text) {
    // No way out of the loop: the compiler looks at many characters at once.
    bool plain = true;
    for (const char c : text) {
        plain &= static_cast<signed char>(c) > 0;
    }
    return plain;
}

std::string Repaired(std::string_view text) {
    std::string repaired;
    while (!text.empty()) {
        const std::size_t length = Utf8SequenceLength(text);
        if (CanTravel(text.substr(0, length))) {
            repaired += text.substr(0, length);
        } else {
            repaired += "\xef\xbf\xbd";
        }
        text.remove_prefix(length > 0 ? length : 1);
    }
    return repaired;
}

}  // namespace

bool detail::AppendText(const Writer& to, const std::string& text) {
    if (!to.reserve(text.size() + kAround)) {
        return false;
    }
    // The library looks at a text character by character; most need not be looked at that closely.
    if (char* space = nullptr; IsPlain(text)) {
        const bool good = sd_bus_message_append_string_space(to.message, text.size(), &space) >= 0;
        std::copy_n(text.data(), good ? text.size() : 0, space);
        return good;
    }
    const int result = sd_bus_message_append_basic(to.message, 's', text.c_str());
    // What is wrong takes three bytes when it is repaired.
    return result != -EINVAL
               ? result >= 0
               : to.reserve(2 * text.size()) &&
                     sd_bus_message_append_basic(to.message, 's', Repaired(text.c_str()).c_str()) >= 0;
}

bool detail::ReadText(Reader& from, char type, std::string_view& text) {
    const char* view = nullptr;
    if (sd_bus_message_read_basic(from.message, type, static_cast<void*>(&view)) <= 0) {
        return false;
    }
    text = view;
    return from.take(text.size() + kAround);
}

bool Reader::enter(char type, const char* contents) {
    return take(detail::kAround) && sd_bus_message_enter_container(message, type, contents) > 0;
}

struct Message::Held {
    Held(std::shared_ptr<Wire> messageWire, sd_bus_message* message)
        : wire(std::move(messageWire)), raw(message) {}
    ~Held() {
        const std::lock_guard lock(wire->mutex);
        sd_bus_message_unref(raw);
    }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

    const std::shared_ptr<Wire> wire;
    sd_bus_message* const raw;
    std::size_t bytes = 0;
};

Message::Message(std::shared_ptr<Wire> wire, sd_bus_message* raw)
    : held_(std::make_shared<Held>(std::move(wire), raw)) {}

sd_bus_message* Message::raw() const {
    return held_->raw;
}

std::string_view Message::sender() const {
    return View(sd_bus_message_get_sender(raw()));
}

std::string_view Message::path() const {
    return View(sd_bus_message_get_path(raw()));
}

std::string_view Message::interface() const {
    return View(sd_bus_message_get_interface(raw()));
}

std::string_view Message::member() const {
    return View(sd_bus_message_get_member(raw()));
}

std::string_view Message::signature() const {
    return View(sd_bus_message_get_signature(raw(), 1));
}

bool Message::wantsReply() const {
    return sd_bus_message_get_expect_reply(raw()) > 0;
}

Reader Message::reader(std::size_t mostBytes) const {
    sd_bus_message_rewind(raw(), 1);  // it fails only for what is being written
    return {raw(), mostBytes};
}

Error Message::unread(const Reader& from, const char* signature) const {
    if (!from.exceeded) {
        return {error::kInvalidArgs,
                fmt::format("Its arguments are \"{}\" instead of \"{}\"", this->signature(), signature)};
    }
    if (IsToBeSaidOf(sender())) {
        TLOG_WARN("A message of {} is not read: it is too large", sender());
    }
    return {error::kLimitsExceeded, "It is too large to be read"};
}

std::size_t Message::bytes() const {
    return held_->bytes;
}

Writer Message::writer() {
    return {held_->raw, held_->bytes};
}

}  // namespace cmn::bus
