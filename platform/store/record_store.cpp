// The record store API: handles, the current table with its bound field
// storage, and the cursor. The files themselves are kept by a backend.
#include "platform/store/record_store.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/file_names.h"
#include "platform/memory_blocks.h"
#include "platform/store/store_backend_internal.h"
#include "platform/string_table.h"

namespace platform {

namespace {

using store::KeyDef;
using store::Row;
using store::StoreSession;
using store::TableDef;
using store::TableHandle;

struct Binding {
  unsigned char *storage;
  std::uint32_t size;
};

// The current record: where it stands and what it held when it became
// current, so that "next" can go on after it even once it is deleted.
struct Cursor {
  bool valid = false;
  std::int64_t seq = 0;
  std::string record;
};

struct Handle {
  std::shared_ptr<StoreSession> session;
  std::shared_ptr<TableHandle> table;
  std::vector<Binding> bindings;
  Cursor cursor;
};

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
  std::shared_ptr<Handle> find(KEPDB *id) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = handles_.find(reinterpret_cast<std::uintptr_t>(id));
    return it == handles_.end() ? nullptr : it->second;
  }
  std::shared_ptr<Handle> remove(KEPDB *id) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = handles_.find(reinterpret_cast<std::uintptr_t>(id));
    if (it == handles_.end()) return nullptr;
    auto handle = std::move(it->second);
    handles_.erase(it);
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
  std::string key = canonicalPath(path);
  if (!key.empty()) {
    auto it = t_sessions.find(key);
    if (it != t_sessions.end()) {
      if (auto session = it->second.lock()) return session;
    }
  }
  auto session = store::openSqliteStore(path, mode, status);
  if (!session) return nullptr;
  for (auto it = t_sessions.begin(); it != t_sessions.end();) {
    it = it->second.expired() ? t_sessions.erase(it) : std::next(it);
  }
  t_sessions[session->path()] = session;
  return session;
}

