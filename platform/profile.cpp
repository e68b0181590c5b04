// The profile reader on inih: inih does the parsing (blanks trimmed, ';'
// comments); names are matched here without regard to case, and the first
// occurrence of a key wins, as the Windows reader has it.
#include "platform/profile.h"

#include <ini.h>
#include <strings.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/file_names.h"

namespace platform {

namespace {

struct Lookup {
  const char *section;
  const char *key;
  bool found = false;
  std::string value;
};

int onEntry(void *user, const char *section, const char *name, const char *value) {
  auto *lookup = static_cast<Lookup *>(user);
  if (!lookup->found && name && ::strcasecmp(section, lookup->section) == 0 &&
      ::strcasecmp(name, lookup->key) == 0) {
    lookup->found = true;
    lookup->value = value ? value : "";
  }
  return 1;
}

// The setting, when the file has it (an empty value counts as absent).
bool readSetting(const char *section, const char *key, const char *file, std::string *value) {
  if (!section || !key || !file) return false;
  Lookup lookup{section, key, false, {}};
  std::string path = ResolveFileName(file);
  if (ini_parse(path.c_str(), onEntry, &lookup) < 0) return false;
  if (!lookup.found || lookup.value.empty()) return false;
  *value = lookup.value;
  return true;
}

}  // namespace

std::uint32_t ProfileGetString(const char *section, const char *key, const char *defaultValue,
                               char *buffer, std::uint32_t size, const char *file) {
  if (!buffer || size == 0) return 0;
  try {
    std::string value;
    if (!readSetting(section, key, file, &value)) value = defaultValue ? defaultValue : "";
    std::size_t n = value.size() < size - 1 ? value.size() : size - 1;
    std::memcpy(buffer, value.data(), n);
    buffer[n] = '\0';
    return n > 0 ? 1 : 0;
  } catch (...) {
    buffer[0] = '\0';
    return 0;
  }
}

std::int32_t ProfileGetInt(const char *section, const char *key, std::int32_t defaultValue,
                           const char *file) {
  try {
    std::string value;
    if (!readSetting(section, key, file, &value)) return defaultValue;
    return static_cast<std::int32_t>(std::atoi(value.c_str()));
  } catch (...) {
    return defaultValue;
  }
}

}  // namespace platform
