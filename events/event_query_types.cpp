#include "events/event_query_types_internal.h"
#include "platform/memory_blocks.h"
#include "platform/store/record_store.h"
#include "platform/string_table.h"

namespace alertdb_internal {

namespace {

// A query type whose values 0..count-1 are named by strings firstId on.
bool registerScale(KEPDB *handle, const char *name, std::uint32_t firstId, std::uint32_t count) {
  static const std::uint32_t values[] = {0, 1, 2, 3, 4};
  void *block = nullptr;
  std::uint32_t aux = 0;
  if ((platform::SchmLoadStrings(AlertDBModuleHandle(), &block, &aux, nullptr, firstId, count) &
       0xFFFF) != 0) {
    return false;
  }
  bool ok = (platform::SchmAddQueryInfo(handle, name, 97, count, values, aux, block) & 0xFFFF) == 0;
  platform::MemFree(block);
  return ok;
}

bool registerPlain(KEPDB *handle, const char *name, std::uint32_t mask) {
  return (platform::SchmAddQueryInfo(handle, name, mask, 0, nullptr, 0, nullptr) & 0xFFFF) == 0;
}

}  // namespace

void RegisterEventQueryTypes(KEPDB *handle, bool withOperationalStatus) {
  if (!registerScale(handle, "QInfo_Svrty", 2500, 5)) return;
  if (!registerScale(handle, "QInfo_SClr", 2530, 4)) return;
  if (withOperationalStatus && !registerScale(handle, "QInfo_OpStt", 2520, 4)) return;
  if (!registerPlain(handle, "QInfo_Str", 127)) return;
  if (!registerPlain(handle, "QInfo_Num", 63)) return;
  registerPlain(handle, "QInfo_None", 0);
}

}  // namespace alertdb_internal
