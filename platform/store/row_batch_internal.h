// Rows fetched in one short read and served from memory afterwards. A batch
// is kept and reused by its cursor, so that a steady enumeration allocates
// nothing once the batch has grown to its working size.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace platform::store {

class RowBatch {
 public:
  void reserveRows(std::size_t rows) { rows_.reserve(rows); }
  void clear() {
    used_ = 0;
    rows_.clear();
  }
  void add(std::int64_t seq, const void *stored, std::size_t size) {
    if (used_ + size > capacity_) grow(used_ + size);
    if (size > 0) std::memcpy(bytes_.get() + used_, stored, size);
    rows_.push_back({seq, used_, size});
    used_ += size;
  }
  std::size_t size() const { return rows_.size(); }
  bool empty() const { return rows_.empty(); }
  std::int64_t seq(std::size_t row) const { return rows_[row].seq; }
  const unsigned char *stored(std::size_t row) const { return bytes_.get() + rows_[row].offset; }
  std::size_t storedSize(std::size_t row) const { return rows_[row].size; }
  void swap(RowBatch &other) {
    bytes_.swap(other.bytes_);
    std::swap(used_, other.used_);
    std::swap(capacity_, other.capacity_);
    rows_.swap(other.rows_);
  }

 private:
  // Grows without filling: every byte is written before it is read.
  void grow(std::size_t needed) {
    std::size_t capacity = capacity_ ? capacity_ : 1024;
    while (capacity < needed) capacity *= 2;
    std::unique_ptr<unsigned char[]> bytes(new unsigned char[capacity]);
    if (used_ > 0) std::memcpy(bytes.get(), bytes_.get(), used_);
    bytes_ = std::move(bytes);
    capacity_ = capacity;
  }

  struct Row {
    std::int64_t seq;
    std::size_t offset;
    std::size_t size;
  };
  std::unique_ptr<unsigned char[]> bytes_;
  std::size_t used_ = 0;
  std::size_t capacity_ = 0;
  std::vector<Row> rows_;
};

}  // namespace platform::store
