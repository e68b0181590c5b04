// The string table: resources/strings.txt compiled in as bytes, parsed once on
// first use and read with LoadStringA semantics.
#include "platform/string_table.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

// Generated from resources/strings.txt at build time.
extern const unsigned char kStringTableData[];
extern const std::size_t kStringTableSize;

namespace {

struct Entry {
  std::uint32_t id;
  std::size_t offset;  // into StringTable::texts
  std::size_t length;
};

struct StringTable {
  std::string texts;           // every text, unescaped, back to back
  std::vector<Entry> entries;  // sorted by id, ids unique
};

// Undoes the file's escapes; an unknown escape is kept as written.
void AppendUnescaped(std::string_view text, std::string &out) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '\\' && i + 1 < text.size()) {
      char next = text[i + 1];
      if (next == '\\' || next == 't' || next == 'n') {
        out.push_back(next == '\\' ? '\\' : next == 't' ? '\t' : '\n');
        ++i;
        continue;
      }
    }
    out.push_back(c);
  }
}

// Reads the decimal ID in front of the TAB; false for anything else.
bool ParseId(std::string_view digits, std::uint32_t &id) {
  if (digits.empty() || digits.size() > 10) return false;
  std::uint64_t value = 0;
  for (char c : digits) {
    if (c < '0' || c > '9') return false;
    value = value * 10 + static_cast<std::uint64_t>(c - '0');
  }
  if (value > UINT32_MAX) return false;
  id = static_cast<std::uint32_t>(value);
  return true;
}

StringTable Parse(std::string_view data) {
  StringTable table;
  table.texts.reserve(data.size());
  while (!data.empty()) {
    std::size_t end = data.find('\n');
    std::string_view line = data.substr(0, end);
    data = end == std::string_view::npos ? std::string_view() : data.substr(end + 1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.empty() || line.front() == '#') continue;
    std::size_t tab = line.find('\t');
    std::uint32_t id = 0;
    if (tab == std::string_view::npos || !ParseId(line.substr(0, tab), id)) continue;
    std::size_t offset = table.texts.size();
    AppendUnescaped(line.substr(tab + 1), table.texts);
    table.entries.push_back({id, offset, table.texts.size() - offset});
  }
  // The file is kept sorted, but do not rely on it; the first text of an ID wins.
  std::stable_sort(table.entries.begin(), table.entries.end(),
                   [](const Entry &a, const Entry &b) { return a.id < b.id; });
  table.entries.erase(std::unique(table.entries.begin(), table.entries.end(),
                                  [](const Entry &a, const Entry &b) { return a.id == b.id; }),
                      table.entries.end());
  return table;
}

const StringTable &Table() {
  static const StringTable table =
      Parse(std::string_view(reinterpret_cast<const char *>(kStringTableData), kStringTableSize));
  return table;
}

// A function that only this library can see: taking the address of an exported
// one could yield the executable's PLT stub instead of our own code.
void ModuleAnchor() {}

HINSTANCE FindOwnModule() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<const void *>(&ModuleAnchor), &info) == 0) return nullptr;
  return static_cast<HINSTANCE>(info.dli_fbase);
}

}  // namespace

std::int32_t LoadStringA(HINSTANCE module, std::uint32_t id, char *buffer, std::int32_t size) {
  if (buffer == nullptr || size <= 0) return 0;
  buffer[0] = '\0';
  try {
    if (module == nullptr || module != AlertDBModuleHandle()) return 0;
    const StringTable &table = Table();
    auto it = std::lower_bound(table.entries.begin(), table.entries.end(), id,
                               [](const Entry &e, std::uint32_t key) { return e.id < key; });
    if (it == table.entries.end() || it->id != id) return 0;
    std::size_t count = std::min(it->length, static_cast<std::size_t>(size) - 1);
    std::memcpy(buffer, table.texts.data() + it->offset, count);
    buffer[count] = '\0';
    return static_cast<std::int32_t>(count);
  } catch (...) {
    // Parsing can only fail for lack of memory; the table is then retried next time.
    return 0;
  }
}

}  // namespace platform

HINSTANCE AlertDBModuleHandle(void) {
  static const HINSTANCE module = platform::FindOwnModule();
  return module;
}
