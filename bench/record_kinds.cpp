#include "record_kinds.h"

#include <cstddef>
#include <cstdio>
#include <ctime>

#include "events/severity_colour.h"

namespace alertdb_bench {

std::uint64_t mix(std::uint64_t x) {
  x += 0x9E3779B97F4A7C15ull;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
  return x ^ (x >> 31);
}

_GUID guidOf(std::uint64_t salt, std::uint64_t n) {
  std::uint64_t words[2] = {mix(salt * 0x100000001B3ull ^ n), mix(~salt ^ (n << 1))};
  _GUID id;
  std::memcpy(&id, words, sizeof id);
  return id;
}

namespace {

enum Salt : std::uint64_t { kIdSalt = 1, kClassSalt, kResponseSalt, kSourceSalt, kKindSalt };

void bindBytes(sqlite3_stmt *s, int index, const void *bytes, std::size_t n) {
  sqlite3_bind_blob(s, index, bytes, static_cast<int>(n), SQLITE_STATIC);
}

void bindText(sqlite3_stmt *s, int index, const char *text, std::size_t size) {
  bindBytes(s, index, text, strnlen(text, size));
}

OrderKey orderOf(const void *bytes, std::size_t n) {
  OrderKey k;
  std::memcpy(k.bytes, bytes, n);
  return k;
}

OrderKey orderOfNumber(std::uint32_t v) {
  const unsigned char big[4] = {static_cast<unsigned char>(v >> 24),
                                static_cast<unsigned char>(v >> 16),
                                static_cast<unsigned char>(v >> 8), static_cast<unsigned char>(v)};
  return orderOf(big, sizeof big);
}

// The log's record fields in template order (its member order differs).
struct Member {
  std::size_t offset, size;
};
#define LOG_MEMBER(name) \
  Member { offsetof(ALRTEVENT_LOGREC, name), sizeof(ALRTEVENT_LOGREC::name) }
constexpr Member kLogMembers[] = {
    LOG_MEMBER(KEPOID),      LOG_MEMBER(EventClass_OID), LOG_MEMBER(SourceOID),
    LOG_MEMBER(Ack),         LOG_MEMBER(Icon),           LOG_MEMBER(EventName),
    LOG_MEMBER(EventID),     LOG_MEMBER(Severity),       LOG_MEMBER(SeverityColor),
    LOG_MEMBER(Time),        LOG_MEMBER(MachineName),    LOG_MEMBER(EventText),
    LOG_MEMBER(OpStatus),    LOG_MEMBER(UserName),       LOG_MEMBER(Comment),
    LOG_MEMBER(ProductName), LOG_MEMBER(domainName),     LOG_MEMBER(ErrorCode),
    LOG_MEMBER(Address),     LOG_MEMBER(TextParameter),  LOG_MEMBER(SeverityTxt),
    LOG_MEMBER(OpStatusTxt), LOG_MEMBER(BlobSize),       LOG_MEMBER(binblob),
};
#undef LOG_MEMBER
constexpr std::size_t kLogMemberCount = sizeof kLogMembers / sizeof kLogMembers[0];
static_assert(kLogMemberCount + 3 == LogKind::kSegments);

constexpr const char *kEventNames[8] = {"Service stopped", "Service started", "Disk nearly full",
                                        "Login failed",    "Backup finished", "Backup failed",
                                        "Link down",       "Link up"};

std::uint32_t kindOf(std::uint64_t n) {
  return static_cast<std::uint32_t>(mix(n ^ kKindSalt) % 64);
}

const ALRTEVENT_LOGREC &logBase() {
  static const ALRTEVENT_LOGREC *base = [] {
    auto *e = new ALRTEVENT_LOGREC{};
    std::strcpy(e->ProductName, "Alert Manager");
    std::strcpy(e->UserName, "operator");
    std::strcpy(e->domainName, "HEADQUARTERS");
    std::strcpy(e->TextParameter, "restart");
    return e;
  }();
  return *base;
}

}  // namespace

// ------------------------------------------------------------ link

void LinkKind::make(std::uint64_t n, std::uint64_t count, Rec *r) {
  std::uint64_t responses = count / 8 > 8 ? count / 8 : 8;
  r->KEPOID = guidOf(kIdSalt, n);
  r->EventClassOID = guidOf(kClassSalt, n / 8);
  r->ResponseOID = guidOf(kResponseSalt, n % responses);
}

bool LinkKind::is(const Rec &r, std::uint64_t n, std::uint64_t count) {
  Rec expected;
  make(n, count, &expected);
  return std::memcmp(&r, &expected, sizeof r) == 0;
}

void LinkKind::gather(const Rec &r, const Extra &x, unsigned char *image) {
  std::memcpy(image, &r, sizeof r);
  std::memcpy(image + sizeof r, x.replication, sizeof x.replication);
}

void LinkKind::segments(Rec *r, Extra *x, Segment *out) {
  out[0] = {sizeof *r, reinterpret_cast<unsigned char *>(r)};
  out[1] = {sizeof x->replication, x->replication};
}

void LinkKind::bindKeys(sqlite3_stmt *s, const Rec &r, const Extra &x) {
  bindBytes(s, 2, &r.KEPOID, 16);
  bindBytes(s, 3, &r.EventClassOID, 16);
  bindBytes(s, 4, &r.ResponseOID, 16);
  bindBytes(s, 5, x.replication, sizeof x.replication);
}

void LinkKind::bindDuplicate(sqlite3_stmt *s, const Rec &r) {
  bindBytes(s, 1, &r.ResponseOID, 16);
  bindBytes(s, 2, &r.EventClassOID, 16);
}

KeyBytes LinkKind::groupValue(const Rec &r) {
  KeyBytes v;
  std::memcpy(v.bytes, &r.EventClassOID, 16);
  v.length = 16;
  return v;
}

void LinkKind::bindGroup(sqlite3_stmt *s, int index, const KeyBytes &value) {
  bindBytes(s, index, value.bytes, value.length);
}

bool LinkKind::inGroup(const Rec &r, const KeyBytes &value) {
  return std::memcmp(&r.EventClassOID, value.bytes, 16) == 0;
}

OrderKey LinkKind::orderKey(std::uint32_t key, const Rec &r) {
  return key == kIdKey ? orderOf(&r.KEPOID, 16) : orderOf(&r.EventClassOID, 16);
}

// ------------------------------------------------------------ log

void LogKind::make(std::uint64_t n, std::uint64_t count, Rec *r) {
  *r = logBase();
  vary(n, count, r);
}

void LogKind::vary(std::uint64_t n, std::uint64_t, Rec *r) {
  std::uint32_t kind = kindOf(n);
  r->KEPOID = guidOf(kIdSalt, n);
  r->EventClass_OID = guidOf(kClassSalt, kind);
  r->Icon = r->EventClass_OID;
  r->SourceOID = guidOf(kSourceSalt, kind % 16);
  r->EventID = 1000 + kind;
  r->Severity = kind % 5;
  r->SeverityColor = SeverityColourOf(r->Severity);
  // strncpy pads with zeros, so nothing of a longer earlier name is left.
  std::strncpy(r->EventName, kEventNames[kind % 8], sizeof r->EventName - 1);
  std::snprintf(r->MachineName, sizeof r->MachineName, "WORKSTATION-%02u", kind % 32);
  std::snprintf(r->EventText, sizeof r->EventText,
                "%s on WORKSTATION-%02u: the service was restarted (occurrence %010llu).",
                kEventNames[kind % 8], kind % 32, static_cast<unsigned long long>(n));
  r->ErrorCode = static_cast<std::int32_t>(n);
  std::time_t at = 946684800 + static_cast<std::time_t>(n) * 10;
  std::tm t{};
  gmtime_r(&at, &t);
  const unsigned char stamp[8] = {static_cast<unsigned char>(t.tm_year),
                                  static_cast<unsigned char>(t.tm_mon + 1),
                                  static_cast<unsigned char>(t.tm_mday),
                                  static_cast<unsigned char>(t.tm_hour),
                                  static_cast<unsigned char>(t.tm_min),
                                  static_cast<unsigned char>(t.tm_sec),
                                  0,
                                  0};
  std::memcpy(r->Time, stamp, sizeof stamp);
}

bool LogKind::is(const Rec &r, std::uint64_t n, std::uint64_t count) {
  static thread_local Rec expected;
  make(n, count, &expected);
  return std::memcmp(&r, &expected, sizeof r) == 0;
}

bool LogKind::plausible(const Rec &r) {
  return r.EventID == 1000 + kindOf(static_cast<std::uint32_t>(r.ErrorCode));
}

void LogKind::prepare(Rec *r, Extra *x, const _GUID &domain) {
  r->Icon = r->EventClass_OID;
  r->SeverityColor = SeverityColourOf(r->Severity);
  x->domain = domain;
}

void LogKind::gather(const Rec &r, const Extra &x, unsigned char *image) {
  const auto *record = reinterpret_cast<const unsigned char *>(&r);
  for (const Member &m : kLogMembers) {
    std::memcpy(image, record + m.offset, m.size);
    image += m.size;
  }
  std::memcpy(image, &x, sizeof x);
}

void LogKind::segments(Rec *r, Extra *x, Segment *out) {
  auto *record = reinterpret_cast<unsigned char *>(r);
  for (const Member &m : kLogMembers) *out++ = {m.size, record + m.offset};
  *out++ = {sizeof x->replication, x->replication};
  *out++ = {sizeof x->domain, reinterpret_cast<unsigned char *>(&x->domain)};
  *out = {sizeof x->omFlags, reinterpret_cast<unsigned char *>(&x->omFlags)};
}

void LogKind::bindKeys(sqlite3_stmt *s, const Rec &r, const Extra &x) {
  bindBytes(s, 2, &r.KEPOID, 16);
  bindBytes(s, 3, &r.EventClass_OID, 16);
  bindBytes(s, 4, &r.SourceOID, 16);
  sqlite3_bind_int64(s, 5, r.Ack);
  bindText(s, 6, r.EventName, sizeof r.EventName);
  sqlite3_bind_int64(s, 7, r.EventID);
  sqlite3_bind_int64(s, 8, r.Severity);
  bindBytes(s, 9, r.Time, sizeof r.Time);
  bindText(s, 10, r.MachineName, sizeof r.MachineName);
  bindText(s, 11, r.UserName, sizeof r.UserName);
  bindText(s, 12, r.ProductName, sizeof r.ProductName);
  bindText(s, 13, r.domainName, sizeof r.domainName);
  bindBytes(s, 14, x.replication, sizeof x.replication);
  bindBytes(s, 15, &x.domain, sizeof x.domain);
}

KeyBytes LogKind::groupValue(const Rec &r) {
  KeyBytes v;
  std::uint32_t id = r.EventID;
  std::memcpy(v.bytes, &id, sizeof id);
  v.length = sizeof id;
  return v;
}

void LogKind::bindGroup(sqlite3_stmt *s, int index, const KeyBytes &value) {
  std::uint32_t id;
  std::memcpy(&id, value.bytes, sizeof id);
  sqlite3_bind_int64(s, index, id);
}

bool LogKind::inGroup(const Rec &r, const KeyBytes &value) {
  return std::memcmp(&r.EventID, value.bytes, sizeof r.EventID) == 0;
}

OrderKey LogKind::orderKey(std::uint32_t key, const Rec &r) {
  return key == kIdKey ? orderOf(&r.KEPOID, 16) : orderOfNumber(r.EventID);
}

}  // namespace alertdb_bench
