#include "SettingsMaker.h"

#include <stdexcept>
#include <string_view>
#include <system_error>

#include "common/ScopedAction.h"
#include "common/SystemUtils.h"
#include "common/fs.h"
#include "common/make_error.h"
#include "common/proto_settings.h"
#include "common/rapidjson.h"

namespace host {

namespace fs = std::filesystem;

namespace {

// Puts a new file, which `make` writes and checks, into the place of another.
template <typename Make>
void ReplaceFile(const fs::path& file, Make make) {
    auto made = file;
    made += ".new";
    const cmn::ScopedAction removeLeftOver([&made] {
        std::error_code ignored;
        fs::remove(made, ignored);
    });
    make(made);
    cmn::proto::LoadSettings(made);
    fs::rename(made, file);
}

bool HasText(const rapidjson::Value& object, const char* key, std::string_view text) {
    const auto member = object.FindMember(key);
    return member != object.MemberEnd() && member->value.IsString() && member->value.GetString() == text;
}

// Whether something changed.
bool SetVersion(rapidjson::Document& settings, const std::string& product, const std::string& version) {
    if (!settings.HasMember("Products")) {
        return false;
    }
    for (rapidjson::Value& entry : settings["Products"].GetArray()) {
        if (!HasText(entry, "Name", product) || HasText(entry, "Version", version)) {
            continue;
        }
        entry.RemoveMember("Version");
        entry.AddMember("Version", rapidjson::Value(version.c_str(), settings.GetAllocator()),
                        settings.GetAllocator());
        return true;
    }
    return false;
}

}  // namespace

fs::path OwnSettingsFile() {
    return fs::path(cmn::GetSharedPath()) / "settings.json";
}

void MakeSettings(const SettingsTemplate& from, const fs::path& file) {
    ReplaceFile(file, [&from](const fs::path& made) {
        cmn::StrToFile(cmn::FileToStr(from.file), made);
        cmn::proto::InstanceSettings(made, from.installationKey, from.scanRoot, from.deviceUuid);
    });
}

bool SetInstalledVersion(const fs::path& file, const std::string& product, const std::string& version) {
    cmn::proto::LoadSettings(file);
    rapidjson::Document settings;
    const std::string text = cmn::FileToStr(file);
    if (settings.Parse(text.data(), text.size()).HasParseError() || !settings.IsObject()) {
        throw cmn::make_error(file.string(), " holds no settings");
    }
    if (!SetVersion(settings, product, version)) {
        return false;
    }
    rapidjson::StringBuffer buffer;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
    settings.Accept(writer);
    const auto rights = fs::status(file).permissions();
    ReplaceFile(file, [&](const fs::path& made) {
        cmn::StrToFile(std::string(buffer.GetString(), buffer.GetSize()) + "\n", made);
        fs::permissions(made, rights);
    });
    return true;
}

}  // namespace host
