#include "BusClient.h"

#include <algorithm>
#include <chrono>
#include <iterator>

#include "common/utf8.h"

namespace ctl {

namespace bus = cmn::bus;

std::string Described(const bus::Error& error) {
    if (error.is(bus::error::kTimeout)) {
        return "does not answer";
    }
    for (const char* const absent :
         {bus::error::kServiceUnknown, bus::error::kNameHasNoOwner, bus::error::kNoReply}) {
        if (error.is(absent)) {
            return "is not there";
        }
    }
    return (error.is(bus::error::kAccessDenied) ? "refuses: " : "answers with an error: ") +
           cmn::EscapeControls(error.message);
}

BusClient::BusClient(const std::string& address, bus::Deadline deadline)
    : loop_(std::make_shared<bus::Loop>()) {
    const auto addresses = std::ssize(bus::LocalAddresses(address));
    if (addresses == 0) {
        failure_ = "there is no address of such a bus";
        return;
    }
    bus::Options options{.address = address};
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - bus::Clock::now());
    options.connectDeadline = std::max(left / addresses, std::chrono::milliseconds(1));
    const auto opened = bus::Connection::openAndWait(loop_, options);
    if (opened) {
        connection_ = *opened;
    } else {
        failure_ = opened.error().message;
    }
}

BusClient::~BusClient() {
    connection_.reset();
    loop_->stop();
}

bus::Result<std::optional<std::string>> BusClient::owner(const std::string& name, bus::Deadline deadline) {
    const auto answer = ask<std::string>(bus::kBusName, bus::kBusPath, bus::kBusName, "GetNameOwner",
                                         deadline, bus::kUsuallyRead, name);
    if (answer) {
        return std::optional(*answer);
    }
    if (answer.error().is(bus::error::kNameHasNoOwner)) {
        return std::optional<std::string>();
    }
    return answer.error();
}

}  // namespace ctl
