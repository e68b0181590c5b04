#include "text/alert_data_image_builder.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>
#include <numeric>

#include "framework/alert_status.h"
#include "text/alert_data_image_layout.h"

using namespace alert_data_image;

namespace {

constexpr std::uint32_t kServiceGroupHeaderSize = 16;
constexpr std::uint32_t kUserGroupHeaderSize = 56;
constexpr std::uint32_t kServiceEntrySize = kServiceRecordOffset + sizeof(ALRTNTFYSERV);
constexpr std::uint32_t kUserEntrySize = kUserInstanceRecordOffset + sizeof(ALRTUSRINSTSERV);
static_assert(kServiceRecordOffset + offsetof(ALRTNTFYSERV, ServiceType) == kServiceEntryType);
static_assert(kUserInstanceRecordOffset + offsetof(ALRTUSRINSTSERV, Service_KEPOID) ==
              kUserEntryServiceId);
static_assert(kUserInstanceRecordOffset + offsetof(ALRTUSRINSTSERV, UserOid) == kUserEntryUserId);
static_assert(kEventRecordOffset + sizeof(ALRTEVENT_CLASSREC) == kEventEntrySize);
static_assert(kResponseRecordOffset + sizeof(ALERTRESPREC) == kResponseEntrySize);
static_assert(kModemLocationId + sizeof(ALRTMODEM_LOCATION) == kModemLocationEntrySize);
static_assert(kProductNameOffset + kNameSize == kProductEntrySize);
static_assert(kDomainNameOffset + kNameSize == kDomainEntrySize);

template <typename Vector, typename Item>
std::uint32_t append(Vector &items, const Item &item) noexcept {
  try {
    items.push_back(item);
    return 0;
  } catch (const std::bad_alloc &) {
    return ALRT_E_NOMEMORY;
  }
}

// Writes into an image whose final size is known up front.
class ImageWriter {
 public:
  explicit ImageWriter(std::vector<unsigned char> &image) : image_(image) {}
  void bytes(std::uint64_t at, const void *from, std::size_t size) {
    std::memcpy(image_.data() + at, from, size);
  }
  void word(std::uint64_t at, std::uint32_t value) { bytes(at, &value, sizeof value); }
  // A block header at `at` with `count` entries; the offset of its entry 0.
  std::uint64_t block(std::uint32_t headerWord, std::uint64_t at, std::size_t count) {
    word(headerWord, static_cast<std::uint32_t>(at));
    word(at + kBlockCountWord, static_cast<std::uint32_t>(count));
    return at + kBlockHeaderSize;
  }

 private:
  std::vector<unsigned char> &image_;
};

// Service types in the order they first came, each with its records.
template <typename Record>
std::vector<std::vector<const Record *>> groupByType(const std::vector<Record> &records) {
  std::vector<std::uint32_t> types;
  std::vector<std::vector<const Record *>> groups;
  for (const Record &record : records) {
    const std::uint32_t type = record.ServiceType;  // a packed field: no reference to it
    const auto found = std::find(types.begin(), types.end(), type);
    if (found == types.end()) {
      types.push_back(type);
      groups.push_back({&record});
    } else {
      groups[static_cast<std::size_t>(found - types.begin())].push_back(&record);
    }
  }
  return groups;
}

// Entry numbers ordered by a key, equal keys in the order added.
template <typename Less>
std::vector<std::uint32_t> sortedSlots(std::size_t count, Less less) {
  std::vector<std::uint32_t> slots(count);
  std::iota(slots.begin(), slots.end(), 0u);
  std::stable_sort(slots.begin(), slots.end(), less);
  return slots;
}

bool idLess(const _GUID &a, const _GUID &b) { return std::memcmp(&a, &b, sizeof a) < 0; }

void copyName(char (&to)[kNameSize], const char *name) {
  std::memset(to, 0, sizeof to);
  std::strncpy(to, name, sizeof to - 1);
}

}  // namespace

