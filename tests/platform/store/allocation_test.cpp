// Once a table is open, record operations work in storage the table and the
// engine already hold: a steady stream of them allocates nothing.
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "events/event_log_table.h"
#include "events/event_resp_table.h"
#include "framework/file_locks.h"
#include "support/test_environment.h"

namespace {

thread_local bool t_counting = false;
std::atomic<long> g_allocations{0};

}  // namespace

namespace {

void *counted(std::size_t size) noexcept {
  if (t_counting) ++g_allocations;
  return std::malloc(size ? size : 1);
}

}  // namespace

// Counts the allocations of the thread that asks; every form of new and
// delete goes through malloc and free, so that they always pair (which the
// compiler cannot tell of replacement functions).
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void *operator new(std::size_t size) {
  if (void *p = counted(size)) return p;
  throw std::bad_alloc();
}
void *operator new[](std::size_t size) {
  if (void *p = counted(size)) return p;
  throw std::bad_alloc();
}
void *operator new(std::size_t size, const std::nothrow_t &) noexcept { return counted(size); }
void *operator new[](std::size_t size, const std::nothrow_t &) noexcept { return counted(size); }
void operator delete(void *p) noexcept { std::free(p); }
void operator delete[](void *p) noexcept { std::free(p); }
void operator delete(void *p, std::size_t) noexcept { std::free(p); }
void operator delete[](void *p, std::size_t) noexcept { std::free(p); }
void operator delete(void *p, const std::nothrow_t &) noexcept { std::free(p); }
void operator delete[](void *p, const std::nothrow_t &) noexcept { std::free(p); }
#pragma GCC diagnostic pop

namespace {

class LinkTable : public CAlertEVENT_RESPDB {
 public:
  KEPDB *handle() const { return m_hTable; }
};

class AllocationTest : public alertdb_test::IsolatedTest {
 protected:
  template <typename Work>
  long allocationsOf(Work work) {
    g_allocations = 0;
    t_counting = true;
    work();
    t_counting = false;
    return g_allocations.load();
  }

  static ALRTEVENT_RESPREC link(std::uint32_t n) {
    ALRTEVENT_RESPREC r{};
    r.KEPOID.Data1 = n + 1;
    r.EventClassOID.Data1 = n % 7;
    r.ResponseOID.Data1 = n;
    return r;
  }
};

TEST_F(AllocationTest, SteadyRecordOperationsAllocateNothing) {
  LinkTable table;
  ASSERT_EQ(table.DBCreate(), 0u);
  _GUID id;
  auto addBatch = [&](std::uint32_t first, std::uint32_t count) {
    DBFileLock(table.handle());
    for (std::uint32_t n = first; n < first + count; ++n) {
      ALRTEVENT_RESPREC r = link(n);
      ASSERT_EQ(table.CAlertDBTable::DBAlertRecAdd(&r, &id), 0u);
    }
    DBFileUnlock(table.handle());
  };
  auto enumerate = [&](std::uint32_t key) {
    ALRTEVENT_RESPREC r{};
    std::uint32_t count = 0;
    for (std::uint32_t s = table.DBAlertRecFindFirst(key, 0, nullptr, &r); s == 0;
         s = table.DBAlertRecFindNext(&r)) {
      ++count;
    }
    return count;
  };
  auto retrieveAll = [&](std::uint32_t count) {
    for (std::uint32_t n = 0; n < count; ++n) {
      ALRTEVENT_RESPREC r{};
      _GUID want{};
      want.Data1 = n + 1;
      ASSERT_EQ(table.DBAlertRecRetrieve(&want, &r), 0u);
    }
  };
  // Warm up: the statements are prepared and the working storage grown to
  // the largest window.
  addBatch(0, 1000);
  for (int pass = 0; pass < 2; ++pass) {
    ASSERT_EQ(enumerate(CAlertEVENT_RESPDB::kIdKey), 1000u);
    ASSERT_EQ(enumerate(CAlertEVENT_RESPDB::kEventClassKey), 1000u);
  }
  retrieveAll(1000);

  EXPECT_EQ(allocationsOf([&] { addBatch(1000, 500); }), 0);
  std::uint32_t seen = 0;
  EXPECT_EQ(allocationsOf([&] { seen = enumerate(CAlertEVENT_RESPDB::kIdKey); }), 0);
  EXPECT_EQ(seen, 1500u);
  EXPECT_EQ(allocationsOf([&] { seen = enumerate(CAlertEVENT_RESPDB::kEventClassKey); }), 0);
  EXPECT_EQ(seen, 1500u);
  EXPECT_EQ(allocationsOf([&] { retrieveAll(1500); }), 0);

  // Updates and deletes, each record found by its ID first.
  auto updateAndDelete = [&](std::uint32_t first, std::uint32_t count) {
    DBFileLock(table.handle());
    for (std::uint32_t n = first; n < first + count; ++n) {
      ALRTEVENT_RESPREC r = link(n);
      r.ResponseOID.Data2 = 1;
      ASSERT_EQ(table.CAlertDBTable::DBAlertRecUpdate(&r), 0u);
      ASSERT_EQ(table.CAlertDBTable::DBAlertRecDelete(&r.KEPOID), 0u);
    }
    DBFileUnlock(table.handle());
  };
  updateAndDelete(1400, 50);
  EXPECT_EQ(allocationsOf([&] { updateAndDelete(1450, 50); }), 0);
  EXPECT_EQ(enumerate(CAlertEVENT_RESPDB::kIdKey), 1400u);

  // The count sees the library's own allocations: opening a table makes some.
  LinkTable other;
  EXPECT_GT(allocationsOf([&] { EXPECT_EQ(other.DBOpen(), 0u); }), 0);
}

// Records large enough to be read straight to the caller: the handle keeps
// their stored form owed to the record buffer in room it already has.
TEST_F(AllocationTest, LargeRecordsReadStraightToTheCallerAllocateNothing) {
  CAlertEVENT_LOGDB log(nullptr);
  ASSERT_EQ(log.DBCreate(), 0u);
  auto entry = std::make_unique<ALRTEVENT_LOGREC>();
  std::vector<_GUID> ids(200);
  for (_GUID &id : ids) {
    std::memset(entry.get(), 0, sizeof *entry);
    std::memset(entry->EventText, 'x', 1500);
    ASSERT_EQ(log.DBAlertRecAdd(entry.get(), &id), 0u);
  }
  auto walk = [&] {
    std::uint32_t n = 0;
    for (std::uint32_t s =
             log.DBAlertRecFindFirst(CAlertEVENT_LOGDB::kIdKey, 0, nullptr, entry.get());
         s == 0; s = log.DBAlertRecFindNext(entry.get())) {
      ++n;
    }
    return n;
  };
  auto retrieveAll = [&] {
    for (_GUID &id : ids) ASSERT_EQ(log.DBAlertRecRetrieve(&id, entry.get()), 0u);
  };
  ASSERT_EQ(walk(), 200u);
  retrieveAll();

  std::uint32_t seen = 0;
  EXPECT_EQ(allocationsOf([&] { seen = walk(); }), 0);
  EXPECT_EQ(seen, 200u);
  EXPECT_EQ(allocationsOf(retrieveAll), 0);
}

}  // namespace
