#pragma once

#include <systemd/sd-bus.h>

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

// How C++ types travel: `Codec<T>` has the type's signature, writes a value to a message and reads one.
// Reading gives false when the message holds something else, more than is wanted, or is broken; writing when
// it would become too large; the message is of no use then. Any thread, one at a time for each message.
namespace cmn::bus {

// A bus throws out who sends more than it allows (32 MiB on a system bus): refused well before that.
inline constexpr std::size_t kLargestMessage = std::size_t{16} * 1024 * 1024;

// What is read of a message of others, unless its reader wants more.
inline constexpr std::size_t kUsuallyRead = std::size_t{1024} * 1024;

// A message that is being written.
struct Writer {
    sd_bus_message* message;
    std::size_t& bytes;  // of the arguments so far; approximately

    // Counts them.
    bool reserve(std::size_t more) const { return (bytes += more) <= kLargestMessage; }
};

// A message that is being read.
struct Reader {
    sd_bus_message* message;
    std::size_t left;  // bytes that its arguments may still have; approximately
    bool exceeded = false;

    // Counts them.
    bool take(std::size_t more) {
        exceeded = exceeded || more > left;
        left -= exceeded ? 0 : more;
        return !exceeded;
    }
    bool enter(char type, const char* contents);
    bool exit() { return sd_bus_message_exit_container(message) >= 0; }
};

// Path of an object. "/" stands for none.
struct ObjectPath {
    std::string value = "/";

    bool isNone() const { return value == "/"; }
    bool operator==(const ObjectPath&) const = default;
};

// A value that travels inside a variant.
template <typename T>
struct Variant {
    T value{};
};

namespace detail {

// A signature that is known at compile time.
template <std::size_t N>
struct Text {
    char value[N + 1]{};  // NOLINT(modernize-avoid-c-arrays): a template argument's shape

    constexpr Text() = default;
    constexpr Text(const char (&text)[N + 1]) { std::copy_n(text, N + 1, value); }  // NOLINT

    constexpr operator const char*() const { return value; }  // NOLINT(google-explicit-constructor)
    constexpr std::string_view view() const { return value; }
};
template <std::size_t N>
Text(const char (&)[N]) -> Text<N - 1>;  // NOLINT(modernize-avoid-c-arrays)

template <std::size_t A, std::size_t B>
constexpr Text<A + B> operator+(const Text<A>& a, const Text<B>& b) {
    Text<A + B> sum;
    std::copy_n(a.value, A, sum.value);
    std::copy_n(b.value, B, sum.value + A);
    return sum;
}

// What a text, a container or a variant takes beside its contents, at most.
inline constexpr std::size_t kAround = 8;

// What is read in place of an element: texts are seen where they are.
template <typename T>
struct Raw {
    using Type = T;
};
template <>
struct Raw<std::string> {
    using Type = std::string_view;
};
template <typename Key, typename Value>
struct Raw<std::pair<Key, Value>> {
    using Type = std::pair<typename Raw<Key>::Type, typename Raw<Value>::Type>;
};

// Characters that cannot travel are replaced.
bool AppendText(const Writer& to, const std::string& text);
bool ReadText(Reader& from, char type, std::string_view& text);

}  // namespace detail

template <typename T>
struct Codec;

template <typename... T>
inline constexpr auto kSignature = (detail::Text<0>{} + ... + Codec<T>::kType);

// Types that the wire knows as numbers.
template <typename T, char Type, typename Wire = T>
struct NumberCodec {
    static constexpr detail::Text<1> kType{{Type, '\0'}};

