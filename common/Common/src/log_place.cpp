#include "common/log_place.h"

#include <system_error>

#include "append_file.h"

namespace cmn {

namespace fs = std::filesystem;

namespace {

bool CanBeWritten(const fs::path& stem) {
    return AppendToFile((stem.string() + "_0.log").c_str(), {}).has_value();
}

}  // namespace

void MakeOwnFolder(const fs::path& folder) {
    std::error_code error;
    if (folder == folder.parent_path() || fs::exists(folder, error))
        return;
    MakeOwnFolder(folder.parent_path());
    if (fs::create_directory(folder, error))
        fs::permissions(folder, fs::perms::owner_all, error);
}

std::optional<fs::path> WritableLogStem(const fs::path& wanted, const std::vector<fs::path>& folders) {
    if (CanBeWritten(wanted))
        return wanted;
    for (const fs::path& folder : folders) {
        if (!folder.is_absolute())
            continue;
        MakeOwnFolder(folder);
        const fs::path stem = folder / wanted.filename();
        if (CanBeWritten(stem))
            return stem;
    }
    return std::nullopt;
}

}  // namespace cmn
