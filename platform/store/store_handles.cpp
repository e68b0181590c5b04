// Record store handles: opening files, sharing a session among the handles
// of one thread, selecting and binding a table, the file and read locks.
#include <atomic>
#include <climits>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <unordered_map>

#include "platform/file_names.h"
#include "platform/store/record_store.h"
#include "platform/store/store_handle_internal.h"

namespace platform {

namespace {

using store::Handle;
using store::StoreSession;
using store::TableDef;
using store::TableHandle;

// Handles are numbers that are never reused, so a closed or made-up handle is
// refused instead of followed.
class HandleRegistry {
 public:
  KEPDB *add(std::shared_ptr<Handle> handle) {
    std::lock_guard<std::mutex> lock(mutex_);
    next_ += 16;
    handles_.emplace(next_, std::move(handle));
    return reinterpret_cast<KEPDB *>(next_);
  }
  // The handle stays registered, and so alive, until QDBDone: a handle is
  // never used by two threads at once, so none can close it meanwhile.
  Handle *find(KEPDB *id) {
    std::uint64_t closings = store::g_handleClosings.load(std::memory_order_acquire);
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = handles_.find(reinterpret_cast<std::uintptr_t>(id));
    if (it == handles_.end()) return nullptr;
    store::t_recentHandle = {id, closings, it->second.get()};
    return it->second.get();
  }
  std::shared_ptr<Handle> remove(KEPDB *id) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = handles_.find(reinterpret_cast<std::uintptr_t>(id));
    if (it == handles_.end()) return nullptr;
    auto handle = std::move(it->second);
    handles_.erase(it);
    store::g_handleClosings.fetch_add(1, std::memory_order_release);
    return handle;
  }

 private:
  std::mutex mutex_;
  std::uintptr_t next_ = 0x10000;
  std::unordered_map<std::uintptr_t, std::shared_ptr<Handle>> handles_;
};

HandleRegistry &registry() {
  static HandleRegistry *instance = new HandleRegistry;  // outlives static destructors
  return *instance;
}

// The handles one thread opens on one file share a session, and with it the
// file lock: a thread holding the lock can go on writing through any of them.
thread_local std::map<std::string, std::weak_ptr<StoreSession>> t_sessions;

std::string canonicalPath(const std::string &path) {
  char buffer[PATH_MAX];
  return ::realpath(ResolveFileName(path).c_str(), buffer) ? std::string(buffer) : std::string();
}

std::shared_ptr<StoreSession> sessionFor(const char *path, std::uint32_t mode,
                                         std::uint32_t *status) {
  bool server = store::usesServerStore();
  std::string key = server ? store::serverSessionKey(path) : canonicalPath(path);
  if (!key.empty()) {
    auto it = t_sessions.find(key);
    if (it != t_sessions.end()) {
      if (auto session = it->second.lock()) return session;
    }
  }
  auto session = server ? store::openPostgresStore(path, mode, status)
                        : store::openSqliteStore(path, mode, status);
  if (!session) return nullptr;
  for (auto it = t_sessions.begin(); it != t_sessions.end();) {
    it = it->second.expired() ? t_sessions.erase(it) : std::next(it);
  }
  t_sessions[session->path()] = session;
  return session;
}

}  // namespace

