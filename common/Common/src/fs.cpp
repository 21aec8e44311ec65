#include "common/fs.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <string_view>
#include <system_error>

#include "file_failure.h"
#include "read_all.h"

namespace cmn {

namespace {

constexpr unsigned long long kChunk = 1 << 20;

template <class Bytes>
void ReadFile(std::string_view function, const std::filesystem::path& path, Bytes& bytes) {
    errno = 0;
    std::ifstream in(path, std::ios::binary);
    if (!in || !ReadAll(in, bytes, FileSizeNoThrow(path)))
        FailOnFile(function, "read", path, errno);
}

// A file being written as a whole.
class WholeFile {
 public:
    WholeFile(std::string_view function, const std::filesystem::path& path)
        : function_(function), path_(path), out_(path, std::ios::binary | std::ios::trunc) {
        check();
    }
    void write(const char* data, unsigned long long size) {
        out_.write(data, static_cast<std::streamsize>(size));
        check();
    }
    void close() {
        out_.close();
        check();
    }

 private:
    void check() {
        if (!out_)
            FailOnFile(function_, "write", path_, errno);
    }

    std::string_view function_;
    std::filesystem::path path_;
    std::ofstream out_;
};

void ReplaceAll(std::string& text, const std::string& key, const std::string& value) {
    if (key.empty())
        return;
    auto found = text.find(key);
    if (found == std::string::npos)
        return;
    std::string result;
    std::size_t done = 0;
    for (; found != std::string::npos; found = text.find(key, done)) {
        result.append(text, done, found - done).append(value);
        done = found + key.size();
    }
    text = std::move(result.append(text, done));
}

}  // namespace

void FileToBin(const std::filesystem::path& path, std::vector<unsigned char>& bytes) {
    ReadFile("FileToBin", path, bytes);
}

std::vector<unsigned char> FileToBin(const std::filesystem::path& path) {
    std::vector<unsigned char> bytes;
    FileToBin(path, bytes);
    return bytes;
}

void BinToFile(const char* data, unsigned long size, const std::filesystem::path& path) {
    WholeFile file("BinToFile", path);
    file.write(data, size);
    file.close();
}

std::string FileToStr(const std::filesystem::path& path) {
    std::string text;
    ReadFile("FileToStr", path, text);
    return text;
}

void StrToFile(const std::string& text, const std::filesystem::path& path) {
    WholeFile file("StrToFile", path);
    file.write(text.data(), text.size());
    file.close();
}

void StreamToFile(IStream& stream, const std::filesystem::path& path) {
    WholeFile file("StreamToFile", path);
    std::vector<unsigned char> piece;
    const auto total = stream.size();
    for (unsigned long long offset = 0; offset < total; offset += piece.size()) {
        StreamToBin(stream, piece, offset, std::min(total - offset, kChunk));
        file.write(reinterpret_cast<const char*>(piece.data()), piece.size());
    }
    file.close();
}

std::vector<std::string> ReadWordsFromFile(const std::filesystem::path& path) {
    std::ifstream in(path);
    if (!in)
        FailOnFile("ReadWordsFromFile", "read", path, errno);
    std::vector<std::string> words;
    for (std::string word; in >> word;)
        words.push_back(std::move(word));
    return words;
}

void ReplaceTemplates(std::string& text, const std::map<std::string, std::string>& values) {
    for (const auto& [key, value] : values)
        ReplaceAll(text, key, value);
}

void ReplaceTemplates(const std::filesystem::path& path, const std::map<std::string, std::string>& values) {
    auto text = FileToStr(path);
    ReplaceTemplates(text, values);
    StrToFile(text, path);
}

std::uint64_t FileSizeNoThrow(const std::filesystem::path& path) noexcept {
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    return error ? 0 : size;
}

std::filesystem::file_time_type FileLastWriteTimeNoThrow(const std::filesystem::path& path) noexcept {
    std::error_code error;
    const auto time = std::filesystem::last_write_time(path, error);
    return error ? std::filesystem::file_time_type::min() : time;
}

// On the native text: for well-formed text the comparison of bytes and of wide characters come to the same,
// and a name that has no wide form is compared all the same.
bool IsFileInDir(const std::filesystem::path& file, const std::filesystem::path& dir) {
    return file.native().starts_with(dir.native());
}

bool IsFileInDirs(const std::filesystem::path& file, const std::vector<std::filesystem::path>& dirs) {
    return std::any_of(dirs.begin(), dirs.end(), [&](const auto& dir) { return IsFileInDir(file, dir); });
}

}  // namespace cmn
