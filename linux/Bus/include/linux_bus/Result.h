#pragma once

#include <string>
#include <utility>
#include <variant>

namespace cmn::bus {

// An error as it travels, or of this end.
struct Error {
    std::string name;  // for example "org.freedesktop.DBus.Error.ServiceUnknown"
    std::string message;

    bool is(const char* other) const { return name == other; }
};

// A value, or why there is none.
template <typename T>
class Result {
 public:
    Result(T value) : content_(std::move(value)) {}      // NOLINT(google-explicit-constructor)
    Result(Error error) : content_(std::move(error)) {}  // NOLINT(google-explicit-constructor)

    explicit operator bool() const { return content_.index() == 0; }
    const T& operator*() const { return std::get<0>(content_); }
    T& operator*() { return std::get<0>(content_); }
    const T* operator->() const { return &std::get<0>(content_); }
    T valueOr(T fallback) const { return *this ? **this : std::move(fallback); }
    const Error& error() const { return std::get<1>(content_); }

 private:
    std::variant<T, Error> content_;
};

}  // namespace cmn::bus
