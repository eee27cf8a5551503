#pragma once

#include <unistd.h>

#include "bench/Baseline.h"
#include "bench/Harness.h"

namespace Baseline {

/// Not an entity: the record asks the reader to confirm that it has read everything before it.
inline constexpr U32 markHandle = ~U32(0);

/// Reads records into `structs` until the socket is closed, using
/// `structs.apply(word, handle, attribute, body)`, which returns false if a record is not valid;
/// answers each mark with a byte.
template <class Structs>
void readRecords(int fd, Structs& structs) {
   std::vector<U8> in(1 << 16);
   std::size_t kept = 0;
   for (;;) {
      ssize_t const got = read(fd, in.data() + kept, in.size() - kept);
      if (got <= 0) {
         return;
      }
      std::size_t const size = kept + static_cast<std::size_t>(got);
      std::size_t at = 0;
      while (size - at >= headerSize) {
         U8 const* const record = in.data() + at;
         U32 const word = get32(record);
         std::size_t const total = headerSize + (word & 0xffffff);
         if (size - at < total) {
            break;
         }
         U32 const handle = get32(record + 4);
         if (handle == markHandle) {
            U8 const mark = 1;
            Harness::writeAll(fd, &mark, 1);
         } else if (!structs.apply(word, handle, get16(record + 8), record + headerSize)) {
            std::fprintf(stderr, "the bare mirror does not understand a record\n");
            std::exit(1);
         }
         at += total;
      }
      kept = size - at;
      std::memmove(in.data(), in.data() + at, kept);
   }
}

}  // namespace Baseline
