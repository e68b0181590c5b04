// A counter per data file in memory shared by every process of the machine,
// bumped just before and just after each commit through this library. A
// cursor that finds it unchanged knows its fetched rows are still what the
// file holds, without a read transaction; one that finds it changed fetches
// again. Files share slots by their identity's hash: a shared slot only costs
// a fetch more.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>

namespace platform::store {

class ChangeCounter {
 public:
  // The counter of the file with that device and inode; one that is not
  // available (always "changed") when the shared memory cannot be had.
  static ChangeCounter forFile(dev_t device, ino_t inode);
  // A counter for a file whose identity is not known.
  static ChangeCounter none() { return ChangeCounter(nullptr); }

  bool available() const { return slot_ != nullptr; }
  // Read before every step a cursor serves from fetched rows.
  std::uint64_t value() const {
    return slot_ ? std::atomic_ref<std::uint64_t>(*slot_).load(std::memory_order_acquire) : 0;
  }
  void bump() const;

 private:
  explicit ChangeCounter(std::uint64_t *slot) : slot_(slot) {}
  std::uint64_t *slot_ = nullptr;
};

}  // namespace platform::store
