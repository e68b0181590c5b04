// The standing records of the demo's alert flow: an event class, an Internet
// Mail service, an alert user reached through it and a response linked to the
// event class. Each is found when an earlier run made it, otherwise made, so
// the demo can run again and again on one data directory.
#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "alertdb.h"
#include "tools/tool_context.h"

namespace alertdb_tool::demo {

inline constexpr char kEventName[] = "Disk Full";
inline constexpr std::uint32_t kEventId = 13145;
inline constexpr std::uint32_t kSeverity = 2;  // MAJOR
inline constexpr char kProduct[] = "Disk Monitor";
inline constexpr char kServiceName[] = "Demo Internet Mail";
inline constexpr char kMailServer[] = "smtp.example.com";
inline constexpr char kMailSender[] = "alertdb@example.com";
inline constexpr char kUserName[] = "Pat Example";
inline constexpr char kUserAddress[] = "pat@example.com";
inline constexpr char kResponseName[] = "Mail Pat when a disk fills";

// Fills a text field, cut to its size.
template <std::size_t N>
void copyText(char (&field)[N], const char *text) {
  std::snprintf(field, N, "%s", text);
}

inline bool sameId(const _GUID &a, const _GUID &b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// Opens a table the way the library's own relations do, and also makes a data
// file that is not there yet; throws ToolError naming the status otherwise.
template <class Table>
void openTable(Table &table, const char *what, const char *file) {
  std::uint32_t status = table.DBOpen();
  // The recovery open repaired the file but selected no table: open it anew.
  if (status == ALRT_E_ALTOPEN) {
    table = Table();
    status = table.DBOpen();
  }
  if ((status & 0xFFFF) == ALRT_NOTABLE_LOW || status == ALRT_MISSINGFILE) {
    status = table.DBCreate();
  }
  if (status != 0) failWithStatus(status, fmt::format("cannot open {} in {}", what, file));
}

template <class Record>
struct Found {
  Record record{};
  bool earlier = false;  // made by an earlier run
};

struct MailUser {
  ALERTUSRREC user{};
  ALRTUSR_SMTPSERVICEREC address{};
  bool earlier = false;
};

Found<ALRTEVENT_CLASSREC> findOrRegisterEventClass();
Found<ALRTNTFYSERV> findOrAddMailService(ALRTSMTPSERVICEREC *settings);
MailUser findOrAddMailUser(const _GUID &serviceId);
// An earlier run's response is pointed at this run's user and service.
Found<ALERTRESPREC> findOrAddResponse(const _GUID &userId, const _GUID &serviceId);

// The Internet Mail address of `userId` through `serviceId`; false when it has none.
bool findMailAddress(const _GUID &userId, const _GUID &serviceId, ALRTUSR_SMTPSERVICEREC *address);

std::string idText(const _GUID &id);

}  // namespace alertdb_tool::demo
