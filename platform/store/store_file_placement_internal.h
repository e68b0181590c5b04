// Files that the engine builds whole before anyone sees them: made under a
// temporary name beside where they go, synced, then put in place in one step.
#pragma once

#include <cstdint>
#include <string>

namespace platform::store {

class FileInMaking {
 public:
  FileInMaking() = default;
  FileInMaking(const FileInMaking &) = delete;
  FileInMaking &operator=(const FileInMaking &) = delete;
  // Removes the file, and what SQLite left beside it, unless it was placed.
  ~FileInMaking();

  // Makes an empty file in the directory of `target`; false when it cannot.
  bool create(const std::string &target);
  const std::string &path() const { return path_; }
  // Gives the file the permissions of `model`, so that a copy or a
  // replacement is readable by whoever could read the original.
  void takeModeOf(const std::string &model);

  // Syncs the file and renames it over the target (QDB_OK or QDB_E_IO).
  std::uint32_t replaceTarget();
  // Syncs the file and links it in as the target, which must not exist:
  // QDB_E_EXISTS when it does.
  std::uint32_t placeAsNewTarget();

 private:
  std::string target_;
  std::string path_;
  bool placed_ = false;
};

// Removes the write-ahead log, shared memory and journal that SQLite keeps
// beside `path`.
void removeCompanions(const std::string &path);

// Whether a connection of another process has the store at `path` open: it
// holds a lock on the store's shared memory for as long as it does.
bool openedElsewhere(const std::string &path);

}  // namespace platform::store
