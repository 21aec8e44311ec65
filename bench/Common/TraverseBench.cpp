// The walk through a large folder beside GNU find and beside the iterator of the standard library.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>

#include "TemporaryFolder.h"
#include "common/fs.h"
#include "common/log.h"
#include "common/traverse.h"

namespace {

namespace fs = std::filesystem;

const fs::path kRoot = "/usr";

double Ours() {
    double files = 0;
    cmn::TraverseDirectoryNoThrow(kRoot, [&](const fs::path&) { ++files; });
    return files;
}

double BareIterator() {
    double files = 0;
    for (const auto& entry :
         fs::recursive_directory_iterator(kRoot, fs::directory_options::skip_permission_denied)) {
        std::error_code ignored;
        files += entry.is_regular_file(ignored) ? 1 : 0;
    }
    return files;
}

// A find that prints every name to nowhere. `links` counts what symbolic links point to as well, as ours
// does.
bool Find(bool links) {
    std::string find = "find", root = kRoot.string(), test = links ? "-xtype" : "-type", file = "f";
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

void RunWalk(benchmark::State& state, const std::function<double()>& walk) {
    double files = 0;
    for (auto _ : state)
        files = walk();
    state.counters["files"] = files;
}

void RunFind(benchmark::State& state, bool links) {
    for (auto _ : state) {
        if (!Find(links)) {
            state.SkipWithError("find failed");
            return;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    const bench::TemporaryFolder folder;
    SetLogPath((folder / "log").c_str());
    const auto add = [](const char* name, auto body) {
        benchmark::RegisterBenchmark(name, body)->UseRealTime()->Unit(benchmark::kMillisecond);
    };
    add("traverse/usr/ours", [](benchmark::State& state) { RunWalk(state, Ours); });
    add("traverse/usr/bare_iterator", [](benchmark::State& state) { RunWalk(state, BareIterator); });
    add("traverse/usr/find_type_f", [](benchmark::State& state) { RunFind(state, false); });
    add("traverse/usr/find_xtype_f", [](benchmark::State& state) { RunFind(state, true); });
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
