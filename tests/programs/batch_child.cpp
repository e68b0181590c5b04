// Second process for the batch tests: deletes an event class inside a file
// lock, prints "deleted", then waits for a line: "commit" unlocks and prints
// "unlocked"; anything else (or being killed first) never commits.
#include <cstdio>
#include <iostream>
#include <string>

#include "alertdb.h"
#include "platform/guid.h"

namespace {

class LockableEventClassTable : public CAlertEVENT_CLASSDB {
 public:
  KEPDB *handle() const { return m_hTable; }
};

}  // namespace

int main(int argc, char **argv) {
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  _GUID id{};
  if (argc != 2 || !platform::GuidFromString(argv[1], &id)) return 1;
  LockableEventClassTable table;
  if (table.DBOpen() != 0 || DBFileLock(table.handle()) != 0) return 2;
  if (table.DBAlertRecDelete(&id) != 0) return 3;
  std::printf("deleted\n");
  std::string line;
  std::getline(std::cin, line);
  if (line != "commit") return 0;
  if (DBFileUnlock(table.handle()) != 0) return 4;
  std::printf("unlocked\n");
  return 0;
}
