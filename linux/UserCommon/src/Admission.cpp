#include "Admission.h"

#include <fmt/format.h>

#include <utility>

#include "common/log.h"
#include "linux_bus/WellKnown.h"

namespace cmn {

namespace {

// For one peer, and for all of one user.
constexpr std::size_t kPeerMessages = 10'000;
constexpr std::size_t kUserMessages = 20'000;
constexpr std::size_t kMiB = std::size_t{1024} * 1024;
constexpr std::size_t kPeerBytes = 16 * kMiB;
constexpr std::size_t kUserBytes = 64 * kMiB;

constexpr std::chrono::minutes kLogPause{1};

// What a message costs beside its arguments.
constexpr std::size_t kHeaderBytes = 1024;

// The library checks every character of a text that it hands out. Who sends too much is not read for so many
// times as long as that took.
constexpr int kUnreadFactor = 10;

bool Exceeds(const Backlog& backlog, std::size_t mostMessages, std::size_t mostBytes, std::size_t bytes) {
    return backlog.messages >= mostMessages || backlog.bytes + bytes > mostBytes;
}

}  // namespace

Place::Place(std::shared_ptr<Backlog> peer, std::shared_ptr<Backlog> user, std::size_t bytes)
    : peer_(std::move(peer)), user_(std::move(user)), bytes_(bytes) {
    for (Backlog* const backlog : {peer_.get(), user_.get()}) {
        ++backlog->messages;
        backlog->bytes += bytes_;
    }
}

Place::~Place() {
    for (Backlog* const backlog : {peer_.get(), user_.get()}) {
        --backlog->messages;
        backlog->bytes -= bytes_;
    }
}

bus::Result<std::shared_ptr<Place>> Admission::admit(const bus::Message& message, std::size_t mostBytes) {
    const bus::Error tooMany{bus::error::kLimitsExceeded, "Too many messages of yours are waiting"};
    const bus::Deadline begin = bus::Clock::now();
    if (Exceeds(*peer_, kPeerMessages, kPeerBytes, kHeaderBytes) ||
        Exceeds(*user_, kUserMessages, kUserBytes, kHeaderBytes) || begin < unreadUntil_) {
        return tooMany;
    }
    const std::optional<std::size_t> bytes = BytesOf(message);
    if (!bytes || *bytes > mostBytes) {
        const bus::Deadline end = bus::Clock::now();
        unreadUntil_ = end + (end - begin) * kUnreadFactor;
        return bytes ? bus::Error{bus::error::kLimitsExceeded,
                                  fmt::format("The arguments are longer than {} bytes", mostBytes)}
                     : bus::Error{bus::error::kInvalidArgs, "The arguments cannot be read"};
    }
    const std::size_t cost = *bytes + kHeaderBytes;
    if (Exceeds(*peer_, kPeerMessages, kPeerBytes, cost) ||
        Exceeds(*user_, kUserMessages, kUserBytes, cost)) {
        return tooMany;
    }
    return std::make_shared<Place>(peer_, user_, cost);
}

void Admission::refuse(const bus::Question& question, std::string_view sender, const bus::Error& why) {
    const bus::Deadline now = bus::Clock::now();
    if (now < quietUntil_) {
        ++unsaid_;
    } else {
        quietUntil_ = now + kLogPause;
        const bus::Message& message = question.message();
        const std::string more =
            unsaid_ > 0 ? fmt::format(" (and {} before)", std::exchange(unsaid_, 0)) : "";
        TLOG_WARN("Message {}.{}({}) of {} refused: {}{}", message.interface(), message.member(),
                  message.signature(), sender, why.message, more);
    }
    question.fail(why);
}

std::optional<std::size_t> BytesOf(const bus::Message& message) {
    std::size_t bytes = 0;
    const bus::Reader from = message.reader();
    for (const char type : message.signature()) {
        const char* text = nullptr;
        std::uint64_t number = 0;
        const bool isText = type == 's' || type == 'o';
        void* const value = isText ? static_cast<void*>(&text) : static_cast<void*>(&number);
        if (!isText && std::string_view("ybiuxtd").find(type) == std::string_view::npos) {
            return std::nullopt;
        }
        if (sd_bus_message_read_basic(from.message, type, value) <= 0) {
            return std::nullopt;
        }
        bytes += isText ? std::string_view(text).size() : sizeof number;
    }
    return bytes;
}

}  // namespace cmn
