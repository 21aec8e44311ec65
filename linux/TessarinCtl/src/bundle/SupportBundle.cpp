#include "bundle/SupportBundle.h"

#include <algorithm>
#include <exception>
#include <fstream>
#include <iterator>
#include <regex>

#include "common/causes.h"
#include "common/exceptions.h"
#include "common/fs.h"
#include "common/make_error.h"

namespace ctl {

namespace {

namespace fs = std::filesystem;

bool IsLog(const fs::path& file) {
    static const std::regex name(R"(com\.tessarin\.[A-Za-z]+_[0-9]+\.log)");
    std::error_code error;
    return std::regex_match(file.filename().string(), name) &&
           fs::is_regular_file(fs::symlink_status(file, error));
}

// The end of the file from the beginning of a line on.
std::string EndOf(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        throw cmn::make_error("it cannot be opened");
    }
    const std::uintmax_t size = cmn::FileSizeNoThrow(file);
    if (size > kMostOfLog) {
        in.seekg(static_cast<std::streamoff>(size - kMostOfLog));
        std::string rest;
        std::getline(in, rest);
    }
    std::string text{std::istreambuf_iterator<char>(in), {}};
    if (in.bad()) {
        throw cmn::make_error("it cannot be read");
    }
    return text;
}

// Causes and all, in a text that has been redacted.
std::string Complaint(const std::exception& error, cmn::Redaction& redaction) {
    std::string text = redaction.text(error.what()) + "\n";
    for (const std::string& cause : cmn::CausesOf(error)) {
        text += "caused by: " + redaction.text(cause) + "\n";
    }
    return text;
}

void AddLogs(const fs::path& folder, const std::string& name, cmn::Redaction& redaction,
             std::map<std::string, std::string>& files) {
    std::vector<fs::path> logs;
    std::error_code error;
    for (fs::directory_iterator file(folder, error), end; !error && file != end; file.increment(error)) {
        if (IsLog(file->path())) {
            logs.push_back(file->path());
        }
    }
    std::sort(logs.begin(), logs.end());
    for (const fs::path& log : logs) {
        const std::string place = name + "/" + log.filename().string();
        try {
            files[place] = redaction.log(EndOf(log));
        } catch (const std::exception& failure) {
            files[place + ".error.txt"] = Complaint(failure, redaction);
        }
    }
}

}  // namespace

std::map<std::string, std::string> RedactedFiles(const BundleSources& sources) {
    cmn::Redaction redaction;
    for (const auto& [kind, text] : sources.secrets) {
        redaction.addSecret(kind, text);
    }
    for (const std::string& text : sources.kept) {
        redaction.keep(text);
    }
    std::map<std::string, std::string> files;
    // First: the others may repeat what is in them.
    try {
        files["settings.json"] = redaction.settings(cmn::FileToStr(sources.settings));
    } catch (const std::exception& error) {
        files.erase("settings.json");
        files["settings.error.txt"] = Complaint(error, redaction);
    }
    for (const auto& [name, json] : sources.reports) {
        try {
            files[name] = redaction.report(json);
        } catch (const std::exception& error) {
            files[name] = Complaint(error, redaction);
        }
    }
    for (std::size_t i = 0; i < sources.logFolders.size(); ++i) {
        AddLogs(sources.logFolders[i], "logs-" + std::to_string(i + 1), redaction, files);
    }
    return files;
}

}  // namespace ctl