// Runs an operation on a live handle; exceptions become results.
template <typename Operation>
std::uint32_t withHandle(KEPDB *id, Operation op) {
  try {
    std::shared_ptr<Handle> handle = registry().find(id);
    if (!handle) return QDB_E_BADHANDLE;
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

std::string gather(const Handle &h) {
  const TableDef &def = h.table->def();
  std::string record(def.recordSize, '\0');
  for (std::size_t i = 0; i < def.fields.size(); ++i) {
    std::memcpy(&record[def.fields[i].offset], h.bindings[i].storage, h.bindings[i].size);
  }
  return record;
}

std::uint32_t scatter(Handle &h, const std::string &record) {
  const TableDef &def = h.table->def();
  if (record.size() != def.recordSize) return QDB_E_IO;
  for (std::size_t i = 0; i < def.fields.size(); ++i) {
    std::memcpy(h.bindings[i].storage, &record[def.fields[i].offset], h.bindings[i].size);
  }
  return QDB_OK;
}

void makeCurrent(Handle &h, Row &row) {
  h.cursor.valid = true;
  h.cursor.seq = row.seq;
  h.cursor.record = std::move(row.record);
}

// Binds the table's fields to the caller's storage, checking that the
// templates describe the stored layout.
std::uint32_t bind(Handle &h, std::shared_ptr<TableHandle> table, const FieldTemplate *templates) {
  const TableDef &def = table->def();
  std::vector<Binding> bindings;
  bindings.reserve(def.fields.size());
  for (std::size_t i = 0; i < def.fields.size(); ++i) {
    const FieldTemplate &t = templates[i];
    if (t.keyNumber != def.fields[i].keyNumber || t.size != def.fields[i].size) {
      return QDB_E_LAYOUT;
    }
    if (!t.storage) return QDB_E_BADARG;
    bindings.push_back({static_cast<unsigned char *>(t.storage), t.size});
  }
  h.table = std::move(table);
  h.bindings = std::move(bindings);
  h.cursor = Cursor{};
  return QDB_OK;
}

// The strings of a SchmLoadStrings block.
bool splitBlock(const void *block, std::uint32_t aux, std::uint32_t count,
                std::vector<std::string> *out) {
  out->clear();
  if (!block) return count == 0;
  const char *p = static_cast<const char *>(block);
  const char *end = p + aux;
  for (std::uint32_t i = 0; i < count; ++i) {
    const void *zero = std::memchr(p, 0, static_cast<std::size_t>(end - p));
    if (!zero) return false;
    out->emplace_back(p);
    p = static_cast<const char *>(zero) + 1;
  }
  return true;
}

std::uint32_t buildDefinition(const TableDescriptor &d, TableDef *def) {
  if (d.size != sizeof(TableDescriptor) || d.templateSize != sizeof(FieldTemplate) ||
      !d.tableName || !d.templates || d.fieldCount == 0 || d.fieldCount > 4096 ||
      (d.queryInfoCount > 0 && !d.queryInfo) || d.queryInfoCount > 65535) {
    return QDB_E_BADARG;
  }
  def->name = d.tableName;
  if (def->name.empty() || def->name.size() > 128 || store::isReservedTableName(def->name)) {
    return QDB_E_BADARG;
  }
  std::vector<std::string> names, descriptions, queryTypes;
  if (!splitBlock(d.fieldNames, d.fieldNamesAux, d.fieldCount, &names) || names.empty()) {
    return QDB_E_BADARG;
  }
  if (d.descriptions &&
      !splitBlock(d.descriptions, d.descriptionsAux, d.fieldCount, &descriptions)) {
    return QDB_E_BADARG;
  }
  if (d.queryTypeNames &&
      !splitBlock(d.queryTypeNames, d.queryTypeNamesAux, d.fieldCount, &queryTypes)) {
    return QDB_E_BADARG;
  }
  def->title = d.title ? d.title : "";
  def->idKey = d.idKey;
  def->secondKey = d.secondKey;
  def->callbackDll = d.callbackDll ? d.callbackDll : "";
  def->callbackEntry = d.callbackEntry ? d.callbackEntry : "";
  def->reserved = {d.reserved70, d.reserved74, d.reserved90, d.reserved94, d.reserved102};
  for (std::uint32_t i = 0; i < d.fieldCount; ++i) {
    const FieldTemplate &t = d.templates[i];
    if (t.size == 0 || t.size > 0x100000) return QDB_E_BADARG;
    store::FieldDef f;
    f.name = names[i];
    f.keyNumber = t.keyNumber;
    f.attribute = t.attribute;
    f.size = t.size;
    f.flags = t.flags;
    if (i < descriptions.size()) f.description = descriptions[i];
    if (i < queryTypes.size()) f.queryType = queryTypes[i];
    def->fields.push_back(std::move(f));
  }
  def->queryInfo.assign(d.queryInfo, d.queryInfo + d.queryInfoCount);
  def->derive();
  // Key numbers address one field each.
  for (std::size_t a = 0; a < def->keys.size(); ++a) {
    for (std::size_t b = a + 1; b < def->keys.size(); ++b) {
      if (def->keys[a].keyNumber == def->keys[b].keyNumber) return QDB_E_BADARG;
    }
  }
  if (def->recordSize > 0x1000000) return QDB_E_BADARG;
  return QDB_OK;
}

}  // namespace

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
  return withHandle(id, [&](Handle &h) -> std::uint32_t {
    if (!tableName || !templates) return QDB_E_BADARG;
    std::shared_ptr<TableHandle> table;
    std::uint32_t r = h.session->table(tableName, &table);
    if (r != QDB_OK) return r;
    return bind(h, std::move(table), templates);
  });
}

