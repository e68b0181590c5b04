// The call log of the concurrency harness: each worker thread writes one line
// per library call (what it did, to which records, with which content, the
// status it got and how long it took), and the test replays the lines.
#pragma once

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "reliability/harness_catalogue.h"

namespace concurrency {

using namespace harness;
using Oid = Id;
using Hash = std::uint64_t;

// Content is logged as a hash of the record as a reader gets it back.
template <class Record>
Hash recordHash(const Record &record) {
  return XXH3_64bits(&record, sizeof record);
}

inline std::string oidText(const Oid &oid) { return idText(oid); }
inline bool parseOid(const std::string &text, Oid *oid) { return parseId(text, oid); }

inline bool parseHash(const std::string &text, Hash *hash) {
  unsigned long long value;
  if (text.size() != 16 || std::sscanf(text.c_str(), "%16llx", &value) != 1) return false;
  *hash = value;
  return true;
}

// A record as an enumeration delivered it: "<oid>:<hash>".
inline std::string seenText(const Oid &oid, Hash hash) {
  return oidText(oid) + ":" + hashText(hash);
}

inline bool parseSeen(const std::string &text, Oid *oid, Hash *hash) {
  std::size_t colon = text.find(':');
  return colon != std::string::npos && parseOid(text.substr(0, colon), oid) &&
         parseHash(text.substr(colon + 1), hash);
}

// One call: "<op> <status> <start µs> <duration µs> <arguments...>".
struct Entry {
  Entry() = default;
  explicit Entry(std::string name) : op(std::move(name)) {}

  std::string op;
  std::uint32_t status = 0;
  std::uint64_t startUs = 0;
  std::uint64_t durationUs = 0;
  std::vector<std::string> args;

  std::string format() const {
    char head[64];
    std::snprintf(head, sizeof head, " %x %llu %llu", status,
                  static_cast<unsigned long long>(startUs),
                  static_cast<unsigned long long>(durationUs));
    std::string line = op + head;
    for (const std::string &arg : args) line += " " + arg;
    return line;
  }

  static bool parse(const std::string &line, Entry *entry) {
    std::istringstream in(line);
    std::string status;
    *entry = Entry{};
    if (!(in >> entry->op >> status >> entry->startUs >> entry->durationUs)) return false;
    char *end = nullptr;
    entry->status = static_cast<std::uint32_t>(std::strtoul(status.c_str(), &end, 16));
    if (*end) return false;
    for (std::string arg; in >> arg;) entry->args.push_back(arg);
    return true;
  }
};

// Where thread `thread` of worker `worker` writes its log.
inline std::string logPath(const std::string &directory, int worker, int thread) {
  return directory + "/w" + std::to_string(worker) + "t" + std::to_string(thread) + ".log";
}

}  // namespace concurrency
