#include "JsonFile.h"

#include <set>
#include <utility>

#include "common/fs.h"
#include "common/json.h"
#include "common/utf8.h"

namespace host {

void ReadJsonFile(const std::filesystem::path& path,
                  const std::function<void(const rapidjson::Value&)>& read) {
    try {
        std::string text = cmn::FileToStr(path);
        if (!cmn::IsValidUtf8(text)) {
            throw_with_trace(std::runtime_error("is no UTF-8 text"));
        }
        const cmn::proto::detail::ParsedText parsed(std::move(text));
        read(parsed.root());
    } catch (const std::runtime_error& e) {
        throw_with_trace(cmn::make_error("Cannot use ", path.string(), " -- ", e.what()));
    }
}

void ForEachMember(const rapidjson::Value& value,
                   const std::function<void(const std::string&, const rapidjson::Value&)>& read) {
    if (!value.IsObject()) {
        throw_with_trace(std::runtime_error("must be an object"));
    }
    std::set<std::string> names;
    for (const auto& member : value.GetObject()) {
        const std::string name(member.name.GetString(), member.name.GetStringLength());
        InContext("\"" + name + "\"", [&] {
            if (!names.insert(name).second) {
                throw_with_trace(std::runtime_error("stands twice"));
            }
            read(name, member.value);
        });
    }
}

void ForEachElement(const rapidjson::Value& value,
                    const std::function<void(std::size_t, const rapidjson::Value&)>& read) {
    if (!value.IsArray()) {
        throw_with_trace(std::runtime_error("must be a list"));
    }
    std::size_t number = 0;
    for (const auto& element : value.GetArray()) {
        read(++number, element);
    }
}

}  // namespace host
