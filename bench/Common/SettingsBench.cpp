// Reading and writing of the settings beside RapidJSON alone: its in-situ parser on the same text (with the
// copy that parsing in place needs) and its pretty writer on the same document.

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "TemporaryFolder.h"
#include "common/fs.h"
#include "common/settings_json.h"

namespace {

using cmn::proto::TSettings;

struct Sample {
    std::string name;
    std::string text;
    std::filesystem::path file;
};

rapidjson::Document Parse(std::string& text) {
    rapidjson::Document document;
    document.ParseInsitu(text.data());
    if (document.HasParseError())
        throw std::runtime_error("the sample is no JSON");
    return document;
}

std::string PrettyText(const rapidjson::Document& document) {
    rapidjson::StringBuffer buffer;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
    document.Accept(writer);
    return {buffer.GetString(), buffer.GetSize()};
}

TSettings LargeSettings(std::size_t bytes) {
    const auto sizeOf = [](const TSettings& settings) { return cmn::proto::ObjectToJson(settings).size(); };
    auto settings = cmn::proto::JsonToObjectImpl<TSettings>(cmn::FileToStr(TEMPLATE_FILE));
    const auto none = sizeOf(settings);
    std::size_t each = 0;  // bytes of one product with its processes
    for (std::size_t i = 0; none + i * each < bytes; ++i) {
        const auto number = fmt::format("{}.{}", i / 100, i % 100);
        settings.Products.push_back(
            {"Product " + number, "1.0." + number, "/opt/products/" + number, "Product" + number, ""});
        settings.StatisticsProcesses.push_back("/usr/lib/process/" + number);
        settings.SystemProcesses.push_back("/usr/sbin/daemon-" + number);
        if (each == 0)
            each = sizeOf(settings) - none;
    }
    return settings;
}

void LoadText(benchmark::State& state, const Sample& sample) {
    for (auto _ : state)
        benchmark::DoNotOptimize(cmn::proto::JsonToObjectImpl<TSettings>(sample.text));
}

void LoadTextPeer(benchmark::State& state, const Sample& sample) {
    for (auto _ : state) {
        auto text = sample.text;
        benchmark::DoNotOptimize(Parse(text).MemberCount());
    }
}

void LoadFile(benchmark::State& state, const Sample& sample) {
    for (auto _ : state)
        benchmark::DoNotOptimize(cmn::proto::LoadSettings(sample.file));
}

std::string ReadText(const std::filesystem::path& file) {
    std::string text(std::filesystem::file_size(file), '\0');
    std::ifstream(file, std::ios::binary).read(text.data(), static_cast<std::streamsize>(text.size()));
    return text;
}

void LoadFilePeer(benchmark::State& state, const Sample& sample) {
    for (auto _ : state) {
        auto text = ReadText(sample.file);
        benchmark::DoNotOptimize(Parse(text).MemberCount());
    }
}

void SaveText(benchmark::State& state, const Sample& sample) {
    const auto settings = cmn::proto::JsonToObjectImpl<TSettings>(sample.text);
    for (auto _ : state)
        benchmark::DoNotOptimize(cmn::proto::ObjectToJson(settings));
}

void SaveTextPeer(benchmark::State& state, const Sample& sample) {
    auto text = sample.text;
    const auto document = Parse(text);
    for (auto _ : state)
        benchmark::DoNotOptimize(PrettyText(document));
}

void SaveFile(benchmark::State& state, const Sample& sample) {
    const auto settings = cmn::proto::JsonToObjectImpl<TSettings>(sample.text);
    const auto file = sample.file.string() + ".saved";
    for (auto _ : state)
        cmn::proto::SaveSettings(file, settings);
}

void SaveFilePeer(benchmark::State& state, const Sample& sample) {
    auto text = sample.text;
    const auto document = Parse(text);
    const auto file = sample.file.string() + ".saved";
    for (auto _ : state)
        std::ofstream(file, std::ios::binary) << PrettyText(document);
}

// A text that both sides read and write back byte for byte.
Sample MakeSample(const bench::TemporaryFolder& folder, const std::string& name, const TSettings& settings) {
    Sample sample{name, cmn::proto::ObjectToJson(settings), folder / (name + ".json")};
    auto copy = sample.text;
    if (PrettyText(Parse(copy)) != sample.text ||
        cmn::proto::JsonToObjectImpl<TSettings>(sample.text) != settings)
        throw std::runtime_error("the two sides do not write the same text");
    cmn::StrToFile(sample.text, sample.file);
    return sample;
}

// What a load adds at its height to the memory of a process of its own. Kibibytes.
long MemoryOf(const std::function<void()>& load) {
    int ends[2];
    if (pipe(ends) != 0)
        throw std::runtime_error("no pipe");
    const auto child = fork();
    if (child == 0) {
        const auto highest = [] {
            rusage usage{};
            getrusage(RUSAGE_SELF, &usage);
            return usage.ru_maxrss;
        };
        const auto before = highest();
        load();
        const long used = highest() - before;
        _exit(write(ends[1], &used, sizeof used) == sizeof used ? 0 : 1);
    }
    close(ends[1]);
    long used = 0;
    const bool got = child > 0 && read(ends[0], &used, sizeof used) == sizeof used;
    close(ends[0]);
    if (child > 0)
        waitpid(child, nullptr, 0);
    if (!got)
        throw std::runtime_error("a load has failed");
    return used;
}

// Both in one process each that holds nothing else of this size: memory of before would be used again.
void PrintMemory(const bench::TemporaryFolder& folder) {
    const auto file = folder / "50MB.json";
    MemoryOf([&] { cmn::StrToFile(cmn::proto::ObjectToJson(LargeSettings(50'000'000)), file); });
    const auto ours = MemoryOf([&] { cmn::proto::LoadSettings(file); });
    const auto peer = MemoryOf([&] {
        auto text = ReadText(file);
        benchmark::DoNotOptimize(Parse(text).MemberCount());
    });
    fmt::print("{{\"load_50MB\": {{\"ours_kib\": {}, \"rapidjson_kib\": {}, \"over_rapidjson\": {:.3f}}}}}\n",
               ours, peer, static_cast<double>(ours) / static_cast<double>(peer));
}

void Register(const Sample& sample) {
    const auto add = [&](const char* what, auto ours, auto peer) {
        const auto name = fmt::format("settings/{}/{}/", what, sample.name);
        benchmark::RegisterBenchmark((name + "ours").c_str(), ours, sample);
        benchmark::RegisterBenchmark((name + "rapidjson").c_str(), peer, sample);
    };
    add("load_text", LoadText, LoadTextPeer);
    add("load_file", LoadFile, LoadFilePeer);
    add("save_text", SaveText, SaveTextPeer);
    add("save_file", SaveFile, SaveFilePeer);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    const bench::TemporaryFolder folder;
    if (argc == 2 && std::string_view(argv[1]) == "memory") {
        PrintMemory(folder);
        return 0;
    }
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    Register(MakeSample(folder, "typical", LargeSettings(0)));
    Register(MakeSample(folder, "3.5KB", LargeSettings(3'500)));
    Register(MakeSample(folder, "1MB", LargeSettings(1'000'000)));
    Register(MakeSample(folder, "4MB", LargeSettings(4'000'000)));
    Register(MakeSample(folder, "50MB", LargeSettings(50'000'000)));
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
