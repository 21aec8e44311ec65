#pragma once

#include <memory>

struct sd_bus;

// The same questions and answers with sd-bus alone: client and service have one thread each, the client waits
// in its call. Both ends make and read the records that ours do, for each question anew.
namespace bare_sd_bus {

class Client {
 public:
    // Of the session's bus. Ends the program when there is none.
    Client();
    // Whether the right version came.
    bool version();
    // Asks for the version, then for so many records; whether they came.
    bool ask(int count);

 private:
    struct Deleter {
        void operator()(sd_bus* bus) const;
    };
    std::unique_ptr<sd_bus, Deleter> bus_;
};

// Serves until the process is killed.
int RunService(const char* name);

}  // namespace bare_sd_bus
