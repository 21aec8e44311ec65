#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "common/streams.h"

namespace cmn {

// Whole files. They throw std::runtime_error when the file cannot be opened, read or written.
void FileToBin(const std::filesystem::path& path, std::vector<unsigned char>& bytes);
std::vector<unsigned char> FileToBin(const std::filesystem::path& path);
void BinToFile(const char* data, unsigned long size, const std::filesystem::path& path);
std::string FileToStr(const std::filesystem::path& path);
void StrToFile(const std::string& text, const std::filesystem::path& path);
void StreamToFile(IStream& stream, const std::filesystem::path& path);

// The words between white space. Throws std::runtime_error when the file cannot be opened.
std::vector<std::string> ReadWordsFromFile(const std::filesystem::path& path);

// Replaces every occurrence of every key by its value, key after key in their order.
void ReplaceTemplates(std::string& text, const std::map<std::string, std::string>& values);
void ReplaceTemplates(const std::filesystem::path& path, const std::map<std::string, std::string>& values);

// 0 on any error.
std::uint64_t FileSizeNoThrow(const std::filesystem::path& path) noexcept;
// The smallest file time on any error.
std::filesystem::file_time_type FileLastWriteTimeNoThrow(const std::filesystem::path& path) noexcept;

// The checksum of the file's bytes, 0 for an empty file whatever the seed. Throws std::runtime_error.
std::uint64_t CalcFileHash(unsigned long long seed, const std::filesystem::path& path);
// The checksum of the path's text.
std::uint64_t CalcPathHash(const std::filesystem::path& path);

// Whether the text of `dir` is how the text of `file` begins. Compares characters, not components, on
// purpose: the folder /a/b holds /a/bc/file too.
bool IsFileInDir(const std::filesystem::path& file, const std::filesystem::path& dir);
bool IsFileInDirs(const std::filesystem::path& file, const std::vector<std::filesystem::path>& dirs);

}  // namespace cmn
