// The "demo" command: one alert through the library, from the registered
// event class to the purge of its acknowledged log entry, step by step.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "alertdb.h"
#include "tools/change_event.h"
#include "tools/commands.h"
#include "tools/demo_records.h"
#include "tools/event_log_purge.h"
#include "tools/tool_context.h"

namespace alertdb_tool {

namespace {

using namespace demo;

constexpr int kSteps = 10;

constexpr const char *kDescription =
    "Runs the typical alert flow through the library, step by step: an event class is\n"
    "registered, an alert user gets an Internet Mail address, a response is linked to the\n"
    "event class, an occurrence is logged, the mail is built from the response's templates,\n"
    "its result recorded, the change event seen, and the acknowledged entries purged (all\n"
    "of them, as the product's purge does). An earlier run's records are found and used\n"
    "again; each run logs a new occurrence and records a new result. No mail is sent.\n"
    "Exit status 0 when every step worked, 1 when one failed (its status is named).";

void step(int number, const char *title) { fmt::print("\n{:2}. {}\n", number, title); }

// Arguments are taken by value: record members are packed and cannot be bound
// to references.
template <class... Args>
void show(fmt::format_string<Args...> format, Args... args) {
  fmt::print("    {}\n", fmt::vformat(format, fmt::make_format_args(args...)));
}

const char *madeOrFound(bool earlier) { return earlier ? "from an earlier run" : "new"; }

std::string times(std::uint32_t count) {
  return count == 1 ? "once" : fmt::format("{} times", count);
}

std::string serviceTypeName(std::uint32_t serviceType) {
  char name[128] = {};
  platform::LoadStringA(AlertDBModuleHandle(), 2300 + serviceType, name, sizeof name);
  return name;
}

void stampNow(unsigned char *stamp) {
  std::uint16_t month = 0, day = 0, year = 0, hour = 0, minute = 0, second = 0, hundredths = 0;
  platform::DOSGetDate(&month, &day, &year);
  platform::DOSGetTime(&hour, &minute, &second, &hundredths);
  const std::uint16_t parts[] = {
      static_cast<std::uint16_t>(year - 1900), month, day, hour, minute, second, hundredths, 0};
  for (int i = 0; i < 8; ++i) stamp[i] = static_cast<unsigned char>(parts[i]);
}

std::string stampText(const unsigned char *stamp) {
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", 1900 + stamp[0], stamp[1], stamp[2],
                     stamp[3], stamp[4], stamp[5]);
}

std::string severityText(std::uint32_t severity) {
  char text[128] = {};
  GetSeverityText(text, static_cast<std::int32_t>(severity), AlertDBModuleHandle());
  return text;
}

// The alert manager's view of an occurrence, for the expansion of parameters.
ALRTEVENTDATA eventData(const ALRTEVENT_LOGREC &entry) {
  ALRTEVENTDATA data{};
  data.EventID = entry.EventID;
  data.OpStatus = entry.OpStatus;
  data.ErrorCode = entry.ErrorCode;
  copyText(data.MachineName, entry.MachineName);
  copyText(data.UserName, entry.UserName);
  copyText(data.EventText, entry.EventText);
  std::memcpy(data.Time, entry.Time, sizeof data.Time);
  copyText(data.domainName, entry.domainName);
  copyText(data.TextParameter, entry.TextParameter);
  return data;
}

struct Mail {
  std::string subject;
  std::string message;
};

// namesOnly 1 shows the templates with the parameters' display names.
Mail expand(const ALERTRESPREC &response, const ALRTEVENT_CLASSREC *eventClass,
            const ALRTEVENTDATA &data, std::uint32_t namesOnly) {
  std::vector<char> message(2049, '\0');
  std::vector<char> subject(261, '\0');
  std::uint32_t status =
      ParseReplaceableParamaterListToText(AlertDBModuleHandle(), message.data(), subject.data(),
                                          &response, eventClass, &data, namesOnly);
  if (status != 0) failWithStatus(status, "cannot expand the response's templates");
  return {subject.data(), message.data()};
}

// The responses linked to an event class, as the alert manager finds them.
std::vector<_GUID> linkedResponses(_GUID eventClassId) {
  CAlertEVENT_RESPDB links;
  openTable(links, "the event-to-response links", "AlEvntdb.dat");
  std::vector<_GUID> responses;
  ALRTEVENT_RESPREC link{};
  for (std::uint32_t status =
           links.DBAlertRecFindFirst(CAlertEVENT_RESPDB::kEventClassKey, sizeof eventClassId,
                                     reinterpret_cast<unsigned char *>(&eventClassId), &link);
       status == 0 && sameId(link.EventClassOID, eventClassId);
       status = links.DBAlertRecFindNext(&link)) {
    responses.push_back(link.ResponseOID);
  }
  return responses;
}

// Step 6: an occurrence, as the component that detects the event logs it.
ALRTEVENT_LOGREC logOccurrence(const ALRTEVENT_CLASSREC &eventClass) {
  CAlertEVENT_LOGDB log;
  openTable(log, "the event log", "KEPLogDB.dat");
  ALRTEVENT_LOGREC entry{};
  entry.EventClass_OID = eventClass.KEPOID;
  copyText(entry.EventName, eventClass.EventName);
  entry.EventID = eventClass.EventID;
  entry.Severity = eventClass.Severity;
  copyText(entry.SeverityTxt, severityText(eventClass.Severity).c_str());
  copyText(entry.ProductName, eventClass.Product);
  copyText(entry.MachineName, "server01");
  copyText(entry.UserName, "root");
  copyText(entry.domainName, "example.com");
  copyText(entry.EventText, "Volume /var is 97% full");
  stampNow(entry.Time);
  _GUID id{};
  std::uint32_t status = log.DBAlertRecAdd(&entry, &id);
  if (status != 0) failWithStatus(status, "cannot log the occurrence");
  entry.KEPOID = id;
  return entry;
}

// Step 7: what the alert manager does with the occurrence, up to delivery.
ALERTRESPREC buildMail(const ALRTEVENT_LOGREC &logged, const _GUID &responseId) {
  CAlertEVENT_LOGDB log;
  openTable(log, "the event log", "KEPLogDB.dat");
  ALRTEVENT_LOGREC entry{};
  _GUID entryId = logged.KEPOID;
  std::uint32_t status = log.DBAlertRecRetrieve(&entryId, &entry);
  if (status != 0) failWithStatus(status, "cannot read the logged occurrence");

  CAlertEVENT_CLASSDB classes;
  openTable(classes, "the event classes", "AlEvntdb.dat");
  ALRTEVENT_CLASSREC eventClass{};
  status = classes.DBAlertRecRetrieve(&entry.EventClass_OID, &eventClass);
  if (status != 0) failWithStatus(status, "cannot read the occurrence's event class");

  std::vector<_GUID> responses = linkedResponses(entry.EventClass_OID);
  bool linked = false;
  for (const _GUID &id : responses) linked = linked || sameId(id, responseId);
  if (!linked) failWithStatus(ALRT_E_NOTFOUND, "the demo's response is not linked to the event");
  show("\"{}\" has {} linked response{}; carrying out \"{}\"", eventClass.EventName,
       responses.size(), responses.size() == 1 ? "" : "s", kResponseName);

  CAlertRespDB responseTable;
  openTable(responseTable, "the responses", "AlRespDB.dat");
  ALERTRESPREC response{};
  _GUID id = responseId;
  status = responseTable.DBAlertRecRetrieve(&id, &response);
  if (status != 0) failWithStatus(status, "cannot read the response");

  CAlertNtfyServDB catalogue;
  openTable(catalogue, "the notification services", "AlServdb.dat");
  ALRTNTFYSERV service{};
  status = catalogue.DBAlertRecRetrieve(&response.ServiceOID, &service);
  if (status != 0) failWithStatus(status, "cannot read the response's notification service");
  CAlertSMTPNtfyServDB mail;
  openTable(mail, "the Internet Mail settings", "AlServdb.dat");
  ALRTSMTPSERVICEREC settings{};
  status = mail.DBAlertRecRetrieve(&service.ServiceSpecific_KEPOID, &settings);
  if (status != 0) failWithStatus(status, "cannot read the Internet Mail settings");
  ALRTUSR_SMTPSERVICEREC address{};
  if (!findMailAddress(response.UserOID, response.ServiceOID, &address)) {
    failWithStatus(ALRT_E_NOTFOUND, "the response's user has no Internet Mail address");
  }

  Mail built = expand(response, &eventClass, eventData(entry), 0);
  show("from     {} (server {})", settings.Sender, settings.Server_addr);
  show("to       {} <{}>", address.UserName, address.SMTPMailAddr);
  show("subject  {}", built.subject);
  show("message  {}", built.message);
  show("(delivering it lies outside the library: no mail is sent)");
  return response;
}

// Step 8: the outcome, as the alert manager records it after delivery.
_GUID recordResult(const ALRTEVENT_LOGREC &entry, const ALERTRESPREC &response) {
  CAlertRespResultsDB results;
  openTable(results, "the response results", "AlRespDB.dat");
  ALERTRESPRESULTREC result{};
  result.LogEntryOID = entry.KEPOID;
  result.ResponseOID = response.KEPOID;
  result.Result = 0;
  result.TargetOID = response.UserOID;
  _GUID id{};
  std::uint32_t status = results.DBAlertRecAdd(&result, &id);
  if (status != 0) failWithStatus(status, "cannot record the response's result");
  return id;
}

// Step 10: the operator acknowledges the entry; the purge takes it away.
void acknowledgeAndPurge(const ALRTEVENT_LOGREC &logged, const _GUID &resultId) {
  _GUID entryId = logged.KEPOID;
  {
    CAlertEVENT_LOGDB log;
    openTable(log, "the event log", "KEPLogDB.dat");
    ALRTEVENT_LOGREC entry{};
    std::uint32_t status = log.DBAlertRecRetrieve(&entryId, &entry);
    if (status != 0) failWithStatus(status, "cannot read the logged occurrence");
    entry.Ack = 1;
    status = log.DBAlertRecUpdate(&entry);
    if (status != 0) failWithStatus(status, "cannot acknowledge the logged occurrence");
  }
  show("entry {} acknowledged", idText(entryId));
  LogPurgeCounts counts = purgeEventLog(kPurgeAcknowledged);
  show("purge of acknowledged entries: {} removed, {} left in the log", counts.removed(),
       counts.after);

  CAlertEVENT_LOGDB log;
  openTable(log, "the event log", "KEPLogDB.dat");
  ALRTEVENT_LOGREC entry{};
  if (log.DBAlertRecRetrieve(&entryId, &entry) == 0) {
    throw ToolError("the acknowledged entry is still in the log after the purge");
  }
  CAlertRespResultsDB results;
  openTable(results, "the response results", "AlRespDB.dat");
  ALERTRESPRESULTREC result{};
  _GUID id = resultId;
  std::uint32_t status = results.DBAlertRecRetrieve(&id, &result);
  if (status != 0) failWithStatus(status, "the response's result went with the log entry");
  show("the entry is gone; result {} stays", idText(resultId));
}

int runDemo() {
  fmt::print("AlertDB demo: one alert, from its event class to the log purge\n");
  fmt::print("data directory: {}\n", dataDirectory());

  step(1, "Watch the change event");
  ChangeEvent changes;
  const std::uint32_t setsBefore = changes.setCount();
  show("\"{}\" opened: set {} so far, {} now", ChangeEvent::kName, times(setsBefore),
       changes.isSet() ? "signalled" : "clear");

  step(2, "Register an event class");
  Found<ALRTEVENT_CLASSREC> eventClass = findOrRegisterEventClass();
  show("\"{}\": event ID {}, severity {} (colour {})", eventClass.record.EventName,
       eventClass.record.EventID, severityText(eventClass.record.Severity),
       eventClass.record.SeverityColor);
  show("SNMP identifier {}", eventClass.record.SNMP_OID);
  show("event class {} ({})", idText(eventClass.record.KEPOID), madeOrFound(eventClass.earlier));

  step(3, "Configure an Internet Mail service");
  ALRTSMTPSERVICEREC settings{};
  Found<ALRTNTFYSERV> service = findOrAddMailService(&settings);
  show("\"{}\": service type {} ({})", service.record.Service_Name, service.record.ServiceType,
       serviceTypeName(service.record.ServiceType));
  show("server {}, sender {}", settings.Server_addr, settings.Sender);
  show("service {} ({})", idText(service.record.KEPOID), madeOrFound(service.earlier));

  step(4, "Give an alert user an Internet Mail address");
  MailUser user = findOrAddMailUser(service.record.KEPOID);
  show("{} <{}>, reached through \"{}\"", user.address.UserName, user.address.SMTPMailAddr,
       service.record.Service_Name);
  show("alert user {} ({})", idText(user.user.KEPOID), madeOrFound(user.earlier));
  show("address {} ({})", idText(user.address.KEPOID), madeOrFound(user.earlier));

  step(5, "Link a response to the event class");
  Found<ALERTRESPREC> response = findOrAddResponse(user.user.KEPOID, service.record.KEPOID);
  show("\"{}\", by {} to {}", response.record.Name, serviceTypeName(response.record.ServiceType),
       user.address.SMTPMailAddr);
  show("response {} ({})", idText(response.record.KEPOID), madeOrFound(response.earlier));
  Mail templates = expand(response.record, nullptr, ALRTEVENTDATA{}, 1);
  show("its templates, with the parameters by name:");
  show("subject  {}", templates.subject);
  show("message  {}", templates.message);
  {
    CAlertEVENT_CLASSDB classes;
    openTable(classes, "the event classes", "AlEvntdb.dat");
    std::uint32_t status =
        classes.QALRTEventClassAddResponse(&eventClass.record.KEPOID, &response.record.KEPOID);
    if (status != 0 && status != ALRT_E_LINKEXISTS) {
      failWithStatus(status, "cannot link the response to the event class");
    }
    show("linked to \"{}\" ({})", eventClass.record.EventName,
         status == ALRT_E_LINKEXISTS ? "by an earlier run; a second link is refused" : "new");
  }

  step(6, "Log an occurrence of the event");
  ALRTEVENT_LOGREC entry = logOccurrence(eventClass.record);
  show("\"{}\" on {}, {}", entry.EventText, entry.MachineName, stampText(entry.Time));
  show("log entry {} (new)", idText(entry.KEPOID));

  step(7, "Build the mail from the response's templates");
  ALERTRESPREC carriedOut = buildMail(entry, response.record.KEPOID);

  step(8, "Record the response's result");
  _GUID resultId = recordResult(entry, carriedOut);
  show("Result 0 (delivered), for log entry {}", idText(entry.KEPOID));
  show("result {} (new)", idText(resultId));

  step(9, "See the change event");
  const std::uint32_t setsAfter = changes.setCount();
  if (setsAfter == setsBefore) throw ToolError("the changes did not set the change event");
  show("\"{}\": set {} by the changes above, {} now", ChangeEvent::kName,
       times(static_cast<std::uint32_t>(setsAfter - setsBefore)),
       changes.isSet() ? "signalled" : "clear (someone reset it)");
  show("(the event log's own changes signal nothing)");

  step(kSteps, "Acknowledge the entry and purge acknowledged entries");
  acknowledgeAndPurge(entry, resultId);

  fmt::print("\nAll {} steps worked. Look inside with \"alertdb tables\" and \"alertdb dump\".\n",
             kSteps);
  return 0;
}

}  // namespace

void addDemoCommand(CLI::App &tool) {
  CLI::App &command =
      addCommand(tool, "demo", "run the typical alert flow and show each step", runDemo);
  command.footer(kDescription);
}

}  // namespace alertdb_tool
