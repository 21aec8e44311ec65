#include "RecordsFile.h"

#include <utility>

#include "JsonFile.h"

namespace host {

namespace {

std::string NumberText(const rapidjson::Value& value) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    return {buffer.GetString(), buffer.GetSize()};
}

std::string ValueText(const rapidjson::Value& value) {
    if (value.IsString()) {
        return {value.GetString(), value.GetStringLength()};
    }
    if (value.IsBool()) {
        return value.GetBool() ? "1" : "0";
    }
    if (!value.IsNumber()) {
        throw_with_trace(std::runtime_error("must be a text, a number, true or false"));
    }
    return NumberText(value);
}

cmn::ScanRecord ReadRecord(const rapidjson::Value& value) {
    cmn::ScanRecord record;
    ForEachMember(value, [&](const std::string& name, const rapidjson::Value& member) {
        record.emplace(name, ValueText(member));
    });
    return record;
}

}  // namespace

FixedRecords LoadRecords(const std::filesystem::path& file) {
    FixedRecords records;
    ReadJsonFile(file, [&](const rapidjson::Value& root) {
        ForEachMember(root, [&](const std::string& path, const rapidjson::Value& list) {
            auto& ofPath = records[path];
            ForEachElement(list, [&](std::size_t number, const rapidjson::Value& element) {
                InContext("record " + std::to_string(number), [&] { ofPath.push_back(ReadRecord(element)); });
            });
        });
    });
    return records;
}

}  // namespace host
