#pragma once

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "OwnProcess.h"
#include "common/fs.h"

namespace fake {

// A system with folders and files of the test's own in the place of its own, for one child process.
class OwnSystem {
 public:
    // False when this user may not have one.
    static bool enter() {
        const auto user = geteuid();
        const auto group = getegid();
        if (unshare(CLONE_NEWNS | (user == 0 ? 0 : CLONE_NEWUSER)) != 0)
            return false;
        if (user != 0) {
            cmn::StrToFile("deny", "/proc/self/setgroups");
            cmn::StrToFile("0 " + std::to_string(user) + " 1", "/proc/self/uid_map");
            cmn::StrToFile("0 " + std::to_string(group) + " 1", "/proc/self/gid_map");
        }
        return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    }
    static void hide(const char* folder) {
        if (mount("none", folder, "tmpfs", 0, nullptr) != 0)
            throw std::runtime_error(std::string("cannot hide ") + folder);
    }
    static void replace(const char* file, const std::filesystem::path& other) {
        if (mount(other.c_str(), file, nullptr, MS_BIND, nullptr) != 0)
            throw std::runtime_error(std::string("cannot replace ") + file);
    }
    static bool allowed() {
        return AnswerInChild([] { return std::string(enter() ? "yes" : "no"); }) == "yes";
    }
};

}  // namespace fake
