// Second process for the service password tests: a fresh process reads the
// encryption setting anew. Commands on standard input, one answer line each;
// KIND is MHS, MCI, COMPUS, SMTP, MAPI or CCMAIL, blocks are 49 bytes as hex:
//   status                    GetEncryptionStatus()
//   add KIND PASSWORD         typed add through the catalogue:
//                             "<specific row ID> <caller's password block>"
//   read KIND ID              the password block as retrieved
//   first KIND                the password block of the first row by ID key
//   update2 KIND ID PASSWORD  retrieve, set the password, update twice from
//                             the same record: "<status> <status>"
//   quit                      close every table and end
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>

#include "framework/open_or_create.h"
#include "services/notify_services_table.h"
#include "text/password_protection.h"

namespace {

std::string toHex(const void *bytes, std::size_t size) {
  std::string hex;
  char pair[3];
  for (std::size_t i = 0; i < size; ++i) {
    std::snprintf(pair, sizeof pair, "%02x", static_cast<const unsigned char *>(bytes)[i]);
    hex += pair;
  }
  return hex;
}

bool fromHex(const std::string &hex, void *bytes, std::size_t size) {
  if (hex.size() != 2 * size) return false;
  for (std::size_t i = 0; i < size; ++i) {
    static_cast<unsigned char *>(bytes)[i] =
        static_cast<unsigned char>(std::stoi(hex.substr(2 * i, 2), nullptr, 16));
  }
  return true;
}

void setPassword(char (&password)[49], const std::string &text) {
  std::memset(password, 0, sizeof password);
  std::strncpy(password, text.c_str(), sizeof password - 1);
}

template <class Table>
std::string run(const std::string &command, CAlertNtfyServDB &catalogue) {
  using Record = typename Table::Record;
  auto record = std::make_unique<Record>();
  Table table;
  if (OpenOrCreate(table) != 0) return "open failed";
  _GUID id{};
  if (command == "add") {
    std::string password;
    std::cin >> password;
    setPassword(record->Password, password);
    ALRTNTFYSERV service{};
    _GUID serviceId{};
    std::uint32_t status = catalogue.DBAlertRecAdd(&service, &serviceId, record.get(), &id);
    if (status != 0) return "status " + std::to_string(status);
    return toHex(&id, sizeof id) + " " + toHex(record->Password, 49);
  }
  if (command == "first") {
    std::uint32_t status =
        table.DBAlertRecFindFirst(Table::kDefinition.table.idKey, 0, nullptr, record.get());
    return status == 0 ? toHex(record->Password, 49) : "status " + std::to_string(status);
  }
  std::string idHex;
  std::cin >> idHex;
  if (!fromHex(idHex, &id, sizeof id)) return "bad id";
  if (command == "read") {
    std::uint32_t status = table.DBAlertRecRetrieve(&id, record.get());
    return status == 0 ? toHex(record->Password, 49) : "status " + std::to_string(status);
  }
  if (command == "update2") {
    std::string password;
    std::cin >> password;
    if (table.DBAlertRecRetrieve(&id, record.get()) != 0) return "not found";
    setPassword(record->Password, password);
    std::uint32_t first = table.DBAlertRecUpdate(record.get());
    std::uint32_t second = table.DBAlertRecUpdate(record.get());
    return std::to_string(first) + " " + std::to_string(second);
  }
  return "unknown";
}

std::string dispatch(const std::string &command, const std::string &kind,
                     CAlertNtfyServDB &catalogue) {
  if (kind == "MHS") return run<CAlertMHSNtfyServDB>(command, catalogue);
  if (kind == "MCI") return run<CAlertMCINtfyServDB>(command, catalogue);
  if (kind == "COMPUS") return run<CAlertCOMPUSNtfyServDB>(command, catalogue);
  if (kind == "SMTP") return run<CAlertSMTPNtfyServDB>(command, catalogue);
  if (kind == "MAPI") return run<CAlertMAPINtfyServDB>(command, catalogue);
  if (kind == "CCMAIL") return run<CAlertCCMAILNtfyServDB>(command, catalogue);
  return "unknown kind";
}

}  // namespace

int main() {
  auto catalogue = std::make_unique<CAlertNtfyServDB>();
  // The first process to use the data directory makes the data file.
  std::uint32_t opened = OpenOrCreate(*catalogue);
  if (opened == ALRT_MISSINGFILE) opened = catalogue->DBCreate();
  if (opened != 0) {
    std::cout << "open failed" << std::endl;
    return 1;
  }
  std::string command;
  while (std::cin >> command) {
    if (command == "quit") break;
    if (command == "status") {
      std::cout << GetEncryptionStatus() << std::endl;
      continue;
    }
    std::string kind;
    std::cin >> kind;
    std::cout << dispatch(command, kind, *catalogue) << std::endl;
  }
  catalogue.reset();
  std::cout << "done" << std::endl;
  return 0;
}
