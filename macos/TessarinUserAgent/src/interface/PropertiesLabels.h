#pragma once

#import "interface/FileFiltersViewController.h"
#include "useragent/FileFiltersViewController.h"

namespace useragent {

// The labels of a properties window. Main thread.
class PropertiesLabels final : public FileFiltersView {
 public:
    // Holds the controller weakly.
    explicit PropertiesLabels(::FileFiltersViewController* controller) : controller_(controller) {}

    void setTotalRiskLabel(const std::string& text) override;
    void setTotalSensetiveRiskLabel(const std::string& text) override;
    void setFileNameLabel(const std::string& text) override;
    void setServerIDLabel(const std::string& text) override;
    void setFileStateLabel(const std::string& text) override;
    void setEncryptionStatusLabel(const std::string& text) override;
    void setEncryptionPredictLabel(const std::string& text) override;
    std::string encryptionInfo() const override;
    void setEncryptionInfo(const std::string& text) override;

 private:
    __weak ::FileFiltersViewController* const controller_;
};

}  // namespace useragent
