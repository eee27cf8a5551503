// What a value is in the stream.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "Kiv/NboAttrLog.h"

namespace KivTest {

/// The bytes of a value, as numbers for gtest to print.
template <class T>
std::vector<int> encoded(T const& value) {
   std::vector<U8> bytes(value.kivEncodedSize());
   Kiv::NboAttrLog::Out out(bytes.data(), bytes.size());
   out << value;
   EXPECT_EQ(out.room(), 0u);
   return {bytes.begin(), bytes.end()};
}

/// The value that arrives at the other end.
template <class T>
T throughTheStream(T const& value) {
   std::vector<U8> bytes(value.kivEncodedSize());
   Kiv::NboAttrLog::Out out(bytes.data(), bytes.size());
   out << value;
   Kiv::NboAttrLog::In in(bytes.data(), bytes.data() + bytes.size());
   T const back(&in, Kiv::StreamBogon{});
   in.expectEnd();
   return back;
}

}  // namespace KivTest
