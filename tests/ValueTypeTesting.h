#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "Kiv/ValueOps.h"

/// Common code for the tests of value types: functions for text and stream, and checks of the
/// properties that every value type has.
namespace ValueTypeTesting {

using Bytes = std::vector<U8>;

/// Random numbers whose seed is reported if a test fails; PTPLIB_TEST_SEED reruns with that seed.
class SeededTest : public testing::Test {
public:
   SeededTest()
         : seed_(wantedSeed()),
           random(seed_),
           trace_(__FILE__, __LINE__, "PTPLIB_TEST_SEED=" + std::to_string(seed_)) {}

private:
   static U64 wantedSeed() {
      char const* const wanted = std::getenv("PTPLIB_TEST_SEED");
      return wanted != nullptr ? std::strtoull(wanted, nullptr, 10) : std::random_device()();
   }

   U64 seed_;

protected:
   std::mt19937_64 random;

private:
   testing::ScopedTrace trace_;
};

template <class T>
Sarn::String printed(T const& v) {
   return Kiv::strRep(v);
}

template <class T>
Bytes encoded(T const& v) {
   Bytes bytes(v.kivEncodedSize());
   Kiv::NboAttrLog::Out out(bytes.data(), bytes.size());
   out << v;
   EXPECT_EQ(out.room(), 0u) << printed(v);
   EXPECT_LE(bytes.size(), T::kivMaxEncodedSize) << printed(v);
   return bytes;
}

template <class T>
T decoded(Bytes const& bytes) {
   Kiv::NboAttrLog::In in(bytes.data(), bytes.data() + bytes.size());
   T v(&in, Kiv::StreamBogon{});
   in.expectEnd();
   return v;
}

/// The message of the exception `E` that `act` throws, or else a text that says what happened.
template <class E, class Act>
Sarn::String messageOf(Act act) {
   try {
      act();
   } catch (E const& error) {
      return error.what();
   } catch (std::exception const& error) {
      return Sarn::String("another exception: ") + error.what();
   }
   return "no exception";
}

template <class T>
Sarn::String rangeMessage(std::string_view text) {
   return messageOf<Kiv::RangeException>([&] { T v(text); });
}

template <class T>
Sarn::String parseMessage(std::string_view text) {
   return messageOf<Kiv::ParseException>([&] { T v(text); });
}

template <class T>
Sarn::String faultMessage(Bytes const& bytes) {
   return messageOf<Kiv::NboAttrLog::FaultException>([&] { decoded<T>(bytes); });
}

/// Checks that the value survives a round trip through text and stream, alone and between other
/// data, and that every shorter message is a fault. `enders`: the characters that may directly
/// follow the value's text.
template <class T>
void expectRoundTrips(T const& v, std::string_view enders = ",)] \t/") {
   static_assert(std::is_trivially_copyable_v<T>);
   Sarn::String const text = printed(v);
   ASSERT_EQ(T(std::string_view(text)), v) << text;
   ASSERT_EQ(T(std::string_view(" " + text + " ")), v) << text;
   for (char const ender : enders) {
      Sarn::String const around = "  " + text + ender + "1";
      Kiv::CharRange range(around);
      ASSERT_EQ(T(range), v) << around;
      ASSERT_EQ(range.position(), 2 + text.size()) << around;
   }
   Bytes const bytes = encoded(v);
   T const back = decoded<T>(bytes);
   ASSERT_EQ(back, v) << text;
   ASSERT_TRUE(back.isEq(v)) << text;
   ASSERT_EQ(back.hash(7), v.hash(7)) << text;
   for (std::size_t size = 0; size < bytes.size(); ++size) {
      Bytes const cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
      ASSERT_THROW(decoded<T>(cut), Kiv::NboAttrLog::FaultException) << text << " cut to " << size;
   }
}

/// Checks that the operators agree with each other for every pair, and that the order is transitive
/// for every triple.
template <class T>
void expectOrderingLaws(std::vector<T> const& values) {
   for (T const& a : values) {
      for (T const& b : values) {
         auto const order = a <=> b;
         ASSERT_EQ(a == b, order == 0) << printed(a) << " " << printed(b);
         ASSERT_EQ(a<b, b> a) << printed(a) << " " << printed(b);
         ASSERT_EQ(order<0, (b <=> a)> 0) << printed(a) << " " << printed(b);
         ASSERT_EQ(a != b, printed(a) != printed(b)) << printed(a) << " " << printed(b);
         if (a == b) {
            ASSERT_EQ(a.hash(1), b.hash(1)) << printed(a);
         }
         for (T const& c : values) {
            if (a < b && b < c) {
               ASSERT_LT(a, c) << printed(a) << " " << printed(b) << " " << printed(c);
            }
         }
      }
   }
}

/// Checks that each value is less than the next.
template <class T>
void expectAscending(std::vector<T> const& values) {
   for (std::size_t i = 0; i + 1 < values.size(); ++i) {
      EXPECT_LT(values[i], values[i + 1]) << printed(values[i]) << " " << printed(values[i + 1]);
   }
}

}  // namespace ValueTypeTesting
