// A small alert flow on the installed library: register an event class, link a
// response to it, log an occurrence, read it back, record the response's
// outcome, and watch the change event that tells other processes about it.
//
// Run it with ALERTDB_DATA_DIR naming the directory to work in. It may run
// again on the same directory: what is registered already is found, not added
// twice, and each run logs one more occurrence.
#include <alertdb/alertdb.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace {

// DBOpen, then DBCreate when the data file (65535) or the table in it (low
// half 223) is not there yet, so that the program starts on an empty directory.
template <class Table>
std::uint32_t openOrCreate(Table &table) {
  std::uint32_t status = table.DBOpen();
  if (status == ALRT_MISSINGFILE || (status & 0xFFFF) == ALRT_NOTABLE_LOW) {
    status = table.DBCreate();
  }
  return status;
}

bool ok(std::uint32_t status, const char *what) {
  if (status == 0) return true;
  std::fprintf(stderr, "%s failed: %s (0x%X): %s\n", what, AlertDBStatusName(status), status,
               AlertDBStatusDescription(status));
  return false;
}

// Texts are given as keys with their terminator: the store compares up to it.
unsigned char *textKey(const char *text) {
  return reinterpret_cast<unsigned char *>(const_cast<char *>(text));
}
std::uint32_t textKeyLength(const char *text) {
  return static_cast<std::uint32_t>(std::strlen(text) + 1);
}

// An event time stamp: years since 1900, month, day, hour, minute, second,
// hundredths, one byte not used.
void stampNow(unsigned char stamp[8]) {
  std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  const int parts[7] = {
      local.tm_year, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, 0};
  for (int i = 0; i < 7; ++i) stamp[i] = static_cast<unsigned char>(parts[i]);
  stamp[7] = 0;
}

const char *changeState(HANDLE changeEvent) {
  bool set = platform::WaitForSingleObject(changeEvent, 0) == platform::kWaitObject0;
  return set ? "set" : "not set";
}

// Records of several kilobytes, kept off the stack.
ALRTEVENT_CLASSREC eventClass;
ALERTRESPREC response;
ALRTEVENT_LOGREC occurrence;
ALRTEVENT_LOGREC logged;

}  // namespace

int main() {
  const char *eventName = "Disk Full";
  const char *responseName = "Page the operator";

  // ---- the event class, registered once
  CAlertEVENT_CLASSDB eventClasses;
  if (!ok(openOrCreate(eventClasses), "opening the event classes")) return 1;
  _GUID eventClassId{};
  if (eventClasses.DBAlertRecFindFirst(CAlertEVENT_CLASSDB::kEventNameKey, textKeyLength(eventName),
                                       textKey(eventName), &eventClass) == 0) {
    eventClassId = eventClass.KEPOID;
    std::printf("event class \"%s\" was registered already\n", eventName);
  } else {
    eventClass = {};
    std::snprintf(eventClass.EventName, sizeof eventClass.EventName, "%s", eventName);
    std::snprintf(eventClass.Product, sizeof eventClass.Product, "Storage Agent");
    eventClass.EventID = 13145;
    eventClass.Severity = 2;
    if (!ok(eventClasses.DBAlertRecAdd(&eventClass, &eventClassId), "registering the event class"))
      return 1;
    std::printf("event class \"%s\" registered as %s\n", eventName,
                platform::GuidToString(eventClassId).c_str());
  }

  // ---- a response, and the link from the event class to it
  CAlertRespDB responses;
  if (!ok(openOrCreate(responses), "opening the responses")) return 1;
  _GUID responseId{};
  if (responses.DBAlertRecFindFirst(CAlertRespDB::kNameKey, textKeyLength(responseName),
                                    textKey(responseName), &response) == 0) {
    responseId = response.KEPOID;
  } else {
    response = {};
    std::snprintf(response.Name, sizeof response.Name, "%s", responseName);
    std::snprintf(response.Msg, sizeof response.Msg, "Disk full on the file server");
    if (!ok(responses.DBAlertRecAdd(&response, &responseId), "adding the response")) return 1;
  }
  std::uint32_t status = eventClasses.QALRTEventClassAddResponse(&eventClassId, &responseId);
  if (status == ALRT_E_LINKEXISTS) {
    std::printf("response \"%s\" linked already (%s)\n", responseName, AlertDBStatusName(status));
  } else if (ok(status, "linking the response")) {
    std::printf("response \"%s\" linked to the event class\n", responseName);
  } else {
    return 1;
  }

  // ---- an occurrence. The library only ever sets the change event; whoever
  // waits on it resets it.
  HANDLE changeEvent = platform::OpenEventA(platform::kEventAllAccess, 0, "AlertDBModifyEvent");
  if (!changeEvent) {
    std::fprintf(stderr, "the change event is not there\n");
    return 1;
  }
  platform::ResetEvent(changeEvent);

  CAlertEVENT_LOGDB log;
  if (!ok(openOrCreate(log), "opening the event log")) return 1;
  occurrence = {};
  occurrence.EventClass_OID = eventClassId;
  occurrence.EventID = eventClass.EventID;
  occurrence.Severity = eventClass.Severity;
  stampNow(occurrence.Time);
  std::snprintf(occurrence.EventName, sizeof occurrence.EventName, "%s", eventName);
  std::snprintf(occurrence.MachineName, sizeof occurrence.MachineName, "FILESRV1");
  std::snprintf(occurrence.EventText, sizeof occurrence.EventText, "Volume D: is 99%% full");
  _GUID logEntryId{};
  if (!ok(log.DBAlertRecAdd(&occurrence, &logEntryId), "logging the occurrence")) return 1;
  std::printf("occurrence logged; change event: %s (the event log never signals)\n",
              changeState(changeEvent));

  // ---- read back: the entry by its ID, then every entry of the event class
  if (!ok(log.DBAlertRecRetrieve(&logEntryId, &logged), "reading the occurrence")) return 1;
  std::printf("read back: \"%s\" on %s: %s\n", logged.EventName, logged.MachineName,
              logged.EventText);
  int count = 0;
  // The enumeration runs on past the event class: stop where it changes.
  for (status = log.DBAlertRecFindFirst(CAlertEVENT_LOGDB::kEventClassKey, sizeof(_GUID),
                                        reinterpret_cast<unsigned char *>(&eventClassId), &logged);
       status == 0 && std::memcmp(&logged.EventClass_OID, &eventClassId, sizeof(_GUID)) == 0;
       status = log.DBAlertRecFindNext(&logged)) {
    ++count;
  }
  std::printf("occurrences of \"%s\" in the log: %d\n", eventName, count);

  // ---- the response was carried out; its outcome is recorded, and that signals
  CAlertRespResultsDB results;
  if (!ok(openOrCreate(results), "opening the response results")) return 1;
  ALERTRESPRESULTREC outcome{};
  outcome.LogEntryOID = logEntryId;
  outcome.ResponseOID = responseId;
  outcome.Result = 0;
  _GUID resultId{};
  if (!ok(results.DBAlertRecAdd(&outcome, &resultId), "recording the outcome")) return 1;
  std::printf("outcome recorded; change event: %s\n", changeState(changeEvent));

  platform::CloseHandle(changeEvent);
  return 0;
}
