// The record operations: records move between the bound field storage and
// the file; the cursor keeps its place and serves enumerations from rows
// fetched a window at a time.
#include <algorithm>
#include <bit>
#include <cstring>

#include "platform/store/record_codec_internal.h"
#include "platform/store/record_store.h"
#include "platform/store/store_handle_internal.h"

namespace platform {

namespace {

using store::CopyPlan;
using store::Cursor;
using store::FetchFrom;
using store::Handle;
using store::ImageSegment;
using store::KeyDef;
using store::KeyValue;
using store::TableDef;

// Where a read puts the record: the bound storage, or a copy of the caller's
// record buffer standing in for the buffer.
struct Destination {
  const ImageSegment *segments;
  std::size_t count;
  std::uintptr_t buffer = 0;  // with a copy: the buffer it stands in for
  std::size_t size = 0;
  unsigned char *copy = nullptr;

  // Where field `f` of the record read lives.
  const unsigned char *field(const Handle &h, std::uint32_t f) const {
    unsigned char *at = h.fieldStorage[f];
    std::uintptr_t offset = reinterpret_cast<std::uintptr_t>(at) - buffer;
    return copy && offset < size ? copy + offset : at;
  }
};

inline Destination boundStorage(const Handle &h) { return {h.segments.data(), h.segments.size()}; }

// The caller's copy, where the fields bound inside its buffer fill it;
// otherwise the bound storage, and the buffer is copied after.
inline Destination copyOf(Handle &h, const RecordCopy &to) {
  auto *buffer = static_cast<const unsigned char *>(to.buffer);
  CopyPlan &plan = h.copyPlan;
  if (plan.buffer != buffer || plan.size != to.size) store::planCopy(h, buffer, to.size);
  if (!plan.straight) return boundStorage(h);
  auto *copy = static_cast<unsigned char *>(to.copy);
  if (copy != plan.copy) {  // a walk reads to one copy throughout
    for (std::size_t i = 0; i < plan.runs.size(); ++i) {
      const CopyPlan::Run &run = plan.runs[i];
      plan.toCopy[i] = run.bound;
      if (run.inBuffer) plan.toCopy[i].storage = copy + (run.bound.storage - buffer);
    }
    plan.copy = copy;
  }
  return {plan.toCopy.data(), plan.toCopy.size(), reinterpret_cast<std::uintptr_t>(buffer), to.size,
          copy};
}

// Gathers the bound fields into the stored form and the key values.
std::size_t prepareWrite(Handle &h) {
  const TableDef &def = h.table->def();
  h.owing = false;  // the caller filled the bound storage itself
  for (const ImageSegment &s : h.segments) {
    std::memcpy(h.image.data() + s.offset, s.storage, s.size);
  }
  for (std::size_t i = 0; i < def.keys.size(); ++i) {
    h.keys[i] = store::keyOfRecord(def, def.keys[i], h.image.data());
  }
  return store::encodeRecord(h.image.data(), h.image.size(), h.stored.data());
}

// The key of a stored row, read from its stored form alone (its checksum
// checked), without touching the bound storage.
std::uint32_t storedKey(Handle &h, const KeyDef &key, const store::RowBatch &batch, std::size_t row,
                        KeyValue *out) {
  const TableDef &def = h.table->def();
  const store::FieldDef &f = def.fields[key.field];
  const ImageSegment only[] = {{0, f.offset, nullptr},
                               {f.offset, f.size, h.keyField.data()},
                               {f.offset + f.size, def.recordSize - f.offset - f.size, nullptr}};
  if (!store::decodeRecord(batch.stored(row), batch.storedSize(row), def.recordSize, only, 3,
                           h.session->acceptsLegacyRecords())) {
    h.session->noteDamage();
    return QDB_E_DAMAGED;
  }
  *out = store::keyOfField(f, key.kind, h.keyField.data());
  return QDB_OK;
}

// Moves row `row` of the batch to its destination; a record that fails its
// checksum never reaches it. Read to a copy, the record is owed to the
// buffer; read into the bound storage, nothing is owed any more.
[[gnu::always_inline]] inline std::uint32_t decodeRow(Handle &h, std::size_t row,
                                                      const Destination &d) {
  const Cursor &c = h.cursor;
  const unsigned char *stored = c.batch.stored(row);
  std::size_t size = c.batch.storedSize(row);
  if (!store::decodeRecord(stored, size, h.recordSize, d.segments, d.count, h.legacyRecords)) {
    h.session->noteDamage();
    return QDB_E_DAMAGED;
  }
  h.owing = d.copy != nullptr;
  if (h.owing) {
    std::memcpy(h.owedRecord.data(), stored, size);
    h.owedSize = size;
  }
  return QDB_OK;
}

// Makes row `row` of the batch current, positioned in the order of `key`.
void makeCurrent(Cursor &c, std::size_t row, const KeyDef &key) {
  c.valid = true;
  c.currentDeleted = false;
  c.pastEnd = false;
  c.seq = c.batch.seq(row);
  c.current = row;
  c.next = row + 1;
  c.keyNumber = key.keyNumber;
  c.keyDef = &key;
  ++c.served;
}

// memcmp's order of two 8-byte words.
inline int compareWords(const unsigned char *a, const unsigned char *b) {
  std::uint64_t x, y;
  std::memcpy(&x, a, 8);
  std::memcpy(&y, b, 8);
  if (x == y) return 0;
  if constexpr (std::endian::native == std::endian::little) {
    x = __builtin_bswap64(x);
    y = __builtin_bswap64(y);
  }
  return x < y ? -1 : 1;
}

// memcmp's order, a word at a time: keys are mostly object IDs, compared on
// every step of a walk.
inline int compareBytes(const unsigned char *a, const unsigned char *b, std::size_t n) {
  for (; n >= 8; a += 8, b += 8, n -= 8) {
    if (int order = compareWords(a, b)) return order;
  }
  return n ? std::memcmp(a, b, n) : 0;
}

// The order of two key values of one key: negative, 0 or positive.
inline int compareKeys(const KeyValue &a, const KeyValue &b) {
  if (a.isNumber) return a.number < b.number ? -1 : a.number > b.number;
  // Two object IDs: two words, no loop.
  if (a.size == sizeof(_GUID) && b.size == sizeof(_GUID)) {
    int order = compareWords(a.bytes, b.bytes);
    return order != 0 ? order : compareWords(a.bytes + 8, b.bytes + 8);
  }
  int order = compareBytes(a.bytes, b.bytes, std::min(a.size, b.size));
  return order != 0 ? order : (a.size < b.size ? -1 : a.size > b.size);
}

// The key of the record just read, from its field.
inline KeyValue readKeyOf(const Handle &h, const KeyDef &key, const Destination &d) {
  const unsigned char *field = d.field(h, key.field);
  std::uint32_t size = key.size;
  KeyValue v;
  switch (key.kind) {
    case store::KeyKind::Number: {
      v.isNumber = true;
      std::uint64_t n = 0;
      for (std::uint32_t i = size; i-- > 0;) n = (n << 8) | field[i];
      v.number = n;
      break;
    }
    case store::KeyKind::Text: {
      const void *end = std::memchr(field, 0, size);
      v.bytes = field;
      v.size =
          end ? static_cast<std::size_t>(static_cast<const unsigned char *>(end) - field) : size;
      break;
    }
    case store::KeyKind::Bytes:
      v.bytes = field;
      v.size = size;
      break;
  }
  return v;
}

// Reads row `row` and makes it current in the order of `key`.
[[gnu::always_inline]] inline std::uint32_t readRow(Handle &h, std::size_t row, const KeyDef &key,
                                                    const Destination &d) {
  std::uint32_t r = decodeRow(h, row, d);
  if (r != QDB_OK) return r;
  Cursor &c = h.cursor;
  makeCurrent(c, row, key);
  c.verifyKey = false;
  c.key.assign(readKeyOf(h, key, d));
  return QDB_OK;
}

// The step of a walk to the next fetched row, in the order the cursor is
// in: only the place moves. It must move forward: a damaged index that
// leads back is damage, not a loop.
[[gnu::always_inline]] inline std::uint32_t stepInWindow(Handle &h, const KeyDef &key,
                                                         const Destination &d) {
  Cursor &c = h.cursor;
  std::size_t row = c.next;
  std::uint32_t r = decodeRow(h, row, d);
  if (r != QDB_OK) return r;
  KeyValue place = readKeyOf(h, key, d);
  std::int64_t seq = c.batch.seq(row);
  int order = compareKeys(place, c.key.value());
  if (order < 0 || (order == 0 && seq <= c.seq)) {
    h.session->noteDamage();
    return QDB_E_DAMAGED;
  }
  c.currentDeleted = false;
  c.verifyKey = false;
  c.seq = seq;
  c.current = row;
  c.next = row + 1;
  ++c.served;
  if (order != 0) c.key.assign(place);
  return QDB_OK;
}

// Replaces the batch with what a fetch put into the spare one, when it found
// anything; the cursor is untouched when it did not. `asked` is the limit of
// a fetch that reads to the end of the order (0 for one that does not): fewer
// rows than that and the batch holds the end.
std::uint32_t takeFetched(Handle &h, std::uint32_t r, std::uint64_t mark, std::uint32_t asked = 0) {
  Cursor &c = h.cursor;
  if (r != QDB_OK) return r;
  if (c.spare.empty()) return QDB_E_NOTFOUND;
  c.batch.swap(c.spare);
  c.stamp = h.table->changes();
  c.mark = mark;
  c.batchAtEnd = c.batch.size() < asked;
  return QDB_OK;
}

// Whether the rows fetched are still what the file holds: nothing changed
// the table through this session, and no commit anywhere moved the mark.
bool rowsCurrent(const Handle &h) {
  const Cursor &c = h.cursor;
  return c.stamp == h.table->changes() && (!h.tracksCommits || h.session->commitMark() == c.mark);
}

std::uint32_t maxWindow(const Handle &h) {
  return h.tracksCommits ? Cursor::kMaxTrackedWindow : Cursor::kMaxWindow;
}

// The rows a find or find-first fetches: what the walk from the previous
// one used, so that a walk through one key value's records takes one read.
std::uint32_t firstFetch(const Handle &h, Cursor &c, const KeyDef &key, bool exact) {
  // Walks of one kind vary in length: the guess falls back by halves.
  c.learned = std::clamp(std::max(c.served, c.learned / 2), 1u, maxWindow(h));
  std::uint32_t n = c.learned;
  c.served = 0;
  c.window = std::max(n, h.session->fetchIsRoundTrip() ? maxWindow(h) : Cursor::kFirstWindow);
  return key.unique && exact ? 1 : n;
}

// Finds the record, and reads it to `read` when there is one.
std::uint32_t find(Handle &h, const TableDef &def, std::uint32_t key, const void *keyValue,
                   std::uint32_t exact, std::uint32_t keyLength, const Destination *read) {
  if (!keyValue || keyLength == 0 || exact != 1) return QDB_E_BADARG;
  const KeyDef *k = def.findKey(key);
  if (!k) return QDB_E_BADKEY;
  Cursor &c = h.cursor;
  h.searchKey.assign(store::keyOfSearch(def, *k, keyValue, keyLength));
  const KeyValue &search = h.searchKey.value();
  // More than one row: from the value on, so that the walk can also see
  // where the value's records end.
  std::uint32_t limit = firstFetch(h, c, *k, !search.isPrefix);
  FetchFrom from = limit == 1 ? FetchFrom::Equal : FetchFrom::From;
  std::uint64_t mark = h.session->commitMark();
  std::uint32_t r = h.session->fetch(*h.table, *k, from, search, 0, limit, &c.spare);
  if (r != QDB_OK) return r;
  KeyValue first;
  if (!c.spare.empty() && from == FetchFrom::From) {
    if ((r = storedKey(h, *k, c.spare, 0, &first)) != QDB_OK) return r;
    if (!store::keyMatches(first, search)) c.spare.clear();
  }
  if ((r = takeFetched(h, QDB_OK, mark, from == FetchFrom::From ? limit : 0)) != QDB_OK) {
    return r;
  }
  if (read) {
    if ((r = readRow(h, 0, *k, *read)) != QDB_OK) return r;
    if (!store::keyMatches(c.key.value(), search)) {
      h.session->noteDamage();
      return QDB_E_DAMAGED;
    }
    return QDB_OK;
  }
  makeCurrent(c, 0, *k);
  if (search.isPrefix) {
    // The place is the whole key of the record found.
    KeyValue whole;
    if ((r = storedKey(h, *k, c.batch, 0, &whole)) != QDB_OK) return r;
    c.key.assign(whole);
    c.verifyKey = false;
  } else {
    c.key.assign(search);
    c.verifyKey = true;
  }
  return QDB_OK;
}

std::uint32_t readCurrent(Handle &h, const TableDef &def, const Destination &d) {
  Cursor &c = h.cursor;
  if (!c.valid || c.currentDeleted) return QDB_E_NOCURRENT;
  if (!rowsCurrent(h) || c.current == Cursor::kNone) {
    std::uint64_t mark = h.session->commitMark();
    std::uint32_t r = takeFetched(h, h.session->fetchRow(*h.table, c.seq, &c.spare), mark);
    if (r == QDB_E_NOTFOUND) return QDB_E_NOCURRENT;
    if (r != QDB_OK) return r;
    c.current = 0;
    c.next = 1;
  }
  std::uint32_t r = decodeRow(h, c.current, d);
  if (r != QDB_OK) return r;
  // A record found by its key must hold that key.
  if (c.verifyKey) {
    const KeyDef *k = def.findKey(c.keyNumber);
    if (k && !store::keyMatches(readKeyOf(h, *k, d), c.key.value())) {
      h.session->noteDamage();
      return QDB_E_DAMAGED;
    }
  }
  return QDB_OK;
}

[[gnu::always_inline]] inline std::uint32_t skipAndRead(Handle &h, const TableDef &def,
                                                        std::uint32_t key, std::uint32_t direction,
                                                        const Destination &d) {
  Cursor &c = h.cursor;
  // Most steps of a walk: the next row is fetched and still what the file
  // holds, and the walk goes on in the order it is in.
  if (direction == kSkipNext && c.valid && !c.pastEnd && c.keyNumber == key && c.keyDef &&
      c.next < c.batch.size() && rowsCurrent(h)) {
    return stepInWindow(h, *c.keyDef, d);
  }
  const KeyDef *k = c.keyDef && c.keyNumber == key ? c.keyDef : def.findKey(key);
  if (!k) return QDB_E_BADKEY;
  static const KeyValue none;
  if (direction == kSkipFirst) {
    std::uint32_t limit = firstFetch(h, c, *k, false);
    std::uint64_t mark = h.session->commitMark();
    std::uint32_t r = takeFetched(
        h, h.session->fetch(*h.table, *k, FetchFrom::Start, none, 0, limit, &c.spare), mark, limit);
    if (r != QDB_OK) return r;
    return readRow(h, 0, *k, d);
  }
  if (direction != kSkipNext) return QDB_E_BADARG;
  if (!c.valid) return QDB_E_NOCURRENT;
  if (c.pastEnd) return QDB_E_NOTFOUND;
  if (c.keyNumber != key) {
    // Continue in another order: from the current record's place in it.
    KeyValue other;
    std::uint32_t r = storedKey(h, *k, c.batch, c.current, &other);
    if (r != QDB_OK) return r;
    c.key.assign(other);
    c.keyNumber = key;
    c.keyDef = k;
    c.next = c.batch.size();
    c.batchAtEnd = false;
  }
  // Nothing committed since the fetch that reached the end: still the end.
  if (c.batchAtEnd && h.tracksCommits && rowsCurrent(h)) return QDB_E_NOTFOUND;
  std::uint64_t mark = h.session->commitMark();
  std::uint32_t r = takeFetched(
      h,
      h.session->fetch(*h.table, *k, FetchFrom::AfterRow, c.key.value(), c.seq, c.window, &c.spare),
      mark, c.window);
  if (r != QDB_OK) return r;
  c.window = std::min(c.window * 2, maxWindow(h));
  c.next = 0;
  return stepInWindow(h, *k, d);
}

// A read into the bound storage, through the plain calls.
template <typename Read>
std::uint32_t readBound(KEPDB *id, Read read) {
  return store::withTable(id, [&](Handle &h, const TableDef &def) -> std::uint32_t {
    return read(h, def, boundStorage(h));
  });
}

// A read to the caller's copy, through the calls that take one.
template <typename Read>
std::uint32_t readCopy(KEPDB *id, const RecordCopy &to, Read read) {
  return store::withTable(id, [&](Handle &h, const TableDef &def) -> std::uint32_t {
    if (!to.buffer || !to.copy || to.size == 0) return QDB_E_BADARG;
    Destination d = copyOf(h, to);
    std::uint32_t r = read(h, def, d);
    if (r == QDB_OK && !d.copy) std::memcpy(to.copy, to.buffer, to.size);
    return r;
  });
}

}  // namespace

std::uint32_t QDBRecordAdd(KEPDB *id) {
  return store::withTable(id, [&](Handle &h, const TableDef &) -> std::uint32_t {
    std::size_t size = prepareWrite(h);
    return h.session->insert(*h.table, h.stored.data(), size, h.keys.data());
  });
}

std::uint32_t QDBRecordUpdate(KEPDB *id) {
  return store::withTable(id, [&](Handle &h, const TableDef &def) -> std::uint32_t {
    Cursor &c = h.cursor;
    if (!c.valid || c.currentDeleted) return QDB_E_NOCURRENT;
    std::size_t size = prepareWrite(h);
    std::uint32_t r = h.session->update(*h.table, c.seq, h.stored.data(), size, h.keys.data());
    if (r != QDB_OK) return r;
    // The record stays current, now at its new place.
    c.batch.clear();
    c.batch.add(c.seq, h.stored.data(), size);
    c.batchAtEnd = false;
    c.current = 0;
    c.next = 1;
    c.stamp = h.table->changes();
    c.mark = h.session->commitMark();
    c.verifyKey = false;
    if (const KeyDef *k = def.findKey(c.keyNumber)) {
      c.key.assign(store::keyOfRecord(def, *k, h.image.data()));
    }
    return QDB_OK;
  });
}

std::uint32_t QDBRecordDelete(KEPDB *id) {
  return store::withTable(id, [&](Handle &h, const TableDef &) -> std::uint32_t {
    Cursor &c = h.cursor;
    if (!c.valid || c.currentDeleted) return QDB_E_NOCURRENT;
    bool fresh = rowsCurrent(h);
    std::uint64_t before = h.session->commitMark();
    std::uint32_t r = h.session->remove(*h.table, c.seq);
    if (r != QDB_OK) return r;
    // The cursor keeps its place. Only the current row went, so the rows
    // fetched after it still hold, unless someone else committed meanwhile
    // (a commit of its own moves the mark by two).
    c.currentDeleted = true;
    std::uint64_t after = h.session->commitMark();
    if (fresh && (after == before || after == before + 2)) {
      c.stamp = h.table->changes();
      c.mark = after;
    }
    return QDB_OK;
  });
}

std::uint32_t QDBRecordRead(KEPDB *id) { return readBound(id, readCurrent); }

std::uint32_t QDBRecordFind(KEPDB *id, std::uint32_t key, const void *keyValue, std::uint32_t exact,
                            std::uint32_t keyLength) {
  return store::withTable(id, [&](Handle &h, const TableDef &def) {
    return find(h, def, key, keyValue, exact, keyLength, nullptr);
  });
}

std::uint32_t QDBRecordFindAndRead(KEPDB *id, std::uint32_t key, const void *keyValue,
                                   std::uint32_t exact, std::uint32_t keyLength) {
  return readBound(id, [&](Handle &h, const TableDef &def, const Destination &d) {
    return find(h, def, key, keyValue, exact, keyLength, &d);
  });
}

std::uint32_t QDBRecordSkipAndRead(KEPDB *id, std::uint32_t key, std::uint32_t direction) {
  return readBound(id, [&](Handle &h, const TableDef &def, const Destination &d) {
    return skipAndRead(h, def, key, direction, d);
  });
}

std::uint32_t QDBRecordReadCopy(KEPDB *id, const RecordCopy &to) {
  return readCopy(id, to, readCurrent);
}

std::uint32_t QDBRecordFindAndReadCopy(KEPDB *id, std::uint32_t key, const void *keyValue,
                                       std::uint32_t exact, std::uint32_t keyLength,
                                       const RecordCopy &to) {
  return readCopy(id, to, [&](Handle &h, const TableDef &def, const Destination &d) {
    return find(h, def, key, keyValue, exact, keyLength, &d);
  });
}

std::uint32_t QDBRecordSkipAndReadCopy(KEPDB *id, std::uint32_t key, std::uint32_t direction,
                                       const RecordCopy &to) {
  return readCopy(id, to, [&](Handle &h, const TableDef &def, const Destination &d) {
    return skipAndRead(h, def, key, direction, d);
  });
}

std::uint32_t QDBRecordSettle(KEPDB *id) {
  return store::withTable(id, [&](Handle &h, const TableDef &) -> std::uint32_t {
    if (!h.owing) return QDB_OK;
    h.owing = false;
    const CopyPlan &plan = h.copyPlan;
    return store::decodeRecord(h.owedRecord.data(), h.owedSize, h.recordSize, plan.owed.data(),
                               plan.owed.size(), true)
               ? QDB_OK
               : QDB_E_DAMAGED;
  });
}

std::uint32_t QDBRecordSkipToEnd(KEPDB *id) {
  return store::withTable(id, [&](Handle &h, const TableDef &) -> std::uint32_t {
    h.cursor.pastEnd = true;
    return QDB_OK;
  });
}

}  // namespace platform
