// The walk through large folders, one of them without links, beside GNU find and beside the iterator of the
// standard library, and how it grows with the tree.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "TemporaryFolder.h"
#include "common/fs.h"
#include "common/log.h"
#include "common/traverse.h"

namespace {

namespace fs = std::filesystem;

const fs::path kSystem = "/usr";

constexpr int kOuter = 60, kInner = 50, kFiles = 10;
// Entries of a folder that holds folders of files.
constexpr int kEntries = 1 + kInner * (1 + kFiles);

// Folders of files, as many together as sources have, without links. The root holds so many entries, the
// last folder in it only some.
fs::path MakeTree(const bench::TemporaryFolder& folder, int entries = kOuter * kEntries) {
    const auto root = folder / ("tree of " + std::to_string(entries));
    for (int outer = 0; entries > 0; ++outer) {
        --entries;
        for (int inner = 0; inner < kInner && entries > 0; ++inner, entries -= 1 + kFiles) {
            const auto place = root / std::to_string(outer) / ("inner folder " + std::to_string(inner));
            fs::create_directories(place);
            for (int file = 0; file < kFiles; ++file)
                cmn::StrToFile("", place / ("a file's name " + std::to_string(file) + ".txt"));
        }
    }
    return root;
}

double Ours(const fs::path& folder) {
    double files = 0;
    cmn::TraverseDirectoryNoThrow(folder, [&](const fs::path&) { ++files; });
    return files;
}

double BareIterator(const fs::path& folder) {
    double files = 0;
    for (const auto& entry :
         fs::recursive_directory_iterator(folder, fs::directory_options::skip_permission_denied)) {
        std::error_code ignored;
        files += entry.is_regular_file(ignored) ? 1 : 0;
    }
    return files;
}

// A find that prints every name to nowhere. `links` counts what symbolic links point to as well, as ours
// does.
bool Find(const fs::path& folder, bool links) {
    std::string find = "find", root = folder.string(), test = links ? "-xtype" : "-type", file = "f";
    char* arguments[] = {find.data(), root.data(), test.data(), file.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const int error = posix_spawnp(&pid, "find", &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    return error == 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

using Walk = double (*)(const fs::path&);

void RunWalk(benchmark::State& state, Walk walk, const fs::path& folder) {
    double files = 0;
    for (auto _ : state)
        files = walk(folder);
    state.counters["files"] = files;
}

void RunFind(benchmark::State& state, bool links, const fs::path& folder) {
    for (auto _ : state) {
        if (!Find(folder, links)) {
            state.SkipWithError("find failed");
            return;
        }
    }
}

void Register(const std::string& name, const fs::path& folder) {
    const auto add = [&](const char* who, auto body) {
        benchmark::RegisterBenchmark(("traverse/" + name + "/" + who).c_str(), body)
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
    };
    add("ours", [=](benchmark::State& state) { RunWalk(state, Ours, folder); });
    add("bare_iterator", [=](benchmark::State& state) { RunWalk(state, BareIterator, folder); });
    add("find_type_f", [=](benchmark::State& state) { RunFind(state, false, folder); });
    add("find_xtype_f", [=](benchmark::State& state) { RunFind(state, true, folder); });
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    const bench::TemporaryFolder folder;
    SetLogPath((folder / "log").c_str());
    Register("usr", kSystem);
    Register("no_links", MakeTree(folder));
    for (const int entries : {100, 1'000, 10'000, 100'000})
        Register("entries/" + std::to_string(entries), MakeTree(folder, entries));
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
