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
#include "reliability/crash/crash_lines.h"

namespace crash {

// Every record of every table. Each record the walk on the object-ID key
// meets is read again by its ID through a second table object; both must
// succeed and agree. `counts` gets the records met per table.
inline bool readTables(World *world, std::map<Table, std::uint32_t> *counts, std::string *error) {
  world->records.clear();
  for (int i = 0; i < kTableCount; ++i) {
    Table t = static_cast<Table>(i);
    *error = readRecords(t, [&](const Id &id, const void *record) {
      world->records[{t, id}] = {digestOf(t, record), 0};
      ++(*counts)[t];
    });
    if (!error->empty()) return false;
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
