// The object manager stand-in. Instances live in a record store of their own
// in the data directory, so that every process sees the same objects.
#include "platform/object_manager.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/console_settings_internal.h"
#include "platform/guid.h"
#include "platform/memory_blocks.h"
#include "platform/store/lock_span_internal.h"
#include "platform/store/record_store.h"

namespace platform {

const _GUID kClassIdUser = {
    0x5D3A91C2, 0x7E40, 0x4B6A, {0x9F, 0x21, 0x3C, 0x8E, 0x0B, 0x7A, 0x6D, 0x15}};
const _GUID kClassIdEventClass = {
    0x5D3A91C3, 0x7E40, 0x4B6A, {0x9F, 0x21, 0x3C, 0x8E, 0x0B, 0x7A, 0x6D, 0x15}};
const _GUID kClassIdEventLog = {
    0x5D3A91C4, 0x7E40, 0x4B6A, {0x9F, 0x21, 0x3C, 0x8E, 0x0B, 0x7A, 0x6D, 0x15}};

namespace {

constexpr std::uint32_t kOk = 0;
constexpr std::uint32_t kFailed = 0x80004005;       // E_FAIL
constexpr std::uint32_t kNoInterface = 0x80004002;  // E_NOINTERFACE
constexpr std::uint32_t kInvalidArg = 0x80070057;   // E_INVALIDARG
constexpr std::uint32_t kNotFound = 0x80070490;     // ERROR_NOT_FOUND as a result

constexpr const char *kStoreFile = "KepOM.dat";
constexpr const char *kInstanceTable = "OM_Instances";
constexpr std::uint32_t kInstanceIdKey = 1;
constexpr std::uint32_t kInstanceClassKey = 2;
// The domain is the instance of this class whose ID is the domain ID.
const _GUID kDomainClass = {
    0x5D3A91C0, 0x7E40, 0x4B6A, {0x9F, 0x21, 0x3C, 0x8E, 0x0B, 0x7A, 0x6D, 0x15}};

#pragma pack(push, 1)
struct InstanceRecord {
  _GUID objectId;
  _GUID classId;
  char name[261];
};
#pragma pack(pop)
static_assert(sizeof(InstanceRecord) == 293);

// ------------------------------------------------------------ provider

std::mutex g_providerMutex;
KepOMProvider g_provider{};  // null entries: the stand-in

template <typename Member>
auto installed(Member member) {
  std::lock_guard<std::mutex> lock(g_providerMutex);
  return g_provider.*member;
}

// ------------------------------------------------------------ connections

struct Connection {
  KepOMConnection base;
  std::atomic<std::uint32_t> references;
};

std::uint32_t connectionQuery(KepOMConnection *self, const _GUID *, void **out) {
  if (out) *out = nullptr;
  return self ? kNoInterface : kInvalidArg;
}

std::uint32_t connectionAddRef(KepOMConnection *self) {
  if (!self) return 0;
  return ++reinterpret_cast<Connection *>(self)->references;
}

std::uint32_t connectionRelease(KepOMConnection *self) {
  if (!self) return 0;
  auto *c = reinterpret_cast<Connection *>(self);
  std::uint32_t left = --c->references;
  if (left == 0) delete c;
  return left;
}

const KepOMConnectionOps kConnectionOps = {connectionQuery, connectionAddRef, connectionRelease};

// ------------------------------------------------------------ instance store

// The instance table of the current data directory, opened once per thread.
class InstanceStore {
 public:
  InstanceStore() {
    std::memset(&record_, 0, sizeof record_);
    auto field = [](std::uint32_t key, std::uint32_t size, void *storage, std::uint32_t flags) {
      FieldTemplate t{};
      t.keyNumber = key;
      t.attribute = 16;
      t.size = t.sizeAgain = size;
      t.storage = storage;
      t.flags = flags;
      return t;
    };
    templates_[0] = field(kInstanceIdKey, 16, &record_.objectId, 0x311);
    templates_[1] = field(kInstanceClassKey, 16, &record_.classId, 0x311);
    templates_[2] = field(0, sizeof record_.name, record_.name, 0x1);
  }
  ~InstanceStore() { close(); }

