#include "tools/demo_records.h"

#include <cstdio>
#include <cstring>

namespace alertdb_tool::demo {

namespace {

unsigned char *keyBytes(const void *value) {
  return static_cast<unsigned char *>(const_cast<void *>(value));
}

ALERTRESPREC wantedResponse(const _GUID &userId, const _GUID &serviceId) {
  ALERTRESPREC response{};
  copyText(response.Name, kResponseName);
  copyText(response.Description, "Mails the administrator on call when a volume fills up");
  response.Type = CAlertRespDB::kServiceResponse;
  response.Priority = 1;
  copyText(response.Target, "Pat Example <pat@example.com>");
  copyText(response.Service, "Internet Mail");
  // Each "%" takes the next parameter: event name, computer, date and time, event text.
  copyText(response.Msg, "%s on %s at %s: %s");
  const unsigned char message[] = {4, 2, 7, 12};
  std::memcpy(response.ParamIDList, message, sizeof message);
  // Severity, event name, computer.
  copyText(response.SubjectMsg, "[%s] %s on %s");
  const unsigned char subject[] = {8, 4, 2};
  std::memcpy(response.SubParamIDList, subject, sizeof subject);
  response.UserOID = userId;
  response.ServiceOID = serviceId;
  copyText(response.ProductName, kProduct);
  return response;
}

}  // namespace

std::string idText(const _GUID &id) { return platform::GuidToString(id); }

Found<ALRTEVENT_CLASSREC> findOrRegisterEventClass() {
  CAlertEVENT_CLASSDB classes;
  openTable(classes, "the event classes", "AlEvntdb.dat");
  Found<ALRTEVENT_CLASSREC> found;
  char name[sizeof found.record.EventName] = {};
  copyText(name, kEventName);
  if (classes.DBAlertRecFindFirst(CAlertEVENT_CLASSDB::kEventNameKey, sizeof name, keyBytes(name),
                                  &found.record) == 0 &&
      std::strcmp(found.record.EventName, kEventName) == 0) {
    found.earlier = true;
    return found;
  }
  found.record = {};
  copyText(found.record.EventName, kEventName);
  copyText(found.record.Product, kProduct);
  copyText(found.record.Comment, "A volume is nearly full.");
  copyText(found.record.solution, "Free some space, or extend the volume.");
  found.record.EventID = kEventId;
  found.record.Severity = kSeverity;
  _GUID id{};
  std::uint32_t status = classes.DBAlertRecAdd(&found.record, &id);
  if (status != 0) failWithStatus(status, "cannot register the event class \"Disk Full\"");
  found.record.KEPOID = id;
  return found;
}

Found<ALRTNTFYSERV> findOrAddMailService(ALRTSMTPSERVICEREC *settings) {
  CAlertNtfyServDB catalogue;
  openTable(catalogue, "the notification services", "AlServdb.dat");
  CAlertSMTPNtfyServDB mail;
  openTable(mail, "the Internet Mail settings", "AlServdb.dat");
  Found<ALRTNTFYSERV> found;
  char name[sizeof found.record.Service_Name] = {};
  copyText(name, kServiceName);
  // A row of a type this library does not know still comes with its name.
  for (std::uint32_t status = catalogue.DBAlertRecFindFirst(
           CAlertNtfyServDB::kServiceNameKey, sizeof name, keyBytes(name), &found.record);
       (status == 0 || status == ALRT_E_BADSERVICETYPE) &&
       std::strcmp(found.record.Service_Name, kServiceName) == 0;
       status = catalogue.DBAlertRecFindNext(&found.record)) {
    if (found.record.ServiceType == CAlertSMTPNtfyServDB::kServiceType &&
        mail.DBAlertRecRetrieve(&found.record.ServiceSpecific_KEPOID, settings) == 0) {
      found.earlier = true;
      return found;
    }
  }
  found.record = {};
  copyText(found.record.Service_Name, kServiceName);
  copyText(found.record.Product, "AlertDB demo");
  copyText(found.record.Comment, "Mail through the example server");
  found.record.Enabled = 1;
  found.record.ServiceType = CAlertSMTPNtfyServDB::kServiceType;
  *settings = {};
  copyText(settings->Server_addr, kMailServer);
  copyText(settings->Sender, kMailSender);
  settings->Priority = 1;
  _GUID id{};
  _GUID settingsId{};
  std::uint32_t status = catalogue.DBAlertRecAdd(&found.record, &id, settings, &settingsId);
  if (status != 0) failWithStatus(status, "cannot add the Internet Mail service");
  found.record.KEPOID = id;
  return found;
}

bool findMailAddress(const _GUID &userId, const _GUID &serviceId, ALRTUSR_SMTPSERVICEREC *address) {
  CAlertUsrInstServDB instances;
  openTable(instances, "the users' services", "kepuser.dat");
  CAlertUSR_SMTPDB addresses;
  openTable(addresses, "the Internet Mail addresses", "kepuser.dat");
  ALRTUSRINSTSERV instance{};
  for (std::uint32_t status = instances.DBAlertRecFindFirst(
           CAlertUsrInstServDB::kUserKey, sizeof userId, keyBytes(&userId), &instance);
       status == 0 && sameId(instance.UserOid, userId);
       status = instances.DBAlertRecFindNext(&instance)) {
    if (sameId(instance.Service_KEPOID, serviceId) &&
        addresses.DBAlertRecRetrieve(&instance.ServicePerInfo_KEPOID, address) == 0) {
      return true;
    }
  }
  return false;
}

MailUser findOrAddMailUser(const _GUID &serviceId) {
  CAlertUsrDB users;
  openTable(users, "the alert users", "kepuser.dat");
  CAlertUsrInstServDB instances;
  openTable(instances, "the users' services", "kepuser.dat");
  CAlertUSR_SMTPDB addresses;
  openTable(addresses, "the Internet Mail addresses", "kepuser.dat");
  MailUser found;
  // Whom the service reaches: its instances, each pointing to an address record.
  ALRTUSRINSTSERV instance{};
  for (std::uint32_t status = instances.DBAlertRecFindFirst(
           CAlertUsrInstServDB::kServiceKey, sizeof serviceId, keyBytes(&serviceId), &instance);
       status == 0 && sameId(instance.Service_KEPOID, serviceId);
       status = instances.DBAlertRecFindNext(&instance)) {
    if (addresses.DBAlertRecRetrieve(&instance.ServicePerInfo_KEPOID, &found.address) == 0 &&
        std::strcmp(found.address.SMTPMailAddr, kUserAddress) == 0 &&
        users.DBAlertRecRetrieve(&instance.UserOid, &found.user) == 0) {
      found.earlier = true;
      return found;
    }
  }
  found = {};
  found.user.AlertRecp = 1;
  _GUID userId{};
  std::uint32_t status = users.DBAlertRecAdd(&found.user, &userId);
  if (status != 0) failWithStatus(status, "cannot add the alert user");
  found.user.KEPOID = userId;
  found.address.USR_OID = userId;
  copyText(found.address.UserName, kUserName);
  copyText(found.address.SMTPMailAddr, kUserAddress);
  found.address.Enable = 1;
  _GUID service = serviceId;
  status = users.QALRTUsrAddService(&userId, &service, &found.address);
  if (status != 0) failWithStatus(status, "cannot give the alert user the Internet Mail service");
  // The call keeps the IDs it made to itself: read the address back.
  if (!findMailAddress(userId, serviceId, &found.address)) {
    failWithStatus(ALRT_E_NOTFOUND, "the alert user's new Internet Mail address cannot be read");
  }
  return found;
}

Found<ALERTRESPREC> findOrAddResponse(const _GUID &userId, const _GUID &serviceId) {
  CAlertRespDB responses;
  openTable(responses, "the responses", "AlRespDB.dat");
  Found<ALERTRESPREC> found;
  char name[sizeof found.record.Name] = {};
  copyText(name, kResponseName);
  if (responses.DBAlertRecFindFirst(CAlertRespDB::kNameKey, sizeof name, keyBytes(name),
                                    &found.record) == 0 &&
      std::strcmp(found.record.Name, kResponseName) == 0) {
    found.earlier = true;
    if (!sameId(found.record.UserOID, userId) || !sameId(found.record.ServiceOID, serviceId)) {
      found.record.UserOID = userId;
      found.record.ServiceOID = serviceId;
      std::uint32_t status = responses.DBAlertRecUpdate(&found.record);
      if (status != 0) failWithStatus(status, "cannot point the response at the demo's user");
    }
    return found;
  }
  found.record = wantedResponse(userId, serviceId);
  _GUID id{};
  std::uint32_t status = responses.DBAlertRecAdd(&found.record, &id);
  if (status != 0) failWithStatus(status, "cannot add the response");
  found.record.KEPOID = id;
  return found;
}

}  // namespace alertdb_tool::demo
