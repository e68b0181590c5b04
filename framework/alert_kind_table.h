// CAlertKindTable<Derived, REC>: the shape shared by tables that differ only
// in their record and definition (the service-specific tables, the per-user
// address tables, the alert configuration sub-tables). It carries the
// constructors, the copy, the binding and the signalling rule; the exported
// class supplies its record and its `static const AlertKindDefinition
// kDefinition`.
#pragma once

#include <cstddef>
#include <cstdint>

#include "framework/alert_db_table.h"

struct AlertKindDefinition {
  AlertTableDefinition table;
  // Templates 0 .. recordFields-1 lie in the record; the next is "Replication".
  std::uint32_t recordFields;
  // Offset of each of those in the record, for records whose members do not
  // follow the templates back to back; null when they do.
  const std::uint32_t *recordOffsets;
  // The per-user address tables add without signalling the change.
  bool addSignals;
  // The alert configuration tables delete without signalling it.
  bool deleteSignals;
};

// The definition of a table whose last template is "Replication" and whose
// object-ID key is that of its first template, "KEPOID".
template <std::size_t N>
constexpr AlertKindDefinition KindDefinition(
    const char *tableName, const platform::FieldTemplate (&templates)[N],
    const char *const (&fieldNames)[N], std::uint32_t titleStringId,
    const platform::QueryInfoEntry *queryInfo, std::uint32_t queryInfoCount,
    const char *defaultFileName, bool addSignals, const std::uint32_t *recordOffsets = nullptr) {
  return {{tableName, templates, N, queryInfo, queryInfoCount, fieldNames, titleStringId,
           titleStringId + 1, templates[0].keyNumber, defaultFileName},
          N - 1,
          recordOffsets,
          addSignals,
          true};
}

template <class Derived, class REC>
class ALERTDB_API CAlertKindTable : public CAlertDBTable<REC> {
 public:
  using Record = REC;

  CAlertKindTable() : CAlertKindTable(nullptr) {}
  // `fileName` names a file in the data directory; null gives the default.
  explicit CAlertKindTable(const char *fileName);
  CAlertKindTable(const CAlertKindTable &other);
  CAlertKindTable &operator=(const CAlertKindTable &other);
  ~CAlertKindTable() override = default;

  std::uint32_t DBAlertRecAdd(REC *record, _GUID *newId);
  // "Unchanged" is success without a signal.
  std::uint32_t DBAlertRecUpdate(REC *record);
  std::uint32_t DBAlertRecDelete(_GUID *id);

 private:
  void Bind();

  std::uint32_t m_nQueryInfoBytes;
  std::uint32_t m_nTemplateBytes;
};
