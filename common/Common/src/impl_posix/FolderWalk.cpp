#include "FolderWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

#include "impl_posix/FolderReader.h"

namespace cmn {

namespace {

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

// False at the end, also when the rest may not be read. Call without an error.
bool ReadName(FolderReader& folder, FolderReader::Entry& entry, std::error_code& error) {
    if (folder.next(entry, error))
        return true;
    if (IsPermissionDenied(error))
        error.clear();
    return false;
}

}  // namespace

struct FolderWalk::Folder {
    // Reads the names that are left, so that the folder can be closed.
    void gather() {
        FolderReader::Entry entry;
        while (ReadName(*reader, entry, error))
            names.push_back({std::string(entry.name), entry.type});
        gathered = true;
    }

    std::unique_ptr<FolderReader> reader;  // null while closed
    std::size_t pathLength;                // of its own path, at the beginning of the present entry's
    std::vector<Name> names{};
    std::size_t position = 0;  // in `names`
    bool gathered = false;
    std::error_code error{};  // that ended the gathering
};

FolderWalk::FolderWalk(std::filesystem::path::string_type root) : path_(std::move(root)) {
    std::error_code ignored;
    if (auto reader = openFolder(AT_FDCWD, path_.c_str(), 0, ignored))
        folders_.push_back({std::move(reader), path_.size()});
}

FolderWalk::~FolderWalk() = default;

// Opens a folder named from another one on, so that no path gets too long.
std::unique_ptr<FolderReader> FolderWalk::openFolder(int from, const char* name, int flags,
                                                     std::error_code& error) {
    if (spare_.empty())
        spare_.push_back(std::make_unique<FolderReader>());
    const int fd = openat(from, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags);
    if (fd < 0) {
        error = LastError();
        return nullptr;
    }
    if (!spare_.back()->open(fd, error))
        return nullptr;
    auto reader = std::move(spare_.back());
    spare_.pop_back();
    return reader;
}

void FolderWalk::closeFolder(Folder& folder) {
    if (!folder.reader)
        return;
    folder.reader->close();
    spare_.push_back(std::move(folder.reader));
}

bool FolderWalk::next(std::error_code& error) {
    error.clear();
    bool found = !std::exchange(enter_, false) || enterFolder(error);
    while (found && !folders_.empty()) {
        if (readEntry(folders_.back(), error)) {
            enter_ = type_ == DT_DIR || type_ == DT_UNKNOWN;
            return true;
        }
        closeFolder(folders_.back());
        folders_.pop_back();
        fileIsInFolder_ = false;
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
    if (fstatat(folders_.back().reader->descriptor(), name(), &status, 0) != 0)
        error = LastError();
    return !error && S_ISREG(status.st_mode);
}

// True also when there is nothing to go into.
bool FolderWalk::enterFolder(std::error_code& error) {
    auto reader = openFolder(folders_.back().reader->descriptor(), name(), O_NOFOLLOW, error);
    if (!reader) {
        // Some file systems do not tell what an entry is.
        const bool noFolder = type_ == DT_UNKNOWN && (error == std::errc::not_a_directory ||
                                                      error == std::errc::too_many_symbolic_link_levels);
        if (noFolder || IsPermissionDenied(error))
            error.clear();
        return !error;
    }
    folders_.push_back({std::move(reader), path_.size()});
    fileIsInFolder_ = false;
    // The root stays open: from there the others are found again.
    if (folders_.size() > kMaxOpen + 1) {
        auto& far = folders_[folders_.size() - 1 - kMaxOpen];
        if (far.reader && !far.gathered)
            far.gather();
        closeFolder(far);
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
        FolderReader::Entry entry;
        return ReadName(*folder.reader, entry, error) && take(entry.name, entry.type);
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
    while (!folders_[open].reader)
        --open;
    for (++open; open < folders_.size(); ++open) {
        auto& before = folders_[open - 1];
        const auto begin = nameBegin(open - 1);
        const auto folder = path_.substr(begin, folders_[open].pathLength - begin);
        folders_[open].reader = openFolder(before.reader->descriptor(), folder.c_str(), O_NOFOLLOW, error);
        if (!folders_[open].reader)
            return false;
        if (open > 1 && open + kMaxOpen <= folders_.size())
            closeFolder(before);
    }
    return true;
}

// Where in the path the name stands that follows a folder's own.
std::size_t FolderWalk::nameBegin(std::size_t folder) const {
    const auto end = folders_[folder].pathLength;
    return end + (path_[end] == '/' ? 1 : 0);
}

const char* FolderWalk::name() const {
    return path_.c_str() + nameBegin(folders_.size() - 1);
}

const std::filesystem::path& FolderWalk::file() {
    // To take a path apart costs more than to read the entry: that of the folder is kept, and the name is
    // added as text, which is not made a path of its own first.
    if (fileIsInFolder_)
        file_.remove_filename() += std::string_view(name());
    else
        file_ = path_;
    fileIsInFolder_ = true;
    return file_;
}

}  // namespace cmn
