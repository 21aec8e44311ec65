#pragma once

#include <filesystem>
#include <memory>
#include <string_view>
#include <system_error>
#include <vector>

namespace cmn {

// Walks through all that is below a folder: an entry before what is in it, the entries of a folder in the
// system's order. Does not go through links. Passes over folders that may not be read. However deep the tree
// and however long its paths, it holds at most `kMaxOpen` + 2 descriptors; a folder further up is read to its
// end and closed. One body serves both platforms.
class FolderWalk {
 public:
    static constexpr std::size_t kMaxOpen = 32;

    // Follows `root` when that is a link. A root that cannot be read has no entries.
    explicit FolderWalk(std::filesystem::path::string_type root);
    ~FolderWalk();
    FolderWalk(const FolderWalk&) = delete;
    FolderWalk& operator=(const FolderWalk&) = delete;

    // Goes to the next entry, which is inside the present one when that is a folder. False at the end, and
    // when an error has ended the walk; the present entry then stays.
    bool next(std::error_code& error);

    // Root and names up to the present entry.
    const std::filesystem::path::string_type& path() const { return path_; }
    // Whether that is a file or a link to one.
    bool isRegularFile(std::error_code& error) const;
    // Do not go into the present entry.
    void stayOut() { enter_ = false; }

 private:
    struct Folder;

    bool enterFolder(std::error_code& error);
    bool readEntry(Folder& folder, std::error_code& error);
    bool reopenLast(std::error_code& error);
    std::string_view nameOf(std::size_t index) const;

    std::filesystem::path::string_type path_;
    std::vector<Folder> folders_;  // from the root to the one that holds the present entry
    unsigned char type_ = 0;       // of the present entry, as the folder tells it
    bool enter_ = false;
};

}  // namespace cmn
