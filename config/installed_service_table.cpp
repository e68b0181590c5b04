#include "config/installed_service_table.h"

#include <cstring>
#include <memory>

#include "config/config_definition_internal.h"
#include "framework/alert_kind_table_impl_internal.h"
#include "recipients/user_instance_table.h"
#include "responses/response_table.h"

namespace {

constexpr platform::FieldTemplate kTemplates[] = {
    AlertField(65, 16, 16, 0x311), AlertField(66, 16, 16, 0x311), AlertField(68, 16, 16, 0x311),
    AlertField(67, 16, 33, 0x1),   AlertField(0, 16, 16, 0x311),  AlertField(0, 0, 4, 0x312),
    AlertField(69, 0, 12, 0x30D),
};
constexpr const char *kFieldNames[] = {"KEPOID",      "ServiceOID",     "ServerOID",
                                       "ServiceName", "ServiceSpecOID", "BackupServer",
                                       "Replication"};

// Deletes, through the table's own delete, every record whose `field`
// equals `value`, walking the order of `key` from the first of them.
template <class Table, class REC>
void DeleteEvery(Table &table, std::uint32_t key, _GUID REC::*field, _GUID value) {
  if (table.DBOpen() != 0) return;
  auto record = std::make_unique<REC>();
  for (std::uint32_t r = table.DBAlertRecFindFirst(
           key, sizeof(_GUID), reinterpret_cast<unsigned char *>(&value), record.get());
       r == 0 && std::memcmp(&(record.get()->*field), &value, sizeof(_GUID)) == 0;
       r = table.DBAlertRecFindNext(record.get())) {
    table.DBAlertRecDelete(&record->KEPOID);
  }
}

// The result for service types without a table of their own.
constexpr std::uint32_t kNoSpecificTable = 65535;

template <class Table>
std::uint32_t DeleteSpecific(_GUID *id) {
  Table table;
  if (table.DBOpen() == 0) table.DBAlertRecDelete(id);
  return 0;
}

}  // namespace

constinit const AlertKindDefinition CAlertSERV_INST_NTFY_SERVDB::kDefinition =
    alertdb_internal::ConfigDefinition("ServerInstService", kTemplates, kFieldNames, 740);

std::uint32_t CAlertSERV_INST_NTFY_SERVDB::DBAlertRecDelete(_GUID *id) {
  ALRTSERV_INST_NTFY_SERVREC installed{};
  if (id && CAlertDBTable::DBAlertRecRetrieve(id, &installed) == 0) {
    {
      CAlertRespDB responses;
      DeleteEvery(responses, CAlertRespDB::kServiceKey, &ALERTRESPREC::ServiceOID,
                  installed.ServiceOID);
    }
    {
      CAlertUsrInstServDB instances;
      DeleteEvery(instances, CAlertUsrInstServDB::kServiceKey, &ALRTUSRINSTSERV::Service_KEPOID,
                  installed.ServiceOID);
    }
    if (installed.BackupServer == kBackupServer) {
      CAlertNtfyServDB catalogue;
      auto service = std::make_unique<ALRTNTFYSERV>();
      if (catalogue.DBOpen() == 0 &&
          catalogue.DBAlertRecRetrieve(&installed.ServiceOID, service.get()) == 0) {
        FindAndDeleteServiceSpecRec(service.get(), &installed);
      }
    }
  }
  return CAlertDBTable::DBAlertRecDelete(id);
}

std::uint32_t CAlertSERV_INST_NTFY_SERVDB::FindAndDeleteServiceSpecRec(
    ALRTNTFYSERV *service, ALRTSERV_INST_NTFY_SERVREC *installed) {
  _GUID *settingsId = &installed->ServiceSpecOID;
  switch (service->ServiceType) {
    case CAlertMHSNtfyServDB::kServiceType:
      return DeleteSpecific<CAlertMHSNtfyServDB>(settingsId);
    case CAlertSNMPNtfyServDB::kServiceType:
      return DeleteSpecific<CAlertSNMPNtfyServDB>(settingsId);
    case CAlertMCINtfyServDB::kServiceType:
      return DeleteSpecific<CAlertMCINtfyServDB>(settingsId);
    case CAlertCOMPUSNtfyServDB::kServiceType:
      return DeleteSpecific<CAlertCOMPUSNtfyServDB>(settingsId);
    case CAlertSMTPNtfyServDB::kServiceType:
      return DeleteSpecific<CAlertSMTPNtfyServDB>(settingsId);
    case CAlertMAPINtfyServDB::kServiceType:
      return DeleteSpecific<CAlertMAPINtfyServDB>(settingsId);
    case CAlertCCMAILNtfyServDB::kServiceType:
      return DeleteSpecific<CAlertCCMAILNtfyServDB>(settingsId);
    case CAlertWAVENtfyServDB::kServiceType:
      return DeleteSpecific<CAlertWAVENtfyServDB>(settingsId);
    case CAlertTTSNtfyServDB::kServiceType:
      return DeleteSpecific<CAlertTTSNtfyServDB>(settingsId);
    case CAlertPHONENtfyServDB::kServiceType:
      return DeleteSpecific<CAlertPHONENtfyServDB>(settingsId);
    case CAlertAPAGENtfyServDB::kServiceType:
      return DeleteSpecific<CAlertAPAGENtfyServDB>(settingsId);
    case CAlertNPAGENtfyServDB::kServiceType:
      return DeleteSpecific<CAlertNPAGENtfyServDB>(settingsId);
    case CAlertGENPORTNtfyServDB::kServiceType:
      return DeleteSpecific<CAlertGENPORTNtfyServDB>(settingsId);
    case CAlertBROADCASTNtfyServDB::kServiceType:
      return DeleteSpecific<CAlertBROADCASTNtfyServDB>(settingsId);
    default:
      return kNoSpecificTable;  // program launch, script and unknown types
  }
}

template class CAlertDBTable<ALRTSERV_INST_NTFY_SERVREC>;
template class CAlertKindTable<CAlertSERV_INST_NTFY_SERVDB, ALRTSERV_INST_NTFY_SERVREC>;
