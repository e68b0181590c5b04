// The stored form of records: every image comes back byte for byte into
// however its fields are laid out, and damaged bytes never reach storage.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "support/test_environment.h"

// The codec is hidden inside the library; its source is compiled in here, as
// the benchmarks do.
#include "platform/store/record_codec.cpp"  // NOLINT(bugprone-suspicious-include)

namespace {

using platform::store::decodeRecord;
using platform::store::encodeRecord;
using platform::store::ImageSegment;
using platform::store::inspectRecord;
using platform::store::StoredForm;
using platform::store::storedSizeBound;
using Bytes = std::vector<unsigned char>;

constexpr unsigned char kUntouched = 0xA5;
constexpr std::size_t kTrailer = 9;

class RecordCodecTest : public alertdb_test::IsolatedTest {
 protected:
  static Bytes encode(const Bytes &image) {
    Bytes stored(storedSizeBound(image.size()));
    stored.resize(encodeRecord(image.data(), image.size(), stored.data()));
    return stored;
  }

  // Images with what records hold: text padded with zeros, runs of every
  // length around the shortest stored as a run, zeros at either end.
  static std::vector<Bytes> images() {
    std::vector<Bytes> out;
    out.push_back(Bytes(1, 0));
    out.push_back(Bytes(1, 7));
    out.push_back(Bytes(60, 0));
    out.push_back(Bytes(200, 0x41));
    for (std::size_t run = 1; run <= 6; ++run) {
      Bytes image;
      for (int i = 0; i < 5; ++i) {
        image.push_back(static_cast<unsigned char>(i + 1));
        image.insert(image.end(), run, 0);
      }
      out.push_back(image);
      image.insert(image.begin(), run, 0);
      out.push_back(image);
    }
    std::mt19937 random(7);
    for (std::size_t size : {48u, 60u, 300u, 8970u}) {
      Bytes image(size, 0);
      for (std::size_t i = 0; i < size; ++i) {
        // Mostly zeros in stretches, so that runs and literals alternate.
        if ((i / 37) % 3 != 2) image[i] = static_cast<unsigned char>(random() % 3 ? random() : 0);
      }
      out.push_back(image);
    }
    // Longer than one length byte holds, either way.
    Bytes longLiteral(1000, 0x5A);
    longLiteral.resize(1300, 0);
    out.push_back(longLiteral);
    return out;
  }
};

TEST_F(RecordCodecTest, EveryImageComesBackWholeAndWithinTheBound) {
  for (const Bytes &image : images()) {
    Bytes stored = encode(image);
    EXPECT_LE(stored.size(), storedSizeBound(image.size()));
    EXPECT_EQ(inspectRecord(stored.data(), stored.size()), StoredForm::Checked);
    Bytes back(image.size(), kUntouched);
    ASSERT_TRUE(decodeRecord(stored.data(), stored.size(), static_cast<std::uint32_t>(image.size()),
                             back.data(), false))
        << image.size();
    EXPECT_EQ(back, image);
  }
}

TEST_F(RecordCodecTest, FieldsSplitAnywhereGetTheirBytesAndUnboundStretchesAreSkipped) {
  for (const Bytes &image : images()) {
    Bytes stored = encode(image);
    auto size = static_cast<std::uint32_t>(image.size());
    // Small and large images take different ways into the fields.
    std::uint32_t step = size > 300 ? 97 : 1;
    // Three stretches cut at every pair of places, one of them (in turn)
    // without storage, each stretch in a buffer of its own.
    for (std::uint32_t a = 0; a <= size; a += step) {
      for (std::uint32_t b = a; b <= size; b += 1 + size / 40 + step) {
        for (int unbound = -1; unbound < 3; ++unbound) {
          std::uint32_t cuts[] = {0, a, b, size};
          std::vector<Bytes> fields(3);
          ImageSegment segments[3];
          for (int i = 0; i < 3; ++i) {
            fields[i].assign(cuts[i + 1] - cuts[i] + 1, kUntouched);  // one guard byte
            segments[i] = {cuts[i], cuts[i + 1] - cuts[i],
                           i == unbound ? nullptr : fields[i].data()};
          }
          ASSERT_TRUE(decodeRecord(stored.data(), stored.size(), size, segments, 3, false));
          for (int i = 0; i < 3; ++i) {
            Bytes expected(image.begin() + cuts[i], image.begin() + cuts[i + 1]);
            if (i == unbound) expected.assign(expected.size(), kUntouched);
            expected.push_back(kUntouched);
            ASSERT_EQ(fields[i], expected) << "size " << size << " cuts " << a << "," << b;
          }
        }
      }
    }
  }
}

TEST_F(RecordCodecTest, AnyChangedOrMissingByteIsRefusedBeforeStorageIsWritten) {
  for (const Bytes &image : images()) {
    if (image.size() > 300) continue;
    Bytes stored = encode(image);
    auto size = static_cast<std::uint32_t>(image.size());
    auto refused = [&](const Bytes &bytes, bool allowLegacy, const char *what, std::size_t at) {
      Bytes back(size, kUntouched);
      EXPECT_FALSE(decodeRecord(bytes.data(), bytes.size(), size, back.data(), allowLegacy))
          << what << " at " << at << " of " << bytes.size();
      EXPECT_EQ(back, Bytes(size, kUntouched)) << what << " at " << at;
    };
    // Where records without checksum are allowed, a mark changed into a
    // length byte, or a cut just before the checksum, reads as the older form
    // (and is checked as that, below).
    for (std::size_t i = 0; i < stored.size(); ++i) {
      for (unsigned char flip : {0x01, 0x80}) {
        Bytes bad = stored;
        bad[i] ^= flip;
        refused(bad, false, "flipped byte", i);
        if (i != stored.size() - 1) refused(bad, true, "flipped byte", i);
      }
    }
    for (std::size_t cut = 0; cut < stored.size(); ++cut) {
      Bytes bad(stored.begin(), stored.begin() + static_cast<std::ptrdiff_t>(cut));
      refused(bad, false, "cut", cut);
      if (cut != stored.size() - kTrailer) refused(bad, true, "cut", cut);
    }
  }
}

TEST_F(RecordCodecTest, RecordsWithoutChecksumAreReadOnlyWhereAllowedAndOnlyWhenWhole) {
  for (const Bytes &image : images()) {
    Bytes stored = encode(image);
    Bytes legacy(stored.begin(), stored.end() - static_cast<std::ptrdiff_t>(kTrailer));
    auto size = static_cast<std::uint32_t>(image.size());
    EXPECT_EQ(inspectRecord(legacy.data(), legacy.size()), StoredForm::Legacy);
    Bytes back(size, kUntouched);
    EXPECT_FALSE(decodeRecord(legacy.data(), legacy.size(), size, back.data(), false));
    EXPECT_EQ(back, Bytes(size, kUntouched));
    ASSERT_TRUE(decodeRecord(legacy.data(), legacy.size(), size, back.data(), true));
    EXPECT_EQ(back, image);

    // Without a checksum, the shape is all there is to check: a record one
    // byte short or long of the image is refused untouched.
    for (std::uint32_t other : {size - 1, size + 1}) {
      if (other == 0) continue;
      Bytes untouched(other, kUntouched);
      Bytes wrong = untouched;
      EXPECT_FALSE(decodeRecord(legacy.data(), legacy.size(), other, wrong.data(), true));
      EXPECT_EQ(wrong, untouched);
    }
  }
}

TEST_F(RecordCodecTest, ARecordOfAnotherSizeIsDamageEvenWithItsChecksum) {
  Bytes image(60, 0);
  for (std::size_t i = 0; i < 30; ++i) image[i] = static_cast<unsigned char>(i + 1);
  Bytes stored = encode(image);
  for (std::uint32_t size : {59u, 61u, 120u}) {
    Bytes back(size, kUntouched);
    EXPECT_FALSE(decodeRecord(stored.data(), stored.size(), size, back.data(), false)) << size;
    // Nor does a byte of it reach fields bound apart.
    std::uint32_t half = size / 2;
    Bytes first(half, kUntouched), second(size - half, kUntouched);
    ImageSegment segments[] = {{0, half, first.data()}, {half, size - half, second.data()}};
    EXPECT_FALSE(decodeRecord(stored.data(), stored.size(), size, segments, 2, false)) << size;
    EXPECT_EQ(first, Bytes(half, kUntouched)) << size;
    EXPECT_EQ(second, Bytes(size - half, kUntouched)) << size;
  }
  EXPECT_EQ(inspectRecord(stored.data(), 0), StoredForm::Damaged);
}

}  // namespace
