// The lines the crash writer prints, one per event, each in one write so that
// a kill never leaves half a line behind a whole one:
//
//   ready SLOT                  tables open, about to change records
//   do N OP ARGS...             call N is about to be made
//   ack N OP ... [made=IDS]     call N returned success (outside a batch)
//   ok N OP ... [made=IDS]      call N returned success inside a batch
//   batch N begin               every data file is about to be locked
//   batch N unlock              every call of the batch succeeded; unlocking
//   ack N batch-commit COUNT    every unlock of batch N returned success
//   error N OP STATUS           call N failed; the writer stops
//   done                        the writer ran out of calls
//
// A record in ARGS is TABLE/ID/BODY/REF1/REF2/REF3/NUMBER/SORT (see
// RecordDigest), with "*" as ID when the library makes the ID.
#pragma once

#include <cinttypes>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "reliability/harness_catalogue.h"

namespace crash {

using namespace harness;

// Object IDs the writer makes carry its slot in their last two bytes, so that
// two writers on one directory each know their own records.
inline constexpr unsigned char kSlotMark = 0xC7;
inline int slotOfId(const Id &id) { return id[14] == kSlotMark && id[15] < 2 ? id[15] : -1; }

// The writer slot a record belongs to, -1 when it belongs to neither.
inline int slotOfRecord(Table table, const void *record) {
  int ref = tableInfo(table).ownerRef;
  return slotOfId(idOfRecord(static_cast<const unsigned char *>(record) + (ref >= 0 ? ref : 0)));
}

struct RecordToken {
  Table table = kTableCount;
  bool pendingId = false;  // the library makes the ID
  Id id{};
  RecordDigest digest;
};

inline std::string refText(const Id &id) { return isZero(id) ? "-" : idText(id); }

inline std::string formatRecord(Table table, const Id *id, const RecordDigest &digest) {
  char numbers[64];
  std::snprintf(numbers, sizeof numbers, "%016" PRIx64, digest.body);
  std::string text =
      std::string(tableInfo(table).name) + "/" + (id ? idText(*id) : "*") + "/" + numbers;
  for (const Id &ref : digest.refs) text += "/" + refText(ref);
  std::snprintf(numbers, sizeof numbers, "/%u/%016" PRIx64, digest.number, digest.sort);
  return text + numbers;
}

inline std::vector<std::string> splitOn(const std::string &text, char separator) {
  std::vector<std::string> parts;
  std::string part;
  std::istringstream in(text);
  while (std::getline(in, part, separator)) parts.push_back(part);
  if (!text.empty() && text.back() == separator) parts.emplace_back();
  return parts;
}

inline bool parseRecord(const std::string &text, RecordToken *token) {
  std::vector<std::string> parts = splitOn(text, '/');
  if (parts.size() != 8 || !tableByName(parts[0], &token->table)) return false;
  token->pendingId = parts[1] == "*";
  if (!token->pendingId && !parseId(parts[1], &token->id)) return false;
  try {
    token->digest.body = std::stoull(parts[2], nullptr, 16);
    for (int i = 0; i < 3; ++i) {
      token->digest.refs[i] = Id{};
      if (parts[3 + i] != "-" && !parseId(parts[3 + i], &token->digest.refs[i])) return false;
    }
    token->digest.number = static_cast<std::uint32_t>(std::stoul(parts[6]));
    token->digest.sort = std::stoull(parts[7], nullptr, 16);
  } catch (...) {
    return false;
  }
  return true;
}

// Names a call of the writer for messages: "42 delete AlertUsr_Table {...}".
struct WriterCall {
  int number = 0;
  std::string op;
  std::vector<std::string> args;
  // The IDs the library made for the records announced without one, in
  // their order, as the writer found them after the call succeeded.
  std::vector<Id> made;

  std::string describe() const {
    std::string text = std::to_string(number) + " " + op;
    for (const std::string &arg : args) text += " " + arg;
    return text;
  }
};

}  // namespace crash
