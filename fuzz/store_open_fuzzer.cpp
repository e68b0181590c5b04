// Opening arbitrary bytes as a data file in every mode: a file is refused
// untouched, or opened and every record it yields passes its checks.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "alertdb.h"

namespace {

std::string workDirectory() {
  static std::string dir = [] {
    char pattern[] = "/tmp/alertdb-store-fuzz-XXXXXX";
    return std::string(::mkdtemp(pattern) ? pattern : "/tmp");
  }();
  return dir;
}

std::string readAll(const std::string &path) {
  std::string bytes;
  if (FILE *f = std::fopen(path.c_str(), "rb")) {
    char buffer[65536];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) bytes.append(buffer, n);
    std::fclose(f);
  }
  return bytes;
}

void removeFile(const std::string &path) {
  for (const char *suffix : {"", "-wal", "-shm", "-journal"}) ::unlink((path + suffix).c_str());
}

// Reads every record of every table through templates made from the catalog.
void readEverything(KEPDB *h) {
  std::vector<std::string> names;
  if (platform::QDBTableNames(h, &names) != 0) return;
  for (const std::string &name : names) {
    platform::StoreTableInfo info;
    if (platform::QDBTableInfo(h, name.c_str(), &info) != 0) continue;
    std::size_t total = 0;
    for (const auto &f : info.fields) total += f.size;
    if (total > (1u << 20)) continue;
    std::vector<unsigned char> record(total + 1);
    std::vector<platform::FieldTemplate> templates(info.fields.size());
    std::size_t at = 0;
    for (std::size_t i = 0; i < info.fields.size(); ++i) {
      const auto &f = info.fields[i];
      templates[i] = {f.keyNumber, f.attribute, f.size, f.size, record.data() + at, f.flags, 0};
      at += f.size;
    }
    if (platform::SchmSetCurrentTbl(h, name.c_str(), templates.data()) != 0) continue;
    std::uint32_t key = info.idKey;
    int steps = 0;
    for (std::uint32_t r = platform::QDBRecordSkipAndRead(h, key, platform::kSkipFirst);
         r == 0 && steps < 100000;
         r = platform::QDBRecordSkipAndRead(h, key, platform::kSkipNext)) {
      ++steps;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static unsigned counter = 0;
  // A new name each time: the engine remembers the files it has checked.
  std::string path = workDirectory() + "/Fuzz" + std::to_string(counter++) + ".dat";
  if (FILE *f = std::fopen(path.c_str(), "wb")) {
    std::fwrite(data, 1, size, f);
    std::fclose(f);
  }
  const std::string original(reinterpret_cast<const char *>(data), size);
  for (std::uint32_t mode :
       {platform::kOpenExisting, platform::kOpenCreate, platform::kOpenRecover}) {
    KEPDB *h = platform::QDBInit(0, path.c_str(), mode, 1);
    if (!h) {
      // A refused file is never changed.
      if (readAll(path) != original) __builtin_trap();
      continue;
    }
    readEverything(h);
    platform::QDBDone(h);
    break;
  }
  removeFile(path);
  return 0;
}
