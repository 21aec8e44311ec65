#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

#include "common/make_error.h"
#include "common/rapidjson.h"

// Strict reading of JSON files that are written by hand: nothing is taken for something else, and an error
// says where it is. All functions throw std::runtime_error.
namespace host {

// Puts "context: " before the texts of errors in `body`.
template <class Body>
void InContext(const std::string& context, const Body& body) {
    try {
        body();
    } catch (const std::runtime_error& e) {
        throw_with_trace(cmn::make_error(context, ": ", e.what()));
    }
}

// Errors, also those of `read`, become "Cannot use PATH -- ...".
void ReadJsonFile(const std::filesystem::path& path,
                  const std::function<void(const rapidjson::Value& root)>& read);

// `value` must be an object without equal names. Errors of `read` name the member.
void ForEachMember(const rapidjson::Value& value,
                   const std::function<void(const std::string& name, const rapidjson::Value& member)>& read);

// `value` must be a list. `number` counts from 1.
void ForEachElement(const rapidjson::Value& value,
                    const std::function<void(std::size_t number, const rapidjson::Value& element)>& read);

}  // namespace host
