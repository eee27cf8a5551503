// Reads module records by their layout alone. It does not use the types and constants of the
// framework, so that a test shows what the layout is.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "Sarn/Types.h"

namespace KivTest {

/// The value at an offset in bytes from an address.
template <class T>
T at(void const* base, std::size_t offset) {
   T v;
   std::memcpy(&v, static_cast<char const*>(base) + offset, sizeof v);
   return v;
}

/// The content of a type record of 16 bytes.
struct TypeBytes {
   U32 kind;
   std::string name;
   U32 size;
   U32 alignment;
   U16 memberCount;
   U16 firstMember;
   U32 flags;
};

/// The content of a member record of 20 bytes.
struct MemberBytes {
   U16 id;
   U16 kind;
   std::string name;
   U16 owner;
   U16 value;
   bool zeroAtTheEnd;
};

/// A module's record as read by a program without its header: bytes, offsets and counts.
class RecordWalk {
public:
   explicit RecordWalk(void const* record) : record_(record) {}

   void const* record() const { return record_; }
   U32 typeCount() const { return at<U32>(record_, 56); }
   char const* typeNames() const { return at<char const*>(record_, 24); }
   char const* memberNames() const { return at<char const*>(record_, 32); }
   TypeBytes type(U32 i) const {
      auto const* const r = at<char const*>(record_, 0) + 16 * i;
      U32 const word = at<U32>(r, 0);
      U32 const layout = at<U32>(r, 4);
      return {word & 0xfffff,  typeNames() + (word >> 20),
              layout & 0xffff, layout >> 16 & 0xff,
              at<U16>(r, 8),   at<U16>(r, 10),
              at<U32>(r, 12)};
   }
   MemberBytes member(U32 i) const {
      auto const* const r = at<char const*>(record_, 8) + 20 * i;
      U64 const packed = at<U32>(r, 4) | U64{at<U16>(r, 8)} << 32;
      static constexpr char zeros[6] = {};
      return {at<U16>(r, 0),  at<U16>(r, 2),  memberNames() + (packed >> 28 & 0xffff),
              at<U16>(r, 10), at<U16>(r, 12), std::memcmp(r + 14, zeros, 6) == 0};
   }
   U32 count(U32 type, U32 which) const {
      return at<U32>(at<void const*>(record_, 40), (type * 4 + which) * 4);
   }
   void const* functions(U32 type) const {
      return at<void const*>(at<void const*>(record_, 48), type * sizeof(void*));
   }
   /// The names in a NUL-separated table, up to the empty name that ends it.
   static std::vector<std::string> names(char const* table) {
      std::vector<std::string> all;
      for (; *table != '\0'; table += all.back().size() + 1) {
         all.emplace_back(table);
      }
      return all;
   }

private:
   void const* record_;
};

}  // namespace KivTest
