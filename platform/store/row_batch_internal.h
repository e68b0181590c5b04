// Rows fetched in one short read and served from memory afterwards. A batch
// is kept and reused by its cursor, so that a steady enumeration allocates
// nothing once the batch has grown to its working size.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace platform::store {

class RowBatch {
 public:
  void clear() {
    bytes_.clear();
    rows_.clear();
  }
  void add(std::int64_t seq, const void *stored, std::size_t size) {
    std::size_t at = bytes_.size();
    bytes_.resize(at + size);
    if (size > 0) std::memcpy(bytes_.data() + at, stored, size);
    rows_.push_back({seq, at, size});
  }
  std::size_t size() const { return rows_.size(); }
  bool empty() const { return rows_.empty(); }
  std::int64_t seq(std::size_t row) const { return rows_[row].seq; }
  const unsigned char *stored(std::size_t row) const { return bytes_.data() + rows_[row].offset; }
  std::size_t storedSize(std::size_t row) const { return rows_[row].size; }
  void swap(RowBatch &other) {
    bytes_.swap(other.bytes_);
    rows_.swap(other.rows_);
  }

 private:
  struct Row {
    std::int64_t seq;
    std::size_t offset;
    std::size_t size;
  };
  std::vector<unsigned char> bytes_;
  std::vector<Row> rows_;
};

}  // namespace platform::store
