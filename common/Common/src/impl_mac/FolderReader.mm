#include "impl_posix/FolderReader.h"

#include <dirent.h>
#include <unistd.h>

#include <cerrno>

namespace cmn {

struct FolderReader::Source {
    DIR* stream = nullptr;
};

FolderReader::FolderReader() : source_(std::make_unique<Source>()) {}

FolderReader::~FolderReader() {
    close();
}

bool FolderReader::open(int descriptor, std::error_code& error) {
    source_->stream = fdopendir(descriptor);
    if (source_->stream != nullptr)
        return true;
    error.assign(errno, std::generic_category());
    ::close(descriptor);
    return false;
}

void FolderReader::close() {
    if (source_->stream != nullptr)
        closedir(source_->stream);
    source_->stream = nullptr;
}

int FolderReader::descriptor() const {
    return dirfd(source_->stream);
}

bool FolderReader::next(Entry& entry, std::error_code& error) {
    for (;;) {
        errno = 0;
        const auto* const one = readdir(source_->stream);
        if (one == nullptr) {
            error.assign(errno, std::generic_category());
            return false;
        }
        const std::string_view name = one->d_name;
        if (name != "." && name != "..") {
            entry = {name, one->d_type};
            return true;
        }
    }
}

}  // namespace cmn
