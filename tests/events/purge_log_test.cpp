#include "events/purge_log.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <set>
#include <string>

#include "events/event_log_table.h"
#include "events/event_resp_table.h"
#include "framework/alert_status.h"
#include "framework/file_locks.h"
#include "platform/dos_time.h"
#include "platform/object_manager.h"
#include "support/test_environment.h"

namespace {

using Stamp = std::array<unsigned char, 8>;

constexpr std::uint32_t kActivity = 12545;
constexpr std::int64_t kDay = 86400;

class FilledLog : public CAlertEVENT_LOGDB {
 public:
  FilledLog() : CAlertEVENT_LOGDB("KEPLogDB.dat") {}
  KEPDB *handle() const { return m_hTable; }
};

std::uint32_t refuse(platform::KepOMConnection **) { return 0x80004005; }

// The clock as DOSGetDate and DOSGetTime give it, to the second.
Stamp clockNow() {
  std::uint16_t month, day, year, hour, minute, second, hundredths;
  platform::DOSGetDate(&month, &day, &year);
  platform::DOSGetTime(&hour, &minute, &second, &hundredths);
  return {static_cast<unsigned char>(year - 1900),
          static_cast<unsigned char>(month),
          static_cast<unsigned char>(day),
          static_cast<unsigned char>(hour),
          static_cast<unsigned char>(minute),
          static_cast<unsigned char>(second),
          0,
          0};
}

// A stamp `seconds` before now, counted the way the purge counts: it hands
// the month byte to mktime as it is, so the arithmetic happens on that reading.
Stamp stampAgo(std::int64_t seconds) {
  Stamp now = clockNow();
  std::tm t{};
  t.tm_year = now[0];
  t.tm_mon = now[1];
  t.tm_mday = now[2];
  t.tm_hour = now[3];
  t.tm_min = now[4];
  t.tm_sec = now[5];
  std::time_t at = timegm(&t) - seconds;
  gmtime_r(&at, &t);
  if (t.tm_mon == 0) {  // read back as January, so write December of the year before
    t.tm_mon = 12;
    --t.tm_year;
  }
  return {static_cast<unsigned char>(t.tm_year),
          static_cast<unsigned char>(t.tm_mon),
          static_cast<unsigned char>(t.tm_mday),
          static_cast<unsigned char>(t.tm_hour),
          static_cast<unsigned char>(t.tm_min),
          static_cast<unsigned char>(t.tm_sec),
          0,
          0};
}

class PurgeLogTest : public alertdb_test::IsolatedTest {
 protected:
  void SetUp() override {
    IsolatedTest::SetUp();
    writeFile(dataPath("QADMIN.DAT"), "[Directories]\nDataDir=" + dataDir() + "\n");
  }
  void TearDown() override {
    log.reset();
    platform::KepOMSetProvider(nullptr);
    IsolatedTest::TearDown();
  }
  void createLog() {
    log = std::make_unique<FilledLog>();
    ASSERT_EQ(log->DBCreate(), 0u);
  }
  void settings(const std::string &lines) {
    writeFile(dataPath("QADMIN.INI"), "[Alert Log Purge Settings]\n" + lines);
  }
  std::string add(const char *name, std::uint32_t eventId, const Stamp &time,
                  unsigned char ack = 0) {
    auto e = std::make_unique<ALRTEVENT_LOGREC>();
    std::strcpy(e->EventName, name);
    e->EventID = eventId;
    e->Ack = ack;
    std::memcpy(e->Time, time.data(), time.size());
    _GUID id{};
    EXPECT_EQ(log->DBAlertRecAdd(e.get(), &id), 0u);
    return name;
  }
  // Names of the entries left.
  std::set<std::string> left() {
    std::set<std::string> names;
    auto e = std::make_unique<ALRTEVENT_LOGREC>();
    for (std::uint32_t r = log->DBAlertRecFindFirst(20, 0, nullptr, e.get()); r == 0;
         r = log->DBAlertRecFindNext(e.get())) {
      names.insert(e->EventName);
    }
    return names;
  }
  // Runs `scenario` again until the clock stayed in one second all through
  // it, so that ages meant to be exact are exact for the purge as well.
  template <class Scenario>
  bool withSteadyClock(Scenario scenario) {
    for (int attempt = 0; attempt < 5; ++attempt) {
      Stamp before = clockNow();
      createLog();
      scenario();
      if (clockNow() == before) return true;
      log.reset();
      std::remove(dataPath("KEPLogDB.dat").c_str());
    }
    return false;
  }

