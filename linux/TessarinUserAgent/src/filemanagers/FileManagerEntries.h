#pragma once

#include <filesystem>
#include <string>

#include "filemanagers/FileManager.h"

namespace useragent {

// The product's entry in the context menus of the file managers, for one user: small files, made from
// templates, and a script that they share.
class FileManagerEntries {
 public:
    // `templates` is the folder packaging/file-managers or its installed copy.
    FileManagerEntries(std::filesystem::path templates, XdgFolders folders);

    // Whether everything of the entry is in its place. Only looks at files.
    bool isInstalled(FileManager manager) const noexcept;
    // Whether a part of it is there: the file manager may show an entry that does nothing.
    bool isBroken(FileManager manager) const noexcept;

    // Both leave everything as it was when they fail, and throw std::runtime_error with a sentence for the
    // user. Doing either again changes nothing. Folders of the file managers stay.
    void install(FileManager manager) const;
    void remove(FileManager manager) const;

 private:
    std::filesystem::path entryFile(FileManager manager) const;
    std::filesystem::path helperFile() const;
    std::string helperText() const;
    std::string entryText(FileManager manager) const;
    std::string thunarBase() const;
    std::string textWithEntry(FileManager manager) const;
    bool hasEntry(FileManager manager) const;
    void removeHelper() const;

    const std::filesystem::path templates_;
    const XdgFolders folders_;
};

}  // namespace useragent
