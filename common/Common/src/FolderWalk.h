#pragma once

#include <filesystem>
#include <memory>
#include <system_error>
#include <vector>

namespace cmn {

class FolderReader;

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
    // That path as an object, valid until the walk goes on.
    const std::filesystem::path& file();
    // Whether that is a file or a link to one.
    bool isRegularFile(std::error_code& error) const;
    // Do not go into the present entry.
    void stayOut() { enter_ = false; }

 private:
    struct Folder;

    std::unique_ptr<FolderReader> openFolder(int from, const char* name, int flags, std::error_code& error);
    void closeFolder(Folder& folder);
    bool enterFolder(std::error_code& error);
    bool readEntry(Folder& folder, std::error_code& error);
    bool reopenLast(std::error_code& error);
    std::size_t nameBegin(std::size_t folder) const;
    const char* name() const;  // of the present entry

    std::filesystem::path::string_type path_;
    std::vector<std::unique_ptr<FolderReader>> spare_;  // closed: their memory is used again
    std::vector<Folder> folders_;  // from the root to the one that holds the present entry
    std::filesystem::path file_;   // the last one asked for
    bool fileIsInFolder_ = false;  // in the last of `folders_`
    unsigned char type_ = 0;       // of the present entry, as the folder tells it
    bool enter_ = false;
};

}  // namespace cmn
