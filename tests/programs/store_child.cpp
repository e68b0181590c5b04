// Second process for the record store tests. Commands:
//   add PATH FIRST COUNT   add sample records FIRST.., printing "added N" after each
//   count PATH             print the number of sample records
//   lock-add PATH COUNT    under the file lock add COUNT records, print "added",
//                          wait for a line on stdin, unlock, print "unlocked"
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include "platform/store/record_store.h"
#include "platform/store/record_store_fixture.h"

using namespace platform;
using alertdb_test::SampleTable;

namespace {

KEPDB *openSample(const char *path, SampleTable &table) {
  KEPDB *h = QDBInit(0, path, kOpenExisting, 1);
  if (!h || table.select(h) != 0) {
    std::printf("open failed\n");
    std::exit(2);
  }
  return h;
}

void addOne(SampleTable &table, KEPDB *h, std::uint32_t n) {
  table.fill(0, ("child" + std::to_string(n)).c_str(), n);
  std::memcpy(&table.record.id, &n, sizeof n);
  table.record.id.Data4[7] = 0xC1;
  if (QDBRecordAdd(h) != 0) {
    std::printf("add failed %u\n", n);
    std::exit(3);
  }
}

}  // namespace

int main(int argc, char **argv) {
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  if (argc < 3) return 1;
  std::string command = argv[1];
  SampleTable table;
  KEPDB *h = openSample(argv[2], table);
  if (command == "add" && argc == 5) {
    std::uint32_t first = std::strtoul(argv[3], nullptr, 10);
    std::uint32_t count = std::strtoul(argv[4], nullptr, 10);
    for (std::uint32_t n = first; n < first + count; ++n) {
      addOne(table, h, n);
      std::printf("added %u\n", n);
    }
  } else if (command == "count") {
    int count = 0;
    if (QDBRecordSkipAndRead(h, alertdb_test::kIdKey, kSkipFirst) == 0) {
      do ++count;
      while (QDBRecordSkipAndRead(h, alertdb_test::kIdKey, kSkipNext) == 0);
    }
    std::printf("%d\n", count);
  } else if (command == "lock-add" && argc == 4) {
    std::uint32_t count = std::strtoul(argv[3], nullptr, 10);
    if (QDBFileLock(h) != 0) return 4;
    for (std::uint32_t n = 0; n < count; ++n) addOne(table, h, 1000 + n);
    std::printf("added\n");
    std::string line;
    std::getline(std::cin, line);
    if (QDBFileUnlock(h) != 0) return 5;
    std::printf("unlocked\n");
  } else {
    return 1;
  }
  QDBDone(h);
  return 0;
}
