#import "interface/PropertiesLabels.h"

#import "common_mac/FoundationBridges.h"

namespace useragent {

namespace {

void SetText(NSTextField* label, const std::string& text) {
    NSString* const string = [NSString stringWithStdString:text];
    label.stringValue = string != nil ? string : @"";
}

// A text that may be too long for its place, and is whole in its tooltip.
void SetLongText(NSTextField* label, const std::string& text) {
    SetText(label, text);
    label.toolTip = label.stringValue;
}

}  // namespace

void PropertiesLabels::setTotalRiskLabel(const std::string& text) {
    SetLongText(controller_.totalRiskLabel, text);
}

void PropertiesLabels::setTotalSensetiveRiskLabel(const std::string& text) {
    SetLongText(controller_.totalSensetiveRiskLabel, text);
}

void PropertiesLabels::setFileNameLabel(const std::string& text) {
    SetLongText(controller_.fileNameLabel, text);
}

void PropertiesLabels::setServerIDLabel(const std::string& text) {
    SetLongText(controller_.serverIDLabel, text);
}

void PropertiesLabels::setFileStateLabel(const std::string& text) {
    SetText(controller_.fileStateLabel, text);
}

void PropertiesLabels::setEncryptionStatusLabel(const std::string& text) {
    SetText(controller_.encryptionStatusLabel, text);
}

void PropertiesLabels::setEncryptionPredictLabel(const std::string& text) {
    SetText(controller_.encryptionPredictLabel, text);
}

std::string PropertiesLabels::encryptionInfo() const {
    return cmn::ToStdString(controller_.encryptionInfo.stringValue);
}

void PropertiesLabels::setEncryptionInfo(const std::string& text) {
    SetText(controller_.encryptionInfo, text);
}

}  // namespace useragent
