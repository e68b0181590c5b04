// The members of CAlertKindTable<Derived, REC>. Included only by the sources
// that instantiate it, after the exported class is complete.
#pragma once

#include "framework/alert_db_table_impl_internal.h"
#include "framework/alert_kind_table.h"

template <class Derived, class REC>
CAlertKindTable<Derived, REC>::CAlertKindTable(const char *fileName)
    : m_nQueryInfoBytes(Derived::kDefinition.table.queryInfoCount *
                        alertdb_internal::kQueryInfoSize),
      m_nTemplateBytes(Derived::kDefinition.table.fieldCount * alertdb_internal::kTemplateSize) {
  this->ApplyDefinition(Derived::kDefinition.table, fileName, m_nQueryInfoBytes, m_nTemplateBytes);
  Bind();
}

template <class Derived, class REC>
CAlertKindTable<Derived, REC>::CAlertKindTable(const CAlertKindTable &other)
    : CAlertDBTable<REC>(other),
      m_nQueryInfoBytes(other.m_nQueryInfoBytes),
      m_nTemplateBytes(other.m_nTemplateBytes) {
  Bind();
}

template <class Derived, class REC>
CAlertKindTable<Derived, REC> &CAlertKindTable<Derived, REC>::operator=(
    const CAlertKindTable &other) {
  CAlertDBTable<REC>::operator=(other);
  return *this;
}

template <class Derived, class REC>
void CAlertKindTable<Derived, REC>::Bind() {
  const AlertKindDefinition &kind = Derived::kDefinition;
  if (!this->m_pRecordBuffer || !this->m_pFieldTemplates) return;
  if (kind.recordOffsets) {
    auto *record = reinterpret_cast<unsigned char *>(this->m_pRecordBuffer);
    for (std::uint32_t i = 0; i < kind.recordFields; ++i) {
      this->BindField(i, record + kind.recordOffsets[i]);
    }
  } else {
    this->BindRecordFields(kind.recordFields);
  }
  this->BindReplication(kind.recordFields);
}

template <class Derived, class REC>
std::uint32_t CAlertKindTable<Derived, REC>::DBAlertRecAdd(REC *record, _GUID *newId) {
  std::uint32_t status = CAlertDBTable<REC>::DBAlertRecAdd(record, newId);
  return Derived::kDefinition.addSignals ? this->SignalIfDone(status) : status;
}

template <class Derived, class REC>
std::uint32_t CAlertKindTable<Derived, REC>::DBAlertRecUpdate(REC *record) {
  return this->UpdateAndSignal(record);
}

template <class Derived, class REC>
std::uint32_t CAlertKindTable<Derived, REC>::DBAlertRecDelete(_GUID *id) {
  std::uint32_t status = CAlertDBTable<REC>::DBAlertRecDelete(id);
  return Derived::kDefinition.deleteSignals ? this->SignalIfDone(status) : status;
}