  // Opens (creating when needed) the store of the current data directory.
  bool open() {
    char dir[260];
    if (KepOMGetDataDir(dir, sizeof dir) != 0) return false;
    if (handle_ && dir_ == dir) return true;
    close();
    std::string path = std::string(dir) + "/" + kStoreFile;
    KEPDB *h = QDBInit(0, path.c_str(), kOpenCreate, 1);
    if (!h) return false;
    if (SchmSetCurrentTbl(h, kInstanceTable, templates_) != 0 && createTable(h) != 0) {
      QDBDone(h);
      return false;
    }
    handle_ = h;
    dir_ = dir;
    return true;
  }

  // Registers a new instance; an instance that is there already is refused.
  std::uint32_t add(const _GUID &id, const _GUID &classId, const char *name) {
    if (!open()) return kFailed;
    if (lookup(id, nullptr, nullptr)) return kFailed;
    if (deferring()) return defer(Change::Add, id, classId, name);
    return write(Change::Add, id, classId, name);
  }

  // Changes a registered instance; one the object manager does not know is refused.
  std::uint32_t update(const _GUID &id, const _GUID &classId, const char *name) {
    if (!open()) return kFailed;
    if (!lookup(id, nullptr, nullptr)) return kNotFound;
    if (deferring()) return defer(Change::Update, id, classId, name);
    return write(Change::Update, id, classId, name);
  }

  std::uint32_t remove(const _GUID &id, const _GUID &classId) {
    if (!open()) return kFailed;
    _GUID known;
    if (!lookup(id, &known, nullptr) || std::memcmp(&known, &classId, sizeof classId) != 0) {
      return kNotFound;
    }
    if (deferring()) return defer(Change::Delete, id, classId, nullptr);
    return write(Change::Delete, id, classId, nullptr);
  }

  std::uint32_t get(const _GUID &id, _GUID *classId, char *name, std::uint32_t nameSize) {
    if (!open()) return kFailed;
    std::string known;
    if (!lookup(id, classId, &known)) return kNotFound;
    if (name && nameSize > 0) {
      std::strncpy(name, known.c_str(), nameSize - 1);
      name[nameSize - 1] = '\0';
    }
    return kOk;
  }

  // The changes held while this thread holds a file lock: written when the
  // lock is released with a commit, dropped when the batch rolled back.
  void settle(bool committed) {
    if (applying_ || pending_.empty()) return;
    std::vector<PendingChange> changes;
    changes.swap(pending_);
    latest_.clear();
    if (!committed || !open()) return;
    applying_ = true;
    bool locked = QDBFileLock(handle_) == 0;
    for (const PendingChange &c : changes) store(c.kind, c.id, c.classId, c.name.c_str());
    if (locked) QDBFileUnlock(handle_);
    applying_ = false;
  }

  // The domain: the first instance of its class, or a new one.
  std::uint32_t domain(_GUID *id) {
    if (!open()) return kFailed;
    if (!domainKnown_ && singleton(kDomainClass, &domain_) == kOk) domainKnown_ = true;
    if (!domainKnown_) return kFailed;
    *id = domain_;
    return kOk;
  }

 private:
  // The first instance of a class, or a new one.
  std::uint32_t singleton(const _GUID &classId, _GUID *id) {
    if (QDBRecordFindAndRead(handle_, kInstanceClassKey, &classId, 1, 16) == 0) {
      *id = record_.objectId;
      return kOk;
    }
    _GUID fresh;
    if (CoCreateGuid(&fresh) != 0) return kFailed;
    // The domain belongs to no batch: it is written at once.
    std::uint32_t r = store(Change::Add, fresh, classId, "Domain");
    // Another process may have made one meanwhile; the first in order wins.
    if (QDBRecordFindAndRead(handle_, kInstanceClassKey, &classId, 1, 16) == 0) {
      *id = record_.objectId;
      return kOk;
    }
    return r == kOk ? kFailed : r;
  }

