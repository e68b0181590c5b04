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
  _GUID *spec = &installed->ServiceSpecOID;
  switch (service->ServiceType) {
    case CAlertMHSNtfyServDB::kServiceType:
      return DeleteSpecific<CAlertMHSNtfyServDB>(spec);
    case CAlertSNMPNtfyServDB::kServiceType:
      return DeleteSpecific<CAlertSNMPNtfyServDB>(spec);
    case CAlertMCINtfyServDB::kServiceType:
      return DeleteSpecific<CAlertMCINtfyServDB>(spec);
    case CAlertCOMPUSNtfyServDB::kServiceType:
      return DeleteSpecific<CAlertCOMPUSNtfyServDB>(spec);
    case CAlertSMTPNtfyServDB::kServiceType:
      return DeleteSpecific<CAlertSMTPNtfyServDB>(spec);
    case CAlertMAPINtfyServDB::kServiceType:
      return DeleteSpecific<CAlertMAPINtfyServDB>(spec);
    case CAlertCCMAILNtfyServDB::kServiceType:
      return DeleteSpecific<CAlertCCMAILNtfyServDB>(spec);
    case CAlertWAVENtfyServDB::kServiceType:
      return DeleteSpecific<CAlertWAVENtfyServDB>(spec);
    case CAlertTTSNtfyServDB::kServiceType:
      return DeleteSpecific<CAlertTTSNtfyServDB>(spec);
    case CAlertPHONENtfyServDB::kServiceType:
      return DeleteSpecific<CAlertPHONENtfyServDB>(spec);
    case CAlertAPAGENtfyServDB::kServiceType:
      return DeleteSpecific<CAlertAPAGENtfyServDB>(spec);
    case CAlertNPAGENtfyServDB::kServiceType:
      return DeleteSpecific<CAlertNPAGENtfyServDB>(spec);
    case CAlertGENPORTNtfyServDB::kServiceType:
      return DeleteSpecific<CAlertGENPORTNtfyServDB>(spec);
    case CAlertBROADCASTNtfyServDB::kServiceType:
      return DeleteSpecific<CAlertBROADCASTNtfyServDB>(spec);
    default:
      return kNoSpecificTable;  // program launch, script and unknown types
  }
}

template class CAlertDBTable<ALRTSERV_INST_NTFY_SERVREC>;
template class CAlertKindTable<CAlertSERV_INST_NTFY_SERVDB, ALRTSERV_INST_NTFY_SERVREC>;