    static bool write(const Writer& to, T value) {
        const Wire wire = static_cast<Wire>(value);
        return to.reserve(sizeof wire) && sd_bus_message_append_basic(to.message, Type, &wire) >= 0;
    }
    static bool read(Reader& from, T& value) {
        Wire wire{};
        const bool good = from.take(sizeof wire) && sd_bus_message_read_basic(from.message, Type, &wire) > 0;
        value = static_cast<T>(wire);
        return good;
    }
};
template <>
struct Codec<bool> : NumberCodec<bool, 'b', int> {};
template <>
struct Codec<std::uint8_t> : NumberCodec<std::uint8_t, 'y'> {};
template <>
struct Codec<std::int32_t> : NumberCodec<std::int32_t, 'i'> {};
template <>
struct Codec<std::uint32_t> : NumberCodec<std::uint32_t, 'u'> {};
template <>
struct Codec<std::int64_t> : NumberCodec<std::int64_t, 'x'> {};
template <>
struct Codec<std::uint64_t> : NumberCodec<std::uint64_t, 't'> {};
template <>
struct Codec<double> : NumberCodec<double, 'd'> {};

// Text is UTF-8 and ends at the first NUL. What is read as a view belongs to the message.
template <>
struct Codec<std::string_view> {
    static constexpr detail::Text kType{"s"};

    static bool read(Reader& from, std::string_view& value) { return detail::ReadText(from, 's', value); }
};
template <>
struct Codec<std::string> {
    static constexpr detail::Text kType{"s"};

    static bool write(const Writer& to, const std::string& value) { return detail::AppendText(to, value); }
    static bool read(Reader& from, std::string& value) {
        std::string_view view;
        const bool good = detail::ReadText(from, 's', view);
        value = std::string(view);  // which has no room to spare, as an assigned one would
        return good;
    }
};
template <>
struct Codec<const char*> {
    static constexpr detail::Text kType{"s"};

    static bool write(const Writer& to, const char* value) { return detail::AppendText(to, value); }
};
template <>
struct Codec<ObjectPath> {
    static constexpr detail::Text kType{"o"};

    static bool write(const Writer& to, const ObjectPath& value) {
        return to.reserve(value.value.size() + detail::kAround) &&
               sd_bus_message_append_basic(to.message, 'o', value.value.c_str()) >= 0;
    }
    static bool read(Reader& from, ObjectPath& value) {
        std::string_view view;
        const bool good = detail::ReadText(from, 'o', view);
        value.value = std::string(view);
        return good;
    }
};

template <typename Key, typename Value>
struct Codec<std::pair<Key, Value>> {  // an entry of a dictionary
    static constexpr auto kContents = kSignature<std::remove_const_t<Key>, Value>;
    static constexpr auto kType = detail::Text{"{"} + kContents + detail::Text{"}"};

    static bool write(const Writer& to, const std::pair<Key, Value>& entry) {
        return to.reserve(detail::kAround) &&
               sd_bus_message_open_container(to.message, 'e', kContents) >= 0 &&
               Codec<std::remove_const_t<Key>>::write(to, entry.first) &&
               Codec<Value>::write(to, entry.second) && sd_bus_message_close_container(to.message) >= 0;
    }
    static bool read(Reader& from, std::pair<Key, Value>& entry) {
        return from.enter('e', kContents) && Codec<Key>::read(from, entry.first) &&
               Codec<Value>::read(from, entry.second) && from.exit();
    }
};

// Arrays and dictionaries.
template <typename Container, typename Element>
struct ContainerCodec {
    static constexpr auto kElement = kSignature<Element>;
    static constexpr auto kType = detail::Text{"a"} + kElement;

    static bool write(const Writer& to, const Container& values) {
        return to.reserve(detail::kAround) && sd_bus_message_open_container(to.message, 'a', kElement) >= 0 &&
               std::all_of(values.begin(), values.end(),
                           [&](const auto& value) {
                               return Codec<std::remove_cvref_t<decltype(value)>>::write(to, value);
                           }) &&
               sd_bus_message_close_container(to.message) >= 0;
    }
    static bool read(Reader& from, Container& values) {
        if (!from.enter('a', kElement)) {
            return false;
        }
        int atEnd = 0;
        while ((atEnd = sd_bus_message_at_end(from.message, 0)) == 0) {
            typename detail::Raw<Element>::Type element{};
            if (!Codec<decltype(element)>::read(from, element)) {
                return false;
            }
            if constexpr (requires { values.emplace_hint(values.end(), std::move(element)); }) {
                values.emplace_hint(values.end(), std::move(element));
            } else {
                values.emplace(values.end(), std::move(element));
            }
        }
        return atEnd > 0 && from.exit();
    }
};
template <typename T>
struct Codec<std::vector<T>> : ContainerCodec<std::vector<T>, T> {};
template <>
struct Codec<std::vector<std::uint8_t>> {  // many of them: not one by one
    static constexpr detail::Text kType{"ay"};