  enum class Change { Add, Update, Delete };
  struct PendingChange {
    Change kind;
    _GUID id;
    _GUID classId;
    std::string name;
  };

  bool find(const _GUID &id) { return QDBRecordFind(handle_, kInstanceIdKey, &id, 1, 16) == 0; }

  static std::string keyOf(const _GUID &id) {
    return std::string(reinterpret_cast<const char *>(&id), sizeof id);
  }

  bool deferring() const { return !applying_ && store::threadHoldsFileLock(); }

  // Whether the instance exists as this thread sees it, held changes included.
  bool lookup(const _GUID &id, _GUID *classId, std::string *name) {
    auto it = latest_.find(keyOf(id));
    if (it != latest_.end()) {
      const PendingChange &c = pending_[it->second];
      if (c.kind == Change::Delete) return false;
      if (classId) *classId = c.classId;
      if (name) *name = c.name;
      return true;
    }
    // Found in the store, the instance is left current for a write.
    if (!find(id)) return false;
    if (!classId && !name) return true;
    if (QDBRecordRead(handle_) != 0) return false;
    if (classId) *classId = record_.classId;
    if (name) name->assign(record_.name, strnlen(record_.name, sizeof record_.name));
    return true;
  }

  std::uint32_t defer(Change kind, const _GUID &id, const _GUID &classId, const char *name) {
    latest_[keyOf(id)] = pending_.size();
    pending_.push_back({kind, id, classId, name ? name : ""});
    return kOk;
  }

  // A change checked against the store; a held one may have been overtaken.
  std::uint32_t store(Change kind, const _GUID &id, const _GUID &classId, const char *name) {
    bool known = find(id);
    if (kind == Change::Add && known) return kFailed;
    if (kind != Change::Add && !known) return kNotFound;
    return write(kind, id, classId, name);
  }

  // A change whose instance was just looked up: absent for an add, current
  // for an update or a delete.
  std::uint32_t write(Change kind, const _GUID &id, const _GUID &classId, const char *name) {
    switch (kind) {
      case Change::Add:
        fill(id, classId, name);
        return QDBRecordAdd(handle_) == 0 ? kOk : kFailed;
      case Change::Update:
        fill(id, classId, name);
        return QDBRecordUpdate(handle_) == 0 ? kOk : kFailed;
      case Change::Delete:
        return QDBRecordDelete(handle_) == 0 ? kOk : kFailed;
    }
    return kFailed;
  }

  void fill(const _GUID &id, const _GUID &classId, const char *name) {
    std::memset(&record_, 0, sizeof record_);
    record_.objectId = id;
    record_.classId = classId;
    if (name) std::strncpy(record_.name, name, sizeof record_.name - 1);
  }

  std::uint32_t createTable(KEPDB *h) {
    static const char *const names[] = {"KEPOID", "ClassId", "Name"};
    QueryInfoEntry info[2] = {};
    info[0] = {20, kInstanceIdKey, 0, 1, 0, 1, 3, {}};
    info[1] = {20, kInstanceClassKey, 0, 2, 0, 2, 3, {}};
    TableDescriptor d{};
    d.size = sizeof d;
    d.idKey = kInstanceIdKey;
    d.tableName = const_cast<char *>(kInstanceTable);
    if (SchmLoadStrings(nullptr, &d.fieldNames, &d.fieldNamesAux, names, 0, 3) != 0) {
      return kFailed;
    }
    d.title = const_cast<char *>("Object Instances");
    d.fieldCount = 3;
    d.queryInfoCount = 2;
    d.secondKey = 0xFFFFFFFF;
    d.templateSize = sizeof(FieldTemplate);
    d.templates = templates_;
    d.queryInfo = info;
    d.one = 1;
    std::uint32_t r = SchmAddTableEntry(h, &d);
    MemFree(d.fieldNames);
    return r;
  }

  void close() {
    if (handle_) QDBDone(handle_);
    handle_ = nullptr;
    dir_.clear();
    domainKnown_ = false;
  }

