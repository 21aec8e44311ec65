#include "bundle/Archive.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <vector>

#include "common/ScopedAction.h"
#include "common/fs.h"
#include "common/make_error.h"
#include "doctor/RunProgram.h"

namespace ctl {

namespace {

namespace fs = std::filesystem;

constexpr const char* kFolder = "tessarin-support";  // in the archive

[[noreturn]] void Fail(const fs::path& file, int error) {
    throw cmn::make_error(file.string(), " cannot be written: ", std::generic_category().message(error));
}

// A new folder for its owner alone.
fs::path MakeFolder() {
    std::string name = (fs::temp_directory_path() / "tessarin-bundle-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
        Fail(name, errno);
    }
    return name;
}

bool WriteAll(int descriptor, const std::vector<unsigned char>& bytes) {
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t count = ::write(descriptor, bytes.data() + done, bytes.size() - done);
        if (count < 0 && errno != EINTR) {
            return false;
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return ::fsync(descriptor) == 0 || errno == EINVAL;  // of what is no file on a disk
}

}  // namespace

void WriteArchive(const fs::path& archive, const std::map<std::string, std::string>& files,
                  cmn::bus::Deadline deadline) {
    // At once, before anything takes its time; whatever else is wrong removes it again.
    const int descriptor =
        ::open(archive.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    if (descriptor < 0) {
        Fail(archive, errno);
    }
    cmn::ScopedAction removeArchive([&] { ::unlink(archive.c_str()); });
    cmn::ScopedAction closeArchive([&] { ::close(descriptor); });
    const fs::path folder = MakeFolder();
    const cmn::ScopedAction removeFolder([&] {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    });
    for (const auto& [name, text] : files) {
        const fs::path file = folder / kFolder / name;
        fs::create_directories(file.parent_path());
        cmn::StrToFile(text, file);
    }
    // Nothing of the user in its headers either.
    const fs::path made = folder / "archive";
    if (!RunProgram(
            {"tar", "--create", "--gzip", "--file", made.string(), "--owner=0", "--group=0",
             "--numeric-owner", "--mode=u=rwX,go=", "--sort=name", "--directory", folder.string(), kFolder},
            deadline)) {
        throw cmn::make_error(archive.string(), " cannot be made: tar failed or took too long");
    }
    if (!WriteAll(descriptor, cmn::FileToBin(made))) {
        Fail(archive, errno);
    }
    removeArchive.disarm();
}

}  // namespace ctl
