#pragma once

#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace fake {

// A listener that treats each client by a script, on a thread of its own. At its end it hangs up, and the
// scripts read the end of their clients.
class ScriptedBus {
 public:
    using Script = std::function<void(int client)>;

    ScriptedBus(const std::string& path, Script script);
    ~ScriptedBus();
    ScriptedBus(const ScriptedBus&) = delete;
    ScriptedBus& operator=(const ScriptedBus&) = delete;

 private:
    void accept();

    const Script script_;
    int descriptor_ = -1;
    std::mutex mutex_;
    std::set<int> clients_;             // guarded by mutex_
    std::vector<std::thread> threads_;  // of the accepting thread, then of the destructor
    std::thread acceptor_;
};

// For scripts. False when the other side is gone.
bool Say(int descriptor, std::string_view text);
// Reads until the client hangs up.
void AwaitEnd(int client);

// Looks at what passes, may change it; false hangs up on both.
using Passes = std::function<bool(std::string& bytes)>;
// Stands between a client and the bus at that socket.
void Relay(int client, const std::string& socket, const Passes& toBus, const Passes& toClient);

}  // namespace fake
