// What kind of value a stored field holds, told from what the catalog keeps
// about it, and how the tool shows such a value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "platform/store/record_store.h"

namespace alertdb_tool {

enum class FieldKind { Number, SignedNumber, ObjectId, Text, TimeStamp, Binary, Password };

FieldKind fieldKind(const platform::StoreFieldInfo &field);
// "number", "object ID", "text", "time stamp", "binary", "password".
const char *fieldKindName(FieldKind kind);

// The value of a field's stored bytes as the tool shows it: numbers as
// numbers, object IDs as {GUID}, texts up to their terminator, time stamps as
// ISO 8601 (null when all zero), binary fields as hex without their trailing
// zero bytes, passwords as "***" unless `showSecrets`.
nlohmann::ordered_json fieldValue(FieldKind kind, const unsigned char *bytes, std::size_t size,
                                  bool showSecrets);

// The text a shown value reads as in a table or CSV cell, which is what
// --where compares against.
std::string shownText(const nlohmann::ordered_json &value);

// Whether `wanted`, as a user typed it, names the shown value. Object IDs are
// compared without regard to letter case or braces.
bool valueMatches(FieldKind kind, const nlohmann::ordered_json &value, const std::string &wanted);

}  // namespace alertdb_tool
