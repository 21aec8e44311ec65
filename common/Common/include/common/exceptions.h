#pragma once

#include <boost/exception/all.hpp>
#include <boost/stacktrace.hpp>
#include <stdexcept>
#include <string>

#include "common/SourcePath.h"

// The call stack at the throw. boost::diagnostic_information prints it.
using tag_stacktrace = boost::error_info<struct tag_stacktrace_, boost::stacktrace::stacktrace>;
// The JSON text a JsonException is about.
using tag_json_data = boost::error_info<struct tag_json_data_, std::string>;

// Throws a copy of `e` that is a boost::exception as well and carries the call stack and this place as its
// location.
template <class E>
[[noreturn]] void throw_with_trace(const E& e) {
    boost::throw_exception(
        boost::enable_error_info(e) << tag_stacktrace(boost::stacktrace::stacktrace()),
        boost::source_location(cmn::SourcePath(__FILE__), __LINE__, BOOST_CURRENT_FUNCTION));
}

// Malformed JSON text or JSON of an unexpected shape.
class JsonException : public std::runtime_error, public boost::exception {
 public:
    JsonException(const std::string& message, const std::string& json) : std::runtime_error(message) {
        *this << tag_json_data(json);
    }
};
