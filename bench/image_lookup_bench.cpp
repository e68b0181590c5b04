// Indexed lookups of events in a builder-made alert data image, by object ID
// and by class ID, beside a plain baseline that runs std::lower_bound over
// the same sorted index of the same image and forms the same entry address,
// trusting the image (no version or bounds tests). Keys are present ones in a
// shuffled order, so the searches do not walk one cached path; both sides
// are checked to find the same entries before they are timed. The
// reporter's "Sqlite" column is the std::lower_bound baseline here.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "bench_support.h"
#include "text/alert_data_image.h"
#include "text/alert_data_image_builder.h"

namespace alertdb_bench {

namespace {

using namespace alert_data_image;

constexpr std::size_t kLookupsPerIteration = 1024;
constexpr std::size_t kKeys = 1 << 16;

struct Dataset {
  std::vector<unsigned char> image;
  std::vector<_GUID> ids;  // present keys, shuffled
  std::vector<std::uint32_t> classIds;
};

_GUID randomId(std::mt19937_64 &random) {
  _GUID id;
  const std::uint64_t halves[2] = {random(), random()};
  std::memcpy(&id, halves, sizeof id);
  return id;
}

// One image per size, made once for both sides.
const Dataset &dataset(std::uint64_t events) {
  static std::vector<std::pair<std::uint64_t, std::unique_ptr<Dataset>>> made;
  for (const auto &[size, data] : made) {
    if (size == events) return *data;
  }
  auto data = std::make_unique<Dataset>();
  std::mt19937_64 random(events);
  std::vector<_GUID> allIds;
  std::vector<std::uint32_t> allClassIds;
  {
    AlertDataImageBuilder builder;
    auto record = std::make_unique<ALRTEVENT_CLASSREC>();
    for (std::uint64_t k = 0; k < events; ++k) {
      record->KEPOID = randomId(random);
      // Distinct class IDs (an odd multiplier is one-to-one), half of them
      // with the top bit set.
      record->EventID = static_cast<std::uint32_t>(k) * 2654435761u;
      allIds.push_back(record->KEPOID);
      allClassIds.push_back(record->EventID);
      builder.addEvent(*record);
    }
    builder.build(data->image);
  }
  for (std::size_t k = 0; k < kKeys; ++k) {
    const std::size_t pick = static_cast<std::size_t>(random() % events);
    data->ids.push_back(allIds[pick]);
    data->classIds.push_back(allClassIds[pick]);
  }
  made.emplace_back(events, std::move(data));
  return *made.back().second;
}

std::uint32_t word(const unsigned char *image, std::uint32_t at) {
  std::uint32_t value;
  std::memcpy(&value, image + at, sizeof value);
  return value;
}

#pragma pack(push, 1)
struct IndexEntry {
  unsigned char head[12];
  std::uint32_t classId;
  _GUID id;
  std::uint32_t slot;
};
#pragma pack(pop)
static_assert(sizeof(IndexEntry) == 36);

// The plain way: the index as an array of its entries, searched by the
// standard library.
template <typename Key, typename Less, typename Equal>
void *plainLookup(const unsigned char *image, std::uint32_t indexWord, const Key &key, Less less,
                  Equal equal) {
  const unsigned char *block = image + word(image, indexWord);
  const auto *first = reinterpret_cast<const IndexEntry *>(block + 16);
  const auto *last = first + word(block, 4);
  const IndexEntry *found = std::lower_bound(first, last, key, less);
  if (found == last || !equal(*found, key)) return nullptr;
  return const_cast<unsigned char *>(image + word(image, kEventAreaWord) + 16 +
                                     std::size_t{found->slot} * kEventEntrySize);
}

void *plainById(const unsigned char *image, _GUID key) {
  return plainLookup(
      image, kEventByIdWord, key,
      [](const IndexEntry &e, const _GUID &k) { return std::memcmp(&e.id, &k, 16) < 0; },
      [](const IndexEntry &e, const _GUID &k) { return std::memcmp(&e.id, &k, 16) == 0; });
}

void *plainByClassId(const unsigned char *image, std::uint32_t key) {
  return plainLookup(
      image, kEventByClassIdWord, key,
      [](const IndexEntry &e, std::uint32_t k) { return e.classId < k; },
      [](const IndexEntry &e, std::uint32_t k) { return e.classId == k; });
}

void *libraryById(const unsigned char *image, _GUID key) {
  void *entry = nullptr;
  GetEventIDbyOID(image, &key, &entry);
  return entry;
}

void *libraryByClassId(const unsigned char *image, std::uint32_t key) {
  void *entry = nullptr;
  GetEventIDbyClassID(image, key, &entry);
  return entry;
}

template <typename Key, void *(*Find)(const unsigned char *, Key),
          void *(*Other)(const unsigned char *, Key)>
void run(benchmark::State &state, std::uint64_t events, const std::vector<Key> Dataset::*keys) {
  const Dataset &data = dataset(events);
  const unsigned char *image = data.image.data();
  const std::vector<Key> &list = data.*keys;
  if (data.image.empty()) {
    state.SkipWithError("the builder made no image");
    return;
  }
  for (std::size_t k = 0; k < 256; ++k) {
    void *mine = Find(image, list[k]);
    if (!mine || mine != Other(image, list[k])) {
      state.SkipWithError("the two sides find different entries");
      return;
    }
  }
  std::size_t next = 0;
  for (auto _ : state) {
    for (std::size_t k = 0; k < kLookupsPerIteration; ++k) {
      benchmark::DoNotOptimize(Find(image, list[next]));
      next = (next + 1) & (kKeys - 1);
    }
  }
  countRecords(state, static_cast<std::uint64_t>(state.iterations()) * kLookupsPerIteration);
}

const bool kRegistered = [] {
  for (std::uint64_t events : benchSizes()) {
    // An event entry is 8259 bytes: a million would need 16 GB to build.
    if (events > 100000) continue;
    const std::string size = "/" + std::to_string(events);
    registerPaired(
        "ImageEventByOID/vs-lower_bound" + size,
        [events](benchmark::State &s) {
          run<_GUID, libraryById, plainById>(s, events, &Dataset::ids);
        },
        [events](benchmark::State &s) {
          run<_GUID, plainById, libraryById>(s, events, &Dataset::ids);
        });
    registerPaired(
        "ImageEventByClassID/vs-lower_bound" + size,
        [events](benchmark::State &s) {
          run<std::uint32_t, libraryByClassId, plainByClassId>(s, events, &Dataset::classIds);
        },
        [events](benchmark::State &s) {
          run<std::uint32_t, plainByClassId, libraryByClassId>(s, events, &Dataset::classIds);
        });
  }
  return true;
}();

}  // namespace

}  // namespace alertdb_bench
