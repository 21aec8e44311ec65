#pragma once

#include <string_view>

namespace cmn {

// The path of a source of the common library from the project's root, whatever prefix the compiler was given.
constexpr const char* SourcePath(const char* file) {
    const auto root = std::string_view(file).rfind("common/Common/");
    return root == std::string_view::npos ? file : file + root;
}

}  // namespace cmn
