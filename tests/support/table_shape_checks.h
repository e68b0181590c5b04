// Checks that the tables sharing one shape (the service tables, the per-user
// address tables, the alert configuration sub-tables) pass through the same
// mechanism, each with its own file, description and signalling rule.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "framework/link_table_probe.h"
#include "services/service_test_support.h"

namespace alertdb_test {

// Which of a table's changes set the change event.
struct SignalRule {
  bool add, update, remove;
};

// A random record added, read back whole through another object, updated
// unchanged and changed, then deleted; each step signals as `rule` says,
// and refusals give their results and signal nothing. `clearUnbound`
// clears what no field of the record stores.
template <class Table, class Clear = void (*)(RecordOf<Table> &)>
void expectRecordLifeAndSignals(
    SignalRule rule, std::uint64_t seed, Clear clearUnbound = [](RecordOf<Table> &) {}) {
  using Record = RecordOf<Table>;
  Table table, reader;
  ASSERT_EQ(table.DBCreate(), 0u);
  ASSERT_EQ(reader.DBOpen(), 0u);
  auto record = std::make_unique<Record>();
  fillRandom(*record, seed);
  auto expected = std::make_unique<Record>(*record);
  clearUnbound(*expected);
  ChangeEventWatch watch;
  watch.reset();
  _GUID id{};
  ASSERT_EQ(table.DBAlertRecAdd(record.get(), &id), 0u);
  EXPECT_EQ(watch.signalled(), rule.add) << "add";
  EXPECT_TRUE(sameBytes(id, expected->KEPOID)) << "a set ID is kept";

  watch.reset();
  auto read = std::make_unique<Record>();
  ASSERT_EQ(reader.DBAlertRecRetrieve(&id, read.get()), 0u);
  EXPECT_TRUE(sameBytes(*read, *expected));
  EXPECT_EQ(reader.DBAlertRecFind(&id), 0u);
  auto scratch = std::make_unique<Record>();
  EXPECT_EQ(reader.DBAlertRecFindFirst(idKeyOf<Table>(), 0, nullptr, scratch.get()), 0u);
  EXPECT_EQ(reader.DBAlertRecFindNext(scratch.get()), ALRT_E_NOTFOUND);
  EXPECT_EQ(reader.DBAlertRecUpdate(read.get()), 0u);
  EXPECT_FALSE(watch.signalled()) << "reads and an update that changes nothing";

  reinterpret_cast<unsigned char *>(read.get())[sizeof(Record) - 1] ^= 0x5A;
  auto changed = std::make_unique<Record>(*read);
  EXPECT_EQ(reader.DBAlertRecUpdate(read.get()), 0u);
  EXPECT_EQ(watch.signalled(), rule.update) << "update";
  ASSERT_EQ(table.DBAlertRecRetrieve(&id, read.get()), 0u);
  clearUnbound(*read);
  clearUnbound(*changed);
  EXPECT_TRUE(sameBytes(*read, *changed));

  watch.reset();
  _GUID unknown = makeId(0xAB);
  std::uint32_t missing = table.DBAlertRecDelete(&unknown);
  EXPECT_NE(missing, 0u);
  EXPECT_LT(missing, 0x10000u) << "the record store's own result";
  changed->KEPOID = unknown;
  EXPECT_EQ(table.DBAlertRecUpdate(changed.get()), ALRT_E_NOTFOUND);
  EXPECT_EQ(table.DBAlertRecAdd(nullptr, &id), ALRT_E_INVALIDPARAM);
  EXPECT_EQ(table.DBAlertRecDelete(nullptr), ALRT_E_INVALIDPARAM);
  EXPECT_FALSE(watch.signalled()) << "refusals";

  EXPECT_EQ(table.DBAlertRecDelete(&id), 0u);
  EXPECT_EQ(watch.signalled(), rule.remove) << "delete";
  EXPECT_EQ(reader.DBAlertRecRetrieve(&id, read.get()), ALRT_E_NOTFOUND);
  EXPECT_EQ(rowCount(table), 0);
}

// The table as its own file's catalog describes it, after checking that a
// file of another name describes it the same way.
template <class Table>
platform::StoreTableInfo describedAlikeInAnyFile(const std::string &dataDir,
                                                 const std::string &ownFile) {
  Table byDefault, named("Other.dat");
  EXPECT_EQ(byDefault.DBCreate(), 0u);
  EXPECT_EQ(named.DBCreate(), 0u);
  const char *name = Table::kDefinition.table.tableName;
  platform::StoreTableInfo own = tableInfo(dataDir + "/" + ownFile, name);
  platform::StoreTableInfo other = tableInfo(dataDir + "/Other.dat", name);
  EXPECT_EQ(other.title, own.title);
  EXPECT_EQ(other.idKey, own.idKey);
  EXPECT_EQ(other.fields.size(), own.fields.size());
  for (std::size_t i = 0; i < own.fields.size() && i < other.fields.size(); ++i) {
    SCOPED_TRACE(own.fields[i].name);
    EXPECT_EQ(other.fields[i].name, own.fields[i].name);
    EXPECT_EQ(other.fields[i].keyNumber, own.fields[i].keyNumber);
    EXPECT_EQ(other.fields[i].attribute, own.fields[i].attribute);
    EXPECT_EQ(other.fields[i].size, own.fields[i].size);
    EXPECT_EQ(other.fields[i].flags, own.fields[i].flags);
    EXPECT_EQ(other.fields[i].description, own.fields[i].description);
  }
  return own;
}

// The bytes of a description's fields but the last, the replication block.
inline std::size_t recordBytesOf(const platform::StoreTableInfo &info) {
  std::size_t bytes = 0;
  for (const platform::StoreFieldInfo &f : info.fields) bytes += f.size;
  return info.fields.empty() ? 0 : bytes - info.fields.back().size;
}

}  // namespace alertdb_test
