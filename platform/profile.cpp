// The profile reader on inih. inih parses (blanks around names and values
// trimmed, ';' comments); this file matches names without regard to case and
// lets the first occurrence of a key win, as the Windows reader does.
#include "platform/profile.h"

#include <ini.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "platform/file_names.h"

namespace platform {

namespace {

// Room for a full path and its key on one line; lines longer than inih's
// buffer would otherwise be split into bogus settings.
constexpr int kLongestLine = 4096;

void allowLongLines() {
  // Only ever raised, once, before our first parse.
  static const bool raised = [] {
    if (ini_max_line < kLongestLine) ini_max_line = kLongestLine;
    return true;
  }();
  (void)raised;
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return text;
}

char lowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool sameName(std::string_view a, std::string_view b) {
  a = trimmed(a);
  b = trimmed(b);
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (lowerAscii(a[i]) != lowerAscii(b[i])) return false;
  }
  return true;
}

// The file's text as inih reads it, one line per call.
struct LineSource {
  const char *next;
  const char *end;
};

char *readLine(char *line, int size, void *stream) {
  auto *source = static_cast<LineSource *>(stream);
  if (source->next >= source->end || size < 2) return nullptr;
  const char *start = source->next;
  const void *newline = std::memchr(start, '\n', static_cast<std::size_t>(source->end - start));
  const char *stop = newline ? static_cast<const char *>(newline) + 1 : source->end;
  source->next = stop;
  // Windows ignores indentation; inih would take an indented line for the
  // continuation of the value above it.
  while (start < stop && *start != '\n' && std::isspace(static_cast<unsigned char>(*start))) {
    ++start;
  }
  std::size_t length = static_cast<std::size_t>(stop - start);
  if (length >= static_cast<std::size_t>(size)) {
    // A cut line would turn its tail into a setting of its own: skip it.
    start = "\n";
    length = 1;
  }
  std::memcpy(line, start, length);
  line[length] = '\0';
  return line;
}

struct Lookup {
  std::string_view section;
  std::string_view key;
  bool found = false;
  std::string value;
};

int onEntry(void *user, const char *section, const char *name, const char *value) {
  auto *lookup = static_cast<Lookup *>(user);
  if (!lookup->found && section && name && sameName(section, lookup->section) &&
      sameName(name, lookup->key)) {
    lookup->found = true;
    lookup->value = value ? value : "";
  }
  return 1;
}

bool readFile(const std::string &path, std::string *text) {
  std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::fopen(path.c_str(), "rb"),
                                                        std::fclose);
  if (!file) return false;
  char chunk[8192];
  std::size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, file.get())) > 0) text->append(chunk, n);
  return !std::ferror(file.get());
}

// The setting as the file has it (quotes around it removed, as Windows does);
// false when the file, the section or the key is missing.
bool readSetting(const char *section, const char *key, const char *file, std::string *value) {
  if (!section || !key || !file || !*file) return false;
  std::string text;
  if (!readFile(ResolveFileName(file), &text)) return false;
  std::string_view body = text;
  if (body.substr(0, 3) == "\xEF\xBB\xBF") body.remove_prefix(3);

  allowLongLines();
  Lookup lookup{section, key, false, {}};
  LineSource source{body.data(), body.data() + body.size()};
  if (ini_parse_stream(readLine, &source, onEntry, &lookup) < 0 || !lookup.found) return false;
  std::string &setting = lookup.value;
  if (setting.size() >= 2 && (setting[0] == '"' || setting[0] == '\'') &&
      setting.back() == setting[0]) {
    setting = setting.substr(1, setting.size() - 2);
  }
  *value = std::move(setting);
  return true;
}

// atoi's reading (leading blanks, optional sign, digits), held to 32 bits.
std::int32_t parseNumber(const std::string &text) {
  std::size_t i = 0;
  while (i < text.size() && isBlank(text[i])) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  constexpr long long kLimit = 1LL << 31;
  long long magnitude = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    magnitude = std::min(magnitude * 10 + (text[i] - '0'), kLimit);
  }
  const long long number = negative ? -magnitude : std::min(magnitude, kLimit - 1);
  return static_cast<std::int32_t>(number);
}

}  // namespace

std::uint32_t ProfileGetString(const char *section, const char *key, const char *defaultValue,
                               char *buffer, std::uint32_t size, const char *file) {
  if (!buffer || size == 0) return 0;
  try {
    std::string value;
    if (!readSetting(section, key, file, &value)) value = defaultValue ? defaultValue : "";
    const std::size_t n = value.size() < size - 1 ? value.size() : size - 1;
    std::memcpy(buffer, value.data(), n);
    buffer[n] = '\0';
    return static_cast<std::uint32_t>(n);
  } catch (...) {
    buffer[0] = '\0';
    return 0;
  }
}

std::int32_t ProfileGetInt(const char *section, const char *key, std::int32_t defaultValue,
                           const char *file) {
  try {
    std::string value;
    if (!readSetting(section, key, file, &value) || value.empty()) return defaultValue;
    return parseNumber(value);
  } catch (...) {
    return defaultValue;
  }
}

}  // namespace platform
