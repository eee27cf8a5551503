#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "Bridging/VlanIdOrNone.h"
#include "Brim/Generation.h"
#include "Dorn/EthAddr.h"
#include "Dorn/IntfId.h"
#include "Dorn/IpGenAddrWithMask.h"
#include "Dorn/NetU16.h"
#include "Dorn/NetU64.h"
#include "Kiv/ValueOps.h"
#include "PtpPlatform/ClockIdentity.h"
#include "PtpPlatform/PtpDataSetTypes/ClockQuality.h"
#include "PtpPlatform/PtpDataSetTypes/PortDSKey.h"
#include "PtpPlatform/PtpDataSetTypes/PortIdentity.h"
#include "PtpPlatform/PtpDataSetTypes/PortState.h"

// Arbitrary bytes as text are either refused with one of the two exceptions, or give a value whose
// text and stream forms in turn give an equal value. The first byte chooses the type, and whether
// the rest is read as text or as an encoded value.

namespace {

using Kiv::ValueOps;

void require(bool holds, char const* what, std::string_view type, std::string_view text) {
   if (!holds) {
      std::fprintf(stderr, "%.*s: %s: \"%.*s\"\n", static_cast<int>(type.size()), type.data(), what,
                   static_cast<int>(text.size()), text.data());
      std::abort();
   }
}

/// NaNs are considered equal here, since their text is.
template <class T>
bool alike(T const& a, T const& b) {
   if constexpr (std::is_floating_point_v<T>) {
      return a == b || (std::isnan(a) && std::isnan(b));
   } else {
      return a == b;
   }
}

template <class T>
Sarn::String encoded(T const& v) {
   Sarn::String bytes(ValueOps<T>::size(v), '\0');
   Kiv::NboAttrLog::Out out(reinterpret_cast<U8*>(bytes.data()), bytes.size());
   ValueOps<T>::encode(out, v);
   require(out.room() == 0, "encodes to another size", "", Kiv::strRep(v));
   return bytes;
}

template <class T>
T decoded(std::string_view bytes) {
   auto const* const begin = reinterpret_cast<U8 const*>(bytes.data());
   Kiv::NboAttrLog::In in(begin, begin + bytes.size());
   T v = ValueOps<T>::decode(in);
   in.expectEnd();
   return v;
}

/// Checks that an accepted value survives a round trip through both forms.
template <class T>
void requireRoundTrips(T const& v, std::string_view type) {
   Sarn::String const text = Kiv::strRep(v);
   T const again = Kiv::fromText<T>(text);
   require(alike(again, v), "text gives another value", type, text);
   require(Kiv::strRep(again) == text, "text is not stable", type, text);
   Sarn::String const inside = text + ", x";
   Kiv::CharRange range(inside);
   require(alike(ValueOps<T>::parse(range), v), "text before a comma gives another value", type,
           text);
   require(range.position() == text.size(), "the cursor is not at the end of the value", type,
           text);
   require(alike(decoded<T>(encoded(v)), v), "the stream gives another value", type, text);
}

template <class T>
void runText(std::string_view text, std::string_view type) {
   Kiv::CharRange range(text);
   try {
      T const v = ValueOps<T>::parse(range);
      require(range.position() <= text.size(), "the cursor is past the end", type, text);
      requireRoundTrips(v, type);
   } catch (Kiv::ParseException const& error) {
      require(error.position() <= text.size(), "the position is past the end", type, text);
   } catch (Kiv::RangeException const&) {
   }
   if constexpr (std::is_constructible_v<T, std::string_view> && !std::is_same_v<T, Sarn::String>) {
      try {
         requireRoundTrips(T(text), type);
      } catch (Kiv::ParseException const&) {
      } catch (Kiv::RangeException const&) {
      }
   }
}

template <class T>
void runStream(std::string_view bytes, std::string_view type) {
   try {
      T const v = decoded<T>(bytes);
      require(encoded(v) == bytes, "encodes to other bytes", type, Kiv::strRep(v));
      requireRoundTrips(v, type);
   } catch (Kiv::NboAttrLog::FaultException const& error) {
      require(error.offset() <= bytes.size(), "the offset is past the end", type, "");
   }
}

struct Target {
   char const* type;
   void (*text)(std::string_view, std::string_view);
   void (*stream)(std::string_view, std::string_view);
};

template <class T>
constexpr Target target(char const* type) {
   return {type, runText<T>, runStream<T>};
}

// The seeds' first bytes depend on this order, so add new ones at the end.
constexpr Target targets[] = {
      target<bool>("bool"),
      target<U8>("U8"),
      target<S8>("S8"),
      target<U16>("U16"),
      target<S16>("S16"),
      target<U32>("U32"),
      target<S32>("S32"),
      target<U64>("U64"),
      target<S64>("S64"),
      target<float>("float"),
      target<double>("double"),
      target<Sarn::String>("String"),
      target<std::optional<S8>>("optional S8"),
      target<std::optional<Dorn::EthAddr>>("optional EthAddr"),
      target<Dorn::EthAddr>("EthAddr"),
      target<Dorn::IpAddr>("IpAddr"),
      target<Dorn::Ip6Addr>("Ip6Addr"),
      target<Dorn::IpGenAddr>("IpGenAddr"),
      target<Dorn::IpGenAddrWithMask>("IpGenAddrWithMask"),
      target<Dorn::NetU16>("NetU16"),
      target<Dorn::NetU64>("NetU64"),
      target<Bridging::VlanIdOrNone>("VlanIdOrNone"),
      target<Brim::Generation>("Generation"),
      target<Ptp::ClockIdentity>("ClockIdentity"),
      target<Dorn::IntfId>("IntfId"),
      target<Ptp::PortDSKey>("PortDSKey"),
      target<Ptp::PortIdentity>("PortIdentity"),
      target<Ptp::ClockQuality>("ClockQuality"),
      target<Ptp::PortState>("PortState"),
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(U8 const* data, std::size_t size) {
   if (size == 0) {
      return 0;
   }
   Target const& chosen = targets[(data[0] & 0x7f) % std::size(targets)];
   std::string_view const rest(reinterpret_cast<char const*>(data) + 1, size - 1);
   ((data[0] & 0x80) == 0 ? chosen.text : chosen.stream)(rest, chosen.type);
   return 0;
}
