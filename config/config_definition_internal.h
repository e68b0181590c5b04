// What every small alert configuration table has in common: its group's
// query-information list, "Replication" as the last field, a change signal
// on add and update but none on delete.
#pragma once

#include <cstddef>
#include <cstdint>

#include "config/config_query_info.h"
#include "framework/alert_kind_table.h"

namespace alertdb_internal {

template <std::size_t N>
constexpr AlertKindDefinition ConfigDefinition(const char *tableName,
                                               const platform::FieldTemplate (&templates)[N],
                                               const char *const (&fieldNames)[N],
                                               std::uint32_t titleStringId,
                                               const char *defaultFileName = kConfigDataFile) {
  AlertKindDefinition definition =
      KindDefinition(tableName, templates, fieldNames, titleStringId, kConfigQueryInfo,
                     kConfigQueryInfoCount, defaultFileName, true);
  definition.deleteSignals = false;
  return definition;
}

}  // namespace alertdb_internal
