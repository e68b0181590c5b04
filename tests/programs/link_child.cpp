// Second process for the change signal tests: loads the library (which opens
// the change event of the inherited namespace) and adds one event-response link.
// Prints "added" or "failed".
#include <cstdio>
#include <cstring>

#include "alertdb.h"

int main() {
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  CAlertEVENT_RESPDB table;
  if (OpenOrCreate(table) != 0) {
    std::printf("failed\n");
    return 1;
  }
  ALRTEVENT_RESPREC link{};
  std::memset(&link.EventClassOID, 0x21, sizeof link.EventClassOID);
  std::memset(&link.ResponseOID, 0x22, sizeof link.ResponseOID);
  _GUID id;
  std::printf(table.DBAlertRecAdd(&link, &id) == 0 ? "added\n" : "failed\n");
  return 0;
}
