// Named events live in POSIX shared memory, one object per name, so that every
// process of the machine shares them. Like Windows kernel objects they are never
// removed while someone may use them: this library unlinks no published event,
// and an event outlives its last handle (it lasts until reboot or until an
// administrator removes it from /dev/shm).
#include "platform/named_event.h"

#include <fcntl.h>
#include <limits.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "platform/named_event_internal.h"

namespace platform {
namespace {

// The ready word holds this once the creator has initialised the object; it
// carries the layout version, so an object of another layout is refused.
constexpr std::uint32_t kReadyMagic = 0x41455601;
constexpr const char *kObjectPrefix = "/alertdb.";
// How long an opener waits for a creator that is still initialising.
constexpr long kReadyWaitMs = 2000;

struct SharedEvent {
  std::uint32_t ready;  // atomic: kReadyMagic once initialised
  std::uint32_t manualReset;
  // Futex word, bumped by every SetEvent. Waiters sleep on it outside the lock:
  // glibc's process-shared condition variable wedges for good once a waiter is
  // killed while blocked in it, and watchers get killed.
  std::uint32_t sequence;
  // Guarded by `lock`.
  std::uint32_t signalled;
  std::uint32_t waiters;  // threads inside WaitForSingleObject; a killed one stays counted
  std::uint32_t grants;   // auto-reset releases that SetEvent handed out, not yet taken
  pthread_mutex_t lock;   // process-shared, robust
};

std::uint32_t Load(std::uint32_t &word) {
  return std::atomic_ref<std::uint32_t>(word).load(std::memory_order_acquire);
}

class Mapping {
 public:
  explicit Mapping(SharedEvent *event) : event_(event) {}
  ~Mapping() { munmap(event_, sizeof(SharedEvent)); }
  Mapping(const Mapping &) = delete;
  Mapping &operator=(const Mapping &) = delete;
  SharedEvent *event() const { return event_; }

