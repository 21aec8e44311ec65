#include "HostSettings.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "SettingsMaker.h"
#include "common/SystemUtils.h"
#include "common/proto_settings.h"

namespace host {

namespace {

cmn::proto::TSettings Load(const std::string& file) {
    if (!file.empty()) {
        return cmn::proto::LoadSettings(file);
    }
    const auto own = OwnSettingsFile();
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

}  // namespace host
