// "ServerInstService": the notification services installed on each alert
// server. Deleting an installed service takes with it the responses and the
// user service instances of its service and, when the record is a backup
// server's, the service's own settings row.
#pragma once

#include <cstdint>

#include "framework/alert_kind_table.h"
#include "services/notify_services_table.h"

#pragma pack(push, 1)
struct ALERTDB_API ALRTSERV_INST_NTFY_SERVREC {
  _GUID KEPOID;
  _GUID ServiceOID;  // the catalogue service
  _GUID ServerOID;
  char ServiceName[33];
  _GUID ServiceSpecOID;  // the service's row in the table of its kind
  std::uint32_t BackupServer;
};
#pragma pack(pop)
static_assert(sizeof(ALRTSERV_INST_NTFY_SERVREC) == 101, "ALRTSERV_INST_NTFY_SERVREC is 101 bytes");

extern template class CAlertDBTable<ALRTSERV_INST_NTFY_SERVREC>;
class ALERTDB_API CAlertSERV_INST_NTFY_SERVDB
    : public CAlertKindTable<CAlertSERV_INST_NTFY_SERVDB, ALRTSERV_INST_NTFY_SERVREC> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kServiceKey = 66;
  static constexpr std::uint32_t kServiceNameKey = 67;
  static constexpr std::uint32_t kServerKey = 68;
  // "BackupServer" of a backup server's record.
  static constexpr std::uint32_t kBackupServer = 1;

  using CAlertKindTable::CAlertKindTable;

  // The dependents go first, each through its own table's delete (which
  // signals by that table's rule); a dependent table that does not open is
  // skipped. The result is that of deleting the installed record, which
  // signals nothing.
  std::uint32_t DBAlertRecDelete(_GUID *id);

 private:
  // Deletes `installed`'s ServiceSpecOID row in the table of `service`'s
  // type: 0, or 65535 for a type without a table of its own.
  std::uint32_t FindAndDeleteServiceSpecRec(ALRTNTFYSERV *service,
                                            ALRTSERV_INST_NTFY_SERVREC *installed);
};
