#include "tools/catalog_records.h"

#include <fmt/format.h>

#include <utility>

#include "platform/file_names.h"
#include "tools/data_file_list.h"
#include "tools/tool_context.h"

namespace alertdb_tool {

StoreFile::StoreFile(const std::string &path)
    : handle_(platform::QDBInit(0, path.c_str(), platform::kOpenExisting, 1)) {}

StoreFile::~StoreFile() {
  if (handle_) platform::QDBDone(handle_);
}

std::uint32_t StoreFile::tableNames(std::vector<std::string> *names) const {
  return platform::QDBTableNames(handle_, names);
}

std::uint32_t StoreFile::tableInfo(const std::string &table, platform::StoreTableInfo *info) const {
  return platform::QDBTableInfo(handle_, table.c_str(), info);
}

std::string refusedFileText(const std::string &file) {
  return file + " is refused by the record store: not a store, or damaged";
}

std::string dataFilePath(const std::string &file) {
  return file.find('/') == std::string::npos ? dataPath(file) : file;
}

std::string missingFileText(const std::string &file) {
  if (file.find('/') != std::string::npos) return fmt::format("no data file {}", file);
  std::string text = fmt::format("no data file {} in {}", file, dataDirectory());
  if (isKnownDataFile(file)) text += " (`alertdb init` makes the data files)";
  return text;
}

std::unique_ptr<StoreFile> openDataFile(const std::string &file) {
  std::string path = dataFilePath(file);
  if (!platform::FileExists(path.c_str())) {
    failWithStatus(ALRT_MISSINGFILE, missingFileText(file));
  }
  auto store = std::make_unique<StoreFile>(path);
  if (!store->isOpen()) failWithStatus(kRefusedFileStatus, refusedFileText(file));
  return store;
}

CatalogRecords::CatalogRecords(const StoreFile &file, platform::StoreTableInfo info)
    : file_(file), info_(std::move(info)) {
  std::size_t total = 0;
  for (const platform::StoreFieldInfo &field : info_.fields) {
    offsets_.push_back(total);
    total += field.size;
  }
  storage_.assign(total, 0);
  for (std::size_t i = 0; i < info_.fields.size(); ++i) {
    const platform::StoreFieldInfo &field = info_.fields[i];
    platform::FieldTemplate t{};
    t.keyNumber = field.keyNumber;
    t.attribute = field.attribute;
    t.size = field.size;
    t.sizeAgain = field.size;
    t.storage = storage_.data() + offsets_[i];
    t.flags = field.flags;
    templates_.push_back(t);
  }
}

std::uint32_t CatalogRecords::select() {
  if (templates_.empty()) return platform::QDB_E_LAYOUT;
  return platform::SchmSetCurrentTbl(file_.handle(), info_.name.c_str(), templates_.data());
}

std::uint32_t CatalogRecords::readFirst(std::uint32_t key) {
  return platform::QDBRecordSkipAndRead(file_.handle(), key, platform::kSkipFirst) & 0xFFFF;
}

std::uint32_t CatalogRecords::readNext(std::uint32_t key) {
  return platform::QDBRecordSkipAndRead(file_.handle(), key, platform::kSkipNext) & 0xFFFF;
}

std::uint32_t CatalogRecords::readFirstWith(std::uint32_t key, const void *value,
                                            std::uint32_t size) {
  return platform::QDBRecordFindAndRead(file_.handle(), key, value, 1, size) & 0xFFFF;
}

}  // namespace alertdb_tool
