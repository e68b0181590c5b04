// Lookups by object ID or number in an alert data image: a caller-built
// block of memory laid out as alert_data_image_layout.h describes (build one
// with AlertDataImageBuilder). Results are addresses or offsets into the
// image; nothing is allocated, copied or kept. Any number of threads may
// search one image that nobody changes meanwhile.
//
// What the caller guarantees: these functions are not told the image's
// size. An image whose first word is alert_data_image::kSizedMark (every
// image the builder makes) records its size in its third word; the caller
// guarantees that many readable bytes, and the lookups read nothing past
// them: a block, index entry, group or entry that reaches past the recorded
// size is not found. For any other image the caller guarantees that every
// block, group and entry the header leads to lies in readable memory, for
// example by passing it once through CheckAlertDataImage with its size.
// In both cases the image holds at least its 80-byte header.
//
// The lookups do not test the image's layout version (second word, 0x30001
// for this layout): callers test it once with DoesVersionMatch, and an image
// of another layout is searched as if it had this one. The class ID of an event is
// the EventID of its event class. Index blocks must be sorted by their key
// (object IDs as unsigned bytes, class IDs as unsigned numbers); in an
// unsorted one a key may be missed, never a read made outside it.
#pragma once

#include <cstdint>

#include "platform/export.h"
#include "platform/win_types.h"
#include "responses/response_record.h"
#include "text/alert_data_image_layout.h"

// The three indexed lookups: 0 and `*entry` set to the event or response
// entry, or 0xFFFF and `*entry` null when the key is not in the index. A null
// image or key gives 0xFFFF; a null `entry` gives 0xFFFF and writes nothing.
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t GetEventIDbyOID(const void *image,
                                                           const _GUID *eventClassId, void **entry);
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t GetEventIDbyClassID(const void *image,
                                                               std::uint32_t classId, void **entry);
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t GetResponseIDbyOID(const void *image,
                                                              const _GUID *responseId,
                                                              void **entry);

// Offset from the image start of the first service entry, over all service
// groups, whose object ID is the response's ServiceOID; 0 when there is none.
// When found and `serviceType` is not null it receives the entry's service
// type; otherwise it is untouched. A null image or response gives 0.
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t FindServicebyResponse(const void *image,
                                                                 const ALERTRESPREC *response,
                                                                 std::uint32_t *serviceType);

// Offset of the user instance entry with the response's ServiceOID and
// UserOID, searched only in the first user instance group of the response's
// ServiceType; 0 when there is none, or when the image or response is null.
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t FindUserbyResponse(const void *image,
                                                              const ALERTRESPREC *response);

// The table scans: ALRT_E_INVALIDPARAM (0x200CF) when `image`, `entry` or
// the domain ID is null; otherwise 0, with `*entry` the first entry carrying the key or null.
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t GetProdNamebyID(const void *image,
                                                           std::uint32_t productNumber,
                                                           void **entry);
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t GetDomainNamebyOID(const void *image,
                                                              const _GUID *domainId, void **entry);
// 0xFFFF, writing nothing, when any argument is null; otherwise 0, with
// `*entry` the first location entry with that object ID, or null.
ALERTDB_EXTERN_C ALERTDB_API std::uint32_t GetModemLocationbyOID(const void *image,
                                                                 const _GUID *locationId,
                                                                 void **entry);
