#include "events/purge_log.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <set>
#include <string>

#include "events/event_log_table.h"
#include "framework/alert_status.h"
#include "platform/dos_time.h"
#include "support/test_environment.h"

namespace {

using Stamp = std::array<unsigned char, 8>;
using Names = std::set<std::string>;

constexpr std::uint32_t kActivity = 12545;
constexpr std::int64_t kDay = 86400;

// A stamp `seconds` before the clock as DOSGetDate and DOSGetTime give it,
// counted the way the purge counts: it hands the month byte to mktime as it
// is, so the arithmetic happens on that reading.
Stamp stampAgo(std::int64_t seconds) {
  std::uint16_t month, day, year, hour, minute, second, hundredths;
  platform::DOSGetDate(&month, &day, &year);
  platform::DOSGetTime(&hour, &minute, &second, &hundredths);
  std::tm t{};
  t.tm_year = year - 1900;
  t.tm_mon = month;
  t.tm_mday = day;
  t.tm_hour = hour;
  t.tm_min = minute;
  t.tm_sec = second;
  std::time_t at = timegm(&t) - seconds;
  gmtime_r(&at, &t);
  if (t.tm_mon == 0) {  // read back as January, so write December of the year before
    t.tm_mon = 12;
    --t.tm_year;
  }
  auto b = [](int v) { return static_cast<unsigned char>(v); };
  return {b(t.tm_year), b(t.tm_mon), b(t.tm_mday), b(t.tm_hour), b(t.tm_min), b(t.tm_sec), 0, 0};
}

class PurgeLogTest : public alertdb_test::IsolatedTest {
 protected:
  void SetUp() override {
    IsolatedTest::SetUp();
    writeFile(dataPath("QADMIN.DAT"), "[Directories]\nDataDir=" + dataDir() + "\n");
  }
  void TearDown() override {
    log.reset();
    IsolatedTest::TearDown();
  }
  void createLog() {
    log = std::make_unique<CAlertEVENT_LOGDB>("KEPLogDB.dat");
    ASSERT_EQ(log->DBCreate(), 0u);
  }
  void settings(const std::string &lines) {
    writeFile(dataPath("QADMIN.INI"), "[Alert Log Purge Settings]\n" + lines);
  }
  void add(const std::string &name, std::uint32_t eventId, const Stamp &time,
           unsigned char ack = 0) {
    auto e = std::make_unique<ALRTEVENT_LOGREC>();
    std::strcpy(e->EventName, name.c_str());
    e->EventID = eventId;
    e->Ack = ack;
    std::memcpy(e->Time, time.data(), time.size());
    _GUID id{};
    EXPECT_EQ(log->DBAlertRecAdd(e.get(), &id), 0u);
  }
  // Names of the entries left.
  Names left() {
    Names names;
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
      Stamp before = stampAgo(0);
      createLog();
      scenario();
      if (stampAgo(0) == before) return true;
      log.reset();
      std::remove(dataPath("KEPLogDB.dat").c_str());
    }
    return false;
  }

  std::unique_ptr<CAlertEVENT_LOGDB> log;
};

TEST_F(PurgeLogTest, AcknowledgedEntriesGoByFlagFourOrByFlagEightWhenTheSettingIsOne) {
  createLog();
  const Stamp now = stampAgo(0);
  Names all, unacknowledged;
  for (int i = 0; i < 1200; ++i) {  // enough for several delete batches
    const std::string name = std::to_string(i);
    add(name, i % 3 == 0 ? kActivity : 5, i % 5 == 0 ? stampAgo(400 * kDay) : now, i % 2);
    all.insert(name);
    if (i % 2 == 0) unacknowledged.insert(name);
  }
  EXPECT_EQ(PurgeLog(8), 0u);
  EXPECT_EQ(left(), all) << "AutoPurgeAckEvents absent";
  settings("AutoPurgeAckEvents=2\n");
  EXPECT_EQ(PurgeLog(8), 0u);
  EXPECT_EQ(left(), all);
  EXPECT_EQ(PurgeLog(4), 0u);
  EXPECT_EQ(left(), unacknowledged);

  add("ack", 5, now, 1);  // the purge left no lock behind
  add("ack 2", 5, now, 2);
  unacknowledged.insert("ack 2");
  settings("AutoPurgeAckEvents = 1\n");
  EXPECT_EQ(PurgeLog(8), 0u);
  EXPECT_EQ(left(), unacknowledged);
}

