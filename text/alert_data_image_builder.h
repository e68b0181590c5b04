// Lays out an alert data image from records, so that no program assembles
// one byte by byte. The image records its own size (see alert_data_image.h),
// so the lookups never read past it, and passes CheckAlertDataImage.
//
// What the builder puts where, beyond the fields the lookups read (all
// bytes not named here are zero):
// - event entry: the ALRTEVENT_CLASSREC at kEventRecordOffset; indexed by
//   its KEPOID and by its EventID (the class ID);
// - response entry: the ALERTRESPREC at kResponseRecordOffset;
// - service entry: its size, then the ALRTNTFYSERV at offset 12; one
//   service group per service type, in the order the types first came;
// - user instance entry: its size, then the ALRTUSRINSTSERV at offset 64;
//   one group per service type (the instance's ServiceType), likewise;
// - product entry: the number at 28, the name (at most 63 characters and a
//   terminator) at kProductNameOffset;
// - domain entry: the object ID at 12, the name at kDomainNameOffset;
// - modem location entry: the ALRTMODEM_LOCATION at 28.
// Entries of the areas and tables keep the order in which they were added.
#pragma once

#include <cstdint>
#include <vector>

#include "config/modem_location_table.h"
#include "events/event_class_table.h"
#include "platform/export.h"
#include "platform/win_types.h"
#include "recipients/user_instance_table.h"
#include "responses/response_record.h"
#include "services/notify_services_table.h"

namespace alert_data_image {

inline constexpr std::uint32_t kEventRecordOffset = 20;
inline constexpr std::uint32_t kResponseRecordOffset = 28;
inline constexpr std::uint32_t kServiceRecordOffset = 12;
inline constexpr std::uint32_t kUserInstanceRecordOffset = 64;
inline constexpr std::uint32_t kProductNameOffset = 32;
inline constexpr std::uint32_t kDomainNameOffset = 28;
inline constexpr std::uint32_t kNameSize = 64;

}  // namespace alert_data_image

// Every member returns a status: 0, ALRT_E_INVALIDPARAM for a null argument,
// ALRT_E_NOMEMORY when memory runs out, and from build ALRT_E_TOOLARGE when
// the image would not fit 32-bit offsets. A failed add adds nothing.
class ALERTDB_API AlertDataImageBuilder {
 public:
  std::uint32_t addEvent(const ALRTEVENT_CLASSREC &eventClass) noexcept;
  std::uint32_t addResponse(const ALERTRESPREC &response) noexcept;
  std::uint32_t addService(const ALRTNTFYSERV &service) noexcept;
  std::uint32_t addUserInstance(const ALRTUSRINSTSERV &instance) noexcept;
  std::uint32_t addProduct(std::uint32_t productNumber, const char *name) noexcept;
  std::uint32_t addDomain(const _GUID &domainId, const char *name) noexcept;
  std::uint32_t addModemLocation(const ALRTMODEM_LOCATION &location) noexcept;

  // Replaces `image` with the image of everything added so far; the builder
  // keeps its records, so more may be added and built again.
  std::uint32_t build(std::vector<unsigned char> &image) const noexcept;

 private:
  struct NamedEntry {
    std::uint32_t number;
    _GUID id;
    char name[alert_data_image::kNameSize];
  };
  std::vector<ALRTEVENT_CLASSREC> events_;
  std::vector<ALERTRESPREC> responses_;
  std::vector<ALRTNTFYSERV> services_;
  std::vector<ALRTUSRINSTSERV> instances_;
  std::vector<NamedEntry> products_;
  std::vector<NamedEntry> domains_;
  std::vector<ALRTMODEM_LOCATION> locations_;
};
