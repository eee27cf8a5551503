#pragma once

#include <algorithm>
#include <vector>

#include "Kiv/Record/Recording.h"

namespace KivTest {

/// A recording in memory. REQUIRES: the bytes outlive it.
class BytesSource final : public Kiv::NboAttrLog::RecordingSource {
public:
   explicit BytesSource(std::vector<U8> const& bytes) : bytes_(bytes) {}
   U64 size() override { return bytes_.size(); }
   std::size_t readAt(U64 offset, U8* to, std::size_t size) override {
      std::size_t const at = static_cast<std::size_t>(std::min<U64>(offset, bytes_.size()));
      size = std::min(size, bytes_.size() - at);
      std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(at), size, to);
      return size;
   }

private:
   std::vector<U8> const& bytes_;
};

}  // namespace KivTest
