#include <cstdint>
#include <cstring>
#include <limits>

#include "framework/alert_status.h"
#include "text/alert_data_image.h"
#include "text/alert_data_image_reader_internal.h"

using alertdb_internal::ImageBlock;
using alertdb_internal::ImageReader;
using namespace alert_data_image;

namespace {

constexpr std::uint32_t kNotFound = 0xFFFF;
// The lookups are not told the size: only an image's own record bounds them.
constexpr std::uint64_t kUntold = std::numeric_limits<std::uint64_t>::max();

std::optional<ImageReader> openImage(const void *image) {
  return ImageReader::open(image, kUntold);
}

void *address(const ImageReader &reader, std::uint64_t offset) {
  // The lookups hand out addresses in the caller's image, which the caller
  // may change; only the lookups themselves treat it as read-only.
  return const_cast<unsigned char *>(reader.base() + offset);
}

struct IndexShape {
  std::uint32_t indexWord;
  std::uint32_t indexEntrySize;
  std::uint32_t keyOffset;
  std::uint32_t slotOffset;
  std::uint32_t areaWord;
  std::uint32_t areaEntrySize;
};

constexpr IndexShape kEventsById{kEventByIdWord,  kEventByIdEntrySize, kEventByIdKey,
                                 kEventByIdIndex, kEventAreaWord,      kEventEntrySize};
constexpr IndexShape kEventsByClassId{kEventByClassIdWord, kEventByClassIdEntrySize,
                                      kEventByClassIdKey,  kEventByClassIdIndex,
                                      kEventAreaWord,      kEventEntrySize};
constexpr IndexShape kResponsesById{kResponseByIdWord,  kResponseByIdEntrySize, kResponseByIdKey,
                                    kResponseByIdIndex, kResponseAreaWord,      kResponseEntrySize};

// An object ID as two numbers that compare in its byte order.
struct IdKey {
  std::uint64_t high;
  std::uint64_t low;
  static IdKey at(const unsigned char *bytes) {
    std::uint64_t high, low;
    std::memcpy(&high, bytes, 8);
    std::memcpy(&low, bytes + 8, 8);
    return {__builtin_bswap64(high), __builtin_bswap64(low)};
  }
  // Without branches: which way a search step goes is not predictable.
  unsigned before(const IdKey &other) const {
    return static_cast<unsigned>(high < other.high) |
           (static_cast<unsigned>(high == other.high) & static_cast<unsigned>(low < other.low));
  }
  bool operator==(const IdKey &) const = default;
};

struct ClassIdKey {
  std::uint32_t value;
  static ClassIdKey at(const unsigned char *bytes) {
    std::uint32_t value;
    std::memcpy(&value, bytes, 4);
    return {value};
  }
  unsigned before(const ClassIdKey &other) const {
    return static_cast<unsigned>(value < other.value);
  }
  bool operator==(const ClassIdKey &) const = default;
};

template <typename Key>
std::uint32_t findIndexed(const void *image, const IndexShape &shape, const Key &key,
                          void **entry) {
  if (!entry) return kNotFound;
  *entry = nullptr;
  const auto reader = openImage(image);
  if (!reader) return kNotFound;
  const auto index = alertdb_internal::imageBlock(*reader, shape.indexWord, shape.indexEntrySize);
  if (!index || index->count == 0) return kNotFound;

  // Lower bound without branches: `at` ends on the last key before the one
  // looked for, or on the first key; the step after it is the candidate.
  const std::uint64_t stride = shape.indexEntrySize;
  const unsigned char *const keys = reader->base() + index->firstEntry + shape.keyOffset;
  const unsigned char *at = keys;
  for (std::uint64_t n = index->count; n > 1;) {
    const std::uint64_t half = n / 2;
    n -= half;
    // Both places the next step may look at, fetched while this one compares.
    __builtin_prefetch(at + (n / 2) * stride);
    __builtin_prefetch(at + (half + n / 2) * stride);
    at += Key::at(at + half * stride).before(key) * half * stride;
  }
  at += Key::at(at).before(key) * stride;
  const std::uint64_t position = static_cast<std::uint64_t>(at - keys) / stride;
  if (position == index->count || !(Key::at(at) == key)) return kNotFound;

  const std::uint64_t found = index->entry(position);
  const std::uint64_t area = reader->word(shape.areaWord);
  const std::uint64_t result =
      area + kBlockHeaderSize +
      std::uint64_t{reader->word(found + shape.slotOffset)} * shape.areaEntrySize;
  if (!reader->holds(result, shape.areaEntrySize)) return kNotFound;
  *entry = address(*reader, result);
  return 0;
}

std::uint32_t findById(const void *image, const _GUID *id, const IndexShape &shape, void **entry) {
  if (!id) {
    if (entry) *entry = nullptr;
    return kNotFound;
  }
  return findIndexed(image, shape, IdKey::at(reinterpret_cast<const unsigned char *>(id)), entry);
}

// Walks a group chain from the group at header word `chainWord`; `visit`
// sees each group's offset and returns false to stop. Positions only grow,
// so the walk ends; it stops at the first group that is not wholly inside.
template <typename Visit>
void walkGroups(const ImageReader &reader, std::uint32_t chainWord, std::uint32_t groupHeaderSize,
                Visit visit) {
  std::uint64_t group = reader.word(chainWord);
  if (group == 0) return;
  while (group <= alertdb_internal::kLargestReportableOffset &&
         reader.holds(group, groupHeaderSize)) {
    if (!visit(group)) return;
    const std::uint32_t next = reader.word(group + kGroupNextWord);
    if (next == 0) return;
    group += next;
  }
}

// Walks a group's entries; `match` sees each entry's offset once its first
// `extent` bytes are known to be inside, and returns true to stop there.
// The offset of the matching entry, or 0.
template <typename Match>
std::uint64_t findInGroup(const ImageReader &reader, std::uint64_t group, std::uint32_t extent,
                          Match match) {
  std::uint64_t at = group + reader.word(group + kGroupFirstEntryWord);
  const std::uint32_t count = reader.word(group + kGroupCountWord);
  for (std::uint32_t k = 0; k < count; ++k) {
    if (at > alertdb_internal::kLargestReportableOffset || !reader.holds(at, extent)) return 0;
    if (match(at)) return at;
    const std::uint32_t size = reader.word(at);
    // A zero size would make every later entry this one again.
    if (size == 0) return 0;
    at += size;
  }
  return 0;
}

std::uint32_t lookUpUnsorted(const void *image, std::uint32_t tableWord, std::uint32_t entrySize,
                             void **entry, auto matches) {
  *entry = nullptr;
  const auto reader = openImage(image);
  if (!reader) return 0;
  const auto table = alertdb_internal::imageBlock(*reader, tableWord, entrySize);
  if (!table) return 0;
  for (std::uint64_t k = 0; k < table->count; ++k) {
    if (matches(*reader, table->entry(k))) {
      *entry = address(*reader, table->entry(k));
      return 0;
    }
  }
  return 0;
}

}  // namespace

