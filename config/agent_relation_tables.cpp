#include "config/agent_relation_tables.h"

#include "config/config_definition_internal.h"
#include "framework/alert_kind_table_impl_internal.h"

using alertdb_internal::ConfigDefinition;

namespace {

constexpr platform::FieldTemplate kAgentToServer[] = {
    AlertField(24, 16, 16, 0x311),
    AlertField(25, 16, 16, 0x311),
    AlertField(26, 16, 16, 0x311),
    AlertField(27, 0, 12, 0x30D),
};
constexpr platform::FieldTemplate kServerToAgent[] = {
    AlertField(28, 16, 16, 0x311),
    AlertField(29, 16, 16, 0x311),
    AlertField(30, 16, 16, 0x311),
    AlertField(31, 0, 12, 0x30D),
};
constexpr const char *kRelationNames[] = {"KEPOID", "AgentOID", "ServerOID", "Replication"};

}  // namespace

constinit const AlertKindDefinition CAlertAGNT_SERV_RELDB::kDefinition =
    ConfigDefinition("AGNT_SERV_Relation_", kAgentToServer, kRelationNames, 650);
constinit const AlertKindDefinition CAlertSERV_AGNT_RELDB::kDefinition =
    ConfigDefinition("SERV_AGNT_REL_Service", kServerToAgent, kRelationNames, 660);

template class CAlertDBTable<ALRTAGNT_SERV_RELREC>;
template class CAlertDBTable<ALRTSERV_AGNT_RELREC>;

template class CAlertKindTable<CAlertAGNT_SERV_RELDB, ALRTAGNT_SERV_RELREC>;
template class CAlertKindTable<CAlertSERV_AGNT_RELDB, ALRTSERV_AGNT_RELREC>;
