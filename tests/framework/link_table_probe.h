// The link table with its base's protected state opened up for tests.
#pragma once

#include <cstdlib>
#include <cstring>
#include <string>

#include "events/event_resp_table.h"
#include "platform/guid.h"
#include "platform/named_event.h"

namespace alertdb_test {

class ProbedLinkTable : public CAlertEVENT_RESPDB {
 public:
  using CAlertDBTable::m_hTable;
  using CAlertDBTable::m_pFieldTemplates;
  using CAlertDBTable::m_pRecordBuffer;
  using CAlertDBTable::m_Replication;
  using CAlertDBTable::m_szFilePath;
  using CAlertEVENT_RESPDB::CAlertEVENT_RESPDB;

  // As if the record buffer could not be allocated.
  void dropRecordBuffer() {
    std::free(m_pRecordBuffer);
    m_pRecordBuffer = nullptr;
  }
};

inline const _GUID kZeroId{};

inline _GUID makeId(unsigned char fill) {
  _GUID id;
  std::memset(&id, fill, sizeof id);
  return id;
}

inline ALRTEVENT_RESPREC makeLink(unsigned char eventClass, unsigned char response) {
  ALRTEVENT_RESPREC link{};
  link.EventClassOID = makeId(eventClass);
  link.ResponseOID = makeId(response);
  return link;
}

// The change event as another party sees it.
class ChangeEventWatch {
 public:
  ChangeEventWatch() : handle_(platform::CreateEventA(nullptr, 1, 0, "AlertDBModifyEvent")) {}
  ~ChangeEventWatch() { platform::CloseHandle(handle_); }
  void reset() { platform::ResetEvent(handle_); }
  bool signalled() { return platform::WaitForSingleObject(handle_, 0) == platform::kWaitObject0; }

 private:
  HANDLE handle_;
};

}  // namespace alertdb_test
