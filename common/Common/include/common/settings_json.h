#pragma once

#include "common/json.h"
#include "common/proto_settings.h"

namespace cmn::proto {

// Absent members leave the record's fields as they are; unknown ones are passed over.
void fromJson(const rapidjson::Value& value, TSettingsProduct& product);
void fromJson(const rapidjson::Value& value, TSettings& settings);

void toJson(PrettyWriter& writer, const TSettingsProduct& product);
void toJson(PrettyWriter& writer, const TSettings& settings);

}  // namespace cmn::proto
