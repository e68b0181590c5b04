// Opening a table the way every caller inside the library does: open, and
// create the table when the file exists but lacks it.
#pragma once

#include <cstdint>
#include <new>

#include "framework/alert_status.h"

template <class Table>
std::uint32_t OpenOrCreate(Table &table) {
  std::uint32_t status = table.DBOpen();
  if ((status & 0xFFFF) == ALRT_NOTABLE_LOW) status = table.DBCreate();
  return status;
}

// Creates the neighbour table of a relation member on demand, with its own
// default data file, and keeps it in `member` (owned). 0, ALRT_E_NOMEMORY or
// ALRT_E_OPENFAILED; on failure `member` is null.
template <class Table>
std::uint32_t ActivateNeighbour(Table *&member) {
  if (member) return 0;
  Table *table = new (std::nothrow) Table();
  if (!table) return ALRT_E_NOMEMORY;
  if (OpenOrCreate(*table) != 0) {
    delete table;
    return ALRT_E_OPENFAILED;
  }
  member = table;
  return 0;
}

// Destroys a neighbour table and clears its member.
template <class Table>
void ReleaseNeighbour(Table *&member) {
  delete member;
  member = nullptr;
}
