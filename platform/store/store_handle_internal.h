// A record store handle: its session on the file, the selected table with
// the caller's bound field storage, the cursor, and the working storage that
// lets record operations run without allocating.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

#include "platform/store/record_codec_internal.h"
#include "platform/store/record_store.h"
#include "platform/store/row_batch_internal.h"
#include "platform/store/store_backend_internal.h"

namespace platform::store {

// A key value the cursor owns, so that its place survives the record.
class KeyBuffer {
 public:
  void reserve(std::size_t size) {
    bytes_.reset(new unsigned char[size ? size : 1]);
    capacity_ = size;
    value_ = KeyValue{};
  }
  // `v` is no longer than the widest key field of the table.
  void assign(const KeyValue &v) {
    value_ = v;
    if (!v.isNumber && v.size > 0) std::memcpy(bytes_.get(), v.bytes, std::min(v.size, capacity_));
    value_.bytes = bytes_.get();
  }
  const KeyValue &value() const { return value_; }

 private:
  KeyValue value_;
  std::unique_ptr<unsigned char[]> bytes_;
  std::size_t capacity_ = 0;
};

// The current record and the rows fetched after it. Rows are served from the
// batch while the table has not changed through this session; a change made
// elsewhere shows once the batch is used up (at most kMaxWindow steps).
struct Cursor {
  // A find or find-first reads as many rows as the walk from the previous
  // one served (one for lone lookups, a whole group for a walk through the
  // records of one key value); an enumeration that goes on reads ever more
  // at a time, or, where each fetch is a round trip to a server, the most
  // at once from its second fetch on.
  static constexpr std::uint32_t kFirstWindow = 4;
  static constexpr std::uint32_t kMaxWindow = 64;
  // Where the session tells every commit to the file at once, rows fetched
  // ahead stay good until one happens, and windows may grow further.
  static constexpr std::uint32_t kMaxTrackedWindow = 512;
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  bool valid = false;           // a current record exists
  bool currentDeleted = false;  // ... and this handle deleted it
  bool pastEnd = false;         // "next" reports the end
  bool verifyKey = false;       // found by a search: its image must match the key
  std::int64_t seq = 0;
  std::uint32_t keyNumber = 0;     // the order `key` is a place in
  const KeyDef *keyDef = nullptr;  // ... and its definition, once the cursor moved in it
  KeyBuffer key;
  RowBatch batch, spare;
  std::size_t current = kNone;  // the current record's row in `batch`
  std::size_t next = 0;         // the next row to serve
  bool batchAtEnd = false;      // `batch` reaches the end of the order
  std::uint64_t stamp = 0;      // the table's changes when `batch` was fetched
  std::uint64_t mark = 0;       // the session's commit mark taken before that fetch
  std::uint32_t window = kFirstWindow;
  std::uint32_t served = 0;   // rows served since the last find or find-first
  std::uint32_t learned = 1;  // rows the next find or find-first fetches
};

// How reads straight to a copy of the caller's record buffer place the
// fields: planned once per buffer, as the buffer stays while the copy may
// change from call to call.
struct CopyPlan {
  struct Run {
    ImageSegment bound;  // the run where it is bound
    bool inBuffer;       // ... which is inside the buffer
  };
  const unsigned char *buffer = nullptr;
  std::size_t size = 0;
  // Reads go straight to the copy: the fields bound inside the buffer fill
  // it exactly (else they go to the buffer, which is copied after).
  bool straight = false;
  std::vector<Run> runs;
  unsigned char *copy = nullptr;     // the copy of the last call
  std::vector<ImageSegment> toCopy;  // ... and the runs for it
  std::vector<ImageSegment> owed;    // the buffer's runs alone
};

struct Handle {
  std::shared_ptr<StoreSession> session;
  std::shared_ptr<TableHandle> table;
  // Where each field's bytes live, and the same as runs of the image.
  std::vector<unsigned char *> fieldStorage;
  std::vector<ImageSegment> segments;
  std::vector<unsigned char> image;     // a record gathered for writing
  std::vector<unsigned char> stored;    // its stored form
  std::vector<KeyValue> keys;           // its key values
  std::vector<unsigned char> keyField;  // one key field read from a stored row
  // A search key, held: the caller's may lie where the record is read to.
  KeyBuffer searchKey;
  CopyPlan copyPlan;
  // After a read to a copy, the record the buffer is owed, in stored form.
  std::vector<unsigned char> owedRecord;
  std::size_t owedSize = 0;
  bool owing = false;
  // Of the table and the session, kept at hand for every read.
  std::uint32_t recordSize = 0;
  bool legacyRecords = false;
  bool tracksCommits = false;
  Cursor cursor;
};

// Handles are looked up on every operation: each thread remembers the one
// it used last, good while no handle has been closed since.
struct RecentHandle {
  KEPDB *id;
  std::uint64_t closings;
  Handle *handle;
};
// Static TLS, known to need no initialisation: read inline, without the
// lookup call that a library's dynamic TLS costs.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local RecentHandle t_recentHandle;
extern std::atomic<std::uint64_t> g_handleClosings;

// The live handle of that number, or null; remembered as the thread's last.
Handle *lookUpHandle(KEPDB *id);

inline Handle *findHandle(KEPDB *id) {
  const RecentHandle &recent = t_recentHandle;
  if (recent.id == id && recent.handle &&
      recent.closings == g_handleClosings.load(std::memory_order_acquire)) {
    return recent.handle;
  }
  return lookUpHandle(id);
}

// Runs an operation on a live handle, under its session's lock; exceptions
// become results. Inline, so that each operation is one call from the
// table class: a walk's step is mostly this path.
template <typename Operation>
std::uint32_t withHandle(KEPDB *id, Operation op) {
  try {
    Handle *handle = findHandle(id);
    if (!handle) return QDB_E_BADHANDLE;
    std::lock_guard<OperationLock> guard(handle->session->operationLock());
    return op(*handle);
  } catch (const std::bad_alloc &) {
    return QDB_E_NOMEMORY;
  } catch (...) {
    return QDB_E_IO;
  }
}

template <typename Operation>
std::uint32_t withTable(KEPDB *id, Operation op) {
  return withHandle(id, [&](Handle &h) -> std::uint32_t {
    if (!h.table) return QDB_E_NOTABLE;
    return op(h, h.table->def());
  });
}

// Binds the table's fields to the caller's storage, checking that the
// templates describe the stored layout; sizes the working storage.
std::uint32_t bindTable(Handle &h, std::shared_ptr<TableHandle> table,
                        const FieldTemplate *templates);

// Plans reads to copies of the `size` bytes at `buffer`.
void planCopy(Handle &h, const unsigned char *buffer, std::size_t size);

}  // namespace platform::store
