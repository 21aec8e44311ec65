#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace fake {

// A socket that takes connections and reads, but answers only as told.
class MuteSocket {
 public:
    static constexpr std::string_view kOk = "OK 1234deadbeef1234deadbeef12345678\r\n";

    explicit MuteSocket(const std::string& path, bool authenticates = false, std::string_view answer = kOk)
        : answer_(answer) {
        descriptor_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(descriptor_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(descriptor_, 5), 0);
        if (authenticates) {
            server_ = std::thread([this] { authenticate(); });
        }
    }
    ~MuteSocket() {
        ::shutdown(descriptor_, SHUT_RDWR);
        if (server_.joinable()) {
            server_.join();
        }
        ::close(descriptor_);
        for (const int client : clients_) {
            ::close(client);
        }
    }
    // Waits for the next client of one that does not authenticate; false when none comes.
    bool awaitClient(std::chrono::milliseconds patience = std::chrono::seconds(30)) {
        pollfd ready{descriptor_, POLLIN, 0};
        if (::poll(&ready, 1, static_cast<int>(patience.count())) != 1) {
            return false;
        }
        clients_.push_back(::accept4(descriptor_, nullptr, nullptr, SOCK_CLOEXEC));
        return clients_.back() >= 0;
    }
    MuteSocket(const MuteSocket&) = delete;
    MuteSocket& operator=(const MuteSocket&) = delete;

 private:
    // Gives every authentication the answer, then says nothing more.
    void authenticate() {
        for (int client = 0; (client = ::accept4(descriptor_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
            clients_.push_back(client);
            ::send(client, answer_.data(), answer_.size(), MSG_NOSIGNAL);
        }
    }

    const std::string answer_;
    int descriptor_ = -1;
    std::thread server_;
    std::vector<int> clients_;
};

}  // namespace fake
