#include "doctor/Doctor.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <future>
#include <thread>
#include <utility>

#include "common/json.h"
#include "common/threads.h"
#include "common/utf8.h"

namespace ctl {

namespace {

// What a finding says may come from others: it is one line.
std::string Line(const std::string& text) {
    return cmn::EscapeControls(text);
}

}  // namespace

const char* NameOf(Verdict verdict) {
    switch (verdict) {
        case Verdict::good:
            return "ok";
        case Verdict::notApplicable:
            return "not applicable";
        case Verdict::warning:
            return "warning";
        default:
            return "wrong";
    }
}

bool Doctor::runInTime(const std::function<void()>& task) {
    auto promise = std::make_shared<std::promise<void>>();
    const std::future<void> end = promise->get_future();
    cmn::MakeThread([&] {
        return std::thread([task, promise] {
            task();
            promise->set_value();
        });
    }).detach();
    const bool ended = end.wait_for(deadline_) == std::future_status::ready;
    leftBehind_ = leftBehind_ || !ended;
    return ended;
}

// What keeps to its deadline itself ends a moment after it.
cmn::bus::Deadline Doctor::endOfTask() const {
    return cmn::bus::Clock::now() + deadline_ * 4 / 5;
}

Examined Doctor::examine(const Check& check) {
    const auto finding = std::make_shared<Finding>();
    const bool ended = runInTime([finding, run = check.run, machine = machine_, deadline = endOfTask()] {
        try {
            *finding = run(*machine, deadline);
        } catch (const std::exception& error) {
            *finding = {Verdict::wrong, fmt::format("It could not be looked at: {}", error.what()), {}};
        }
    });
    return {&check,
            ended ? *finding
                  : Finding{Verdict::wrong, fmt::format("It gave no answer within {} ms", deadline_.count()),
                            "see whether a file system or a message bus hangs"}};
}

std::string Doctor::mend(const Finding& finding) {
    if (!finding.mend) {
        return "there is nothing that could be done without an administrator's rights";
    }
    const auto failure = std::make_shared<std::string>();
    const bool ended = runInTime([failure, mend = finding.mend, machine = machine_, deadline = endOfTask()] {
        try {
            mend(*machine, deadline);
        } catch (const std::exception& error) {
            *failure = error.what();
        }
    });
    return ended ? *failure : "it gave no answer in time";
}

bool IsHealthy(const std::vector<Examined>& examined) {
    return std::none_of(examined.begin(), examined.end(),
                        [](const Examined& one) { return one.finding.verdict == Verdict::wrong; });
}

std::string LineOf(const Examined& examined) {
    const Finding& finding = examined.finding;
    const std::string remedy = finding.remedy.empty() ? "" : ". To mend it: " + finding.remedy;
    return Line(fmt::format("{:<17}{}: {}{}", fmt::format("[{}]", NameOf(finding.verdict)),
                            examined.check->title, finding.text, remedy)) +
           "\n";
}

std::string JsonOf(const std::vector<Examined>& examined) {
    rapidjson::StringBuffer buffer;
    cmn::proto::PrettyWriter writer(buffer);
    const auto put = [&](const char* key, const std::string& text) {
        writer.Key(key);
        cmn::proto::toJson(writer, Line(text));
    };
    writer.StartObject();
    writer.Key("healthy");
    writer.Bool(IsHealthy(examined));
    writer.Key("checks");
    writer.StartArray();
    for (const Examined& one : examined) {
        writer.StartObject();
        put("id", one.check->id);
        put("title", one.check->title);
        put("verdict", NameOf(one.finding.verdict));
        put("text", one.finding.text);
        put("remedy", one.finding.remedy);
        writer.Key("canFix");
        writer.Bool(one.finding.mend != nullptr);
        writer.EndObject();
    }
    writer.EndArray();
    writer.EndObject();
    return {buffer.GetString(), buffer.GetSize()};
}

}  // namespace ctl
