// A file is sealed when it begins with the seal's line. Unsealed it has what was behind the line; any other
// stays as it is. What is scanned of it is its beginning.

#include <fcntl.h>
#include <sys/stat.h>

#include <string>

#include "Check.h"
#include "FileText.h"
#include "ScratchFile.h"
#include "SealedFile.h"
#include "common/log.h"

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    SetLogLevel(LogLevel::Silent);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    if (size < 3) {
        return 0;
    }
    const std::size_t limit = data[0] * 16U + 1;
    const mode_t mode = 0400U | (data[1] & 0377U);
    // Most inputs are sealed: the line is too long to be found.
    const std::string rest(AsText(data + 3, size - 3));
    const std::string content = (data[2] % 4 != 0 ? std::string(host::kSealLine) : std::string()) + rest;
    const bool isSealed = content.starts_with(host::kSealLine);

    static const ScratchFile file("sealed");
    file.write(content);
    Check(chmod(file.path().c_str(), mode | 0200U) == 0);
    const host::FileUser user;
    Check(host::IsSealed(file.path(), user) == isSealed);

    host::ScanBounds bounds;
    const host::FileText text = host::ReadFileText(file.path(), user, limit, bounds);
    const std::string scanned = isSealed ? content.substr(host::kSealLine.size()) : content;
    Check(text.text.size() <= limit && scanned.starts_with(text.text));
    Check(text.isCut == (text.text.size() < scanned.size()));

    const auto status = host::Unseal(file.path(), user);
    Check(status == (isSealed ? host::UnsealStatus::unsealed : host::UnsealStatus::notSealed));
    Check(file.read() == scanned);
    struct stat now {};
    Check(stat(file.path().c_str(), &now) == 0 && (now.st_mode & 0777U) == (mode | 0200U));
    return 0;
}
