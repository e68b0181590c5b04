// Reads the alerting data as it is after a crash round: every table through
// its table class, and the object manager's instances through its public
// calls.
#pragma once

#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "reliability/crash/crash_model.h"
#include "reliability/crash/crash_tables.h"

namespace crash {

namespace detail {

template <class T>
bool readTable(Table t, World *world, std::uint32_t *count, std::string *error) {
  using R = RecordOf<T>;
  Exposed<T> walker;
  T reader;
  std::uint32_t status = walker.DBOpen();
  if (status == 0) status = reader.DBOpen();
  if (status != 0) {
    *error = std::string(tableInfo(t).name) + " does not open: " + AlertDBStatusName(status);
    return false;
  }
  auto walked = std::make_unique<R>();
  auto read = std::make_unique<R>();
  *count = 0;
  std::uint32_t r = walker.DBAlertRecFindFirst(walker.idKey(), 0, nullptr, walked.get());
  for (; r == 0; r = walker.DBAlertRecFindNext(walked.get())) {
    ++*count;
    Id id = idOfRecord(walked.get());
    std::memset(static_cast<void *>(read.get()), 0, sizeof(R));
    _GUID guid = guidOf(id);
    status = reader.DBAlertRecRetrieve(&guid, read.get());
    if (status != 0) {
      *error = keyText({t, id}) + " was walked to but does not read: " + AlertDBStatusName(status);
      return false;
    }
    if (std::memcmp(walked.get(), read.get(), sizeof(R)) != 0) {
      *error = keyText({t, id}) + " reads otherwise by its ID than in the walk";
      return false;
    }
    world->records[{t, id}] = {digestOf(t, read.get()), 0};
  }
  if (r != ALRT_E_NOTFOUND) {
    *error =
        std::string("the walk of ") + tableInfo(t).name + " ended with " + AlertDBStatusName(r);
    return false;
  }
  return true;
}

}  // namespace detail

// Every record of every table. Each record the walk on the object-ID key
// meets is read again by its ID through a second table object; both must
// succeed and agree. `counts` gets the records met per table.
inline bool readTables(World *world, std::map<Table, std::uint32_t> *counts, std::string *error) {
  world->records.clear();
  for (int i = 0; i < kTableCount; ++i) {
    Table t = static_cast<Table>(i);
    bool ok = true;
    withTableType(t, [&](auto type) {
      using T = typename decltype(type)::type;
      ok = detail::readTable<T>(t, world, &(*counts)[t], error);
    });
    if (!ok) return false;
  }
  return true;
}

// The instances of `objects` that the object manager knows.
inline void readInstances(const std::set<Id> &objects, World *world) {
  world->instances.clear();
  for (const Id &id : objects) {
    _GUID guid = guidOf(id), classId{};
    char name[300];
    if (platform::KepOMGetInstance(&guid, &classId, name, sizeof name) == 0) {
      world->instances[id] = idOf(classId);
    }
  }
}

}  // namespace crash
