#include "HostSettings.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "common/ScopedAction.h"
#include "common/SystemUtils.h"
#include "common/fs.h"
#include "common/proto_settings.h"

namespace host {

namespace {

std::filesystem::path OwnFile() {
    return std::filesystem::path(cmn::GetSharedPath()) / "settings.json";
}

cmn::proto::TSettings Load(const std::string& file) {
    if (!file.empty()) {
        return cmn::proto::LoadSettings(file);
    }
    const auto own = OwnFile();
    std::error_code error;
    return std::filesystem::exists(own, error) ? cmn::proto::LoadSettings(own) : cmn::proto::TSettings();
}

}  // namespace

void UseSettings(const std::string& file) {
    cmn::proto::TSettings settings = Load(file);
    const std::string self = cmn::proto::GetCurrentProductNativeName();
    const bool known = std::any_of(settings.Products.begin(), settings.Products.end(),
                                   [&](const auto& product) { return product.NativeName == self; });
    if (!known) {
        cmn::proto::TSettingsProduct product;
        product.Name = self;
        product.NativeName = self;
        product.InstallPath = cmn::GetSharedPath();
        settings.Products.push_back(product);
    }
    cmn::proto::SetSettings(settings);
}

void MakeSettings(const SettingsTemplate& from, const std::string& file) {
    const std::filesystem::path path = file.empty() ? OwnFile() : std::filesystem::path(file);
    auto made = path;
    made += ".new";
    const cmn::ScopedAction removeLeftOver([&made] {
        std::error_code ignored;
        std::filesystem::remove(made, ignored);
    });
    cmn::StrToFile(cmn::FileToStr(from.file), made);
    cmn::proto::InstanceSettings(made, from.installationKey, from.scanRoot, from.deviceUuid);
    cmn::proto::LoadSettings(made);
    std::filesystem::rename(made, path);
}

}  // namespace host
