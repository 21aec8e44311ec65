#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>

#include "linux_bus/Codec.h"
#include "linux_bus/Result.h"

namespace cmn::bus {

struct Wire;

// A shared message, received or being written. Copying, and letting go, may happen on any thread; its
// contents are read or written by one thread at a time.
class Message {
 public:
    Message() = default;  // none
    // Takes the reference over. Not while the wire is locked.
    Message(std::shared_ptr<Wire> wire, sd_bus_message* raw);

    explicit operator bool() const { return held_ != nullptr; }

    // What the header says; empty where it says nothing. They belong to the message.
    std::string_view sender() const;
    std::string_view path() const;
    std::string_view interface() const;
    std::string_view member() const;
    std::string_view signature() const;
    bool wantsReply() const;

    // The arguments, which must be of exactly these types; an error that says what they are instead. When
    // they take more bytes than that, approximately, it is an error and a line in the log.
    template <typename... T>
    Result<std::tuple<T...>> read(std::size_t mostBytes = kUsuallyRead) const {
        std::tuple<T...> values;
        Reader from = reader(mostBytes);
        const bool good =
            signature() == kSignature<T...>.view() &&
            std::apply([&](T&... value) { return (Codec<T>::read(from, value) && ...); }, values);
        return good ? Result<std::tuple<T...>>(std::move(values)) : unread(from, kSignature<T...>);
    }
    // The same for one argument.
    template <typename T>
    Result<T> readOne(std::size_t mostBytes = kUsuallyRead) const {
        auto values = read<T>(mostBytes);
        return values ? Result<T>(std::get<0>(std::move(*values))) : values.error();
    }

    // Adds arguments. False, and the message is of no use, when it would become too large.
    template <typename... T>
    bool append(const T&... value) {
        [[maybe_unused]] const Writer to = writer();
        return (Codec<T>::write(to, value) && ...);
    }
    // Bytes of the arguments added so far; approximately.
    std::size_t bytes() const;

    // For what the above cannot express. A reader is at the beginning; the error says why it came to no end.
    sd_bus_message* raw() const;
    Reader reader(std::size_t mostBytes = kUsuallyRead) const;
    Error unread(const Reader& from, const char* signature) const;

 private:
    struct Held;

    Writer writer();

    std::shared_ptr<Held> held_;
};

}  // namespace cmn::bus
