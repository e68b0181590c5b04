// The problems a check or a salvage reports, one shape for every backend.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "platform/store/record_store.h"

namespace platform::store {

inline void addProblem(std::vector<StoreProblem> *problems, const std::string &table,
                       std::string what, std::int64_t row = 0, const _GUID *objectId = nullptr) {
  StoreProblem p;
  p.table = table;
  p.row = row;
  p.what = std::move(what);
  if (objectId) {
    p.hasObjectId = true;
    p.objectId = *objectId;
  }
  problems->push_back(std::move(p));
}

}  // namespace platform::store
