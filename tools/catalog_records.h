// Reading any table of a data file from what its catalog says, without the
// library's record structures, and without ever writing to the file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "framework/alert_status.h"
#include "platform/store/record_store.h"

namespace alertdb_tool {

// A data file opened in the record store's open-existing mode, which never
// creates or repairs a file; closed with the object.
class StoreFile {
 public:
  explicit StoreFile(const std::string &path);
  ~StoreFile();
  StoreFile(const StoreFile &) = delete;
  StoreFile &operator=(const StoreFile &) = delete;

  // False when the record store refused the file (not a store, or damaged).
  bool isOpen() const { return handle_ != nullptr; }
  KEPDB *handle() const { return handle_; }

  // The tables of the catalog; a record store status on failure.
  std::uint32_t tableNames(std::vector<std::string> *names) const;
  std::uint32_t tableInfo(const std::string &table, platform::StoreTableInfo *info) const;

 private:
  KEPDB *handle_;
};

// The status and text the tool reports for a data file the record store refuses.
constexpr std::uint32_t kRefusedFileStatus = ALRT_E_INITFAILED;
std::string refusedFileText(const std::string &file);
// The text the tool reports for a data file that is not there.
std::string missingFileText(const std::string &file);

// The path of a data file named on the command line: a name inside the data
// directory, or a path when it holds a '/'.
std::string dataFilePath(const std::string &file);
// Opens a data file named on the command line; a missing or refused file
// ends the command with its status.
std::unique_ptr<StoreFile> openDataFile(const std::string &file);

// The records of one table, read into storage laid out from the catalog's
// field sizes, one record at a time.
class CatalogRecords {
 public:
  CatalogRecords(const StoreFile &file, platform::StoreTableInfo info);

  const platform::StoreTableInfo &info() const { return info_; }

  // Selects the table with templates built from the catalog; a record store
  // status (QDB_E_LAYOUT when the catalog and the table do not agree).
  std::uint32_t select();
  // Reads the first record in the order of `key`, or the next one. QDB_OK,
  // QDB_E_NOTFOUND past the last, QDB_E_DAMAGED for a record that fails its
  // checks (it is not read), or another record store status.
  std::uint32_t readFirst(std::uint32_t key);
  std::uint32_t readNext(std::uint32_t key);
  // Reads the first record whose `key` field holds the `size` bytes at `value`.
  std::uint32_t readFirstWith(std::uint32_t key, const void *value, std::uint32_t size);

  // The bytes of field `index` of the record last read.
  const unsigned char *field(std::size_t index) const { return storage_.data() + offsets_[index]; }

 private:
  const StoreFile &file_;
  platform::StoreTableInfo info_;
  std::vector<unsigned char> storage_;
  std::vector<std::size_t> offsets_;
  std::vector<platform::FieldTemplate> templates_;
};

}  // namespace alertdb_tool
