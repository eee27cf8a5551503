#pragma once

#include <compare>
#include <optional>

#include "Kiv/Map/Hash.h"
#include "Kiv/NboAttrLog.h"
#include "Kiv/Text.h"

namespace Dorn {

/// The name of a network interface in 64 bits: the same bits for the same name in every process,
/// 0 for the empty name. The bits give the exact name back. Nothing is looked up or allocated.
///
/// It holds names of switch ports (`Ethernet3/1/2`, `PortChannel12`, `Vlan100`, `Ethernet1.100`)
/// and of Linux devices (`eth0`, `enp3s0f1np1`, `bond0.100`, `br-lan`): letters, digits and any of
/// `. _ - / :`, as long as they need no more than 64 bits. These always fit: a known word or a
/// letter, followed by nine lower-case letters or by eight letters, digits and dashes; four slot
/// levels up to 40; three, with any VLAN as subinterface. A name that does not fit throws
/// `Kiv::RangeException`; it never becomes another name.
///
///     63      55 54                                                  0
///    +----------+----------------------------------------------------+
///    |   word   | rest: one code after the other, then zeros         |
///    +----------+----------------------------------------------------+
///      Ethernet  3        /   1        /   2
///      18        001 010  01  001 000  01  001 001  000...
///
/// `word` numbers the known beginnings of names (`IntfIdWords.h`) and the gaps between them, in
/// alphabetical order, so that every name has exactly one. `rest` is what follows the known
/// beginning, in the prefix code of `IntfIdTables.h`, whose codes increase in the order of what
/// they encode. So the ids, as integers, are ordered as people sort names: `Ethernet2` before
/// `Ethernet10`, and `eth0`, `eth0.100`, `eth1`. Numbers with leading zeros come before the others.
/// Names that fit only as a word and a string of digits and letters (`veth1a2b3c4`) come last among
/// the names with that word.
///
/// Text: the bare name, or `""` for the empty one; it ends before a blank, a comma, a parenthesis,
/// a bracket or anything else that is not part of a name. In the stream: the 8 bytes.
class IntfId {
public:
   static constexpr char const* kivTypeName = "Dorn::IntfId";
   static constexpr std::size_t kivMaxEncodedSize = 8;

   /// The empty name.
   constexpr IntfId() noexcept = default;
   /// The id of a name. Blanks around it are ignored; `""` and empty text are the empty name.
   /// Throws `RangeException`, which says why, if the name does not fit.
   explicit IntfId(std::string_view name);
   /// Reads a name at the cursor. Errors as above; throws `ParseException` if there is no name.
   explicit IntfId(Kiv::CharRange& text);
   /// Bits that do not encode a name are a fault.
   IntfId(Kiv::NboAttrLog::In* in, Kiv::StreamBogon);
   /// The id with these bits, if they encode a name.
   static std::optional<IntfId> fromBits(U64 bits) noexcept;

   constexpr U64 bits() const noexcept { return bits_; }
   constexpr bool isEmpty() const noexcept { return bits_ == 0; }
   Sarn::String name() const;

   constexpr bool operator==(IntfId const&) const noexcept = default;
   constexpr std::strong_ordering operator<=>(IntfId const&) const noexcept = default;
   constexpr bool isEq(IntfId const& other) const noexcept { return *this == other; }
   U32 hash(U32 seed) const noexcept { return Kiv::hashSingleAttr(seed, bits_); }
   constexpr U64 hashWord() const noexcept { return bits_; }

   void print(Sarn::String& out) const;
   constexpr std::size_t kivEncodedSize() const noexcept { return kivMaxEncodedSize; }
   friend Kiv::NboAttrLog::Out& operator<<(Kiv::NboAttrLog::Out& out, IntfId const& v) {
      out.writeU64(v.bits_);
      return out;
   }

private:
   U64 bits_ = 0;
};

}  // namespace Dorn
