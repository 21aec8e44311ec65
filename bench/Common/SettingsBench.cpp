// Reading and writing of the settings beside RapidJSON alone: its in-situ parser on the same text (with the
// copy that parsing in place needs) and its pretty writer on the same document.

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

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
    auto settings = cmn::proto::JsonToObjectImpl<TSettings>(cmn::FileToStr(TEMPLATE_FILE));
    for (int i = 0; cmn::proto::ObjectToJson(settings).size() < bytes; ++i) {
        for (int k = 0; k < 100; ++k) {
            const auto number = fmt::format("{}.{}", i, k);
            settings.Products.push_back(
                {"Product " + number, "1.0." + number, "/opt/products/" + number, "Product" + number, ""});
            settings.StatisticsProcesses.push_back("/usr/lib/process/" + number);
            settings.SystemProcesses.push_back("/usr/sbin/daemon-" + number);
        }
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

void LoadFilePeer(benchmark::State& state, const Sample& sample) {
    for (auto _ : state) {
        std::string text(std::filesystem::file_size(sample.file), '\0');
        std::ifstream(sample.file, std::ios::binary)
            .read(text.data(), static_cast<std::streamsize>(text.size()));
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
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    const bench::TemporaryFolder folder;
    Register(MakeSample(folder, "typical", LargeSettings(0)));
    Register(MakeSample(folder, "1MB", LargeSettings(1'000'000)));
    Register(MakeSample(folder, "4MB", LargeSettings(4'000'000)));
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
