// What the damaged-file harness and its reader program share: how a record
// read is told apart (its object ID and a hash of its bytes), each table's
// layout, and the reference: every version of every record that the intact
// files held at any commit, as the record store and as the table classes
// give it. A damaged file may give back any of these, or nothing.
#pragma once

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "reliability/harness_tables.h"

namespace alertdb_test::damage {

inline std::uint64_t bytesHash(const void *data, std::size_t size) {
  return XXH3_64bits(data, size);
}

using harness::hashText;
using harness::hexOf;

// A data file with its log, as bytes.
struct FilePair {
  std::string file;
  std::optional<std::string> log;  // no -wal file when empty

  static bool readBytes(const std::string &path, std::string *bytes) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    bytes->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return true;
  }
  static void writeBytes(const std::string &path, const std::string &bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
  }
  static FilePair read(const std::string &path) {
    FilePair pair;
    std::string log;
    readBytes(path, &pair.file);
    if (readBytes(path + "-wal", &log)) pair.log = log;
    return pair;
  }
  // Puts exactly these bytes at `path`: its log too, or none, and no
  // shared memory left from before.
  void write(const std::string &path) const {
    std::filesystem::remove(path + "-shm");
    writeBytes(path, file);
    if (log) {
      writeBytes(path + "-wal", *log);
    } else {
      std::filesystem::remove(path + "-wal");
    }
  }
  // The same bytes, a log that is not there counting as empty.
  bool sameBytes(const FilePair &other) const {
    return file == other.file && log.value_or("") == other.log.value_or("");
  }
};

struct FieldLayout {
  std::uint32_t key = 0;
  std::uint32_t attribute = 0;
  std::uint32_t size = 0;
  std::uint32_t flags = 0;
};

// A table as its catalog describes it; the record store's image of a record
// is its fields back to back in this order.
struct TableLayout {
  std::string name;
  std::uint32_t idKey = 0;
  std::vector<FieldLayout> fields;

  std::size_t imageSize() const {
    std::size_t size = 0;
    for (const FieldLayout &f : fields) size += f.size;
    return size;
  }
  // Where the object-ID field lies in the image (the start, when the
  // catalog names none).
  std::size_t idOffset() const {
    std::size_t at = 0;
    for (const FieldLayout &f : fields) {
      if (f.key == idKey && f.size == 16) return at;
      at += f.size;
    }
    return 0;
  }
  // Each key number once, in field order.
  std::vector<std::uint32_t> keys() const {
    std::vector<std::uint32_t> out;
    for (const FieldLayout &f : fields) {
      bool seen = false;
      for (std::uint32_t k : out) seen = seen || k == f.key;
      if (f.key != 0 && !seen) out.push_back(f.key);
    }
    return out;
  }

  // "layout NAME IDKEY key:attribute:size:flags ..."
  std::string line() const {
    std::string out = "layout " + name + " " + std::to_string(idKey);
    for (const FieldLayout &f : fields) {
      out += " " + std::to_string(f.key) + ":" + std::to_string(f.attribute) + ":" +
             std::to_string(f.size) + ":" + std::to_string(f.flags);
    }
    return out;
  }
  static bool parse(const std::string &line, TableLayout *layout) {
    std::istringstream in(line);
    std::string word;
    if (!(in >> word) || word != "layout" || !(in >> layout->name >> layout->idKey)) return false;
    layout->fields.clear();
    while (in >> word) {
      FieldLayout f;
      if (std::sscanf(word.c_str(), "%u:%u:%u:%u", &f.key, &f.attribute, &f.size, &f.flags) != 4) {
        return false;
      }
      layout->fields.push_back(f);
    }
    return !layout->fields.empty();
  }
};

// The versions of the records of one table as one view gives them.
struct Versions {
  std::map<std::uint64_t, std::set<std::string>> idsByHash;
  std::set<std::string> ids;

  void add(const std::string &id, std::uint64_t hash) {
    idsByHash[hash].insert(id);
    ids.insert(id);
  }
  // Some record of the table, at some commit, had exactly these bytes.
  bool holds(std::uint64_t hash) const { return idsByHash.count(hash) != 0; }
  // The record of this ID, at some commit, had exactly these bytes.
  bool holds(const std::string &id, std::uint64_t hash) const {
    auto found = idsByHash.find(hash);
    return found != idsByHash.end() && found->second.count(id) != 0;
  }
};

// Lines of the reader's dump: "layout ...", "store TABLE ID HASH" and
// "class TABLE ID HASH" (ID in hex, HASH as hashText).
struct Reference {
  std::map<std::string, TableLayout> layouts;
  std::map<std::string, Versions> store;
  std::map<std::string, Versions> classes;

  void addLine(const std::string &line) {
    std::istringstream in(line);
    std::string kind, table, id, hash;
    in >> kind;
    if (kind == "layout") {
      TableLayout layout;
      if (TableLayout::parse(line, &layout) && !layouts.count(layout.name)) {
        layouts[layout.name] = layout;
      }
    } else if ((kind == "store" || kind == "class") && (in >> table >> id >> hash)) {
      (kind == "store" ? store : classes)[table].add(id, std::stoull(hash, nullptr, 16));
    }
  }
  void addText(const std::string &text) {
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) addLine(line);
  }
  static bool load(const std::string &path, Reference *reference) {
    std::ifstream in(path);
    if (!in) return false;
    std::string line;
    while (std::getline(in, line)) reference->addLine(line);
    return !reference->layouts.empty();
  }
};

// One number for what a file holds: the hashes of every table's records, in
// order. Two reads of the same committed state give the same number.
inline std::uint64_t stateDigest(const std::map<std::string, std::vector<std::uint64_t>> &tables) {
  std::string all;
  for (const auto &[name, hashes] : tables) {
    std::vector<std::uint64_t> sorted = hashes;
    std::sort(sorted.begin(), sorted.end());
    all += name + "\n";
    for (std::uint64_t h : sorted) all += hashText(h);
    all += "\n";
  }
  return bytesHash(all.data(), all.size());
}

}  // namespace alertdb_test::damage
