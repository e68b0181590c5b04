#include "text/alert_data_image_check.h"

#include <cstring>

#include "framework/alert_status.h"
#include "text/alert_data_image_reader_internal.h"

using alertdb_internal::ImageBlock;
using alertdb_internal::ImageReader;
using namespace alert_data_image;

namespace {

constexpr std::uint32_t kFault = 0xFFFF;

struct IndexCheck {
  std::uint32_t indexWord;
  std::uint32_t indexEntrySize;
  std::uint32_t keyOffset;
  std::uint32_t keySize;  // 16: an object ID; 4: a number
  std::uint32_t slotOffset;
  const ImageBlock &area;
};

int compareKeys(const ImageReader &reader, std::uint64_t a, std::uint64_t b,
                std::uint32_t keySize) {
  if (keySize == 16) return std::memcmp(reader.base() + a, reader.base() + b, 16);
  const std::uint32_t x = reader.word(a), y = reader.word(b);
  return x < y ? -1 : (x > y ? 1 : 0);
}

bool indexIsSound(const ImageReader &reader, const IndexCheck &check) {
  const auto index = alertdb_internal::imageBlock(reader, check.indexWord, check.indexEntrySize);
  if (!index) return false;
  for (std::uint64_t k = 0; k < index->count; ++k) {
    const std::uint64_t at = index->entry(k);
    if (reader.word(at + check.slotOffset) >= check.area.count) return false;
    if (k > 0 && compareKeys(reader, index->entry(k - 1) + check.keyOffset, at + check.keyOffset,
                             check.keySize) > 0) {
      return false;
    }
  }
  return true;
}

// Every group and every entry the chain lookups can visit lies inside.
bool chainIsSound(const ImageReader &reader, std::uint32_t chainWord, std::uint32_t groupHeaderSize,
                  std::uint32_t entryExtent) {
  std::uint64_t group = reader.word(chainWord);
  if (group == 0) return true;
  for (;;) {
    if (group > alertdb_internal::kLargestReportableOffset ||
        !reader.holds(group, groupHeaderSize)) {
      return false;
    }
    std::uint64_t at = group + reader.word(group + kGroupFirstEntryWord);
    const std::uint32_t count = reader.word(group + kGroupCountWord);
    for (std::uint32_t k = 0; k < count; ++k) {
      if (at > alertdb_internal::kLargestReportableOffset || !reader.holds(at, entryExtent)) {
        return false;
      }
      const std::uint32_t size = reader.word(at);
      if (size == 0) break;  // the lookups stop here too
      at += size;
    }
    const std::uint32_t next = reader.word(group + kGroupNextWord);
    if (next == 0) return true;
    group += next;
  }
}

}  // namespace

std::uint32_t CheckAlertDataImage(const void *image, std::size_t imageSize) {
  if (!image) return ALRT_E_INVALIDPARAM;
  const auto reader = ImageReader::open(image, imageSize);
  if (!reader) return kFault;
  // The check covers the layout too: only this layout's images pass.
  if (reader->word(kVersionWord) != kImageLayoutVersion) return kFault;
  if (reader->word(kSizedMarkWord) == kSizedMark && reader->word(kSizeWord) > imageSize) {
    return kFault;
  }
  const auto events = alertdb_internal::imageBlock(*reader, kEventAreaWord, kEventEntrySize);
  const auto responses =
      alertdb_internal::imageBlock(*reader, kResponseAreaWord, kResponseEntrySize);
  if (!events || !responses) return kFault;
  const bool sound =
      indexIsSound(*reader, {kEventByIdWord, kEventByIdEntrySize, kEventByIdKey, 16,
                             kEventByIdIndex, *events}) &&
      indexIsSound(*reader, {kEventByClassIdWord, kEventByClassIdEntrySize, kEventByClassIdKey, 4,
                             kEventByClassIdIndex, *events}) &&
      indexIsSound(*reader, {kResponseByIdWord, kResponseByIdEntrySize, kResponseByIdKey, 16,
                             kResponseByIdIndex, *responses}) &&
      alertdb_internal::imageBlock(*reader, kProductTableWord, kProductEntrySize) &&
      alertdb_internal::imageBlock(*reader, kDomainTableWord, kDomainEntrySize) &&
      alertdb_internal::imageBlock(*reader, kModemLocationTableWord, kModemLocationEntrySize) &&
      chainIsSound(*reader, kServiceGroupsWord, kGroupNextWord + 4, kServiceEntryType + 4) &&
      chainIsSound(*reader, kUserGroupsWord, kUserGroupServiceTypeWord + 4, kUserEntryUserId + 16);
  return sound ? 0 : kFault;
}
