#include "tools/field_values.h"

#include <fmt/format.h>
#include <strings.h>

#include <cstring>

#include "platform/guid.h"
#include "text/password_protection.h"

namespace alertdb_tool {

namespace {

// Field flags as the tables hand them to the record store: the identifier
// flag marks object IDs, the low bits 0x1 texts and 0xC time stamps.
constexpr std::uint32_t kIdentifierFlag = 0x10;
constexpr std::uint32_t kLowFlagBits = 0xF;
constexpr std::uint32_t kTextFlags = 0x1;
constexpr std::uint32_t kTimeStampFlags = 0xC;
constexpr std::size_t kObjectIdSize = 16;
constexpr std::size_t kTimeStampSize = 8;
// Service passwords are 49-byte blocks named "Password" (the SNMP table
// stores its default message under that name, in a wider field).
constexpr std::size_t kPasswordSize = 49;
// The one signed number of the tables: the event log's product error code.
constexpr const char *kSignedNumberName = "ErrorCode";

std::uint64_t unsignedValue(const unsigned char *bytes, std::size_t size) {
  std::uint64_t value = 0;
  for (std::size_t i = size; i-- > 0;) value = (value << 8) | bytes[i];
  return value;
}

std::string hexText(const unsigned char *bytes, std::size_t size) {
  while (size > 0 && bytes[size - 1] == 0) --size;
  std::string text;
  text.reserve(size * 2);
  for (std::size_t i = 0; i < size; ++i) text += fmt::format("{:02x}", bytes[i]);
  return text;
}

std::string textUpToTerminator(const char *text, std::size_t size) {
  return std::string(text, strnlen(text, size));
}

// Years since 1900, month, day, hour, minute, second, hundredths, unused.
nlohmann::ordered_json timeStampValue(const unsigned char *t) {
  bool allZero = true;
  for (std::size_t i = 0; i < kTimeStampSize; ++i) allZero = allZero && t[i] == 0;
  if (allZero) return nullptr;
  bool valid = t[1] >= 1 && t[1] <= 12 && t[2] >= 1 && t[2] <= 31 && t[3] < 24 && t[4] < 60 &&
               t[5] < 60 && t[6] < 100;
  // A stamp no clock wrote is shown as it is stored.
  if (!valid) return hexText(t, kTimeStampSize);
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:02}", 1900 + t[0], t[1], t[2], t[3],
                     t[4], t[5], t[6]);
}

}  // namespace

FieldKind fieldKind(const platform::StoreFieldInfo &field) {
  const std::uint32_t low = field.flags & kLowFlagBits;
  if (field.size == kObjectIdSize && (field.flags & kIdentifierFlag) != 0) {
    return FieldKind::ObjectId;
  }
  if (low == kTextFlags) {
    if (field.size == kPasswordSize && strcasecmp(field.name.c_str(), "Password") == 0) {
      return FieldKind::Password;
    }
    return FieldKind::Text;
  }
  if (field.size == kTimeStampSize && low == kTimeStampFlags) return FieldKind::TimeStamp;
  if (field.size == 1 || field.size == 2 || field.size == 4) {
    return field.name == kSignedNumberName && field.size == 4 ? FieldKind::SignedNumber
                                                              : FieldKind::Number;
  }
  return FieldKind::Binary;
}

const char *fieldKindName(FieldKind kind) {
  switch (kind) {
    case FieldKind::Number:
    case FieldKind::SignedNumber:
      return "number";
    case FieldKind::ObjectId:
      return "object ID";
    case FieldKind::Text:
      return "text";
    case FieldKind::TimeStamp:
      return "time stamp";
    case FieldKind::Binary:
      return "binary";
    case FieldKind::Password:
      return "password";
  }
  return "binary";
}

nlohmann::ordered_json fieldValue(FieldKind kind, const unsigned char *bytes, std::size_t size,
                                  bool showSecrets) {
  switch (kind) {
    case FieldKind::Number:
      return unsignedValue(bytes, size);
    case FieldKind::SignedNumber: {
      std::int32_t value;
      std::memcpy(&value, bytes, sizeof value);
      return value;
    }
    case FieldKind::ObjectId: {
      _GUID id;
      std::memcpy(&id, bytes, sizeof id);
      return platform::GuidToString(id);
    }
    case FieldKind::Text:
      return textUpToTerminator(reinterpret_cast<const char *>(bytes), size);
    case FieldKind::TimeStamp:
      return timeStampValue(bytes);
    case FieldKind::Password: {
      if (!showSecrets) return "***";
      if (size != kPasswordSize) break;
      // Stored protected; the clear form is what the table classes return.
      char clear[kPasswordSize];
      DecryptPassword(reinterpret_cast<const char *>(bytes), clear);
      return textUpToTerminator(clear, sizeof clear);
    }
    case FieldKind::Binary:
      break;
  }
  return hexText(bytes, size);
}

std::string shownText(const nlohmann::ordered_json &value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_null()) return "";
  return value.dump();
}

bool valueMatches(FieldKind kind, const nlohmann::ordered_json &value, const std::string &wanted) {
  if (kind == FieldKind::ObjectId) {
    _GUID want, have;
    return platform::GuidFromString(wanted.c_str(), &want) &&
           platform::GuidFromString(shownText(value).c_str(), &have) &&
           std::memcmp(&want, &have, sizeof want) == 0;
  }
  return shownText(value) == wanted;
}

}  // namespace alertdb_tool
