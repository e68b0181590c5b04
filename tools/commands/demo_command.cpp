// The main job: prepare the data directory, run the alert flow as far as the
// library goes, and report what the data files hold.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>
#include <string>

#include "alertdb.h"
#include "tools/commands.h"
#include "tools/tool_context.h"

namespace alertdb_tool {

namespace {

template <class Table>
bool openTable(Table &table, const char *what) {
  std::uint32_t status = OpenOrCreate(table);
  // A data file that is not there yet is made by creating the table.
  if (status != 0) status = table.DBCreate();
  if (status != 0) std::printf("%s: cannot open (status %#x)\n", what, status);
  return status == 0;
}

// Registers the demo's event class, or finds it from an earlier run.
bool registerEventClass(CAlertEVENT_CLASSDB &classes, ALRTEVENT_CLASSREC *eventClass) {
  char name[65] = "Disk Full";
  if (classes.DBAlertRecFindFirst(CAlertEVENT_CLASSDB::kEventNameKey, sizeof name,
                                  reinterpret_cast<unsigned char *>(name), eventClass) == 0 &&
      std::strcmp(eventClass->EventName, name) == 0) {
    std::printf("event class \"%s\" is registered already\n", name);
    return true;
  }
  *eventClass = {};
  std::strcpy(eventClass->EventName, name);
  std::strcpy(eventClass->Product, "Disk Monitor");
  eventClass->EventID = 13145;
  eventClass->Severity = 1;
  _GUID id{};
  std::uint32_t status = classes.DBAlertRecAdd(eventClass, &id);
  std::printf("registered event class \"%s\": %s\n", name, status == 0 ? "ok" : "failed");
  return status == 0;
}

bool runEventFlow() {
  CAlertEVENT_CLASSDB classes;
  if (!openTable(classes, "event classes")) return false;
  ALRTEVENT_CLASSREC eventClass{};
  if (!registerEventClass(classes, &eventClass)) return false;
  char severity[128] = {};
  GetSeverityText(severity, static_cast<std::int32_t>(eventClass.Severity), AlertDBModuleHandle());
  std::printf("  event ID %u, severity %s (colour %u), SNMP identifier %s\n", eventClass.EventID,
              severity, eventClass.SeverityColor, eventClass.SNMP_OID);

  _GUID response{};
  platform::CoCreateGuid(&response);
  std::uint32_t linked = classes.QALRTEventClassAddResponse(&eventClass.KEPOID, &response);
  std::uint32_t again = classes.QALRTEventClassAddResponse(&eventClass.KEPOID, &response);
  std::printf("linked it to response %s: %s; the same link again: %s\n",
              platform::GuidToString(response).c_str(), linked == 0 ? "ok" : "failed",
              again == ALRT_E_LINKEXISTS ? "refused" : "accepted");
  if (linked != 0 || again != ALRT_E_LINKEXISTS) return false;

  // An occurrence of the event, logged as the detecting component does.
  CAlertEVENT_LOGDB log;
  if (!openTable(log, "event log")) return false;
  ALRTEVENT_LOGREC entry{};
  entry.EventClass_OID = eventClass.KEPOID;
  std::strcpy(entry.EventName, eventClass.EventName);
  entry.EventID = eventClass.EventID;
  entry.Severity = eventClass.Severity;
  std::strcpy(entry.SeverityTxt, severity);
  std::strcpy(entry.MachineName, "server01");
  std::strcpy(entry.EventText, "Volume C: is 99% full");
  std::uint16_t month, day, year, hour, minute, second, hundredths;
  platform::DOSGetDate(&month, &day, &year);
  platform::DOSGetTime(&hour, &minute, &second, &hundredths);
  unsigned char stamp[8] = {
      static_cast<unsigned char>(year - 1900), static_cast<unsigned char>(month),
      static_cast<unsigned char>(day),         static_cast<unsigned char>(hour),
      static_cast<unsigned char>(minute),      static_cast<unsigned char>(second),
      static_cast<unsigned char>(hundredths),  0};
  std::memcpy(entry.Time, stamp, sizeof stamp);
  entry.Ack = 1;
  _GUID entryId{};
  std::uint32_t logged = log.DBAlertRecAdd(&entry, &entryId);
  std::printf("logged \"%s\" on %s, acknowledged: %s\n", entry.EventText, entry.MachineName,
              logged == 0 ? "ok" : "failed");
  return logged == 0;
}

}  // namespace

int runDemo() {
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
  if (!runEventFlow()) ++failures;
  std::printf("\n");
  return failures == 0 ? 0 : 1;
}

void addDemoCommand(CLI::App &tool) {
  addCommand(tool, "demo", "run the typical alert flow and show each step", runDemo);
}

}  // namespace alertdb_tool