  std::unique_ptr<FilledLog> log;
};

TEST_F(PurgeLogTest, RefusesBadFlagsAndMissingSettingsOrLog) {
  EXPECT_EQ(PurgeLog(0), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(PurgeLog(12), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(PurgeLog(15), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(PurgeLog(4), ALRT_E_OPENFAILED) << "no log file";
  EXPECT_FALSE(fileExists(dataPath("KEPLogDB.dat"))) << "the purge creates no log";

  {  // A file without the log table.
    CAlertEVENT_RESPDB other("KEPLogDB.dat");
    ASSERT_EQ(other.DBCreate(), 0u);
  }
  EXPECT_EQ(PurgeLog(4), ALRT_E_OPENFAILED);

  writeFile(dataPath("QADMIN.DAT"), "[Directories]\nOther=1\n");
  EXPECT_EQ(PurgeLog(4), ALRT_E_NODATADIR);
  std::remove(dataPath("QADMIN.DAT").c_str());
  EXPECT_EQ(PurgeLog(4), ALRT_E_NODATADIR);
}

TEST_F(PurgeLogTest, AcknowledgedEntriesGoByFlagOrBySetting) {
  createLog();
  add("old ack", 5, stampAgo(400 * kDay), 1);
  add("new ack", kActivity, stampAgo(0), 1);
  add("open", 5, stampAgo(400 * kDay), 0);
  add("ack 2", 5, stampAgo(0), 2);
  const std::set<std::string> all = {"old ack", "new ack", "open", "ack 2"};
  const std::set<std::string> unacknowledged = {"open", "ack 2"};

  EXPECT_EQ(PurgeLog(12), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(PurgeLog(0x10), 0u) << "other bits are ignored";
  EXPECT_EQ(PurgeLog(8), 0u);
  EXPECT_EQ(left(), all) << "AutoPurgeAckEvents absent";
  settings("AutoPurgeAckEvents=2\n");
  EXPECT_EQ(PurgeLog(8), 0u);
  EXPECT_EQ(left(), all);
  settings("AutoPurgeAckEvents = 1\n");
  EXPECT_EQ(PurgeLog(8), 0u);
  EXPECT_EQ(left(), unacknowledged);

  add("ack again", 5, stampAgo(0), 1);
  settings("");
  EXPECT_EQ(PurgeLog(4), 0u);
  EXPECT_EQ(left(), unacknowledged);
}

TEST_F(PurgeLogTest, AgesApplyByKindOfEntry) {
  createLog();
  settings("PurgeEventLogDays=30\nPurgeActivityDays= +7 days\n");
  add("event 31", 5, stampAgo(31 * kDay));
  add("event 29", 5, stampAgo(29 * kDay));
  add("event 8", 5, stampAgo(8 * kDay));
  add("activity 31", kActivity, stampAgo(31 * kDay));
  add("activity 6", kActivity, stampAgo(6 * kDay));
  add("acked event 31", 5, stampAgo(31 * kDay), 1);

  // Acknowledged entries not purged as such: the age rules apply to them too.
  EXPECT_EQ(PurgeLog(2 | 8), 0u);
  EXPECT_EQ(left(), (std::set<std::string>{"event 29", "event 8", "activity 31", "activity 6"}));
  EXPECT_EQ(PurgeLog(1), 0u);
  EXPECT_EQ(left(), (std::set<std::string>{"event 29", "event 8", "activity 6"}));

  // Text without digits reads as 0 days: everything before this second goes.
  settings("PurgeEventLogDays=none\n");
  EXPECT_EQ(PurgeLog(3), 0u);
  EXPECT_EQ(left(), (std::set<std::string>{"activity 6"}));
}

TEST_F(PurgeLogTest, AnAgeMustBeExceededNotReached) {
  bool steady = withSteadyClock([&] {
    settings("PurgeEventLogDays=30\n");
    add("exactly 30", 5, stampAgo(30 * kDay));
    add("30 and a second", 5, stampAgo(30 * kDay + 1));
    add("this second", 5, stampAgo(0));
    add("a second ago", 5, stampAgo(1));
    add("old activity", kActivity, stampAgo(90 * kDay));
    EXPECT_EQ(PurgeLog(2), 0u);
    EXPECT_EQ(left().count("30 and a second"), 0u);
    settings("PurgeEventLogDays=0\n");  // read again at every call
    EXPECT_EQ(PurgeLog(2), 0u);
  });
  ASSERT_TRUE(steady) << "the clock kept moving";
  EXPECT_EQ(left(), (std::set<std::string>{"this second", "old activity"}));
}

TEST_F(PurgeLogTest, AbsentOrNegativeAgesNeverPurge) {
  createLog();
  const Stamp century = {0, 1, 1, 0, 0, 0, 0, 0};
  add("1900", 5, century);
  add("1900 activity", kActivity, century);
  const std::set<std::string> all = {"1900", "1900 activity"};
  EXPECT_EQ(PurgeLog(3), 0u) << "no settings file";
  EXPECT_EQ(left(), all);
  settings("PurgeEventLogDays=-5\nPurgeActivityDays=-1\n");
  EXPECT_EQ(PurgeLog(3), 0u);
  EXPECT_EQ(left(), all);
  settings("PurgeEventLogDays=\nPurgeActivityDays=1\n");
  EXPECT_EQ(PurgeLog(3), 0u);
  EXPECT_EQ(left(), (std::set<std::string>{"1900"})) << "an empty value is the default";
}

TEST_F(PurgeLogTest, ManyEntriesAcrossBatchesAndRefusedDeletes) {
  createLog();
  ASSERT_EQ(DBFileLock(log->handle()), 0u);
  for (int i = 0; i < 1500; ++i) {
    add(std::to_string(i).c_str(), 5, stampAgo(i % 7 * kDay), i % 3 == 0 ? 1 : 0);
  }
  ASSERT_EQ(DBFileUnlock(log->handle()), 0u);

  // A delete the object manager refuses leaves its entry; the purge still succeeds.
  platform::KepOMProvider provider{};
  provider.Open = refuse;
  platform::KepOMSetProvider(&provider);
  EXPECT_EQ(PurgeLog(4), 0u);
  EXPECT_EQ(left().size(), 1500u);
  platform::KepOMSetProvider(nullptr);

  EXPECT_EQ(PurgeLog(4), 0u);
  std::set<std::string> expected;
  for (int i = 0; i < 1500; ++i) {
    if (i % 3 != 0) expected.insert(std::to_string(i));
  }
  EXPECT_EQ(left(), expected);
  // The purge left no lock behind.
  add("after", 5, stampAgo(0));
  EXPECT_EQ(left().size(), 1001u);
}

}  // namespace