std::uint32_t GetEventIDbyOID(const void *image, const _GUID *eventClassId, void **entry) {
  return findById(image, eventClassId, kEventsById, entry);
}

std::uint32_t GetResponseIDbyOID(const void *image, const _GUID *responseId, void **entry) {
  return findById(image, responseId, kResponsesById, entry);
}

std::uint32_t GetEventIDbyClassID(const void *image, std::uint32_t classId, void **entry) {
  return findIndexed(image, kEventsByClassId, ClassIdKey{classId}, entry);
}

std::uint32_t FindServicebyResponse(const void *image, const ALERTRESPREC *response,
                                    std::uint32_t *serviceType) {
  if (!response) return 0;
  const auto reader = openImage(image);
  if (!reader) return 0;
  const _GUID serviceId = response->ServiceOID;
  std::uint64_t found = 0;
  walkGroups(*reader, kServiceGroupsWord, kGroupNextWord + 4, [&](std::uint64_t group) {
    found = findInGroup(*reader, group, kServiceEntryType + 4, [&](std::uint64_t at) {
      return reader->sameId(at + kServiceEntryId, &serviceId);
    });
    return found == 0;
  });
  if (found != 0 && serviceType) *serviceType = reader->word(found + kServiceEntryType);
  return static_cast<std::uint32_t>(found);
}

std::uint32_t FindUserbyResponse(const void *image, const ALERTRESPREC *response) {
  if (!response) return 0;
  const auto reader = openImage(image);
  if (!reader) return 0;
  const _GUID serviceId = response->ServiceOID;
  const _GUID userId = response->UserOID;
  const std::uint32_t serviceType = response->ServiceType;
  std::uint64_t found = 0;
  walkGroups(*reader, kUserGroupsWord, kUserGroupServiceTypeWord + 4, [&](std::uint64_t group) {
    if (reader->word(group + kUserGroupServiceTypeWord) != serviceType) return true;
    found = findInGroup(*reader, group, kUserEntryUserId + 16, [&](std::uint64_t at) {
      return reader->sameId(at + kUserEntryServiceId, &serviceId) &&
             reader->sameId(at + kUserEntryUserId, &userId);
    });
    return false;  // only the first group of the type is searched
  });
  return static_cast<std::uint32_t>(found);
}

std::uint32_t GetProdNamebyID(const void *image, std::uint32_t productNumber, void **entry) {
  if (!image || !entry) return ALRT_E_INVALIDPARAM;
  return lookUpUnsorted(image, kProductTableWord, kProductEntrySize, entry,
                        [productNumber](const ImageReader &reader, std::uint64_t at) {
                          return reader.word(at + kProductNumber) == productNumber;
                        });
}

std::uint32_t GetDomainNamebyOID(const void *image, const _GUID *domainId, void **entry) {
  if (!image || !entry || !domainId) return ALRT_E_INVALIDPARAM;
  return lookUpUnsorted(image, kDomainTableWord, kDomainEntrySize, entry,
                        [domainId](const ImageReader &reader, std::uint64_t at) {
                          return reader.sameId(at + kDomainId, domainId);
                        });
}

std::uint32_t GetModemLocationbyOID(const void *image, const _GUID *locationId, void **entry) {
  if (!image || !locationId || !entry) return kNotFound;
  return lookUpUnsorted(image, kModemLocationTableWord, kModemLocationEntrySize, entry,
                        [locationId](const ImageReader &reader, std::uint64_t at) {
                          return reader.sameId(at + kModemLocationId, locationId);
                        });
}
