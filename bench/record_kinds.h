// The two record sizes measured: the 48-byte event-response link and the
// 8,970-byte event log entry. For each: the records of a data set, what the
// table object keeps beside the record, the layout of the record image (the
// fields in template order) and the key columns, written as the engine writes
// them: numbers as integers, texts up to their terminator, the rest as bytes.
#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "bench_support.h"
#include "events/event_log_table.h"
#include "events/event_resp_table.h"

namespace alertdb_bench {

std::uint64_t mix(std::uint64_t x);
// Object IDs spread over the key space as random ones are.
_GUID guidOf(std::uint64_t salt, std::uint64_t n);

// A key value whose byte order is the key's order (numbers big-endian).
struct OrderKey {
  unsigned char bytes[16] = {};
  bool operator<=(const OrderKey &other) const {
    return std::memcmp(bytes, other.bytes, sizeof bytes) <= 0;
  }
};

// A value to search for: the bytes a caller hands to a find.
struct KeyBytes {
  unsigned char bytes[16] = {};
  std::uint32_t length = 0;
};

struct LinkKind {
  using Rec = ALRTEVENT_RESPREC;
  using Table = Lockable<CAlertEVENT_RESPDB>;
  struct Extra {
    unsigned char replication[12];
  };
  static constexpr const char *kName = "Link";
  static constexpr const char *kGroupName = "EventClass";
  static constexpr const char *kTable = "\"EVENT_RESP\"";
  static constexpr std::uint32_t kIdKey = CAlertEVENT_RESPDB::kIdKey;
  static constexpr std::uint32_t kGroupKey = CAlertEVENT_RESPDB::kEventClassKey;
  static constexpr const char *kIdColumn = "k42";
  static constexpr const char *kGroupColumn = "k43";
  static constexpr const char *kInsert =
      "INSERT INTO \"EVENT_RESP\"(record, k42, k43, k44, k45) VALUES(?,?,?,?,?)";
  // The table refuses a second link of the same event class and response.
  static constexpr const char *kDuplicate =
      "SELECT 1 FROM \"EVENT_RESP\" WHERE k44=? AND k43=? LIMIT 1";
  static constexpr std::size_t kImageSize = sizeof(Rec) + sizeof(Extra);
  static constexpr std::size_t kSegments = 2;

  // Link n of a data set of `count`: eight links for each event class and
  // each response, no pair twice; links past `count` have new event classes.
  static void make(std::uint64_t n, std::uint64_t count, Rec *r);
  static void vary(std::uint64_t n, std::uint64_t count, Rec *r) { make(n, count, r); }
  static bool is(const Rec &r, std::uint64_t n, std::uint64_t count);
  static bool plausible(const Rec &) { return true; }
  // What the table's add does to the record before storing it.
  static void prepare(Rec *, Extra *, const _GUID &) {}

  static void gather(const Rec &r, const Extra &x, unsigned char *image);
  static void segments(Rec *r, Extra *x, Segment *out);
  static void bindKeys(sqlite3_stmt *s, const Rec &r, const Extra &x);
  static void bindDuplicate(sqlite3_stmt *s, const Rec &r);

  static KeyBytes groupValue(const Rec &r);
  static void bindGroup(sqlite3_stmt *s, int index, const KeyBytes &value);
  static bool inGroup(const Rec &r, const KeyBytes &value);
  static OrderKey orderKey(std::uint32_t key, const Rec &r);
};

struct LogKind {
  using Rec = ALRTEVENT_LOGREC;
  // Constructed with a file name, so that its entries are not mirrored into
  // the object manager.
  using Table = Lockable<CAlertEVENT_LOGDB>;
#pragma pack(push, 1)
  struct Extra {
    unsigned char replication[12];
    _GUID domain;
    std::uint32_t omFlags;
  };
#pragma pack(pop)
  static constexpr const char *kName = "Log";
  static constexpr const char *kGroupName = "EventId";
  static constexpr const char *kTable = "\"EVENT_LOG\"";
  static constexpr std::uint32_t kIdKey = CAlertEVENT_LOGDB::kIdKey;
  static constexpr std::uint32_t kGroupKey = CAlertEVENT_LOGDB::kEventIdKey;
  static constexpr const char *kIdColumn = "k20";
  static constexpr const char *kGroupColumn = "k24";
  static constexpr const char *kInsert =
      "INSERT INTO \"EVENT_LOG\"(record, k20, k21, k22, k38, k23, k24, k25, k35, k37, k36, k26,"
      " k39, k40, k41) VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)";
  static constexpr const char *kDuplicate = nullptr;
  static constexpr std::size_t kImageSize = sizeof(Rec) + sizeof(Extra);
  static constexpr std::size_t kSegments = 27;

  // Entry n: ten seconds after entry n-1 from the start of 2000 on (so all
  // are older than 30 days), one of 64 kinds of event (event ID, class).
  static void make(std::uint64_t n, std::uint64_t count, Rec *r);
  // Rewrites only what differs between entries of `make`.
  static void vary(std::uint64_t n, std::uint64_t count, Rec *r);
  static bool is(const Rec &r, std::uint64_t n, std::uint64_t count);
  // The event ID agrees with the entry number kept in ErrorCode.
  static bool plausible(const Rec &r);
  static void prepare(Rec *r, Extra *x, const _GUID &domain);

  static void gather(const Rec &r, const Extra &x, unsigned char *image);
  static void segments(Rec *r, Extra *x, Segment *out);
  static void bindKeys(sqlite3_stmt *s, const Rec &r, const Extra &x);
  static void bindDuplicate(sqlite3_stmt *, const Rec &) {}

  static KeyBytes groupValue(const Rec &r);
  static void bindGroup(sqlite3_stmt *s, int index, const KeyBytes &value);
  static bool inGroup(const Rec &r, const KeyBytes &value);
  static OrderKey orderKey(std::uint32_t key, const Rec &r);
};

}  // namespace alertdb_bench