std::uint32_t AlertDataImageBuilder::addEvent(const ALRTEVENT_CLASSREC &eventClass) noexcept {
  return append(events_, eventClass);
}

std::uint32_t AlertDataImageBuilder::addResponse(const ALERTRESPREC &response) noexcept {
  return append(responses_, response);
}

std::uint32_t AlertDataImageBuilder::addService(const ALRTNTFYSERV &service) noexcept {
  return append(services_, service);
}

std::uint32_t AlertDataImageBuilder::addUserInstance(const ALRTUSRINSTSERV &instance) noexcept {
  return append(instances_, instance);
}

std::uint32_t AlertDataImageBuilder::addProduct(std::uint32_t productNumber,
                                                const char *name) noexcept {
  if (!name) return ALRT_E_INVALIDPARAM;
  NamedEntry entry{productNumber, {}, {}};
  copyName(entry.name, name);
  return append(products_, entry);
}

std::uint32_t AlertDataImageBuilder::addDomain(const _GUID &domainId, const char *name) noexcept {
  if (!name) return ALRT_E_INVALIDPARAM;
  NamedEntry entry{0, domainId, {}};
  copyName(entry.name, name);
  return append(domains_, entry);
}

std::uint32_t AlertDataImageBuilder::addModemLocation(const ALRTMODEM_LOCATION &location) noexcept {
  return append(locations_, location);
}