std::uint32_t SchmLoadStrings(HINSTANCE instance, void **block, std::uint32_t *aux,
                              const char *const *strings, std::uint32_t firstId,
                              std::uint32_t count) {
  if (!block || !aux) return QDB_E_BADARG;
  // The outputs may be members of a packed descriptor: written byte-wise.
  auto output = [&](void *memory, std::uint32_t size) {
    std::memcpy(block, &memory, sizeof memory);
    std::memcpy(aux, &size, sizeof size);
  };
  output(nullptr, 0);
  try {
    std::string bytes;
    if (instance) {
      // Resource strings: a module without them gives no block.
      bool any = false;
      std::vector<char> text(4096);
      for (std::uint32_t i = 0; i < count; ++i) {
        std::int32_t n =
            LoadStringA(instance, firstId + i, text.data(), static_cast<std::int32_t>(text.size()));
        any = any || n > 0;
        bytes.append(text.data(), n > 0 ? static_cast<std::size_t>(n) : 0);
        bytes += '\0';
      }
      if (count > 0 && !any) return QDB_E_NOTFOUND;
    } else {
      if (!strings && count > 0) return QDB_E_BADARG;
      for (std::uint32_t i = 0; i < count; ++i) {
        if (strings[i]) bytes += strings[i];
        bytes += '\0';
      }
    }
    void *memory = MemAlloc(kMemMovableZeroed, static_cast<std::uint32_t>(bytes.size() + 1));
    if (!memory) return QDB_E_NOMEMORY;
    std::memcpy(memory, bytes.data(), bytes.size());
    output(memory, static_cast<std::uint32_t>(bytes.size()));
    return QDB_OK;
  } catch (...) {
    return QDB_E_NOMEMORY;
  }
}

std::uint32_t SchmAddTableEntry(KEPDB *id, TableDescriptor *descriptor) {
  return withHandle(id, [&](Handle &h) -> std::uint32_t {
    if (!descriptor) return QDB_E_BADARG;
    TableDef def;
    std::uint32_t r = buildDefinition(*descriptor, &def);
    if (r != QDB_OK) return r;
    std::shared_ptr<TableHandle> table;
    r = h.session->createTable(def, &table);
    if (r != QDB_OK) return r;
    return bind(h, std::move(table), descriptor->templates);
  });
}

std::uint32_t SchmAddQueryInfo(KEPDB *id, const char *typeName, std::uint32_t mask,
                               std::uint32_t valueCount, const std::uint32_t *values,
                               std::uint32_t aux, void *block) {
  return withHandle(id, [&](Handle &h) -> std::uint32_t {
    if (!typeName || !*typeName || (valueCount > 0 && !values) || valueCount > 65535) {
      return QDB_E_BADARG;
    }
    store::QueryTypeDef type;
    type.name = typeName;
    type.mask = mask;
    type.values.assign(values, values + valueCount);
    if (block && !splitBlock(block, aux, valueCount, &type.texts)) return QDB_E_BADARG;
    return h.session->addQueryType(type);
  });
}

std::uint32_t QDBRecordAdd(KEPDB *id) {
  return withTable(id, [&](Handle &h, const TableDef &) -> std::uint32_t {
    std::int64_t seq = 0;
    return h.session->insert(*h.table, gather(h), &seq);
  });
}

std::uint32_t QDBRecordUpdate(KEPDB *id) {
  return withTable(id, [&](Handle &h, const TableDef &) -> std::uint32_t {
    if (!h.cursor.valid) return QDB_E_NOCURRENT;
    std::string record = gather(h);
    std::uint32_t r = h.session->update(*h.table, h.cursor.seq, record);
    if (r == QDB_OK) h.cursor.record = std::move(record);
    return r;
  });
}

std::uint32_t QDBRecordDelete(KEPDB *id) {
  return withTable(id, [&](Handle &h, const TableDef &) -> std::uint32_t {
    if (!h.cursor.valid) return QDB_E_NOCURRENT;
    // The cursor keeps its place, so the next "next" goes on after it.
    return h.session->remove(*h.table, h.cursor.seq);
  });
}

