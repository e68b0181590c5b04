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

// What becomes of a neighbour table that could be made but not opened.
enum class UnopenedNeighbour { Discard, Keep };

// Creates the neighbour table of a relation member on demand, with its own
// default data file, and keeps it in `member` (owned). 0, ALRT_E_NOMEMORY or
// ALRT_E_OPENFAILED; a table that fails to open is destroyed, or kept
// unopened in `member` where the relation asks for that.
template <class Table>
std::uint32_t ActivateNeighbour(Table *&member,
                                UnopenedNeighbour unopened = UnopenedNeighbour::Discard) {
  if (member) return 0;
  Table *table = new (std::nothrow) Table();
  if (!table) return ALRT_E_NOMEMORY;
  std::uint32_t status = OpenOrCreate(*table) == 0 ? 0 : ALRT_E_OPENFAILED;
  if (status == 0 || unopened == UnopenedNeighbour::Keep) {
    member = table;
  } else {
    delete table;
  }
  return status;
}

// Destroys a neighbour table and clears its member.
template <class Table>
void ReleaseNeighbour(Table *&member) {
  delete member;
  member = nullptr;
}
