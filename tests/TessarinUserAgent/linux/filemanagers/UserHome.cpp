#include "UserHome.h"

#include <gtest/gtest.h>

#include <QProcess>
#include <algorithm>
#include <fstream>
#include <iterator>

namespace fake {

using std::filesystem::path;
using useragent::FileManager;

std::string ReadFile(const path& file) {
    std::ifstream stream(file, std::ios::binary);
    EXPECT_TRUE(stream) << file;
    return {std::istreambuf_iterator<char>(stream), {}};
}

void WriteFile(const path& file, const std::string& text) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary);
    stream << text;
    EXPECT_TRUE(stream.flush()) << file;
}

bool IsExecutable(const path& file) {
    using std::filesystem::perms;
    return (std::filesystem::status(file).permissions() & perms::owner_exec) != perms::none;
}

std::map<std::string, std::string> FilesBelow(const path& folder) {
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_directory()) {
            files[entry.path().string()] = ReadFile(entry.path());
        }
    }
    return files;
}

int ExitCodeOf(const Run& run) {
    QProcess process;
    QProcessEnvironment environment;
    for (const auto& [name, value] : run.environment) {
        environment.insert(QString::fromStdString(name), QString::fromStdString(value));
    }
    // Qt's text cannot hold every byte that an argument may, a file can.
    TemporaryFolder folder;
    const auto quoted = [](const std::string& text) {
        std::string word = "'";
        for (const char c : text) {
            word += c == '\'' ? std::string("'\\''") : std::string(1, c);
        }
        return word + "' ";
    };
    std::string script = "cd " + quoted(run.folder.string()) + "|| exit 99\nexec ";
    for (const std::string& word : run.command) {
        script += quoted(word);
    }
    WriteFile(folder / "script", script + "\n");
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral("/bin/sh"), {QString::fromStdString((folder / "script").string())});
    process.write(run.input.data(), static_cast<qint64>(run.input.size()));
    process.closeWriteChannel();
    EXPECT_TRUE(process.waitForFinished(60'000));
    EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
    return process.exitCode();
}

UserHome::UserHome() {
    folders.dataHome = temporary / "data home";
    folders.configHome = temporary / "config";
    folders.configFolders = {temporary / "xdg"};
    folders.dataFolders = {temporary / "share"};
    std::filesystem::create_directories(folders.dataHome);
    std::filesystem::create_directories(folders.configHome);
}

useragent::DesktopSession UserHome::session() const {
    return {currentDesktop, folders, [this](const std::string& name) { return programs.count(name) > 0; }};
}

path UserHome::entryOf(FileManager manager) const {
    switch (manager) {
        case FileManager::nautilus:
            return nautilus();
        case FileManager::nemo:
            return nemo();
        case FileManager::caja:
            return caja();
        case FileManager::thunar:
            return thunar();
        case FileManager::dolphin:
            return dolphin();
    }
    return {};
}

RecordingOpener::RecordingOpener() {
    const path opener = folder_ / "xdg-open";
    WriteFile(opener,
              "#!/bin/sh\nnote=$(mktemp \"${0%/*}/note.XXXXXX\")\nprintf '%s\\000' \"$@\" >\"$note\"\n");
    std::filesystem::permissions(opener, std::filesystem::perms::owner_all);
}

std::string RecordingOpener::searchPath() const {
    return folder_.path().string() + ":/usr/bin:/bin";
}

std::vector<std::string> RecordingOpener::calls() const {
    std::vector<std::string> calls;
    for (const auto& [file, text] : FilesBelow(folder_.path())) {
        if (path(file).filename().string().starts_with("note.")) {
            calls.push_back(text);
        }
    }
    std::sort(calls.begin(), calls.end());
    return calls;
}

void RecordingOpener::failFromNowOn() {
    WriteFile(folder_ / "xdg-open", "#!/bin/sh\nexit 4\n");
}

}  // namespace fake