std::uint32_t AlertDataImageBuilder::build(std::vector<unsigned char> &image) const noexcept {
  try {
    const auto serviceGroups = groupByType(services_);
    const auto userGroups = groupByType(instances_);
    auto blockSize = [](std::size_t count, std::uint32_t entrySize) {
      return kBlockHeaderSize + std::uint64_t{count} * entrySize;
    };
    // Where each part goes, in image order.
    const std::uint64_t eventArea = kHeaderSize;
    const std::uint64_t eventsByClassId = eventArea + blockSize(events_.size(), kEventEntrySize);
    const std::uint64_t eventsById =
        eventsByClassId + blockSize(events_.size(), kEventByClassIdEntrySize);
    const std::uint64_t responseArea = eventsById + blockSize(events_.size(), kEventByIdEntrySize);
    const std::uint64_t responsesById =
        responseArea + blockSize(responses_.size(), kResponseEntrySize);
    const std::uint64_t products =
        responsesById + blockSize(responses_.size(), kResponseByIdEntrySize);
    const std::uint64_t domains = products + blockSize(products_.size(), kProductEntrySize);
    const std::uint64_t locations = domains + blockSize(domains_.size(), kDomainEntrySize);
    const std::uint64_t serviceChain =
        locations + blockSize(locations_.size(), kModemLocationEntrySize);
    const std::uint64_t userChain = serviceChain + serviceGroups.size() * kServiceGroupHeaderSize +
                                    services_.size() * std::uint64_t{kServiceEntrySize};
    const std::uint64_t total = userChain + userGroups.size() * kUserGroupHeaderSize +
                                instances_.size() * std::uint64_t{kUserEntrySize};
    if (total > 0xFFFFFFFF) return ALRT_E_TOOLARGE;

    image.assign(total, 0);
    ImageWriter out(image);
    out.word(kSizedMarkWord, kSizedMark);
    out.word(kVersionWord, kImageLayoutVersion);
    out.word(kSizeWord, static_cast<std::uint32_t>(total));

    std::uint64_t at = out.block(kEventAreaWord, eventArea, events_.size());
    for (const ALRTEVENT_CLASSREC &event : events_) {
      out.bytes(at + kEventRecordOffset, &event, sizeof event);
      at += kEventEntrySize;
    }
    at = out.block(kEventByClassIdWord, eventsByClassId, events_.size());
    for (std::uint32_t slot : sortedSlots(events_.size(), [this](std::uint32_t a, std::uint32_t b) {
           return events_[a].EventID < events_[b].EventID;
         })) {
      out.word(at + kEventByClassIdKey, events_[slot].EventID);
      out.word(at + kEventByClassIdIndex, slot);
      at += kEventByClassIdEntrySize;
    }
    at = out.block(kEventByIdWord, eventsById, events_.size());
    for (std::uint32_t slot : sortedSlots(events_.size(), [this](std::uint32_t a, std::uint32_t b) {
           return idLess(events_[a].KEPOID, events_[b].KEPOID);
         })) {
      out.bytes(at + kEventByIdKey, &events_[slot].KEPOID, sizeof(_GUID));
      out.word(at + kEventByIdIndex, slot);
      at += kEventByIdEntrySize;
    }

    at = out.block(kResponseAreaWord, responseArea, responses_.size());
    for (const ALERTRESPREC &response : responses_) {
      out.bytes(at + kResponseRecordOffset, &response, sizeof response);
      at += kResponseEntrySize;
    }
    at = out.block(kResponseByIdWord, responsesById, responses_.size());
    for (std::uint32_t slot :
         sortedSlots(responses_.size(), [this](std::uint32_t a, std::uint32_t b) {
           return idLess(responses_[a].KEPOID, responses_[b].KEPOID);
         })) {
      out.bytes(at + kResponseByIdKey, &responses_[slot].KEPOID, sizeof(_GUID));
      out.word(at + kResponseByIdIndex, slot);
      at += kResponseByIdEntrySize;
    }

    at = out.block(kProductTableWord, products, products_.size());
    for (const NamedEntry &product : products_) {
      out.word(at + kProductNumber, product.number);
      out.bytes(at + kProductNameOffset, product.name, kNameSize);
      at += kProductEntrySize;
    }
    at = out.block(kDomainTableWord, domains, domains_.size());
    for (const NamedEntry &domain : domains_) {
      out.bytes(at + kDomainId, &domain.id, sizeof domain.id);
      out.bytes(at + kDomainNameOffset, domain.name, kNameSize);
      at += kDomainEntrySize;
    }
    at = out.block(kModemLocationTableWord, locations, locations_.size());
    for (const ALRTMODEM_LOCATION &location : locations_) {
      out.bytes(at + kModemLocationId, &location, sizeof location);
      at += kModemLocationEntrySize;
    }

    // The chains: each group's header, then its entries; `next` is the
    // distance to the group that follows, 0 in the last.
    auto writeChain = [&out](std::uint32_t chainWord, std::uint64_t start, const auto &groups,
                             std::uint32_t headerSize, std::uint32_t recordOffset,
                             std::uint32_t entrySize, bool typed) {
      std::uint64_t group = start;
      if (!groups.empty()) out.word(chainWord, static_cast<std::uint32_t>(start));
      for (std::size_t g = 0; g < groups.size(); ++g) {
        const auto &records = groups[g];
        const std::uint64_t size = headerSize + records.size() * std::uint64_t{entrySize};
        out.word(group + kGroupFirstEntryWord, headerSize);
        out.word(group + kGroupCountWord, static_cast<std::uint32_t>(records.size()));
        out.word(group + kGroupNextWord,
                 g + 1 < groups.size() ? static_cast<std::uint32_t>(size) : 0);
        if (typed) {
          const std::uint32_t type = records.front()->ServiceType;
          out.word(group + kUserGroupServiceTypeWord, type);
        }
        std::uint64_t entry = group + headerSize;
        for (const auto *record : records) {
          out.word(entry, entrySize);
          out.bytes(entry + recordOffset, record, sizeof *record);
          entry += entrySize;
        }
        group += size;
      }
    };
    writeChain(kServiceGroupsWord, serviceChain, serviceGroups, kServiceGroupHeaderSize,
               kServiceRecordOffset, kServiceEntrySize, false);
    writeChain(kUserGroupsWord, userChain, userGroups, kUserGroupHeaderSize,
               kUserInstanceRecordOffset, kUserEntrySize, true);
    return 0;
  } catch (const std::bad_alloc &) {
    return ALRT_E_NOMEMORY;
  } catch (...) {
    return ALRT_E_EXCEPTION;
  }
}
