// Numbers and texts as IEEE 1588 writes them: big-endian, one after the other.
#pragma once

#include <algorithm>
#include <array>
#include <span>
#include <string_view>
#include <vector>

#include "PtpPlatform/PtpDataSetTypes/ClockQuality.h"
#include "PtpPlatform/PtpDataSetTypes/PortIdentity.h"

namespace Ptp4lAgent {

using Octets = std::span<U8 const>;

/// Reads octets from the front. Reading beyond the end yields zeros and is remembered: check `ok()`
/// once, at the end.
class OctetReader {
public:
   explicit OctetReader(Octets octets) : left_(octets) {}

   /// Whether everything read so far was there.
   bool ok() const noexcept { return ok_; }
   std::size_t left() const noexcept { return left_.size(); }

   /// The next `size` octets, in place; empty if there are fewer.
   Octets take(std::size_t size) noexcept {
      if (size > left_.size()) {
         ok_ = false;
         left_ = {};
         return {};
      }
      Octets const taken = left_.first(size);
      left_ = left_.subspan(size);
      return taken;
   }
   /// A number of `sizeof(T)` octets, the most significant first.
   template <class T>
   T number() noexcept {
      U64 v = 0;
      for (U8 const octet : take(sizeof(T))) {
         v = v << 8 | octet;
      }
      return static_cast<T>(v);
   }
   /// The same, the least significant first.
   U64 littleEndian() noexcept {
      U64 v = 0;
      int shift = 0;
      for (U8 const octet : take(sizeof v)) {
         v |= U64{octet} << shift;
         shift += 8;
      }
      return v;
   }

private:
   Octets left_;
   bool ok_ = true;
};

/// Appends octets to a vector.
class OctetWriter {
public:
   explicit OctetWriter(std::vector<U8>& out) : out_(out) {}

   void put(Octets octets) { out_.insert(out_.end(), octets.begin(), octets.end()); }
   template <class T>
   void number(T v) {
      for (int shift = 8 * (int{sizeof(T)} - 1); shift >= 0; shift -= 8) {
         out_.push_back(static_cast<U8>(static_cast<U64>(v) >> shift));
      }
   }
   void littleEndian(U64 v) {
      for (int shift = 0; shift != 64; shift += 8) {
         out_.push_back(static_cast<U8>(v >> shift));
      }
   }

private:
   std::vector<U8>& out_;
};

/// A PTPText: a length octet, then the text. Refers to the octets it was read from.
struct Text {
   std::string_view text;
};

/// An address: a length of two octets, then the address. Refers to the octets it was read from.
struct Address {
   Octets octets;
};

/// Counters of 64 bits in the byte order of the host, which is little-endian wherever this runs.
template <std::size_t count>
struct HostCounters {
   std::array<U64, count> values{};
};

// What each type looks like in a message.

template <class T>
requires std::is_integral_v<T>
void read(OctetReader& in, T& v) {
   v = in.number<T>();
}
template <class T>
requires std::is_integral_v<T>
void write(OctetWriter& out, T v) {
   out.number(v);
}

template <std::size_t size>
void read(OctetReader& in, std::array<U8, size>& v) {
   Octets const octets = in.take(size);
   std::copy(octets.begin(), octets.end(), v.begin());
}
template <std::size_t size>
void write(OctetWriter& out, std::array<U8, size> const& v) {
   out.put(v);
}

template <std::size_t count>
void read(OctetReader& in, HostCounters<count>& v) {
   for (U64& counter : v.values) {
      counter = in.littleEndian();
   }
}
template <std::size_t count>
void write(OctetWriter& out, HostCounters<count> const& v) {
   for (U64 const counter : v.values) {
      out.littleEndian(counter);
   }
}

inline void read(OctetReader& in, Ptp::ClockIdentity& v) {
   v = Ptp::ClockIdentity(in.number<U64>());
}
inline void write(OctetWriter& out, Ptp::ClockIdentity const& v) {
   out.number(v.value());
}

inline void read(OctetReader& in, Ptp::PortIdentity& v) {
   Ptp::ClockIdentity const clock(in.number<U64>());
   v = Ptp::PortIdentity(clock, in.number<U16>());
}
inline void write(OctetWriter& out, Ptp::PortIdentity const& v) {
   write(out, v.clockIdentity());
   out.number(v.portNumber());
}

inline void read(OctetReader& in, Ptp::ClockQuality& v) {
   U8 const clockClass = in.number<U8>();
   U8 const accuracy = in.number<U8>();
   v = Ptp::ClockQuality(clockClass, accuracy, Dorn::NetU16(in.number<U16>()));
}
inline void write(OctetWriter& out, Ptp::ClockQuality const& v) {
   out.number(v.clockClass());
   out.number(v.clockAccuracy());
   out.number(v.offsetScaledLogVariance().value());
}

inline void read(OctetReader& in, Text& v) {
   Octets const octets = in.take(in.number<U8>());
   v.text = {reinterpret_cast<char const*>(octets.data()), octets.size()};
}
inline void write(OctetWriter& out, Text const& v) {
   out.number(static_cast<U8>(v.text.size()));
   out.put({reinterpret_cast<U8 const*>(v.text.data()), v.text.size()});
}

inline void read(OctetReader& in, Address& v) {
   v.octets = in.take(in.number<U16>());
}
inline void write(OctetWriter& out, Address const& v) {
   out.number(static_cast<U16>(v.octets.size()));
   out.put(v.octets);
}

}  // namespace Ptp4lAgent
