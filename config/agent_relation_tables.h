// Which extension agent reports to which alert server, kept twice in
// "AlCfgdb.dat": once to be read from the agent's side, once from the
// server's. Neither table checks that the agent or the server exists.
#pragma once

#include <cstdint>

#include "framework/alert_kind_table.h"

#pragma pack(push, 1)

struct ALERTDB_API ALRTAGNT_SERV_RELREC {
  _GUID KEPOID;
  _GUID AgentOID;
  _GUID ServerOID;
};
static_assert(sizeof(ALRTAGNT_SERV_RELREC) == 48, "ALRTAGNT_SERV_RELREC is 48 bytes");

struct ALERTDB_API ALRTSERV_AGNT_RELREC {
  _GUID KEPOID;
  _GUID AgentOID;
  _GUID ServerOID;
};
static_assert(sizeof(ALRTSERV_AGNT_RELREC) == 48, "ALRTSERV_AGNT_RELREC is 48 bytes");

#pragma pack(pop)

extern template class CAlertDBTable<ALRTAGNT_SERV_RELREC>;
class ALERTDB_API CAlertAGNT_SERV_RELDB
    : public CAlertKindTable<CAlertAGNT_SERV_RELDB, ALRTAGNT_SERV_RELREC> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kAgentKey = 25;
  static constexpr std::uint32_t kServerKey = 26;
  using CAlertKindTable::CAlertKindTable;
};

extern template class CAlertDBTable<ALRTSERV_AGNT_RELREC>;
class ALERTDB_API CAlertSERV_AGNT_RELDB
    : public CAlertKindTable<CAlertSERV_AGNT_RELDB, ALRTSERV_AGNT_RELREC> {
 public:
  static const AlertKindDefinition kDefinition;
  static constexpr std::uint32_t kAgentKey = 29;
  static constexpr std::uint32_t kServerKey = 30;
  using CAlertKindTable::CAlertKindTable;
};