TEST_F(PurgeLogTest, AgesCountFromNowByKindOfEntryAndMustBeExceeded) {
  Names afterEvents, afterActivities;
  bool steady = withSteadyClock([&] {
    settings("PurgeEventLogDays=30\nPurgeActivityDays= +7 days\n");
    add("event 30", 5, stampAgo(30 * kDay));
    add("event 30 and a second", 5, stampAgo(30 * kDay + 1));
    add("acked event 31", 5, stampAgo(31 * kDay), 1);
    add("event now", 5, stampAgo(0));
    add("event a second ago", 5, stampAgo(1));
    add("activity 31", kActivity, stampAgo(31 * kDay));
    add("activity 8", kActivity, stampAgo(8 * kDay));
    add("activity 7", kActivity, stampAgo(7 * kDay));
    // Acknowledged entries not purged as such fall to the age rules.
    EXPECT_EQ(PurgeLog(2 | 8), 0u);
    afterEvents = left();
    EXPECT_EQ(PurgeLog(1), 0u);
    afterActivities = left();
    settings("PurgeEventLogDays=0\n");  // read again at every call
    EXPECT_EQ(PurgeLog(2), 0u);
  });
  ASSERT_TRUE(steady) << "the clock kept moving";
  EXPECT_EQ(afterEvents, (Names{"event 30", "event now", "event a second ago", "activity 31",
                                "activity 8", "activity 7"}));
  EXPECT_EQ(afterActivities, (Names{"event 30", "event now", "event a second ago", "activity 7"}));
  EXPECT_EQ(left(), (Names{"event now", "activity 7"}));
}

TEST_F(PurgeLogTest, RefusalsAndAbsentOrNegativeAgesPurgeNothing) {
  EXPECT_EQ(PurgeLog(4), ALRT_E_OPENFAILED) << "no log file";
  EXPECT_FALSE(fileExists(dataPath("KEPLogDB.dat"))) << "the purge creates no log";
  createLog();
  const Stamp century = {0, 1, 1, 0, 0, 0, 0, 0};
  add("1900", 5, century);
  add("1900 activity", kActivity, century);
  const Names all = {"1900", "1900 activity"};
  EXPECT_EQ(PurgeLog(0), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(PurgeLog(12), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(PurgeLog(3), 0u) << "no settings file";
  EXPECT_EQ(left(), all);
  settings("PurgeEventLogDays=-5\nPurgeActivityDays=-1\n");
  EXPECT_EQ(PurgeLog(3), 0u);
  EXPECT_EQ(left(), all);

  // An empty value is the default; text without digits is 0 days.
  settings("PurgeEventLogDays=\nPurgeActivityDays=none\n");
  writeFile(dataPath("QADMIN.DAT"), "[Directories]\nOther=1\n");
  EXPECT_EQ(PurgeLog(3), ALRT_E_NODATADIR);
  std::remove(dataPath("QADMIN.DAT").c_str());
  EXPECT_EQ(PurgeLog(3), ALRT_E_NODATADIR);
  EXPECT_EQ(left(), all);
  writeFile(dataPath("QADMIN.DAT"), "[Directories]\nDataDir=" + dataDir() + "\n");
  EXPECT_EQ(PurgeLog(3), 0u);
  EXPECT_EQ(left(), (Names{"1900"}));
}

}  // namespace
