#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

#include "platform/store/change_counter_internal.h"

namespace platform::store {

namespace {

constexpr const char *kObjectName = "/alertdb-store-changes";
constexpr std::size_t kSlots = 4096;
constexpr std::size_t kBytes = kSlots * sizeof(std::uint64_t);

// The slots of this machine, mapped once per process; null when they cannot be.
std::uint64_t *mapSlots() {
  int fd = shm_open(kObjectName, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0) return nullptr;
  // Every user's processes bump the same counters.
  fchmod(fd, 0666);
  struct stat st;
  void *slots = MAP_FAILED;
  // Growing to the size is the same whoever does it first; it never shrinks.
  if (fstat(fd, &st) == 0 && (st.st_size >= static_cast<off_t>(kBytes) ||
                              ftruncate(fd, static_cast<off_t>(kBytes)) == 0)) {
    slots = mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  }
  close(fd);
  return slots == MAP_FAILED ? nullptr : static_cast<std::uint64_t *>(slots);
}

std::uint64_t *slots() {
  static std::uint64_t *mapped = mapSlots();
  return mapped;
}

}  // namespace

ChangeCounter ChangeCounter::forFile(dev_t device, ino_t inode) {
  std::uint64_t *all = slots();
  if (!all) return ChangeCounter(nullptr);
  std::uint64_t key = static_cast<std::uint64_t>(device) * 0x9E3779B97F4A7C15ull ^
                      static_cast<std::uint64_t>(inode) * 0xC2B2AE3D27D4EB4Full;
  return ChangeCounter(all + (key >> 32) % kSlots);
}

void ChangeCounter::bump() const {
  if (slot_) std::atomic_ref<std::uint64_t>(*slot_).fetch_add(1, std::memory_order_acq_rel);
}

}  // namespace platform::store
