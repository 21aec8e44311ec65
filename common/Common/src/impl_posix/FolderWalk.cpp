#include "FolderWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

namespace cmn {

namespace {

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};
using FolderStream = std::unique_ptr<DIR, CloseFolder>;

struct Name {
    std::string text;
    unsigned char type;
};

std::error_code LastError() {
    return {errno, std::generic_category()};
}

bool IsPermissionDenied(const std::error_code& error) {
    return error == std::errc::permission_denied || error == std::errc::operation_not_permitted;
}

// Opens a folder named from another one on, so that no path gets too long.
FolderStream OpenFolder(int from, const std::string& name, int flags, std::error_code& error) {
    const int fd = openat(from, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags);
    FolderStream stream(fd < 0 ? nullptr : fdopendir(fd));
    if (!stream) {
        error = LastError();
        if (fd >= 0)
            close(fd);
    }
    return stream;
}

// Null at the end, also when the rest may not be read.
const dirent* ReadName(DIR* stream, std::error_code& error) {
    for (;;) {
        errno = 0;
        const auto* const entry = readdir(stream);
        if (entry == nullptr) {
            error = LastError();
            if (IsPermissionDenied(error))
                error.clear();
            return nullptr;
        }
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            return entry;
    }
}

}  // namespace

struct FolderWalk::Folder {
    // Reads the names that are left, so that the stream can be closed.
    void gather() {
        while (const auto* const entry = ReadName(stream.get(), error))
            names.push_back({entry->d_name, entry->d_type});
        gathered = true;
    }

    FolderStream stream;     // null while closed
    std::size_t pathLength;  // of its own path, at the beginning of the present entry's
    std::vector<Name> names{};
    std::size_t position = 0;  // in `names`
    bool gathered = false;
    std::error_code error{};  // that ended the gathering
};

FolderWalk::FolderWalk(std::filesystem::path::string_type root) : path_(std::move(root)) {
    std::error_code ignored;
    if (auto stream = OpenFolder(AT_FDCWD, path_, 0, ignored))
        folders_.push_back({std::move(stream), path_.size()});
}

FolderWalk::~FolderWalk() = default;

bool FolderWalk::next(std::error_code& error) {
    error.clear();
    bool found = !std::exchange(enter_, false) || enterFolder(error);
    while (found && !folders_.empty()) {
        if (readEntry(folders_.back(), error)) {
            enter_ = type_ == DT_DIR || type_ == DT_UNKNOWN;
            return true;
        }
        folders_.pop_back();
        found = !error && (folders_.empty() || reopenLast(error));
    }
    folders_.clear();
    return false;
}

bool FolderWalk::isRegularFile(std::error_code& error) const {
    error.clear();
    if (type_ != DT_LNK && type_ != DT_UNKNOWN)
        return type_ == DT_REG;
    struct stat status {};
    const std::string name(nameOf(folders_.size()));
    if (fstatat(dirfd(folders_.back().stream.get()), name.c_str(), &status, 0) != 0)
        error = LastError();
    return !error && S_ISREG(status.st_mode);
}

// True also when there is nothing to go into.
bool FolderWalk::enterFolder(std::error_code& error) {
    auto stream = OpenFolder(dirfd(folders_.back().stream.get()), std::string(nameOf(folders_.size())),
                             O_NOFOLLOW, error);
    if (!stream) {
        // Some file systems do not tell what an entry is.
        const bool noFolder = type_ == DT_UNKNOWN && (error == std::errc::not_a_directory ||
                                                      error == std::errc::too_many_symbolic_link_levels);
        if (noFolder || IsPermissionDenied(error))
            error.clear();
        return !error;
    }
    folders_.push_back({std::move(stream), path_.size()});
    // The root stays open: from there the others are found again.
    if (folders_.size() > kMaxOpen + 1) {
        auto& far = folders_[folders_.size() - 1 - kMaxOpen];
        if (far.stream && !far.gathered)
            far.gather();
        far.stream.reset();
    }
    return true;
}

// Makes the folder's next entry the present one.
bool FolderWalk::readEntry(Folder& folder, std::error_code& error) {
    const auto take = [&](std::string_view name, unsigned char type) {
        path_.resize(folder.pathLength);
        if (path_.back() != '/')
            path_ += '/';
        path_ += name;
        type_ = type;
        return true;
    };
    if (!folder.gathered) {
        const auto* const entry = ReadName(folder.stream.get(), error);
        return entry != nullptr && take(entry->d_name, entry->d_type);
    }
    error = folder.error;
    if (folder.position == folder.names.size())
        return false;
    error.clear();
    const auto& name = folder.names[folder.position++];
    return take(name.text, name.type);
}

// Opens the last folder again when it was closed, and with it those before it that may stay open.
bool FolderWalk::reopenLast(std::error_code& error) {
    std::size_t open = folders_.size() - 1;
    while (!folders_[open].stream)
        --open;
    for (++open; open < folders_.size(); ++open) {
        auto& before = folders_[open - 1];
        folders_[open].stream =
            OpenFolder(dirfd(before.stream.get()), std::string(nameOf(open)), O_NOFOLLOW, error);
        if (!folders_[open].stream)
            return false;
        if (open > 1 && open + kMaxOpen <= folders_.size())
            before.stream.reset();
    }
    return true;
}

// The last name of a folder, or of the present entry for the index behind the last folder.
std::string_view FolderWalk::nameOf(std::size_t index) const {
    auto begin = folders_[index - 1].pathLength;
    begin += path_[begin] == '/' ? 1 : 0;
    const auto end = index < folders_.size() ? folders_[index].pathLength : path_.size();
    return std::string_view(path_).substr(begin, end - begin);
}

}  // namespace cmn
