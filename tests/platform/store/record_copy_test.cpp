// Reads straight to a copy of the caller's record buffer: the copy gets what
// a plain read would put in the buffer, and the buffer gets it too once
// settled, never a record that something else has since replaced there.
#include <cstring>
#include <memory>
#include <string>

#include "platform/store/record_store_fixture.h"

namespace alertdb_test {
namespace {

using namespace platform;

// A record large enough to be read straight to the copy.
#pragma pack(push, 1)
struct WideRecord {
  _GUID id;
  char text[2000];
};
#pragma pack(pop)

class WideTable : public SampleTable {
 public:
  WideTable() : SampleTable("Wide_Table") {
    std::memset(&wide, 0, sizeof wide);
    templates = {field(kIdKey, 16, 16, &wide.id, 0x311), field(kNameKey, 10, 2000, wide.text, 0x1),
                 field(6, 0, 12, replication, 0x30D)};
    fieldNames = {"KEPOID", "Text", "Replication"};
    queryInfo = {entry(1, 1, 3), entry(2, 2, 2), entry(6, 2, 9)};
  }
  void fillWide(std::uint8_t idByte, char letter) {
    std::memset(&wide, 0, sizeof wide);
    std::memset(&wide.id, idByte, sizeof wide.id);
    std::memset(wide.text, letter, 1500);
    std::memset(replication, letter, sizeof replication);
  }
  RecordCopy to(WideRecord *copy) { return {&wide, sizeof wide, copy}; }

  WideRecord wide;
};

class RecordCopyTest : public RecordStoreTest {};

TEST_F(RecordCopyTest, TheCopyGetsWhatAPlainReadGivesFieldsBoundElsewhereAsUsual) {
  SampleTable t;
  KEPDB *h = createSample(t);
  std::memset(t.replication, 7, sizeof t.replication);
  ASSERT_EQ(add(t, h, 1, "alpha", 10), 0u);
  ASSERT_EQ(add(t, h, 2, "beta", 20), 0u);
  RecordCopy bad[] = {{nullptr, sizeof t.record, &t.record},
                      {&t.record, sizeof t.record, nullptr},
                      {&t.record, 0, &t.record}};
  for (const RecordCopy &to : bad) {
    EXPECT_EQ(QDBRecordSkipAndReadCopy(h, kNameKey, kSkipFirst, to), QDB_E_BADARG);
  }

  SampleRecord copy{};
  RecordCopy to{&t.record, sizeof t.record, &copy};
  std::memset(t.replication, 0, sizeof t.replication);
  ASSERT_EQ(QDBRecordSkipAndReadCopy(h, kNameKey, kSkipFirst, to), 0u);
  EXPECT_STREQ(copy.name, "alpha");
  EXPECT_EQ(t.replication[11], 7) << "the replication block is read as usual";
  ASSERT_EQ(QDBRecordSkipAndReadCopy(h, kNameKey, kSkipNext, to), 0u);
  EXPECT_STREQ(copy.name, "beta");
  SampleRecord before = copy;
  EXPECT_EQ(QDBRecordSkipAndReadCopy(h, kNameKey, kSkipNext, to), QDB_E_NOTFOUND);
  EXPECT_EQ(std::memcmp(&before, &copy, sizeof copy), 0) << "the end leaves the copy as it was";
  ASSERT_EQ(QDBRecordSettle(h), 0u);
  EXPECT_EQ(std::memcmp(&t.record, &copy, sizeof copy), 0);

  // The key searched for may lie inside the copy itself.
  std::memset(&copy, 0, sizeof copy);
  std::strcpy(copy.comment, "alpha");
  ASSERT_EQ(QDBRecordFindAndReadCopy(h, kNameKey, copy.comment, 1, 6, to), 0u);
  EXPECT_STREQ(copy.name, "alpha");
  EXPECT_EQ(std::uint32_t{copy.number}, 10u);

  _GUID beta;
  std::memset(&beta, 2, sizeof beta);
  std::memset(&copy, 0, sizeof copy);
  ASSERT_EQ(QDBRecordFind(h, kIdKey, &beta, 1, sizeof beta), 0u);
  ASSERT_EQ(QDBRecordReadCopy(h, to), 0u);
  EXPECT_STREQ(copy.name, "beta");
  EXPECT_EQ(QDBRecordFindAndReadCopy(h, kNameKey, "gamma", 1, 6, to), QDB_E_NOTFOUND);
  EXPECT_STREQ(copy.name, "beta");
}

TEST_F(RecordCopyTest, ALargeRecordIsOwedToTheBufferUntilSettledOrReplaced) {
  WideTable t;
  KEPDB *h = createSample(t);
  t.fillWide(1, 'a');
  ASSERT_EQ(QDBRecordAdd(h), 0u);
  t.fillWide(2, 'b');
  ASSERT_EQ(QDBRecordAdd(h), 0u);
  auto copy = std::make_unique<WideRecord>();
  auto expectBuffer = [&](char letter, const char *when) {
    EXPECT_EQ(t.wide.text[0], letter) << when;
    EXPECT_EQ(t.wide.text[1499], letter) << when;
    EXPECT_EQ(t.wide.text[1500], 0) << when;
  };

  ASSERT_EQ(QDBRecordSkipAndReadCopy(h, kNameKey, kSkipFirst, t.to(copy.get())), 0u);
  EXPECT_EQ(std::string(copy->text), std::string(1500, 'a'));
  EXPECT_EQ(t.replication[0], 'a') << "fields bound outside the buffer are read at once";
  ASSERT_EQ(QDBRecordSettle(h), 0u);
  expectBuffer('a', "settled after a read to the copy");

  // A plain read in between settles the debt: a later settle changes nothing.
  ASSERT_EQ(QDBRecordSkipAndReadCopy(h, kNameKey, kSkipNext, t.to(copy.get())), 0u);
  EXPECT_EQ(copy->text[0], 'b');
  ASSERT_EQ(QDBRecordSkipAndRead(h, kNameKey, kSkipFirst), 0u);
  expectBuffer('a', "after a plain read");
  ASSERT_EQ(QDBRecordSettle(h), 0u);
  expectBuffer('a', "a settle after a plain read");

  // So does a record the caller put into the buffer and wrote.
  ASSERT_EQ(QDBRecordSkipAndReadCopy(h, kNameKey, kSkipFirst, t.to(copy.get())), 0u);
  t.fillWide(3, 'c');
  ASSERT_EQ(QDBRecordAdd(h), 0u);
  ASSERT_EQ(QDBRecordSettle(h), 0u);
  expectBuffer('c', "a settle after an add");

  // A read that finds nothing leaves the debt as it was.
  ASSERT_EQ(QDBRecordSkipAndReadCopy(h, kIdKey, kSkipFirst, t.to(copy.get())), 0u);
  EXPECT_EQ(QDBRecordFindAndReadCopy(h, kNameKey, "z", 1, 2, t.to(copy.get())), QDB_E_NOTFOUND);
  ASSERT_EQ(QDBRecordSettle(h), 0u);
  expectBuffer('a', "the record of the last read that found one");
}

}  // namespace
}  // namespace alertdb_test