namespace store {

[[gnu::tls_model("initial-exec")]] constinit thread_local RecentHandle t_recentHandle{};
std::atomic<std::uint64_t> g_handleClosings{0};

Handle *lookUpHandle(KEPDB *id) { return registry().find(id); }

std::uint32_t bindTable(Handle &h, std::shared_ptr<TableHandle> table,
                        const FieldTemplate *templates) {
  const TableDef &def = table->def();
  std::vector<unsigned char *> storage;
  std::vector<ImageSegment> segments;
  storage.reserve(def.fields.size());
  for (std::size_t i = 0; i < def.fields.size(); ++i) {
    const FieldTemplate &t = templates[i];
    const FieldDef &f = def.fields[i];
    if (t.keyNumber != f.keyNumber || t.size != f.size) return QDB_E_LAYOUT;
    if (!t.storage) return QDB_E_BADARG;
    auto *at = static_cast<unsigned char *>(t.storage);
    storage.push_back(at);
    // Fields bound back to back move as one run.
    if (!segments.empty() && segments.back().storage + segments.back().size == at) {
      segments.back().size += f.size;
    } else {
      segments.push_back({f.offset, f.size, at});
    }
  }
  h.fieldStorage = std::move(storage);
  h.segments = std::move(segments);
  h.image.assign(def.recordSize, 0);
  h.stored.assign(storedSizeBound(def.recordSize), 0);
  h.keys.assign(def.keys.size(), KeyValue{});
  h.keyField.assign(def.maxKeySize, 0);
  // Planned on the first read to a copy, into room kept now.
  h.copyPlan = CopyPlan{};
  h.copyPlan.runs.reserve(def.fields.size());
  h.copyPlan.toCopy.reserve(def.fields.size());
  h.copyPlan.owed.reserve(def.fields.size());
  h.owedRecord.assign(storedSizeBound(def.recordSize), 0);
  h.owing = false;
  h.recordSize = def.recordSize;
  h.legacyRecords = h.session->acceptsLegacyRecords();
  h.tracksCommits = h.session->tracksCommits();
  h.cursor = Cursor{};
  h.cursor.key.reserve(def.maxKeySize);
  h.searchKey.reserve(def.maxKeySize);
  h.cursor.batch.reserveRows(Cursor::kMaxTrackedWindow);
  h.cursor.spare.reserveRows(Cursor::kMaxTrackedWindow);
  h.table = std::move(table);
  return QDB_OK;
}

void planCopy(Handle &h, const unsigned char *buffer, std::size_t size) {
  CopyPlan &plan = h.copyPlan;
  h.owing = false;  // owed to another buffer
  const TableDef &def = h.table->def();
  auto start = reinterpret_cast<std::uintptr_t>(buffer);
  auto offsetOf = [&](std::size_t i) {
    return reinterpret_cast<std::uintptr_t>(h.fieldStorage[i]) - start;
  };
  auto inBuffer = [&](std::size_t i) {
    return offsetOf(i) < size && def.fields[i].size <= size - offsetOf(i);
  };
  std::size_t covered = 0;
  bool overlap = false;
  plan.runs.clear();
  for (std::size_t i = 0; i < def.fields.size(); ++i) {
    unsigned char *at = h.fieldStorage[i];
    std::uint32_t fieldSize = def.fields[i].size;
    bool inside = inBuffer(i);
    if (inside) {
      covered += fieldSize;
      for (std::size_t j = 0; j < i; ++j) {
        overlap = overlap || (inBuffer(j) && offsetOf(j) < offsetOf(i) + fieldSize &&
                              offsetOf(i) < offsetOf(j) + def.fields[j].size);
      }
    }
    CopyPlan::Run *last = plan.runs.empty() ? nullptr : &plan.runs.back();
    if (last && last->inBuffer == inside && last->bound.storage + last->bound.size == at) {
      last->bound.size += fieldSize;
    } else {
      plan.runs.push_back({{def.fields[i].offset, fieldSize, at}, inside});
    }
  }
  plan.straight = !overlap && covered == size;
  plan.toCopy.assign(plan.runs.size(), ImageSegment{});
  plan.copy = nullptr;
  plan.owed.clear();
  for (const CopyPlan::Run &run : plan.runs) {
    plan.owed.push_back(
        {run.bound.offset, run.bound.size, run.inBuffer ? run.bound.storage : nullptr});
  }
  plan.buffer = buffer;
  plan.size = size;
}

}  // namespace store

KEPDB *QDBInit(std::uint32_t, const char *path, std::uint32_t mode, std::uint32_t) {
  if (!path || !*path) return nullptr;
  if (mode != kOpenExisting && mode != kOpenRecover && mode != kOpenCreate) return nullptr;
  try {
    std::uint32_t status = QDB_OK;
    auto session = sessionFor(path, mode, &status);
    if (!session) return nullptr;
    auto handle = std::make_shared<Handle>();
    handle->session = std::move(session);
    return registry().add(std::move(handle));
  } catch (...) {
    return nullptr;
  }
}

std::uint32_t QDBDone(KEPDB *id) {
  try {
    return registry().remove(id) ? QDB_OK : QDB_E_BADHANDLE;
  } catch (...) {
    return QDB_E_IO;
  }
}

std::uint32_t SchmSetCurrentTbl(KEPDB *id, const char *tableName, FieldTemplate *templates) {
  return store::withHandle(id, [&](Handle &h) -> std::uint32_t {
    if (!tableName || !templates) return QDB_E_BADARG;
    std::shared_ptr<TableHandle> table;
    std::uint32_t r = h.session->table(tableName, &table);
    if (r != QDB_OK) return r;
    return store::bindTable(h, std::move(table), templates);
  });
}

std::uint32_t QDBTableNames(KEPDB *id, std::vector<std::string> *names) {
  return store::withHandle(id, [&](Handle &h) -> std::uint32_t {
    if (!names) return QDB_E_BADARG;
    names->clear();
    return h.session->tableNames(names);
  });
}

std::uint32_t QDBTableInfo(KEPDB *id, const char *tableName, StoreTableInfo *info) {
  return store::withHandle(id, [&](Handle &h) -> std::uint32_t {
    if (!tableName || !info) return QDB_E_BADARG;
    std::shared_ptr<TableHandle> table;
    std::uint32_t r = h.session->table(tableName, &table);
    if (r != QDB_OK) return r;
    const TableDef &def = table->def();
    StoreTableInfo out;
    out.name = def.name;
    out.title = def.title;
    out.idKey = def.idKey;
    for (const auto &f : def.fields) {
      out.fields.push_back(
          {f.name, f.keyNumber, f.attribute, f.size, f.flags, f.description, f.queryType});
    }
    if ((r = h.session->count(*table, &out.recordCount)) != QDB_OK) return r;
    *info = std::move(out);
    return QDB_OK;
  });
}

std::uint32_t QDBFileLock(KEPDB *id) {
  return store::withHandle(id, [](Handle &h) { return h.session->lockWrite(); });
}

std::uint32_t QDBFileUnlock(KEPDB *id) {
  return store::withHandle(id, [](Handle &h) { return h.session->unlockWrite(); });
}

std::uint32_t QDBReadLock(KEPDB *id) {
  return store::withHandle(id, [](Handle &h) { return h.session->lockRead(); });
}

std::uint32_t QDBReadUnlock(KEPDB *id) {
  return store::withHandle(id, [](Handle &h) { return h.session->unlockRead(); });
}

}  // namespace platform
