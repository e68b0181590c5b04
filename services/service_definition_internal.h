// What every service-specific table of "AlServdb.dat" has in common: the
// file, its query-information list, "Replication" as the last field, and a
// change signal on every add.
#pragma once

#include <cstddef>
#include <cstdint>

#include "framework/alert_kind_table.h"
#include "services/service_query_info.h"

namespace alertdb_internal {

template <std::size_t N>
constexpr AlertKindDefinition ServiceDefinition(const char *tableName,
                                                const platform::FieldTemplate (&templates)[N],
                                                const char *const (&fieldNames)[N],
                                                std::uint32_t titleStringId,
                                                const std::uint32_t *recordOffsets = nullptr) {
  return KindDefinition(tableName, templates, fieldNames, titleStringId, kServiceQueryInfo,
                        kServiceQueryInfoCount, kServiceDataFile, true, recordOffsets);
}

}  // namespace alertdb_internal
