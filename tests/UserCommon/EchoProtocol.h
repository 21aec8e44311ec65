#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "usercommon/XPCConnection.h"

// A service protocol of the tests that uses every type a message may carry.
class EchoDelegate {
 public:
    virtual ~EchoDelegate() = default;
    virtual void didCheck(bool result) = 0;
};

class EchoProtocol : public cmn::XPCVersioning {
 public:
    using Records = std::vector<std::map<std::string, std::string>>;
    using Flags = std::map<std::string, bool>;

    virtual void records(const std::string& text, std::function<void(const Records&)> reply) = 0;
    virtual void names(std::function<void(const std::vector<std::string>&)> reply) = 0;
    virtual void flags(std::function<void(const Flags&)> reply) = 0;
    virtual void number(const std::string& text, std::function<void(std::int32_t)> reply) = 0;
    // No reply.
    virtual void note(const std::string& text) = 0;
    virtual void check(const std::string& text, std::shared_ptr<EchoDelegate> delegate) = 0;
};

inline constexpr const char* kEchoService = "com.example.Echo";
inline constexpr const char* kEchoPath = "/com/example/Echo";
inline constexpr std::size_t kMostNoteBytes = std::size_t{64} * 1024;

std::shared_ptr<const cmn::XPCInterface> CreateEchoInterface();
