// For tests of enumerations.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "Kiv/NboAttrLog.h"
#include "Kiv/Text.h"
#include "Kiv/ValueOps.h"

namespace Ptp {

using EnumNames = std::vector<std::pair<int, char const*>>;

/// Checks the names, numbers and default of an enumeration, and that every byte survives a round
/// trip through text and stream. `count` is what its instance reports.
template <typename E>
void checkEnum(EnumNames const& names, E defaultValue, U32 count) {
   EXPECT_EQ(sizeof(E), 1u);
   EXPECT_EQ(Kiv::defaultValue<E>(), defaultValue);
   EXPECT_EQ(count, names.size());
   for (auto const& [number, name] : names) {
      EXPECT_EQ(std::string(stringValue(static_cast<E>(number))), name);
      EXPECT_EQ(Kiv::strRep(static_cast<E>(number)), name);
      EXPECT_EQ(Kiv::fromText<E>(name), static_cast<E>(number));
   }
   for (int number = 0; number <= 255; ++number) {
      auto const value = static_cast<E>(number);
      EXPECT_EQ(Kiv::fromText<E>(Kiv::strRep(value)), value) << number;
      EXPECT_EQ(Kiv::fromText<E>(std::to_string(number)), value) << number;
      U8 bytes[4];
      Kiv::NboAttrLog::Out out(bytes, sizeof(bytes));
      Kiv::ValueOps<E>::encode(out, value);
      EXPECT_EQ(bytes[0] | bytes[1] | bytes[2], 0);
      EXPECT_EQ(bytes[3], number);
      Kiv::NboAttrLog::In in(bytes, bytes + sizeof(bytes));
      EXPECT_EQ(Kiv::ValueOps<E>::decode(in), value) << number;
   }
   EXPECT_THROW(Kiv::fromText<E>("256"), Kiv::RangeException);
   EXPECT_THROW(Kiv::fromText<E>("noSuchName"), Kiv::Exception);
}

}  // namespace Ptp
