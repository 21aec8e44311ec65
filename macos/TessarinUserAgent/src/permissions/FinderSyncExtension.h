#pragma once

#include "useragent/AppMenu.h"

namespace useragent {

// The product's extension of the Finder.
class FinderSyncExtension final : public FileManagerExtension {
 public:
    bool isExtensionEnabled() override;
    bool canBeEnabled() override { return true; }
    void showExtensionManagementInterface() override;
};

}  // namespace useragent
