#include "impl_posix/FolderReader.h"

#include <dirent.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace cmn {

// The kernel's own call: a stream of the C library costs three calls more for each folder.
struct FolderReader::Source {
    int descriptor = -1;
    std::size_t size = 0;  // of what was read
    std::size_t position = 0;
    alignas(dirent64) std::array<char, 32'768> entries;
};

FolderReader::FolderReader() : source_(std::make_unique_for_overwrite<Source>()) {}

FolderReader::~FolderReader() {
    close();
}

bool FolderReader::open(int descriptor, std::error_code& /*error*/) {
    source_->descriptor = descriptor;
    source_->size = source_->position = 0;
    return true;
}

void FolderReader::close() {
    if (source_->descriptor >= 0)
        ::close(source_->descriptor);
    source_->descriptor = -1;
}

int FolderReader::descriptor() const {
    return source_->descriptor;
}

bool FolderReader::next(Entry& entry, std::error_code& error) {
    auto& source = *source_;
    for (;;) {
        if (source.position == source.size) {
            const auto size = getdents64(source.descriptor, source.entries.data(), source.entries.size());
            // A folder that was removed while it is read is at its end.
            if (size < 0 && errno != ENOENT)
                error.assign(errno, std::generic_category());
            if (size <= 0)
                return false;
            source.size = static_cast<std::size_t>(size);
            source.position = 0;
        }
        const auto& one = *reinterpret_cast<const dirent64*>(source.entries.data() + source.position);
        source.position += one.d_reclen;
        const std::string_view name = one.d_name;
        if (name != "." && name != "..") {
            entry = {name, one.d_type};
            return true;
        }
    }
}

}  // namespace cmn