  InstanceRecord record_;
  FieldTemplate templates_[3];
  KEPDB *handle_ = nullptr;
  std::string dir_;
  // The domain never changes once made: asked for with every add of some
  // tables, it is looked up once per data directory.
  bool domainKnown_ = false;
  _GUID domain_{};
  std::vector<PendingChange> pending_;
  std::unordered_map<std::string, std::size_t> latest_;
  bool applying_ = false;
};

InstanceStore &instances() {
  thread_local InstanceStore store;
  return store;
}

void settleHeldChanges(bool committed) {
  try {
    instances().settle(committed);
  } catch (...) {
    // A change that cannot be written leaves the instance as it was.
  }
}

// The stand-in holds a thread's changes for as long as it holds a file lock.
const bool g_listening = (store::setLockSpanListener(settleHeldChanges), true);

template <typename Operation>
std::uint32_t guarded(Operation op) {
  try {
    return op();
  } catch (...) {
    return kFailed;
  }
}

// ------------------------------------------------------------ stand-in

std::uint32_t standInDataDir(char *buffer, std::uint32_t size) {
  const char *env = std::getenv("ALERTDB_DATA_DIR");
  std::string dir;
  if (env && *env) {
    dir = env;
  } else {
    char value[260];
    if (!ReadConsoleDataDir(value)) return kFailed;
    dir = value;
  }
  while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
  if (dir.empty() || dir.size() + 1 > size) return kFailed;
  std::memcpy(buffer, dir.c_str(), dir.size() + 1);
  return kOk;
}

}  // namespace

std::uint32_t KepOMGetDataDir(char *buffer, std::uint32_t size) {
  if (!buffer || size == 0) return kInvalidArg;
  if (auto f = installed(&KepOMProvider::GetDataDir)) return f(buffer, size);
  return guarded([&] { return standInDataDir(buffer, size); });
}

std::uint32_t KepOMGetDomainID(_GUID *domainId) {
  if (!domainId) return kInvalidArg;
  if (auto f = installed(&KepOMProvider::GetDomainID)) return f(domainId);
  return guarded([&] { return instances().domain(domainId); });
}

std::uint32_t KepOMOpen(KepOMConnection **connection) {
  if (!connection) return kInvalidArg;
  *connection = nullptr;
  if (auto f = installed(&KepOMProvider::Open)) return f(connection);
  return guarded([&] {
    auto *c = new Connection{{&kConnectionOps}, {1}};
    *connection = &c->base;
    return kOk;
  });
}

std::uint32_t KepOMAddInstance(const _GUID *objectId, const _GUID *classId, const char *name) {
  if (!objectId || !classId) return kInvalidArg;
  if (auto f = installed(&KepOMProvider::AddInstance)) return f(objectId, classId, name);
  return guarded([&] { return instances().add(*objectId, *classId, name); });
}

std::uint32_t KepOMUpdateInstance(const _GUID *objectId, const _GUID *classId, const char *name) {
  if (!objectId || !classId) return kInvalidArg;
  if (auto f = installed(&KepOMProvider::UpdateInstance)) return f(objectId, classId, name);
  return guarded([&] { return instances().update(*objectId, *classId, name); });
}

std::uint32_t KepOMDeleteInstance(const _GUID *objectId, const _GUID *classId) {
  if (!objectId || !classId) return kInvalidArg;
  if (auto f = installed(&KepOMProvider::DeleteInstance)) return f(objectId, classId);
  return guarded([&] { return instances().remove(*objectId, *classId); });
}

void KepOMSetProvider(const KepOMProvider *provider) {
  std::lock_guard<std::mutex> lock(g_providerMutex);
  g_provider = provider ? *provider : KepOMProvider{};
}

std::uint32_t KepOMGetInstance(const _GUID *objectId, _GUID *classId, char *name,
                               std::uint32_t nameSize) {
  if (!objectId) return kInvalidArg;
  return guarded([&] { return instances().get(*objectId, classId, name, nameSize); });
}

}  // namespace platform
