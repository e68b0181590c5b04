// Second process for the resource tests: works on the data directory named
// by ALERTDB_DATA_DIR as the product's programs do, printing what each call
// gave. Commands:
//   read                  every table of the work read whole, by object ID:
//                         "read TABLE STATUS COUNT DIGEST"
//   change USER SERVER    the reads, then a call of each kind that changes
//                         data (adds, an update, the user's and the server's
//                         cascading deletes, the purge, new tables and files):
//                         "op NAME STATUS"
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "alertdb.h"
#include "platform/guid.h"
#include "reliability/damaged/damaged_reference.h"

namespace {

template <class REC>
REC *recordOf(CAlertDBTable<REC> &);

template <class Table>
struct Probe : Table {
  std::uint32_t idKey() const { return this->m_nIdKey; }
};

template <class Table>
void readTable(const char *name) {
  Probe<Table> table;
  using Rec = std::remove_pointer_t<decltype(recordOf(table))>;
  std::uint32_t r = table.DBOpen();
  if (r != 0) {
    std::printf("read %s %s 0 -\n", name, AlertDBStatusName(r));
    return;
  }
  auto record = std::make_unique<Rec>();
  std::map<std::string, std::vector<std::uint64_t>> hashes;
  std::vector<std::uint64_t> &all = hashes[name];
  std::uint32_t s = table.DBAlertRecFindFirst(table.idKey(), 0, nullptr, record.get());
  for (; s == 0; s = table.DBAlertRecFindNext(record.get())) {
    all.push_back(alertdb_test::damage::bytesHash(record.get(), sizeof(Rec)));
  }
  std::printf("read %s %s %zu %s\n", name, AlertDBStatusName(s == ALRT_E_NOTFOUND ? 0 : s),
              all.size(),
              alertdb_test::damage::hashText(alertdb_test::damage::stateDigest(hashes)).c_str());
}

void readAll() {
  readTable<CAlertEVENT_LOGDB>("EVENT_LOG");
  readTable<CAlertUsrDB>("AlertUsr_Table");
  readTable<CAlertUsrInstServDB>("UsrInst");
  readTable<CAlertUSR_SMTPDB>("USR_SMTP_Service");
  readTable<CAlertRespDB>("AlertResp_Table");
  readTable<CAlert_SRV_CFGDB>("ALRT_Server_Config");
  readTable<CAlertSERV_INST_NTFY_SERVDB>("SERV_INST_NTFY_SERV");
  readTable<CAlertNtfyServDB>("Notify_Services");
}

void op(const char *name, std::uint32_t status) {
  std::printf("op %s %s\n", name, AlertDBStatusName(status));
}

// The call's status, or the open's when the table does not open.
template <class Table>
std::uint32_t onOpen(Table &table, const std::function<std::uint32_t()> &call) {
  std::uint32_t r = table.DBOpen();
  return r != 0 ? r : call();
}

void changeAll(_GUID user, _GUID server) {
  {
    CAlertEVENT_LOGDB log;
    ALRTEVENT_LOGREC entry{};
    std::strcpy(entry.EventName, "read-only");
    _GUID id{};
    op("add-log", onOpen(log, [&] { return log.DBAlertRecAdd(&entry, &id); }));
  }
  {
    CAlertUsrDB users;
    ALERTUSRREC rec{};
    _GUID id{};
    op("add-user", onOpen(users, [&] { return users.DBAlertRecAdd(&rec, &id); }));
  }
  {
    CAlertUsrDB users;
    ALRTUSR_SMTPSERVICEREC address{};
    address.USR_OID = user;
    std::strcpy(address.SMTPMailAddr, "read-only@example");
    _GUID service{};
    service.Data1 = 77;
    op("add-service",
       onOpen(users, [&] { return users.QALRTUsrAddService(&user, &service, &address); }));
  }
  {
    CAlertRespDB responses;
    auto rec = std::make_unique<ALERTRESPREC>();
    std::strcpy(rec->Name, "read-only");
    _GUID id{};
    op("add-response", onOpen(responses, [&] { return responses.DBAlertRecAdd(rec.get(), &id); }));
  }
  {
    CAlert_SRV_CFGDB servers;
    ALRT_SRV_CFGREC rec{};
    std::strcpy(rec.MachineName, "read-only");
    _GUID id{};
    op("add-server", onOpen(servers, [&] { return servers.DBAlertRecAdd(&rec, &id); }));
  }
  {
    CAlert_SRV_CFGDB servers;
    _GUID service{}, id{};
    service.Data1 = 78;
    op("install-service", onOpen(servers, [&] {
         return servers.QALRTServCfgAddNtfyServiceEntry(&server, &service, "Internet Mail", &id);
       }));
  }
  {
    CAlertUsrDB users;
    op("update-user", onOpen(users, [&] {
         ALERTUSRREC rec{};
         std::uint32_t r = users.DBAlertRecRetrieve(&user, &rec);
         if (r != 0) return r;
         rec.AlertRecp += 1;
         return users.DBAlertRecUpdate(&rec);
       }));
  }
  {
    CAlertUsrDB users;
    op("delete-user", onOpen(users, [&] { return users.DBAlertRecDelete(&user); }));
  }
  {
    CAlert_SRV_CFGDB servers;
    op("delete-server", onOpen(servers, [&] { return servers.DBAlertRecDelete(&server); }));
  }
  op("purge", PurgeLog(kPurgeAcknowledged));
  {
    // A table missing from a file that is there, and a file that is not.
    CAlertRespResultsDB results;
    op("create-table", OpenOrCreate(results));
    CAlertAPAGE_SERVICE_PROVIDERDB providers;
    op("create-file", providers.DBCreate());
  }
}

}  // namespace

int main(int argc, char **argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  std::string command = argc > 1 ? argv[1] : "";
  if (command == "read" && argc == 2) {
    readAll();
    return 0;
  }
  _GUID user{}, server{};
  if (command == "change" && argc == 4 && platform::GuidFromString(argv[2], &user) &&
      platform::GuidFromString(argv[3], &server)) {
    readAll();
    changeAll(user, server);
    return 0;
  }
  return 1;
}
