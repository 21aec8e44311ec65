#include "ScriptedBus.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace fake {

namespace {

sockaddr_un LocalAddress(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

// Passes on what is there; false at the end.
bool Pass(int from, int to, const Passes& passes) {
    std::array<char, 65536> buffer{};
    const ssize_t count = ::recv(from, buffer.data(), buffer.size(), 0);
    if (count <= 0) {
        return false;
    }
    std::string bytes(buffer.data(), static_cast<std::size_t>(count));
    const bool goesOn = !passes || passes(bytes);
    return Say(to, bytes) && goesOn;
}

}  // namespace

ScriptedBus::ScriptedBus(const std::string& path, Script script) : script_(std::move(script)) {
    descriptor_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = LocalAddress(path);
    if (::bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(descriptor_, 100) != 0) {
        throw std::runtime_error("listening at " + path + " -- failed");
    }
    acceptor_ = std::thread([this] { accept(); });
}

ScriptedBus::~ScriptedBus() {
    ::shutdown(descriptor_, SHUT_RDWR);
    acceptor_.join();
    {
        const std::lock_guard lock(mutex_);
        for (const int client : clients_) {
            ::shutdown(client, SHUT_RDWR);
        }
    }
    for (std::thread& thread : threads_) {
        thread.join();
    }
    ::close(descriptor_);
}

void ScriptedBus::accept() {
    for (int client = 0; (client = ::accept4(descriptor_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
        const std::lock_guard lock(mutex_);
        clients_.insert(client);
        threads_.emplace_back([this, client] {
            script_(client);
            const std::lock_guard closing(mutex_);
            clients_.erase(client);
            ::close(client);
        });
    }
}

bool Say(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::send(descriptor, text.data(), text.size(), MSG_NOSIGNAL);
        if (count <= 0) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

void AwaitEnd(int client) {
    std::array<char, 4096> buffer{};
    while (::recv(client, buffer.data(), buffer.size(), 0) > 0) {
    }
}

void Relay(int client, const std::string& socket, const Passes& toBus, const Passes& toClient) {
    const int bus = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = LocalAddress(socket);
    bool goesOn = ::connect(bus, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    while (goesOn) {
        std::array<pollfd, 2> ready{pollfd{client, POLLIN, 0}, pollfd{bus, POLLIN, 0}};
        goesOn = ::poll(ready.data(), ready.size(), -1) > 0 &&
                 (ready[0].revents == 0 || Pass(client, bus, toBus)) &&
                 (ready[1].revents == 0 || Pass(bus, client, toClient));
    }
    ::shutdown(client, SHUT_RDWR);
    ::close(bus);
}

}  // namespace fake
