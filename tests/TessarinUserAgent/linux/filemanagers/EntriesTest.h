#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <stdexcept>
#include <string>

#include "UserHome.h"
#include "filemanagers/FileManagerEntries.h"

namespace useragent {

// What an action complains of; empty when it does not.
inline std::string ErrorOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return {};
}

class EntriesTest : public testing::Test {
 protected:
    fake::UserHome home;
    FileManagerEntries entries = home.entries();

    std::map<std::string, std::string> files() const { return fake::FilesBelow(home.temporary.path()); }
};

}  // namespace useragent
