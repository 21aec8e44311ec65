#include <malloc.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QSocketNotifier>
#include <array>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "CommandReader.h"
#include "EventWriter.h"
#include "HostOptions.h"
#include "HostSettings.h"
#include "ServiceHost.h"
#include "common/causes.h"
#include "common/log.h"
#include "common/log_place.h"

namespace {

// From here on the signals are read from the returned descriptor. Before any thread starts: threads inherit
// this.
int BlockEndSignals() {
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    std::signal(SIGPIPE, SIG_IGN);  // a reader of the events that goes away does not end the host
    return signalfd(-1, &ends, SFD_CLOEXEC | SFD_NONBLOCK);
}

// A message of many MiB goes back to the system as soon as it was refused: without this the allocator takes
// it for the usual size and keeps as much for the next one.
void KeepNoLargeMessages() {
    constexpr int kLargestKept = 256 * 1024;
    ::mallopt(M_MMAP_THRESHOLD, kLargestKept);
}

// Without a file that can be written the log goes to the error stream.
void UseLogFile(const std::string& stem) {
    const std::string file = stem + "_0.log";
    SetLogPath(stem.c_str());
    if (!stem.empty() && std::ofstream(file, std::ios::app)) {
        return;
    }
    SetLogFileExtension(cmn::kNoLogFile);
    if (!stem.empty()) {
        TLOG_WARN("The log cannot be written to {}, so it goes to the standard error stream", file);
    }
}

int Run(QCoreApplication& application, const host::HostOptions& options, int signalDescriptor) {
    host::EventWriter events(stdout, options.json);
    host::ServiceHost services(options, events, [](int status) { QCoreApplication::exit(status); });

    QSocketNotifier signalNotifier(signalDescriptor, QSocketNotifier::Read);
    QObject::connect(&signalNotifier, &QSocketNotifier::activated, [] { QCoreApplication::exit(0); });

    host::CommandReader commands([&services](const std::string& line) { services.execute(line); });
    QSocketNotifier inputNotifier(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&inputNotifier, &QSocketNotifier::activated, [&] {
        std::array<char, 4096> buffer{};
        const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
        if (count > 0) {
            commands.feed({buffer.data(), static_cast<std::size_t>(count)});
        } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
            inputNotifier.setEnabled(false);
            commands.finish();
        }
    });

    services.start();
    return application.exec();
}

}  // namespace

int main(int argc, char** argv) {
    const auto parsed = host::ParseOptions(std::vector<std::string>(argv + 1, argv + argc));
    if (std::holds_alternative<host::HelpWanted>(parsed)) {
        std::fputs(host::HelpText(), stdout);
        return 0;
    }
    if (const auto* bad = std::get_if<host::BadArguments>(&parsed)) {
        std::fprintf(stderr, "TessarinServiceHost: %s; see --help\n", bad->message.c_str());
        return 2;
    }
    const auto& options = std::get<host::HostOptions>(parsed);
    InstallLogCrashHandlers();
    SetLogJournal(true);
    KeepNoLargeMessages();
    const int signalDescriptor = BlockEndSignals();
    SetLogLevel(options.logLevel);
    UseLogFile(options.logFile);
    QCoreApplication application(argc, argv);
    try {
        if (options.makeSettings) {
            host::MakeSettings(*options.makeSettings, options.settingsFile.empty()
                                                          ? host::OwnSettingsFile()
                                                          : std::filesystem::path(options.settingsFile));
            return 0;
        }
        return Run(application, options, signalDescriptor);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "TessarinServiceHost: %s\n", e.what());
        for (const std::string& cause : cmn::CausesOf(e)) {
            std::fprintf(stderr, "caused by: %s\n", cause.c_str());
        }
        return 2;
    }
}
