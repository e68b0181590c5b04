#include "text/severity_texts.h"

#include "text/text_cache_internal.h"

namespace {

alertdb_internal::TextCache<2500, 5> g_severityTexts;
alertdb_internal::TextCache<2520, 4> g_statusTexts;

template <class Cache>
std::uint32_t lookUp(Cache &cache, char *textBuffer, std::int32_t value, std::int32_t count,
                     HINSTANCE module) {
  if (!textBuffer) return 0xFFFF;
  if (value < 0 || value >= count) return 0;
  cache.copy(static_cast<std::uint32_t>(value), module, textBuffer);
  return 0;
}

}  // namespace

std::uint32_t GetSeverityText(char *textBuffer, std::int32_t severityValue,
                              HINSTANCE moduleHandle) {
  return lookUp(g_severityTexts, textBuffer, severityValue, 5, moduleHandle);
}

std::uint32_t GetOperationalStatusText(char *textBuffer, std::int32_t statusValue,
                                       HINSTANCE moduleHandle) {
  return lookUp(g_statusTexts, textBuffer, statusValue, 4, moduleHandle);
}
