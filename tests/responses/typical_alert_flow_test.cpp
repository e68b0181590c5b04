// The typical alert of the library's overview, end to end: an event class
// with a response for a user reached by mail, an occurrence logged, the
// alert manager's reading of it all, the message built, the outcome recorded.
#include <cstring>
#include <memory>
#include <string>

#include "events/event_class_table.h"
#include "events/event_log_table.h"
#include "events/event_resp_table.h"
#include "platform/string_table.h"
#include "recipients/recipient_test_support.h"
#include "recipients/user_table.h"
#include "responses/response_results_table.h"
#include "responses/response_table.h"
#include "services/notify_services_table.h"
#include "support/test_environment.h"
#include "text/replaceable_parameters.h"

using alertdb_test::addResponse;
using alertdb_test::addUser;
using alertdb_test::findBy;
using alertdb_test::makeId;

namespace {

class TypicalAlertFlowTest : public alertdb_test::RecipientTablesTest {};

TEST_F(TypicalAlertFlowTest, AnOccurrenceBecomesAMessageToTheUsersAddressAndARecordedResult) {
  // ---- configuration, as the console writes it
  CAlertEVENT_CLASSDB eventClasses;
  ASSERT_EQ(eventClasses.DBCreate(), 0u);
  ALRTEVENT_CLASSREC diskFull{};
  std::strcpy(diskFull.EventName, "Disk Full");
  std::strcpy(diskFull.Product, "Storage Agent");
  diskFull.EventID = 13145;
  diskFull.Severity = 2;
  _GUID eventClassId{};
  ASSERT_EQ(eventClasses.DBAlertRecAdd(&diskFull, &eventClassId), 0u);

  ALRTNTFYSERV mail{};
  std::strcpy(mail.Service_Name, "Internet Mail");
  auto server = std::make_unique<ALRTSMTPSERVICEREC>();
  std::strcpy(server->Server_addr, "smtp.example.org");
  std::strcpy(server->Password, "secret");
  _GUID serviceId{}, serverId{};
  ASSERT_EQ(catalogue->DBAlertRecAdd(&mail, &serviceId, server.get(), &serverId), 0u);
  _GUID userId = makeId(0x42);
  addUser(*users, userId);
  giveService(userId, serviceId, "ops@example.org");

  ALERTRESPREC notify = alertdb_test::response("Mail the night operator", userId, serviceId);
  notify.Type = CAlertRespDB::kServiceResponse;
  std::strcpy(notify.Msg, "Event %s on %s: %s");
  const unsigned char messageParams[] = {4, 2, 12};
  std::memcpy(notify.ParamIDList, messageParams, sizeof messageParams);
  std::strcpy(notify.SubjectMsg, "%s alert from %s");
  const unsigned char subjectParams[] = {8, 10};
  std::memcpy(notify.SubParamIDList, subjectParams, sizeof subjectParams);
  _GUID responseId = addResponse(*responses, notify);
  ASSERT_EQ(eventClasses.QALRTEventClassAddResponse(&eventClassId, &responseId), 0u);

  // ---- a component detects the event
  CAlertEVENT_LOGDB log;
  ASSERT_EQ(log.DBCreate(), 0u);
  auto occurrence = std::make_unique<ALRTEVENT_LOGREC>();
  occurrence->EventClass_OID = eventClassId;
  occurrence->EventID = 13145;
  std::strcpy(occurrence->MachineName, "FILESRV1");
  std::strcpy(occurrence->EventText, "Volume D: is 99% full");
  _GUID logEntryId{};
  ASSERT_EQ(log.DBAlertRecAdd(occurrence.get(), &logEntryId), 0u);

  // ---- the alert manager, in a fresh set of table objects
  CAlertEVENT_LOGDB logReader;
  ASSERT_EQ(logReader.DBOpen(), 0u);
  auto logged = std::make_unique<ALRTEVENT_LOGREC>();
  ASSERT_EQ(logReader.DBAlertRecRetrieve(&logEntryId, logged.get()), 0u);

  CAlertEVENT_CLASSDB classReader;
  ASSERT_EQ(classReader.DBOpen(), 0u);
  auto eventClass = std::make_unique<ALRTEVENT_CLASSREC>();
  ASSERT_EQ(classReader.DBAlertRecRetrieve(&logged->EventClass_OID, eventClass.get()), 0u);

  CAlertEVENT_RESPDB links;
  ASSERT_EQ(links.DBOpen(), 0u);
  ALRTEVENT_RESPREC link{};
  ASSERT_EQ(findBy(links, CAlertEVENT_RESPDB::kEventClassKey, eventClassId, &link), 0u);
  ASSERT_EQ(std::memcmp(&link.EventClassOID, &eventClassId, 16), 0);
  ALRTEVENT_RESPREC next{};
  EXPECT_TRUE(links.DBAlertRecFindNext(&next) != 0 ||
              std::memcmp(&next.EventClassOID, &eventClassId, 16) != 0)
      << "one response";

  CAlertRespDB responseReader;
  ASSERT_EQ(responseReader.DBOpen(), 0u);
  ALERTRESPREC toDo{};
  ASSERT_EQ(responseReader.DBAlertRecRetrieve(&link.ResponseOID, &toDo), 0u);
  ASSERT_EQ(std::uint32_t{toDo.ServiceType}, 5u) << "filled from the catalogue";

  CAlertNtfyServDB services;
  ASSERT_EQ(services.DBOpen(), 0u);
  ALRTNTFYSERV service{};
  ASSERT_EQ(services.DBAlertRecRetrieve(&toDo.ServiceOID, &service), 0u);
  CAlertSMTPNtfyServDB smtpServers;
  ASSERT_EQ(smtpServers.DBOpen(), 0u);
  auto settings = std::make_unique<ALRTSMTPSERVICEREC>();
  ASSERT_EQ(smtpServers.DBAlertRecRetrieve(&service.ServiceSpecific_KEPOID, settings.get()), 0u);
  EXPECT_STREQ(settings->Server_addr, "smtp.example.org");
  EXPECT_STREQ(settings->Password, "secret") << "passwords arrive in clear";

  CAlertUsrInstServDB instanceReader;
  ASSERT_EQ(instanceReader.DBOpen(), 0u);
  ALRTUSRINSTSERV instance{};
  ASSERT_EQ(findBy(instanceReader, CAlertUsrInstServDB::kUserKey, toDo.UserOID, &instance), 0u);
  ASSERT_EQ(std::memcmp(&instance.Service_KEPOID, &toDo.ServiceOID, 16), 0);
  CAlertUSR_SMTPDB addresses;
  ASSERT_EQ(addresses.DBOpen(), 0u);
  ALRTUSR_SMTPSERVICEREC target{};
  ASSERT_EQ(addresses.DBAlertRecRetrieve(&instance.ServicePerInfo_KEPOID, &target), 0u);
  EXPECT_STREQ(target.SMTPMailAddr, "ops@example.org");

  ALRTEVENTDATA eventData{};
  eventData.EventID = logged->EventID;
  eventData.OpStatus = logged->OpStatus;
  eventData.ErrorCode = logged->ErrorCode;
  std::memcpy(eventData.MachineName, logged->MachineName, sizeof eventData.MachineName);
  std::memcpy(eventData.UserName, logged->UserName, sizeof eventData.UserName);
  std::memcpy(eventData.EventText, logged->EventText, sizeof eventData.EventText);
  std::memcpy(eventData.Time, logged->Time, sizeof eventData.Time);
  std::memcpy(eventData.domainName, logged->domainName, sizeof eventData.domainName);
  std::memcpy(eventData.TextParameter, logged->TextParameter, sizeof eventData.TextParameter);
  auto message = std::make_unique<char[]>(2049);
  auto subject = std::make_unique<char[]>(261);
  message[0] = subject[0] = '\0';
  ASSERT_EQ(ParseReplaceableParamaterListToText(AlertDBModuleHandle(), message.get(), subject.get(),
                                                &toDo, eventClass.get(), &eventData, 0),
            0u);
  EXPECT_STREQ(message.get(), "Event Disk Full on FILESRV1: Volume D: is 99% full");
  EXPECT_STREQ(subject.get(), "MAJOR alert from Storage Agent");

  // ---- delivered (outside the library); the outcome is recorded
  CAlertRespResultsDB results;
  ASSERT_EQ(results.DBCreate(), 0u);
  ALERTRESPRESULTREC outcome{};
  outcome.LogEntryOID = logEntryId;
  outcome.ResponseOID = toDo.KEPOID;
  outcome.TargetOID = target.KEPOID;
  outcome.Result = 1;
  std::snprintf(outcome.ErrorText, sizeof outcome.ErrorText, "mailbox %s is full",
                target.SMTPMailAddr);
  _GUID resultId{};
  ASSERT_EQ(results.DBAlertRecAdd(&outcome, &resultId), 0u);

  CAlertRespResultsDB resultReader;
  ASSERT_EQ(resultReader.DBOpen(), 0u);
  ALERTRESPRESULTREC ofEntry{};
  ASSERT_EQ(findBy(resultReader, CAlertRespResultsDB::kLogEntryKey, logEntryId, &ofEntry), 0u);
  EXPECT_EQ(std::memcmp(&ofEntry.ResponseOID, &responseId, 16), 0);
  EXPECT_EQ(std::memcmp(&ofEntry.TargetOID, &target.KEPOID, 16), 0);
  char errorText[2049];
  ASSERT_EQ(resultReader.DBGetRespResultErrorTxt(&resultId, errorText), 0u);
  EXPECT_STREQ(errorText, "mailbox ops@example.org is full");
}

}  // namespace