    static bool write(const Writer& to, const std::vector<std::uint8_t>& values) {
        return to.reserve(values.size() + detail::kAround) &&
               sd_bus_message_append_array(to.message, 'y', values.data(), values.size()) >= 0;
    }
    static bool read(Reader& from, std::vector<std::uint8_t>& values) {
        const void* bytes = nullptr;
        std::size_t size = 0;
        if (sd_bus_message_read_array(from.message, 'y', &bytes, &size) <= 0 || !from.take(size)) {
            return false;
        }
        values.resize(size);
        std::copy_n(static_cast<const std::uint8_t*>(bytes), size, values.begin());
        return true;
    }
};
template <typename Key, typename Value>
struct Codec<std::map<Key, Value>> : ContainerCodec<std::map<Key, Value>, std::pair<Key, Value>> {};

template <typename... T>
struct Codec<std::tuple<T...>> {  // a structure
    static constexpr auto kContents = kSignature<T...>;
    static constexpr auto kType = detail::Text{"("} + kContents + detail::Text{")"};

    static bool write(const Writer& to, const std::tuple<T...>& values) {
        return to.reserve(detail::kAround) &&
               sd_bus_message_open_container(to.message, 'r', kContents) >= 0 &&
               std::apply([&](const T&... value) { return (Codec<T>::write(to, value) && ...); }, values) &&
               sd_bus_message_close_container(to.message) >= 0;
    }
    static bool read(Reader& from, std::tuple<T...>& values) {
        return from.enter('r', kContents) &&
               std::apply([&](T&... value) { return (Codec<T>::read(from, value) && ...); }, values) &&
               from.exit();
    }
};

template <typename T>
struct Codec<Variant<T>> {
    static constexpr detail::Text kType{"v"};

    static bool write(const Writer& to, const Variant<T>& variant) {
        return to.reserve(detail::kAround) &&
               sd_bus_message_open_container(to.message, 'v', kSignature<T>) >= 0 &&
               Codec<T>::write(to, variant.value) && sd_bus_message_close_container(to.message) >= 0;
    }
    // Only a variant of this very type.
    static bool read(Reader& from, Variant<T>& variant) {
        return from.enter('v', kSignature<T>) && Codec<T>::read(from, variant.value) && from.exit();
    }
};

// A variant of one of several types. Of any other type it is read as std::monostate, and skipped.
template <typename... T>
struct Codec<std::variant<std::monostate, T...>> {
    using Any = std::variant<std::monostate, T...>;
    static constexpr detail::Text kType{"v"};

    static bool write(const Writer& to, const Any& any) {
        return std::visit(
            [&]<typename Value>(const Value& value) {
                if constexpr (std::same_as<Value, std::monostate>) {
                    return false;
                } else {
                    return Codec<Variant<Value>>::write(to, {value});
                }
            },
            any);
    }
    static bool read(Reader& from, Any& any) {
        char type = 0;
        const char* contents = nullptr;
        if (sd_bus_message_peek_type(from.message, &type, &contents) <= 0 || type != 'v') {
            return false;
        }
        bool good = true;
        [[maybe_unused]] const auto readAs = [&]<typename Value>(Value value) {
            if (kSignature<Value>.view() != contents) {
                return false;
            }
            Variant<Value> variant{std::move(value)};
            good = Codec<Variant<Value>>::read(from, variant);
            any = std::move(variant.value);
            return true;
        };
        return (readAs(T{}) || ...) ? good : sd_bus_message_skip(from.message, "v") >= 0;
    }
};

}  // namespace cmn::bus
