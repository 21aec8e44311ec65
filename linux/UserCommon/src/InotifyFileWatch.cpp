#include <cerrno>
#include <system_error>
#include <utility>

#include "FileChanges.h"
#include "common/log.h"
#include "common/utf8.h"
#include "usercommon/FileWatch.h"

namespace cmn {

namespace {

class InotifyFileWatch final : public FileWatch {
 public:
    InotifyFileWatch(std::shared_ptr<FileChanges> changes, std::shared_ptr<FileToWatch> file)
        : changes_(std::move(changes)), file_(std::move(file)) {}
    ~InotifyFileWatch() override { changes_->unwatch(*file_); }
    InotifyFileWatch(const InotifyFileWatch&) = delete;
    InotifyFileWatch& operator=(const InotifyFileWatch&) = delete;

 private:
    const std::shared_ptr<FileChanges> changes_;
    const std::shared_ptr<FileToWatch> file_;
};

// Null when it cannot be opened.
std::shared_ptr<FileToWatch> Open(const std::filesystem::path& file, std::function<void()> handler) {
    try {
        return std::make_shared<FileToWatch>(file, std::move(handler));
    } catch (const std::system_error& e) {
        if (e.code().value() == EMFILE || e.code().value() == ENFILE || e.code().value() == ENOMEM) {
            throw;
        }
        return nullptr;
    }
}

}  // namespace

std::unique_ptr<FileWatch> CreateFileWatch(const std::filesystem::path& file, std::function<void()> handler) {
    try {
        auto opened = Open(file, std::move(handler));
        auto changes = opened ? FileChanges::Watch(opened) : nullptr;
        return changes ? std::make_unique<InotifyFileWatch>(std::move(changes), std::move(opened)) : nullptr;
    } catch (const std::exception& e) {
        TLOG_ERROR("Cannot watch {} -- {}", EscapeControls(file.string()), e.what());
        return nullptr;
    }
}

}  // namespace cmn
