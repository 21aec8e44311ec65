#pragma once

// The only way to RapidJSON in this project: its assertions must be the same in every translation unit.

#include "common/exceptions.h"

#if defined(RAPIDJSON_ASSERT) || defined(RAPIDJSON_RAPIDJSON_H_)
#error "include common/rapidjson.h before any header of RapidJSON"
#endif

namespace cmn::detail {
[[noreturn]] void ThrowJsonAssertion(const char* condition);
}

// A failed assertion is an exception, never the end of the process.
#define RAPIDJSON_ASSERT(condition) \
    ((condition) ? static_cast<void>(0) : ::cmn::detail::ThrowJsonAssertion(#condition))
#define RAPIDJSON_ASSERT_THROWS 1
#define RAPIDJSON_NOEXCEPT_ASSERT(condition) static_cast<void>(condition)

#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
