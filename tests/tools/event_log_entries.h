// Tables and event log entries as the tool tests make them, through the
// library, in the test's data directory.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "alertdb.h"

namespace alertdb_test {

// Opens the table, making its data file or table where they are missing.
template <class Table>
::testing::AssertionResult openOrMake(Table &table) {
  std::uint32_t status = table.DBOpen();
  if (status == ALRT_MISSINGFILE || (status & 0xFFFF) == ALRT_NOTABLE_LOW) {
    status = table.DBCreate();
  }
  if (status == 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "open: " << AlertDBStatusName(status);
}

// A time stamp of the log `daysAgo` days before now, made the way the
// detecting components make it (local time, month 1 to 12).
inline void stampDaysAgo(unsigned char *stamp, int daysAgo) {
  std::time_t when = std::time(nullptr) - static_cast<std::time_t>(daysAgo) * 86400;
  std::tm local{};
  localtime_r(&when, &local);
  const int parts[] = {local.tm_year,
                       local.tm_mon + 1,
                       local.tm_mday,
                       local.tm_hour,
                       local.tm_min,
                       local.tm_sec,
                       0,
                       0};
  for (int i = 0; i < 8; ++i) stamp[i] = static_cast<unsigned char>(parts[i]);
}

// Adds an entry to the event log (KEPLogDB.dat); its object ID, all zero on failure.
inline _GUID addLogEntry(std::uint32_t eventId, bool acknowledged, int daysAgo = 0) {
  CAlertEVENT_LOGDB log;
  EXPECT_TRUE(openOrMake(log));
  ALRTEVENT_LOGREC entry{};
  std::snprintf(entry.EventName, sizeof entry.EventName, "Event %u", eventId);
  entry.EventID = eventId;
  entry.Ack = acknowledged ? 1 : 0;
  stampDaysAgo(entry.Time, daysAgo);
  _GUID id{};
  EXPECT_EQ(log.DBAlertRecAdd(&entry, &id), 0u);
  return id;
}

// Every record of the table, walked by its object ID key.
template <class Record, class Table>
std::vector<Record> allRecords(Table &table) {
  std::vector<Record> records;
  Record record{};
  for (std::uint32_t status = table.DBAlertRecFindFirst(Table::kIdKey, 0, nullptr, &record);
       status == 0; status = table.DBAlertRecFindNext(&record)) {
    records.push_back(record);
  }
  return records;
}

// Opens the table (making what is missing) and reads the record of `id`: its status.
template <class Table, class Record>
std::uint32_t retrieveFrom(const _GUID &id, Record *out) {
  Table table;
  if (!openOrMake(table)) return ALRT_E_OPENFAILED;
  _GUID key = id;
  return table.DBAlertRecRetrieve(&key, out);
}

// The object IDs of every entry of the event log, as text, sorted.
inline std::vector<std::string> logEntryIds() {
  CAlertEVENT_LOGDB log;
  EXPECT_TRUE(openOrMake(log));
  std::vector<std::string> ids;
  for (const ALRTEVENT_LOGREC &entry : allRecords<ALRTEVENT_LOGREC>(log)) {
    ids.push_back(platform::GuidToString(entry.KEPOID));
  }
  std::sort(ids.begin(), ids.end());
  return ids;
}

}  // namespace alertdb_test
