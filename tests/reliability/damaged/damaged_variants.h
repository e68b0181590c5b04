// Damaged variants of a data file and its write-ahead log: cut short at many
// lengths and with bytes changed at many places, each place chosen by what
// the page there holds (the file header, the catalog, records, indexes,
// unused bytes; the log's header, its frame headers, its pages).
#pragma once

#include <sqlite3.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "reliability/damaged/damaged_reference.h"

namespace alertdb_test::damage {

enum class PageRole { Catalog, Records, Index, Unused };

inline const char *roleName(PageRole role) {
  switch (role) {
    case PageRole::Catalog:
      return "catalog page";
    case PageRole::Records:
      return "record page";
    case PageRole::Index:
      return "index page";
    default:
      return "unused page";
  }
}

// What each page of a database holds, as SQLite's page statistics tell it.
struct PageMap {
  std::size_t pageSize = 0;
  std::map<std::uint32_t, PageRole> roles;  // by page number, from 1
  std::map<std::uint32_t, bool> overflow;   // an overflow page of a record
};

inline PageRole roleOf(const std::string &owner) {
  if (owner == "sqlite_schema" || owner == "sqlite_master" || owner == "sqlite_sequence" ||
      owner.rfind("alertdb_", 0) == 0 || owner.rfind("sqlite_autoindex_alertdb_", 0) == 0) {
    return PageRole::Catalog;
  }
  return owner.find(":k") != std::string::npos ? PageRole::Index : PageRole::Records;
}

// Reads the page map of `pair` from a copy of it in `scratch`.
inline PageMap mapPages(const FilePair &pair, const std::string &scratch) {
  namespace fs = std::filesystem;
  fs::remove_all(scratch);
  fs::create_directories(scratch);
  std::string path = scratch + "/pages.db";
  std::ofstream(path, std::ios::binary) << pair.file;
  if (pair.log) std::ofstream(path + "-wal", std::ios::binary) << *pair.log;
  PageMap map;
  sqlite3 *db = nullptr;
  if (sqlite3_open(path.c_str(), &db) == SQLITE_OK) {
    sqlite3_stmt *s = nullptr;
    if (sqlite3_prepare_v2(db, "SELECT name, pageno, pagetype, pgsize FROM dbstat", -1, &s,
                           nullptr) == SQLITE_OK) {
      while (sqlite3_step(s) == SQLITE_ROW) {
        std::string owner = reinterpret_cast<const char *>(sqlite3_column_text(s, 0));
        auto page = static_cast<std::uint32_t>(sqlite3_column_int64(s, 1));
        std::string type = reinterpret_cast<const char *>(sqlite3_column_text(s, 2));
        map.pageSize = static_cast<std::size_t>(sqlite3_column_int64(s, 3));
        map.roles[page] = roleOf(owner);
        map.overflow[page] = type == "overflow";
      }
    }
    sqlite3_finalize(s);
  }
  sqlite3_close(db);
  fs::remove_all(scratch);
  return map;
}

inline std::uint32_t bigEndian(const std::string &bytes, std::size_t at, int width) {
  std::uint32_t v = 0;
  for (int i = 0; i < width; ++i) {
    v = (v << 8) | static_cast<unsigned char>(bytes[at + static_cast<std::size_t>(i)]);
  }
  return v;
}

// The parts of a b-tree page: its header, its cell pointers, the unused gap
// between them and the cells, and the cells. Empty when the page is not a
// b-tree page.
struct PageParts {
  std::size_t header = 0, headerSize = 0, pointersEnd = 0, cellsStart = 0;
  bool isTree = false;
};

inline PageParts partsOf(const std::string &page, std::uint32_t pageNumber) {
  PageParts parts;
  parts.header = pageNumber == 1 ? 100 : 0;
  if (page.size() < parts.header + 12) return parts;
  unsigned type = static_cast<unsigned char>(page[parts.header]);
  if (type != 2 && type != 5 && type != 10 && type != 13) return parts;
  parts.isTree = true;
  parts.headerSize = (type == 2 || type == 5) ? 12 : 8;
  parts.pointersEnd = parts.header + parts.headerSize + 2 * bigEndian(page, parts.header + 3, 2);
  std::uint32_t start = bigEndian(page, parts.header + 5, 2);
  parts.cellsStart = start == 0 ? 65536 : start;
  parts.cellsStart = std::min(parts.cellsStart, page.size());
  parts.pointersEnd = std::min(parts.pointersEnd, parts.cellsStart);
  return parts;
}

// One way to damage a file: cut it (or its log) to a length, or change
// `length` bytes at `offset` by `pattern`.
struct Variant {
  std::string category;  // for sampling and for the figures
  std::string what;      // the exact change, for messages
  bool live = false;     // made from the file with its log, else from the closed file
  bool inLog = false;
  bool cut = false;
  std::size_t offset = 0;  // the length kept, for a cut
  std::size_t length = 0;
  int pattern = 0;
  std::uint64_t seed = 0;
};

inline const char *patternName(int pattern) {
  static const char *names[] = {"low bit flipped",     "byte inverted",   "4 bytes zeroed",
                                "8 bytes set to 0xFF", "16 random bytes", "zeroed to page end"};
  return names[pattern];
}

// The damaged bytes of `variant` made from the closed file or the live pair.
inline FilePair applyVariant(const Variant &variant, const FilePair &closed, const FilePair &live,
                             std::size_t pageSize) {
  FilePair out = variant.live ? live : closed;
  std::string &bytes = variant.inLog ? *out.log : out.file;
  if (variant.cut) {
    bytes.resize(std::min(variant.offset, bytes.size()));
    return out;
  }
  std::mt19937_64 random(variant.seed);
  std::size_t at = variant.offset;
  auto set = [&](std::size_t n, auto value) {
    for (std::size_t i = 0; i < n && at + i < bytes.size(); ++i) bytes[at + i] = value(i);
  };
  auto old = [&](std::size_t i) { return static_cast<unsigned char>(bytes[at + i]); };
  switch (variant.pattern) {
    case 0:
      set(1, [&](std::size_t i) { return static_cast<char>(old(i) ^ 0x01); });
      break;
    case 1:
      set(1, [&](std::size_t i) { return static_cast<char>(old(i) ^ 0xFF); });
      break;
    case 2:
      set(4, [](std::size_t) { return '\0'; });
      break;
    case 3:
      set(8, [](std::size_t) { return static_cast<char>(0xFF); });
      break;
    case 4:
      set(16, [&](std::size_t) { return static_cast<char>(random()); });
      break;
    default: {
      std::size_t end = (at / pageSize + 1) * pageSize;
      if (variant.inLog) {
        // The end of the frame's page.
        std::size_t frame = 24 + pageSize;
        end = at < 32 ? 32 : 32 + ((at - 32) / frame + 1) * frame;
      }
      set(end - at, [](std::size_t) { return '\0'; });
    }
  }
  return out;
}

// Every variant of the harness for one data file: the closed file alone,
// and the file beside its live log. `filePages` maps each one's file alone,
// `logPages` the file with its log. The first variant is the live pair
// unchanged, the control.
inline std::vector<Variant> allVariants(const FilePair &closed, const FilePair &live,
                                        const PageMap &closedPages, const PageMap &livePages,
                                        const PageMap &logPages, std::uint64_t seed) {
  std::vector<Variant> out;
  std::mt19937_64 random(seed);
  auto pick = [&](std::size_t from, std::size_t to) {  // in [from, to)
    return to <= from ? from : from + static_cast<std::size_t>(random() % (to - from));
  };
  auto cut = [&](const std::string &category, bool isLive, bool inLog, std::size_t length,
                 const std::string &what) {
    Variant v;
    v.category = category;
    v.what = what + " cut to " + std::to_string(length) + " bytes";
    v.live = isLive;
    v.inLog = inLog;
    v.cut = true;
    v.offset = length;
    out.push_back(v);
  };
  auto change = [&](const std::string &category, bool isLive, bool inLog, std::size_t offset,
                    const std::string &what, int pattern = -1) {
    Variant v;
    v.category = category;
    v.live = isLive;
    v.inLog = inLog;
    v.offset = offset;
    v.pattern = pattern >= 0 ? pattern : static_cast<int>(random() % 6);
    v.seed = random();
    v.what = what + ": " + patternName(v.pattern) + " at byte " + std::to_string(offset) +
             (inLog ? " of the log" : " of the file");
    out.push_back(v);
  };

  cut("none", true, false, live.file.size(), "nothing changed: the file");

  for (bool isLive : {false, true}) {
    const std::string &file = isLive ? live.file : closed.file;
    const PageMap &pages = isLive ? livePages : closedPages;
    const std::size_t size = pages.pageSize;
    if (size == 0) continue;
    const std::size_t count = file.size() / size;
    const std::string prefix = isLive ? "file beside its log: " : "closed file: ";
    for (std::size_t length : {0, 1, 16, 28, 50, 99, 100}) {
      cut(prefix + "cut inside the header", isLive, false, length, "the file");
    }
    for (std::size_t p = 1; p < count; ++p) {
      std::string what = "the file (page " + std::to_string(p + 1) + " on)";
      cut(prefix + "cut at a page boundary", isLive, false, p * size, what);
      cut(prefix + "cut a byte off a page boundary", isLive, false, p * size - 1, what);
      cut(prefix + "cut a byte off a page boundary", isLive, false, p * size + 1, what);
      cut(prefix + "cut inside a page", isLive, false, p * size + pick(2, size - 1), what);
    }
    for (std::size_t at = 0; at < 100; ++at) {
      change(prefix + "file header", isLive, false, at, "the file header", 0);
      change(prefix + "file header", isLive, false, at, "the file header", 1);
    }
    for (std::uint32_t p = 1; p <= count; ++p) {
      std::size_t base = (p - 1) * size;
      auto role = pages.roles.find(p);
      std::string label =
          std::string(role == pages.roles.end() ? "free page" : roleName(role->second)) + " " +
          std::to_string(p);
      if (role == pages.roles.end()) {
        change(prefix + "unused bytes", isLive, false, base + pick(0, size), label);
        continue;
      }
      const std::string category = prefix + roleName(role->second);
      if (pages.overflow.at(p)) {
        change(category, isLive, false, base + pick(0, 4), label + " (overflow), its next page");
        change(category, isLive, false, base + pick(4, size), label + " (overflow), its bytes");
        continue;
      }
      PageParts parts = partsOf(file.substr(base, size), p);
      if (!parts.isTree) continue;
      std::size_t pointers = parts.header + parts.headerSize;
      change(category, isLive, false, base + parts.header + pick(0, parts.headerSize),
             label + ", its page header");
      if (parts.pointersEnd > pointers) {
        change(category, isLive, false, base + pick(pointers, parts.pointersEnd),
               label + ", its cell pointers");
      }
      if (parts.cellsStart < size) {
        change(category, isLive, false, base + pick(parts.cellsStart, size), label + ", a cell");
        change(category, isLive, false, base + size - 1 - pick(0, 8), label + ", its last cell");
      }
      if (parts.cellsStart > parts.pointersEnd) {
        change(prefix + "unused bytes", isLive, false,
               base + pick(parts.pointersEnd, parts.cellsStart),
               label + ", the gap before its cells");
      }
    }
  }

  if (live.log && livePages.pageSize != 0) {
    const std::string &log = *live.log;
    const std::size_t size = livePages.pageSize;
    const std::size_t frameSize = 24 + size;
    const std::size_t frames = log.size() < 32 ? 0 : (log.size() - 32) / frameSize;
    for (std::size_t length : {0, 1, 8, 16, 24, 31}) {
      cut("log: cut inside its header", true, true, length, "the log");
    }
    for (std::size_t k = 0; k < frames; ++k) {
      std::size_t at = 32 + k * frameSize;
      std::string what = "the log (frame " + std::to_string(k + 1) + " on)";
      cut("log: cut at a frame boundary", true, true, at, what);
      if (k > 0) {
        cut("log: cut a byte off a frame boundary", true, true, at - 1, what);
        cut("log: cut a byte off a frame boundary", true, true, at + 1, what);
      }
      cut("log: cut inside a frame", true, true, at + pick(2, frameSize - 1), what);
    }
    for (std::size_t at = 0; at < 32; ++at)
      change("log: its header", true, true, at, "the log header");
    for (std::size_t k = 0; k < frames; ++k) {
      std::size_t at = 32 + k * frameSize;
      std::string frame = "frame " + std::to_string(k + 1);
      static const char *words[] = {"page number", "file size after commit", "first salt",
                                    "second salt", "first checksum",         "second checksum"};
      for (std::size_t w = 0; w < 6; ++w) {
        change("log: frame header", true, true, at + 4 * w + pick(0, 4),
               frame + " header, its " + words[w]);
      }
      std::uint32_t page = bigEndian(log, at, 4);
      auto role = logPages.roles.find(page);
      std::string label = frame + " (page " + std::to_string(page) + ", " +
                          (role == logPages.roles.end() ? "free page" : roleName(role->second)) +
                          ")";
      change("log: frame page", true, true, at + 24 + pick(0, size), label);
      change("log: frame page", true, true, at + 24 + pick(0, size), label);
    }
  }
  return out;
}

// `count` variants spread evenly over the categories (the control always
// first), each category's own chosen at random; all of them for count 0.
inline std::vector<Variant> sampleVariants(const std::vector<Variant> &all, std::size_t count,
                                           std::uint64_t seed) {
  if (count == 0 || count >= all.size()) return all;
  std::map<std::string, std::vector<Variant>> byCategory;
  std::vector<std::string> order;
  for (const Variant &v : all) {
    if (!byCategory.count(v.category)) order.push_back(v.category);
    byCategory[v.category].push_back(v);
  }
  std::mt19937_64 random(seed);
  for (auto &[category, variants] : byCategory)
    std::shuffle(variants.begin(), variants.end(), random);
  std::vector<Variant> out;
  for (std::size_t round = 0; out.size() < count; ++round) {
    for (const std::string &category : order) {
      const auto &variants = byCategory[category];
      if (round < variants.size() && out.size() < count) out.push_back(variants[round]);
    }
  }
  return out;
}

}  // namespace alertdb_test::damage
