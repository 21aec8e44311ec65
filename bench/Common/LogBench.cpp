// The log beside spdlog's asynchronous logger: what a call costs its thread, and how fast lines reach the
// file. Both write the same line through the macro their users write. Rounds stay below the queues' limits,
// so that no line is dropped and no producer blocked, and end only when every line is in the file; the lines
// are counted afterwards.

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <spdlog/async.h>
#include <spdlog/async_logger.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <fstream>
#include <latch>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "TemporaryFolder.h"
#include "common/log.h"

namespace {

using bench::TemporaryFolder;
using Clock = std::chrono::steady_clock;
using Nanoseconds = std::chrono::duration<double, std::nano>;

constexpr int kQueueSize = 100'000;
constexpr int kRoundLines = 80'000;
constexpr int kPacedLines = 2'000;
constexpr int kCallsPerReading = 8;
constexpr int kFirstNumber = 10'000;  // all numbers have five digits
constexpr auto kPause = std::chrono::microseconds(50);
constexpr auto kDrainLimit = std::chrono::seconds(60);
constexpr auto kUrl = "https://www.example.com/section/article-with-a-usual-name?from=start";

// One file of one logger. Every line of a contestant has the same length.
class Ours {
 public:
    explicit Ours(const std::filesystem::path& stem) : file_(stem.string() + "_0.log") {
        SetLogPath(stem.c_str());
    }
    const std::filesystem::path& file() const { return file_; }
    void line(int number) const { TLOG_INFO("URL changed -- {}, pid {}", kUrl, kFirstNumber + number); }
    void flush() const {}

 private:
    std::filesystem::path file_;
};

class Spdlog {
 public:
    explicit Spdlog(const std::filesystem::path& stem)
        : file_(stem.string() + ".log"),
          pool_(std::make_shared<spdlog::details::thread_pool>(kQueueSize, 1)),
          logger_(std::make_shared<spdlog::async_logger>(
              "bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(file_.string()), pool_,
              spdlog::async_overflow_policy::block)) {
        logger_->set_pattern("[%5l] [%Y.%m.%d %H:%M:%S] %s:%# %! -- %v");
    }
    const std::filesystem::path& file() const { return file_; }
    void line(int number) const {
        SPDLOG_LOGGER_INFO(logger_, "URL changed -- {}, pid {}", kUrl, kFirstNumber + number);
    }
    void flush() const { logger_->flush(); }

 private:
    std::filesystem::path file_;
    std::shared_ptr<spdlog::details::thread_pool> pool_;
    std::shared_ptr<spdlog::async_logger> logger_;
};

std::uintmax_t FileSize(const std::filesystem::path& file) {
    std::error_code error;
    const auto size = std::filesystem::file_size(file, error);
    return error ? 0 : size;
}

void WaitForSize(const std::filesystem::path& file, std::uintmax_t size) {
    const auto limit = Clock::now() + kDrainLimit;
    while (FileSize(file) < size) {
        if (Clock::now() > limit)
            throw std::runtime_error("lines are missing in " + file.string());
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
}

std::int64_t CountLines(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::vector<char> piece(1 << 20);
    std::int64_t lines = 0;
    while (in.read(piece.data(), static_cast<std::streamsize>(piece.size())), in.gcount() > 0)
        lines += std::count(piece.begin(), piece.begin() + in.gcount(), '\n');
    return lines;
}

// A logger with a file of its own that is open and has taken its first line.
template <class Logger>
class Round {
 public:
    explicit Round(const TemporaryFolder& folder) : logger(folder / fmt::format("round{}", ++serial_)) {
        logger.line(0);
        logger.flush();
        WaitForSize(logger.file(), 1);
        lineSize_ = FileSize(logger.file());
    }
    void drain(int lines) {
        logger.flush();
        WaitForSize(logger.file(), (static_cast<std::uintmax_t>(lines) + 1) * lineSize_);
    }
    // Lines that did not reach the file. Removes it.
    double finish(int lines) {
        const auto count = CountLines(logger.file());
        std::filesystem::remove(logger.file());
        return static_cast<double>(lines + 1 - count);
    }

    Logger logger;

 private:
    static inline int serial_ = 0;
    std::uintmax_t lineSize_ = 0;
};

// Time per line until all lines are in the file.
template <class Logger>
void Throughput(benchmark::State& state, int producers) {
    const TemporaryFolder folder;
    double dropped = 0;
    for (auto _ : state) {
        Round<Logger> round(folder);
        std::latch ready(producers), start(1);
        std::vector<std::jthread> threads;
        threads.reserve(static_cast<std::size_t>(producers));
        for (int producer = 0; producer < producers; ++producer) {
            threads.emplace_back([&] {
                ready.count_down();
                start.wait();
                for (int i = 0; i < kRoundLines / producers; ++i)
                    round.logger.line(i);
            });
        }
        ready.wait();
        const auto begin = Clock::now();
        start.count_down();
        threads.clear();
        round.drain(kRoundLines);
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - begin).count() / kRoundLines);
        dropped += round.finish(kRoundLines);
    }
    state.counters["dropped"] = dropped;
}

double Median(std::vector<double>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// The median time of a call, without the clock's. Readings of the clock are coarse beside a call, so one of
// them is shared by several calls, unless a pause follows each.
template <class Call>
double MedianOfCalls(int calls, std::chrono::nanoseconds pause, Call&& call) {
    const int together = pause.count() > 0 ? 1 : kCallsPerReading;
    std::vector<double> times(static_cast<std::size_t>(calls / together));
    for (auto& time : times) {
        const auto begin = Clock::now();
        time = Nanoseconds(Clock::now() - begin).count();
    }
    const auto clock = Median(times);
    int number = 0;
    for (auto& time : times) {
        const auto begin = Clock::now();
        for (int i = 0; i < together; ++i)
            call(number++);
        const auto end = Clock::now();
        time = (Nanoseconds(end - begin).count() - clock) / together;
        while (pause.count() > 0 && Clock::now() < end + pause) {
        }
    }
    return Median(times);
}

template <class Logger>
void Producer(benchmark::State& state, int lines, std::chrono::nanoseconds pause) {
    const TemporaryFolder folder;
    double dropped = 0;
    for (auto _ : state) {
        Round<Logger> round(folder);
        const auto median = MedianOfCalls(lines, pause, [&](int number) { round.logger.line(number); });
        state.SetIterationTime(median * 1e-9);
        round.drain(lines);
        dropped += round.finish(lines);
    }
    state.counters["dropped"] = dropped;
}

template <class Logger>
void Register(const std::string& who) {
    const auto add = [](const std::string& name, auto body) {
        benchmark::RegisterBenchmark(name.c_str(), body)->UseManualTime()->Iterations(1);
    };
    for (const int producers : {1, 2, 4}) {
        add(fmt::format("log/throughput/{}_producers/{}", producers, who),
            [producers](benchmark::State& state) { Throughput<Logger>(state, producers); });
    }
    add("log/call/burst/" + who,
        [](benchmark::State& state) { Producer<Logger>(state, kRoundLines, std::chrono::nanoseconds(0)); });
    add("log/call/paced/" + who,
        [](benchmark::State& state) { Producer<Logger>(state, kPacedLines, kPause); });
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    SetLogMaxSize(UINT_MAX);
    Register<Ours>("ours");
    Register<Spdlog>("spdlog");
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
