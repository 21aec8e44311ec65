// The log beside spdlog's asynchronous logger: what a call costs its thread, and how fast lines reach the
// file. Both write the same line through the macro their users write. Rounds stay below the queues' limits,
// so that no line is dropped and no producer blocked, and end only when every line is in the file; the lines
// are counted afterwards. For calls on a full queue a signal holds the thread that writes.

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <spdlog/async.h>
#include <spdlog/async_logger.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <latch>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
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
constexpr int kWaitingLines = 90'000;
constexpr int kLinesOnFull = 8'000;
constexpr int kCallsPerReading = 8;
constexpr int kFirstNumber = 10'000;  // all numbers have five digits
constexpr auto kPause = std::chrono::microseconds(50);
// By then a thread with nothing to write waits.
constexpr auto kIdle = std::chrono::milliseconds(20);
constexpr auto kDrainLimit = std::chrono::seconds(60);
constexpr auto kUrl = "https://www.example.com/section/article-with-a-usual-name?from=start";

std::set<pid_t> Threads() {
    std::set<pid_t> threads;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task"))
        threads.insert(std::stoi(thread.path().filename()));
    return threads;
}

pid_t ThreadSince(const std::set<pid_t>& before) {
    for (const auto thread : Threads()) {
        if (!before.contains(thread))
            return thread;
    }
    throw std::runtime_error("no thread that writes");
}

// Keeps a thread in a signal's handler while it lives. The thread must be idle, so that it holds no lock.
class HeldThread {
 public:
    explicit HeldThread(pid_t thread) {
        struct sigaction action {};
        action.sa_handler = [](int) {
            const int error = errno;
            char byte = 0;
            const auto told = write(ends_.at(1), &byte, 1);
            const auto released = read(ends_.at(2), &byte, 1);
            errno = told == 1 && released == 1 ? error : EIO;
        };
        action.sa_flags = SA_RESTART;
        char byte = 0;
        int pipes[4];
        if (pipe(pipes) != 0 || pipe(pipes + 2) != 0)
            throw std::runtime_error("no pipes");
        std::copy(std::begin(pipes), std::end(pipes), ends_.begin());
        if (sigaction(SIGUSR1, &action, nullptr) != 0 ||
            syscall(SYS_tgkill, getpid(), thread, SIGUSR1) != 0 || read(ends_[0], &byte, 1) != 1)
            throw std::runtime_error("the thread that writes cannot be held");
    }
    ~HeldThread() {
        // The handler's ends stay open: it is still at them.
        if (write(ends_[3], "", 1) != 1)
            std::abort();
        close(ends_[0]);
    }
    HeldThread(const HeldThread&) = delete;
    HeldThread& operator=(const HeldThread&) = delete;

 private:
    static inline std::array<int, 4> ends_{};
};

// One file of one logger. Every line of a contestant has the same length.
class Ours {
 public:
    explicit Ours(const std::filesystem::path& stem) : file_(stem.string() + "_0.log") {
        SetLogPath(stem.c_str());
    }
    // The one of the process, since it first used the log.
    static pid_t writer() { return writer_; }
    static void start() {
        const auto before = Threads();
        SetLogMaxSize(UINT_MAX);
        writer_ = ThreadSince(before);
    }
    const std::filesystem::path& file() const { return file_; }
    void line(int number) const { TLOG_INFO("URL changed -- {}, pid {}", kUrl, kFirstNumber + number); }
    void flush() const {}

 private:
    static inline pid_t writer_ = 0;
    std::filesystem::path file_;
};

class Spdlog {
 public:
    explicit Spdlog(const std::filesystem::path& stem)
        : file_(stem.string() + ".log"),
          before_(Threads()),
          pool_(std::make_shared<spdlog::details::thread_pool>(kQueueSize, 1)),
          writer_(ThreadSince(before_)),
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
    pid_t writer() const { return writer_; }

 private:
    std::filesystem::path file_;
    std::set<pid_t> before_;
    std::shared_ptr<spdlog::details::thread_pool> pool_;
    pid_t writer_;
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

constexpr double kMedian = 0.5;
constexpr double k99th = 0.99;

double At(double share, std::vector<double>& values) {
    const auto at = values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size()));
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

// How a producer calls, and which of its calls counts.
struct Calls {
    int lines;
    double share;
    int together = 1;  // in one reading of the clock, which is coarse beside a call
    std::chrono::nanoseconds pause{0};
    int waiting = 0;  // lines in the queue, whose thread does not take any
};

// The time of the call that counts, without the clock's.
template <class Call>
double TimeOf(const Calls& calls, Call&& call) {
    std::vector<double> times(static_cast<std::size_t>(calls.lines / calls.together));
    for (auto& time : times) {
        const auto begin = Clock::now();
        time = Nanoseconds(Clock::now() - begin).count();
    }
    const auto clock = At(kMedian, times);
    int number = 0;
    for (auto& time : times) {
        const auto begin = Clock::now();
        for (int i = 0; i < calls.together; ++i)
            call(number++);
        const auto end = Clock::now();
        time = (Nanoseconds(end - begin).count() - clock) / calls.together;
        while (calls.pause.count() > 0 && Clock::now() < end + calls.pause) {
        }
    }
    return At(calls.share, times);
}

template <class Logger>
void Producer(benchmark::State& state, const Calls& calls) {
    const TemporaryFolder folder;
    double dropped = 0;
    for (auto _ : state) {
        Round<Logger> round(folder);
        {
            std::optional<HeldThread> held;
            if (calls.waiting > 0) {
                std::this_thread::sleep_for(kIdle);
                held.emplace(round.logger.writer());
            }
            for (int i = 0; i < calls.waiting; ++i)
                round.logger.line(i);
            state.SetIterationTime(TimeOf(calls, [&](int number) { round.logger.line(number); }) * 1e-9);
        }
        round.drain(calls.waiting + calls.lines);
        dropped += round.finish(calls.waiting + calls.lines);
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
    const std::pair<const char*, Calls> kinds[] = {
        {"burst", {.lines = kRoundLines, .share = kMedian, .together = kCallsPerReading}},
        {"burst_99th", {.lines = kRoundLines, .share = k99th}},
        {"paced", {.lines = kPacedLines, .share = kMedian, .pause = kPause}},
        {"paced_99th", {.lines = kPacedLines, .share = k99th, .pause = kPause}},
        {"full", {.lines = kLinesOnFull, .share = kMedian, .waiting = kWaitingLines}},
        {"full_99th", {.lines = kLinesOnFull, .share = k99th, .waiting = kWaitingLines}},
    };
    for (const auto& [name, calls] : kinds) {
        add(fmt::format("log/call/{}/{}", name, who),
            [calls = calls](benchmark::State& state) { Producer<Logger>(state, calls); });
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    Ours::start();
    Register<Ours>("ours");
    Register<Spdlog>("spdlog");
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