 private:
  SharedEvent *event_;
};

// Handles are numbers, never addresses, and never reused: a stale or made-up
// handle is looked up and refused, not dereferenced.
struct Registry {
  std::mutex mutex;
  std::unordered_map<std::uintptr_t, std::shared_ptr<Mapping>> handles;
  std::uintptr_t next = 0x1000;
};

Registry &TheRegistry() {
  // Never destroyed: handles may still be closed from other objects' destructors at unload.
  static Registry *registry = new Registry;
  return *registry;
}

HANDLE Register(std::shared_ptr<Mapping> mapping) {
  Registry &registry = TheRegistry();
  std::lock_guard<std::mutex> guard(registry.mutex);
  std::uintptr_t value = registry.next;
  registry.handles.emplace(value, std::move(mapping));
  registry.next += 4;
  return reinterpret_cast<HANDLE>(value);
}

std::shared_ptr<Mapping> Find(HANDLE handle) {
  if (handle == nullptr) return nullptr;
  Registry &registry = TheRegistry();
  std::lock_guard<std::mutex> guard(registry.mutex);
  auto it = registry.handles.find(reinterpret_cast<std::uintptr_t>(handle));
  return it == registry.handles.end() ? nullptr : it->second;
}

std::string ObjectName(const char *name) {
  const char *space = std::getenv("ALERTDB_EVENT_NAMESPACE");
  std::string full = std::string(space != nullptr ? space : "") + name;
  // Escaped rather than replaced, so that "a/b" and "a_b" stay different events.
  std::string result = kObjectPrefix;
  for (char c : full) {
    if (c == '/') {
      result += "%2F";
    } else if (c == '\\') {
      result += "%5C";
    } else if (c == '%') {
      result += "%25";
    } else {
      result += c;
    }
  }
  if (result.size() - 1 > NAME_MAX) return std::string();
  return result;
}

timespec Now() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now;
}

timespec After(std::uint64_t milliseconds) {
  timespec t = Now();
  t.tv_sec += static_cast<time_t>(milliseconds / 1000);
  t.tv_nsec += static_cast<long>(milliseconds % 1000) * 1000000L;
  if (t.tv_nsec >= 1000000000L) {
    t.tv_sec += 1;
    t.tv_nsec -= 1000000000L;
  }
  return t;
}

bool Passed(const timespec &deadline) {
  timespec now = Now();
  return now.tv_sec > deadline.tv_sec ||
         (now.tv_sec == deadline.tv_sec && now.tv_nsec >= deadline.tv_nsec);
}

void Pause() {
  timespec step = {0, 1000000L};
  nanosleep(&step, nullptr);
}

// Not FUTEX_PRIVATE: the word is shared between processes.
bool FutexWaitTimedOut(std::uint32_t *word, std::uint32_t expected, const timespec *deadline) {
  long rc = syscall(SYS_futex, word, FUTEX_WAIT_BITSET, expected, deadline, nullptr,
                    FUTEX_BITSET_MATCH_ANY);
  return rc != 0 && errno == ETIMEDOUT;
}

void FutexWakeAll(std::uint32_t *word) {
  syscall(SYS_futex, word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

// Takes the lock, repairing it when its holder died. Every state change under
// the lock is a single word store, so a dead holder cannot leave a torn state.
int Lock(SharedEvent *event, const timespec *deadline) {
  int rc = deadline != nullptr ? pthread_mutex_clocklock(&event->lock, CLOCK_MONOTONIC, deadline)
                               : pthread_mutex_lock(&event->lock);
  if (rc == EOWNERDEAD) rc = pthread_mutex_consistent(&event->lock);
  return rc;
}

void Unlock(SharedEvent *event) { pthread_mutex_unlock(&event->lock); }

// The memory is zero-filled (fresh shared memory).
bool Initialise(SharedEvent *event, bool manualReset, bool initialState) {
  pthread_mutexattr_t attributes;
  if (pthread_mutexattr_init(&attributes) != 0) return false;
  bool ok = pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED) == 0 &&
            pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST) == 0 &&
            pthread_mutex_init(&event->lock, &attributes) == 0;
  pthread_mutexattr_destroy(&attributes);
  if (!ok) return false;
  event->manualReset = manualReset ? 1 : 0;
  event->signalled = initialState ? 1 : 0;
  std::atomic_ref<std::uint32_t>(event->ready).store(kReadyMagic, std::memory_order_release);
  return true;
}

SharedEvent *MapObject(int fd) {
  void *memory = mmap(nullptr, sizeof(SharedEvent), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  return memory == MAP_FAILED ? nullptr : static_cast<SharedEvent *>(memory);
}

std::shared_ptr<Mapping> Adopt(SharedEvent *event) {
  try {
    return std::make_shared<Mapping>(event);
  } catch (...) {
    munmap(event, sizeof(SharedEvent));
    return nullptr;
  }
}

// Maps an object someone else created, once its creator has published it.
std::shared_ptr<Mapping> AttachExisting(int fd) {
  timespec deadline = After(kReadyWaitMs);
  for (;;) {
    struct stat status;
    if (fstat(fd, &status) != 0) return nullptr;
    if (status.st_size >= static_cast<off_t>(sizeof(SharedEvent))) break;
    // Zero means the creator has not sized it yet; any other size is not ours.
    if (status.st_size != 0 || Passed(deadline)) return nullptr;
    Pause();
  }
  SharedEvent *event = MapObject(fd);
  if (event == nullptr) return nullptr;
  for (;;) {
    std::uint32_t ready = Load(event->ready);
    if (ready == kReadyMagic) return Adopt(event);
    if (ready != 0 || Passed(deadline)) break;
    Pause();
  }
  munmap(event, sizeof(SharedEvent));
  return nullptr;
}

std::shared_ptr<Mapping> CreateNew(int fd, const std::string &objectName, bool manualReset,
                                   bool initialState) {
  SharedEvent *event = nullptr;
  if (ftruncate(fd, sizeof(SharedEvent)) == 0) event = MapObject(fd);
  if (event != nullptr && Initialise(event, manualReset, initialState)) return Adopt(event);
  if (event != nullptr) munmap(event, sizeof(SharedEvent));
  // Never published, so nobody uses it; removing it lets the next creator try afresh.
  shm_unlink(objectName.c_str());
  return nullptr;
}

std::shared_ptr<Mapping> OpenNamed(const char *name, bool create, bool manualReset,
                                   bool initialState) {
  std::string objectName = ObjectName(name);
  if (objectName.empty()) return nullptr;
  // A few rounds: the object can vanish between our two opens if an administrator removes it.
  for (int round = 0; round < 4; ++round) {
    int fd = shm_open(objectName.c_str(), O_RDWR, 0);
    std::shared_ptr<Mapping> mapping;
    if (fd >= 0) {
      mapping = AttachExisting(fd);
      close(fd);
      return mapping;
    }
    if (errno != ENOENT || !create) return nullptr;
    fd = shm_open(objectName.c_str(), O_RDWR | O_CREAT | O_EXCL, 0666);
    if (fd >= 0) {
      mapping = CreateNew(fd, objectName, manualReset, initialState);
      close(fd);
      return mapping;
    }
    if (errno != EEXIST) return nullptr;
  }
  return nullptr;
}

// An unnamed event still lives in shared memory, so that forked children share it.
std::shared_ptr<Mapping> CreateUnnamed(bool manualReset, bool initialState) {
  void *memory =
      mmap(nullptr, sizeof(SharedEvent), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return nullptr;
  SharedEvent *event = static_cast<SharedEvent *>(memory);
  if (!Initialise(event, manualReset, initialState)) {
    munmap(memory, sizeof(SharedEvent));
    return nullptr;
  }
  return Adopt(event);
}

// Whether the caller is released now; auto-reset uses up what released it.
bool TakeSignal(SharedEvent *event) {
  if (event->manualReset != 0) return event->signalled != 0;
  // Anyone may take a grant: one set still releases exactly one waiter, and a
  // grant meant for a waiter that was killed is not lost.
  if (event->grants > 0) {
    --event->grants;
    return true;
  }
  if (event->signalled == 0) return false;
  event->signalled = 0;
  return true;
}

std::uint32_t Wait(SharedEvent *event, std::uint32_t milliseconds) {
  bool infinite = milliseconds == kInfinite;
  timespec deadline = After(infinite ? 0 : milliseconds);
  const timespec *until = infinite ? nullptr : &deadline;
  int rc = Lock(event, until);
  if (rc == ETIMEDOUT) return kWaitTimeout;
  if (rc != 0) return kWaitFailed;
  if (TakeSignal(event)) {
    Unlock(event);
    return kWaitObject0;
  }
  if (milliseconds == 0) {
    Unlock(event);
    return kWaitTimeout;
  }
  std::uint32_t start = Load(event->sequence);
  ++event->waiters;
  bool timedOut = false;
  for (;;) {
    std::uint32_t seen = Load(event->sequence);
    Unlock(event);
    timedOut =
        FutexWaitTimedOut(&event->sequence, seen, until) || (until != nullptr && Passed(deadline));
    if (Lock(event, nullptr) != 0) return kWaitFailed;
    // For manual reset, a set since we began releases us even if a reset
    // followed at once, as on Windows.
    bool released =
        TakeSignal(event) || (event->manualReset != 0 && Load(event->sequence) != start);
    if (released || timedOut) {
      --event->waiters;
      Unlock(event);
      return released ? kWaitObject0 : kWaitTimeout;
    }
  }
}

// Sleeps on the sequence word like Wait, counted among the waiters so that
// SetEvent wakes it; a reset does not end the wait, only a set does.
std::uint32_t WaitForSet(SharedEvent *event, std::uint32_t seen, std::uint32_t milliseconds,
                         std::uint32_t *count) {
  if (event->manualReset == 0) return kWaitFailed;
  std::uint32_t now = Load(event->sequence);
  if (now != seen || milliseconds == 0) {
    *count = now;
    return now != seen ? kWaitObject0 : kWaitTimeout;
  }
  bool infinite = milliseconds == kInfinite;
  timespec deadline = After(infinite ? 0 : milliseconds);
  const timespec *until = infinite ? nullptr : &deadline;
  int rc = Lock(event, until);
  if (rc == ETIMEDOUT) {
    *count = Load(event->sequence);
    return kWaitTimeout;
  }
  if (rc != 0) return kWaitFailed;
  ++event->waiters;
  std::uint32_t result = kWaitTimeout;
  for (;;) {
    now = Load(event->sequence);
    if (now != seen) {
      result = kWaitObject0;
      break;
    }
    if (until != nullptr && Passed(deadline)) break;
    Unlock(event);
    FutexWaitTimedOut(&event->sequence, seen, until);
    if (Lock(event, nullptr) != 0) return kWaitFailed;
  }
  --event->waiters;
  Unlock(event);
  *count = now;
  return result;
}

}  // namespace

HANDLE OpenEventA(std::uint32_t /*access*/, std::int32_t /*inherit*/, const char *name) {
  if (name == nullptr || *name == '\0') return nullptr;
  try {
    std::shared_ptr<Mapping> mapping = OpenNamed(name, false, false, false);
    return mapping ? Register(std::move(mapping)) : nullptr;
  } catch (...) {
    return nullptr;
  }
}

HANDLE CreateEventA(void * /*security*/, std::int32_t manualReset, std::int32_t initialState,
                    const char *name) {
  try {
    std::shared_ptr<Mapping> mapping =
        name == nullptr || *name == '\0'
            ? CreateUnnamed(manualReset != 0, initialState != 0)
            : OpenNamed(name, true, manualReset != 0, initialState != 0);
    return mapping ? Register(std::move(mapping)) : nullptr;
  } catch (...) {
    return nullptr;
  }
}

std::int32_t SetEvent(HANDLE handle) {
  try {
    std::shared_ptr<Mapping> mapping = Find(handle);
    if (!mapping) return 0;
    SharedEvent *event = mapping->event();
    if (Lock(event, nullptr) != 0) return 0;
    // Auto-reset hands the signal straight to one waiter when there is one.
    if (event->manualReset == 0 && event->waiters > event->grants) {
      ++event->grants;
    } else {
      event->signalled = 1;
    }
    std::atomic_ref<std::uint32_t>(event->sequence).fetch_add(1, std::memory_order_release);
    // Waiters count themselves under the lock before they sleep: with none
    // counted, nobody sleeps on the old sequence and the wake can be spared.
    bool sleepers = event->waiters > 0;
    Unlock(event);
    if (sleepers) FutexWakeAll(&event->sequence);
    return 1;
  } catch (...) {
    return 0;
  }
}

std::int32_t ResetEvent(HANDLE handle) {
  try {
    std::shared_ptr<Mapping> mapping = Find(handle);
    if (!mapping) return 0;
    SharedEvent *event = mapping->event();
    if (Lock(event, nullptr) != 0) return 0;
    event->signalled = 0;
    Unlock(event);
    return 1;
  } catch (...) {
    return 0;
  }
}

std::uint32_t WaitForSingleObject(HANDLE handle, std::uint32_t milliseconds) {
  try {
    std::shared_ptr<Mapping> mapping = Find(handle);
    if (!mapping) return kWaitFailed;
    return Wait(mapping->event(), milliseconds);
  } catch (...) {
    return kWaitFailed;
  }
}

std::int32_t CloseHandle(HANDLE handle) {
  if (handle == nullptr) return 0;
  try {
    std::shared_ptr<Mapping> mapping;
    Registry &registry = TheRegistry();
    {
      std::lock_guard<std::mutex> guard(registry.mutex);
      auto it = registry.handles.find(reinterpret_cast<std::uintptr_t>(handle));
      if (it == registry.handles.end()) return 0;
      mapping = std::move(it->second);
      registry.handles.erase(it);
    }
    // Unmapped here, or by a wait still running on another thread when it ends.
    return 1;
  } catch (...) {
    return 0;
  }
}

std::int32_t GetEventSetCount(HANDLE handle, std::uint32_t *count) {
  try {
    std::shared_ptr<Mapping> mapping = Find(handle);
    if (!mapping || count == nullptr) return 0;
    *count = Load(mapping->event()->sequence);
    return 1;
  } catch (...) {
    return 0;
  }
}

std::uint32_t WaitForEventSetAfter(HANDLE handle, std::uint32_t seenCount,
                                   std::uint32_t milliseconds, std::uint32_t *count) {
  try {
    std::shared_ptr<Mapping> mapping = Find(handle);
    if (!mapping || count == nullptr) return kWaitFailed;
    return WaitForSet(mapping->event(), seenCount, milliseconds, count);
  } catch (...) {
    return kWaitFailed;
  }
}

namespace internal {

std::string EventObjectName(const char *name) {
  if (name == nullptr || *name == '\0') return std::string();
  try {
    return ObjectName(name);
  } catch (...) {
    return std::string();
  }
}

bool HoldEventLockForTesting(HANDLE handle) {
  try {
    std::shared_ptr<Mapping> mapping = Find(handle);
    return mapping && Lock(mapping->event(), nullptr) == 0;
  } catch (...) {
    return false;
  }
}

std::uint32_t EventWaiterCountForTesting(HANDLE handle) {
  try {
    std::shared_ptr<Mapping> mapping = Find(handle);
    if (!mapping || Lock(mapping->event(), nullptr) != 0) return 0;
    std::uint32_t waiters = mapping->event()->waiters;
    Unlock(mapping->event());
    return waiters;
  } catch (...) {
    return 0;
  }
}

}  // namespace internal
}  // namespace platform
