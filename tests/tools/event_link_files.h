// Event-to-response links in "AlEvntdb.dat", written and read through their
// table class, and damaged behind its back, for the tests of the tool's
// backup, check and recover commands.
#pragma once

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "events/event_resp_table.h"
#include "platform/guid.h"
#include "support/test_environment.h"
#include "support/tool_run.h"
#include "tools/tool_json.h"

namespace alertdb_test {

class EventLinkFileTest : public IsolatedTest {
 protected:
  static constexpr const char *kFile = "AlEvntdb.dat";
  static constexpr const char *kNeedle = "NEEDLE-EVENT-CLS";  // 16 bytes: an event class ID

  // Link n: event class {n+1, ...}, response all 7s; the needle link's event
  // class is made of kNeedle's bytes, found nowhere else in the file's records.
  static ALRTEVENT_RESPREC linkOf(std::uint32_t n, bool needle = false) {
    ALRTEVENT_RESPREC link{};
    if (needle) {
      std::memcpy(&link.EventClassOID, kNeedle, sizeof link.EventClassOID);
    } else {
      link.EventClassOID.Data1 = n + 1;
      link.EventClassOID.Data2 = 0x5151;
    }
    std::memset(&link.ResponseOID, 7, sizeof link.ResponseOID);
    return link;
  }

  // Adds `count` links and, with `needle`, one more; the table is closed
  // again. Returns the object IDs in the order added.
  std::vector<_GUID> addLinks(std::uint32_t count, bool needle = false) {
    std::vector<_GUID> ids;
    CAlertEVENT_RESPDB links;
    std::uint32_t r = links.DBOpen();
    if (r != 0) r = links.DBCreate();
    EXPECT_EQ(r, 0u);
    for (std::uint32_t n = 0; n <= count; ++n) {
      if (n == count && !needle) break;
      ALRTEVENT_RESPREC link = linkOf(n, n == count);
      _GUID id;
      EXPECT_EQ(links.DBAlertRecAdd(&link, &id), 0u);
      ids.push_back(id);
    }
    return ids;
  }

  // Flips a byte of the needle link's stored record; no table may be open.
  void damageNeedle(const std::string &file = kFile) {
    std::string bytes = readFile(dataPath(file));
    std::size_t at = bytes.find(kNeedle);
    ASSERT_NE(at, std::string::npos);
    bytes[at + 2] ^= 0x01;
    writeFile(dataPath(file), bytes);
  }

  // What the table class gives for a link: 0 and the link, or its status.
  static std::uint32_t retrieve(CAlertEVENT_RESPDB &links, _GUID id, ALRTEVENT_RESPREC *out) {
    return links.DBAlertRecRetrieve(&id, out);
  }

  static bool sameLink(const ALRTEVENT_RESPREC &a, const ALRTEVENT_RESPREC &b) {
    return std::memcmp(&a.EventClassOID, &b.EventClassOID, sizeof a.EventClassOID) == 0 &&
           std::memcmp(&a.ResponseOID, &b.ResponseOID, sizeof a.ResponseOID) == 0;
  }

  // The names in the data directory, sorted.
  std::vector<std::string> directoryNames() const {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(dataDir())) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
};

}  // namespace alertdb_test
