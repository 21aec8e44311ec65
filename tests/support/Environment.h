#pragma once

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace fake {

// A variable of this process's environment has another value, or none, while this object lives.
class Environment {
 public:
    Environment(std::string name, const std::optional<std::string>& value) : name_(std::move(name)) {
        if (const char* const before = std::getenv(name_.c_str())) {
            before_ = before;
        }
        set(value);
    }
    ~Environment() { set(before_); }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

 private:
    void set(const std::optional<std::string>& value) const {
        value ? ::setenv(name_.c_str(), value->c_str(), 1) : ::unsetenv(name_.c_str());
    }

    const std::string name_;
    std::optional<std::string> before_;
};

}  // namespace fake
