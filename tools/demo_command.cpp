// The main job: prepare the data directory, run what the library can do so
// far end to end, and report what the data files hold.
#include <cstdio>
#include <string>

#include "alertdb.h"
#include "tools/commands.h"

namespace alertdb_tool {

namespace {

// Links an event class to a response and reads the link back, as the alert
// manager does when an event comes in.
bool linkEventToResponse() {
  CAlertEVENT_RESPDB links;
  std::uint32_t status = OpenOrCreate(links);
  if (status != 0) status = links.DBCreate();
  if (status != 0) {
    std::printf("event-response links: cannot open (status %#x)\n", status);
    return false;
  }
  ALRTEVENT_RESPREC link{};
  platform::CoCreateGuid(&link.EventClassOID);
  platform::CoCreateGuid(&link.ResponseOID);
  _GUID id{};
  status = links.DBAlertRecAdd(&link, &id);
  ALRTEVENT_RESPREC again = link;
  again.KEPOID = {};
  std::uint32_t duplicate = links.DBAlertRecAdd(&again, &id);
  ALRTEVENT_RESPREC read{};
  std::uint32_t found = links.DBAlertRecRetrieve(&link.KEPOID, &read);
  char severity[128] = {};
  GetSeverityText(severity, 1, AlertDBModuleHandle());
  std::printf("linked event class %s to response %s: %s; the same link again: %s; read back: %s\n",
              platform::GuidToString(link.EventClassOID).c_str(),
              platform::GuidToString(link.ResponseOID).c_str(), status == 0 ? "ok" : "failed",
              duplicate == ALRT_E_LINKEXISTS ? "refused" : "accepted",
              found == 0 ? "ok" : "failed");
  std::printf("severity 1 reads \"%s\"\n", severity);
  return status == 0 && duplicate == ALRT_E_LINKEXISTS && found == 0;
}

}  // namespace

int runDemo(const Arguments &) {
  std::printf("data directory: %s\n", dataDirectory().c_str());
  int failures = 0;
  for (const std::string &file : dataFiles()) {
    std::string path = dataDirectory() + "/" + file;
    // Opening in create mode makes an empty store where none is yet.
    KEPDB *h = platform::QDBInit(0, path.c_str(), platform::kOpenCreate, 1);
    if (!h) {
      std::printf("%-14s refused: not a store, or damaged\n", file.c_str());
      ++failures;
      continue;
    }
    platform::QDBDone(h);
  }
  if (!linkEventToResponse()) ++failures;
  if (runTables({}) != 0) ++failures;
  return failures == 0 ? 0 : 1;
}

}  // namespace alertdb_tool
