#include "Kiv/Hash128.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kiv/Digest.h"

namespace {

using Kiv::Hash128;

std::string hashOf(std::string const& bytes, std::size_t piece) {
   Hash128 hash;
   for (std::size_t at = 0; at < bytes.size(); at += piece) {
      hash.add(bytes.data() + at, std::min(piece, bytes.size() - at));
   }
   auto const [first, second] = hash.finish();
   return Kiv::Digest{first, second}.text();
}

TEST(Hash128, HasTheValuesThatArePublishedForIt) {
   EXPECT_EQ(hashOf("", 1), "00000000000000000000000000000000");
   EXPECT_EQ(hashOf("hello", 5), "cbd8a7b341bd9b025b1e906a48ae1d19");
   EXPECT_EQ(hashOf("The quick brown fox jumps over the lazy dog", 43),
             "e34bbc7bbc071b6c7a433ca9c49a9347");
}

TEST(Hash128, DoesNotDependOnThePiecesInWhichBytesCome) {
   std::string bytes;
   for (int i = 0; i != 5000; ++i) {
      bytes += static_cast<char>(i * 31 ^ i >> 5);
   }
   for (std::size_t const size : {15, 16, 17, 1023, 1024, 1025, 1039, 1040, 1041, 5000}) {
      std::string const some = bytes.substr(0, size);
      std::string const whole = hashOf(some, size);
      for (std::size_t const piece : {1, 7, 16, 33, 1000, 1024, 1025, 3001}) {
         EXPECT_EQ(hashOf(some, piece), whole) << size << " bytes, " << piece << " at a time";
      }
   }
}

TEST(Hash128, TakesBytesThatAreWrittenInPlace) {
   Hash128 hash;
   std::string bytes;
   for (std::size_t const size : {15, 1024, 1024, 1, 1024, 16}) {
      std::string const some(size, static_cast<char>('a' + size % 26));
      std::memcpy(hash.room(size), some.data(), size);
      bytes += some;
   }
   auto const [first, second] = hash.finish();
   EXPECT_EQ((Kiv::Digest{first, second}.text()), hashOf(bytes, bytes.size()));
}

}  // namespace