std::uint32_t QDBRecordRead(KEPDB *id) {
  return withTable(id, [&](Handle &h, const TableDef &) -> std::uint32_t {
    if (!h.cursor.valid) return QDB_E_NOCURRENT;
    Row row;
    std::uint32_t r = h.session->read(*h.table, h.cursor.seq, &row);
    if (r == QDB_E_NOTFOUND) return QDB_E_NOCURRENT;
    if (r != QDB_OK) return r;
    r = scatter(h, row.record);
    if (r == QDB_OK) makeCurrent(h, row);
    return r;
  });
}

namespace {

std::uint32_t find(KEPDB *id, std::uint32_t key, const void *keyValue, std::uint32_t exact,
                   std::uint32_t keyLength, bool andRead) {
  return withTable(id, [&](Handle &h, const TableDef &def) -> std::uint32_t {
    if (!keyValue || keyLength == 0 || exact != 1) return QDB_E_BADARG;
    const KeyDef *k = def.findKey(key);
    if (!k) return QDB_E_BADKEY;
    Row row;
    std::uint32_t r =
        h.session->seek(*h.table, *k, store::keyOfSearch(def, *k, keyValue, keyLength), &row);
    if (r != QDB_OK) return r;
    if (andRead && (r = scatter(h, row.record)) != QDB_OK) return r;
    makeCurrent(h, row);
    return QDB_OK;
  });
}

}  // namespace

std::uint32_t QDBRecordFind(KEPDB *id, std::uint32_t key, const void *keyValue, std::uint32_t exact,
                            std::uint32_t keyLength) {
  return find(id, key, keyValue, exact, keyLength, false);
}

std::uint32_t QDBRecordFindAndRead(KEPDB *id, std::uint32_t key, const void *keyValue,
                                   std::uint32_t exact, std::uint32_t keyLength) {
  return find(id, key, keyValue, exact, keyLength, true);
}

std::uint32_t QDBRecordSkipAndRead(KEPDB *id, std::uint32_t key, std::uint32_t direction) {
  return withTable(id, [&](Handle &h, const TableDef &def) -> std::uint32_t {
    const KeyDef *k = def.findKey(key);
    if (!k) return QDB_E_BADKEY;
    Row row;
    std::uint32_t r;
    if (direction == kSkipFirst) {
      r = h.session->first(*h.table, *k, &row);
    } else if (direction == kSkipNext) {
      if (!h.cursor.valid) return QDB_E_NOCURRENT;
      r = h.session->next(*h.table, *k, store::keyOfRecord(def, *k, h.cursor.record), h.cursor.seq,
                          &row);
    } else {
      return QDB_E_BADARG;
    }
    if (r != QDB_OK) return r;
    if ((r = scatter(h, row.record)) != QDB_OK) return r;
    makeCurrent(h, row);
    return QDB_OK;
  });
}

std::uint32_t QDBTableNames(KEPDB *id, std::vector<std::string> *names) {
  return withHandle(id, [&](Handle &h) -> std::uint32_t {
    if (!names) return QDB_E_BADARG;
    names->clear();
    return h.session->tableNames(names);
  });
}

std::uint32_t QDBTableInfo(KEPDB *id, const char *tableName, StoreTableInfo *info) {
  return withHandle(id, [&](Handle &h) -> std::uint32_t {
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
  return withHandle(id, [](Handle &h) { return h.session->lockWrite(); });
}

std::uint32_t QDBFileUnlock(KEPDB *id) {
  return withHandle(id, [](Handle &h) { return h.session->unlockWrite(); });
}

std::uint32_t QDBReadLock(KEPDB *id) {
  return withHandle(id, [](Handle &h) { return h.session->lockRead(); });
}

std::uint32_t QDBReadUnlock(KEPDB *id) {
  return withHandle(id, [](Handle &h) { return h.session->unlockRead(); });
}

}  // namespace platform
