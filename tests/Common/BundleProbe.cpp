#include <cstdio>
#include <string>

#include "common/LogFile.h"
#include "common/SystemUtils.h"
#include "common/proto_settings.h"

// Prints where it believes to be, one answer a line.
int main() {
    const auto print = [](const std::string& text) { std::printf("%s\n", text.c_str()); };
    print(cmn::GetCurrentExecutablePath());
    print(cmn::GetSharedPath());
    print(cmn::GetBundleShortVersion().value_or("no version"));
    print(cmn::proto::GetCurrentProductNativeName());
    print(cmn::GetLogPath().string());
}
