#include "filemanagers/FileChange.h"

#include <unistd.h>

#include <QFile>
#include <QSaveFile>
#include <algorithm>
#include <string_view>
#include <utility>

#include "common/make_error.h"
#include "common/utf8.h"

namespace useragent {
namespace {

using std::filesystem::path;

constexpr std::uintmax_t kLargestFile = 4U << 20U;  // of people, not of programs

QString ToQt(const path& file) {
    return QFile::decodeName(file.c_str());
}

QFileDevice::Permissions WithExecution(QFileDevice::Permissions permissions) {
    permissions |= QFileDevice::ExeOwner | QFileDevice::ExeUser;
    permissions.setFlag(QFileDevice::ExeGroup, permissions.testFlag(QFileDevice::ReadGroup));
    permissions.setFlag(QFileDevice::ExeOther, permissions.testFlag(QFileDevice::ReadOther));
    return permissions;
}

// To a file without a buffer: an error of one is not seen in time. A full disk takes a part first.
bool WriteAll(QIODevice& device, std::string_view text) {
    while (!text.empty()) {
        const qint64 taken = device.write(text.data(), static_cast<qint64>(text.size()));
        if (taken <= 0) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(taken));
    }
    return true;
}

}  // namespace

std::optional<std::string> ReadUserFile(const path& file) {
    std::error_code error;
    const auto kind = std::filesystem::status(file, error).type();
    if (kind == std::filesystem::file_type::not_found) {
        return std::nullopt;
    }
    if (kind != std::filesystem::file_type::regular) {
        throw cmn::make_error(file.string(), kind == std::filesystem::file_type::none
                                                 ? " cannot be read: " + error.message()
                                                 : " is not a file.");
    }
    if (std::filesystem::file_size(file, error) > kLargestFile) {
        throw cmn::make_error(file.string(), " is too large.");
    }
    QFile opened(ToQt(file));
    if (!opened.open(QIODevice::ReadOnly)) {
        throw cmn::make_error(file.string(), " cannot be read: ", opened.errorString().toStdString());
    }
    const QByteArray bytes = opened.readAll();
    if (opened.error() != QFileDevice::NoError) {
        throw cmn::make_error(file.string(), " cannot be read: ", opened.errorString().toStdString());
    }
    return bytes.toStdString();
}

bool IsExecutableFile(const path& file) noexcept {
    std::error_code error;
    return std::filesystem::is_regular_file(file, error) && ::access(file.c_str(), X_OK) == 0;
}

FileChange::FileChange(path file, std::optional<std::string> text, bool executable)
    : file_(std::move(file)), text_(std::move(text)), executable_(executable) {
    if (!file_.is_absolute() || !cmn::IsValidUtf8(file_.native())) {
        throw cmn::make_error("The folder for the file ", file_.filename().string(),
                              " is not known: HOME is not set, or its name is not UTF-8.");
    }
    before_ = ReadUserFile(file_);
    wasExecutable_ = IsExecutableFile(file_);
}

void FileChange::apply() {
    if (text_ == before_ && (!text_ || !executable_ || wasExecutable_)) {
        return;
    }
    if (!text_) {
        removeFile();
    } else {
        try {
            write(*text_, executable_);
        } catch (...) {
            undo();
            throw;
        }
    }
    applied_ = true;
}

void FileChange::undo() noexcept {
    try {
        if (applied_ && before_) {
            write(*before_, wasExecutable_);
        } else if (applied_) {
            removeFile();
        }
        applied_ = false;
    } catch (const std::exception&) {
        // What led here is reported.
    }
    std::for_each(madeFolders_.rbegin(), madeFolders_.rend(), [](const path& folder) {
        std::error_code error;
        std::filesystem::remove(folder, error);
    });
    madeFolders_.clear();
}

void FileChange::write(const std::string& text, bool executable) {
    makeFolders();
    QSaveFile saved(ToQt(file_));
    const bool written = saved.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && WriteAll(saved, text) &&
                         (!executable || saved.setPermissions(WithExecution(saved.permissions()))) &&
                         saved.commit();
    if (!written) {
        throw cmn::make_error(file_.string(), " cannot be written: ", saved.errorString().toStdString());
    }
}

void FileChange::makeFolders() {
    std::vector<path> missing;
    std::error_code error;
    for (path folder = file_.parent_path();
         folder.has_relative_path() && !std::filesystem::exists(folder, error);
         folder = folder.parent_path()) {
        missing.push_back(folder);
    }
    std::for_each(missing.rbegin(), missing.rend(), [&](const path& folder) {
        std::filesystem::create_directory(folder, error);
        if (error) {
            throw cmn::make_error("The folder ", folder.string(), " cannot be made: ", error.message());
        }
        madeFolders_.push_back(folder);
    });
}

void FileChange::removeFile() const {
    std::error_code error;
    std::filesystem::remove(file_, error);
    if (error) {
        throw cmn::make_error(file_.string(), " cannot be removed: ", error.message());
    }
}

}  // namespace useragent
