#include "common/stamps.h"

#include <fmt/chrono.h>

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <chrono>

namespace cmn {

std::string MakeUUID() {
    return boost::uuids::to_string(boost::uuids::random_generator()());
}

std::string GetTimeStamp() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

std::string GetCurrentDateTime() {
    const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    return fmt::format("{:%m-%d-%Y %H:%M:%S}", now);
}

}  // namespace cmn
