#include "events/purge_log.h"

#include <cstring>
#include <ctime>

#include "events/event_log_table.h"
#include "framework/alert_status.h"
#include "framework/file_locks.h"
#include "platform/console_settings_internal.h"
#include "platform/dos_time.h"
#include "platform/file_names.h"
#include "platform/profile.h"

namespace {

constexpr std::uint32_t kActivityEventId = 12545;
constexpr const char *kSection = "Alert Log Purge Settings";
constexpr std::int32_t kNeverDays = -1;

// A few hundred deletes share one commit: the disk sync is paid once per
// batch, and other writers of the log wait for one batch at most.
constexpr int kDeletesPerBatch = 256;
// Entries kept while the lock is held count too, so that a long stretch of
// them does not keep the lock.
constexpr int kStepsPerBatch = 2048;

// The log with its record store handle within reach, for the batching.
class PurgedLog : public CAlertEVENT_LOGDB {
 public:
  KEPDB *handle() const { return m_hTable; }
};

class DeleteBatch {
 public:
  explicit DeleteBatch(KEPDB *handle) : handle_(handle) {}
  ~DeleteBatch() { commit(); }
  DeleteBatch(const DeleteBatch &) = delete;
  DeleteBatch &operator=(const DeleteBatch &) = delete;

  // Without the lock a delete is its own transaction, which is slower but still safe.
  void beforeDelete() {
    if (!locked_) locked_ = DBFileLock(handle_) == 0;
  }
  void afterDelete() {
    if (++deletes_ >= kDeletesPerBatch) commit();
  }
  void afterStep() {
    if (locked_ && ++steps_ >= kStepsPerBatch) commit();
  }

 private:
  void commit() {
    if (locked_) DBFileUnlock(handle_);
    locked_ = false;
    deletes_ = 0;
    steps_ = 0;
  }

  KEPDB *handle_;
  bool locked_ = false;
  int deletes_ = 0;
  int steps_ = 0;
};

// The stamp as the purge compares stamps: the month byte goes to mktime as it
// is, so the current time must be stamped the same way (by DOSGetDate).
std::time_t calendarTime(const unsigned char *stamp) {
  std::tm broken{};
  broken.tm_year = stamp[0];
  broken.tm_mon = stamp[1];
  broken.tm_mday = stamp[2];
  broken.tm_hour = stamp[3];
  broken.tm_min = stamp[4];
  broken.tm_sec = stamp[5];
  broken.tm_isdst = 0;
  return std::mktime(&broken);
}

void stampNow(unsigned char *stamp) {
  std::uint16_t month = 0, day = 0, year = 0, hour = 0, minute = 0, second = 0, hundredths = 0;
  platform::DOSGetDate(&month, &day, &year);
  platform::DOSGetTime(&hour, &minute, &second, &hundredths);
  stamp[0] = static_cast<unsigned char>(year - 1900);
  stamp[1] = static_cast<unsigned char>(month);
  stamp[2] = static_cast<unsigned char>(day);
  stamp[3] = static_cast<unsigned char>(hour);
  stamp[4] = static_cast<unsigned char>(minute);
  stamp[5] = static_cast<unsigned char>(second);
  stamp[6] = static_cast<unsigned char>(hundredths);
  stamp[7] = 0;
}

// Negative ages wrap to more than four billion days: they never purge.
bool olderThan(std::time_t now, const unsigned char *stamp, std::int32_t days) {
  const std::uint64_t widened = static_cast<std::uint32_t>(days);
  return static_cast<double>(widened * 86400u) < std::difftime(now, calendarTime(stamp));
}

}  // namespace

std::uint32_t PurgeLog(std::uint32_t flags) {
  if (flags == 0 || (flags & (kPurgeAcknowledged | kPurgeAcknowledgedIfAuto)) ==
                        (kPurgeAcknowledged | kPurgeAcknowledgedIfAuto)) {
    return ALRT_E_INVALIDPARAM;
  }
  char dataDir[260];
  if (!platform::ReadConsoleDataDir(dataDir)) return ALRT_E_NODATADIR;
  char settings[272];
  std::memcpy(settings, dataDir, std::strlen(dataDir) + 1);
  platform::NameAppendFile(settings, "QADMIN.INI");

  unsigned char nowStamp[8];
  stampNow(nowStamp);
  const std::time_t now = calendarTime(nowStamp);
  const std::int32_t activityDays =
      platform::ProfileGetInt(kSection, "PurgeActivityDays", kNeverDays, settings);
  const std::int32_t autoPurgeAck =
      platform::ProfileGetInt(kSection, "AutoPurgeAckEvents", 0, settings);
  const std::int32_t eventDays =
      platform::ProfileGetInt(kSection, "PurgeEventLogDays", kNeverDays, settings);
  const bool purgeAcknowledged = (flags & kPurgeAcknowledged) != 0 ||
                                 ((flags & kPurgeAcknowledgedIfAuto) != 0 && autoPurgeAck == 1);

  PurgedLog log;
  if (log.DBOpen() != 0) return ALRT_E_OPENFAILED;
  DeleteBatch batch(log.handle());
  ALRTEVENT_LOGREC entry;
  for (std::uint32_t r = log.DBAlertRecFindFirst(CAlertEVENT_LOGDB::kTimeKey, 0, nullptr, &entry);
       r == 0; r = log.DBAlertRecFindNext(&entry)) {
    const bool activity = entry.EventID == kActivityEventId;
    const bool doomed =
        (entry.Ack == 1 && purgeAcknowledged) ||
        (!activity && (flags & kPurgeOldEvents) != 0 && olderThan(now, entry.Time, eventDays)) ||
        (activity && (flags & kPurgeOldActivity) != 0 && olderThan(now, entry.Time, activityDays));
    if (doomed) {
      batch.beforeDelete();
      log.DBAlertRecDelete(&entry.KEPOID);
      batch.afterDelete();
    }
    batch.afterStep();
  }
  return 0;
}
