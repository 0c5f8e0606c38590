#pragma once

#include <cstddef>
#include <limits>

namespace wayloom::storage {

// What of the rows that are due goes into one document; the rest waits for the next. So an upload takes the same memory
// after a year offline as after a minute.
class UploadLimits {
 public:
  static UploadLimits ofOneDocument() { return UploadLimits(1000, 1U << 20U); }
  static UploadLimits ofOneRecord() { return UploadLimits(1, 1U << 20U); }
  static UploadLimits none() {
    return UploadLimits(std::numeric_limits<std::size_t>::max(), std::numeric_limits<std::size_t>::max());
  }

  // Whether another record may be added. The last one may take more bytes than are left.
  bool hasRoom() const { return records_ > 0 && bytes_ > 0; }
  void take(std::size_t bytes) {
    --records_;
    bytes_ -= bytes < bytes_ ? bytes : bytes_;
  }

 private:
  UploadLimits(std::size_t records, std::size_t bytes) : records_(records), bytes_(bytes) {}

  std::size_t records_;
  std::size_t bytes_;
};

}  // namespace wayloom::storage
