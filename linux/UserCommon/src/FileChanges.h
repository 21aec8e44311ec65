#pragma once

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "WatchedFile.h"

namespace cmn {

// A file whose changes are told to a handler.
struct FileToWatch {
    FileToWatch(const std::filesystem::path& path, std::function<void()> itsHandler)
        : file(path), handler(std::move(itsHandler)) {}

    WatchedFile file;
    const std::function<void()> handler;
    int number = -1;  // of the file in the instance that watches it, where files are numbered, not watches
    bool isWatched = false;
};

// Watches all files of the process with one inotify instance and one thread, because the system has few
// instances to give. Both are there while there is a file to watch. Thread-safe.
class FileChanges : public std::enable_shared_from_this<FileChanges> {
 public:
    // Whoever watches the file from now on; null when it may not be read. Throws std::system_error when the
    // system has no more instances, watches, descriptors or threads.
    static std::shared_ptr<FileChanges> Watch(const std::shared_ptr<FileToWatch>& file);

    // No call of the handler begins from now on. One that is running is not waited for: it may be the caller.
    void unwatch(FileToWatch& file);

    FileChanges();
    FileChanges(const FileChanges&) = delete;
    FileChanges& operator=(const FileChanges&) = delete;

 private:
    using Changed = std::pair<std::shared_ptr<FileToWatch>, std::uint32_t>;  // and what happened to it

    bool add(const std::shared_ptr<FileToWatch>& file);
    void start();
    void read();
    std::vector<Changed> changedFiles(std::size_t size) const;
    void tell(FileToWatch& file, std::uint32_t events);

    boost::asio::io_context context_{1};
    boost::asio::posix::stream_descriptor instance_{context_};
    std::array<char, 16'384> events_{};

    // Guarded by the mutex of the process's instance, as the state of the files is.
    std::multimap<int, std::shared_ptr<FileToWatch>> files_;
    bool calling_ = false;
    std::thread thread_;
};

}  // namespace cmn
