#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <system_error>

namespace cmn {

// The entries of one open folder in the system's order, without "." and "..".
class FolderReader {
 public:
    struct Entry {
        std::string_view name;  // until the next entry is read
        unsigned char type;     // as the folder tells it, DT_UNKNOWN where it does not
    };

    FolderReader();
    ~FolderReader();
    FolderReader(const FolderReader&) = delete;
    FolderReader& operator=(const FolderReader&) = delete;

    // Reads this folder from now on. Owns the descriptor in any case. Call when closed only.
    bool open(int descriptor, std::error_code& error);
    void close();

    int descriptor() const;
    // False at the end and on an error.
    bool next(Entry& entry, std::error_code& error);

 private:
    struct Source;
    std::unique_ptr<Source> source_;
};

}  // namespace cmn
