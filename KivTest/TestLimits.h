#pragma once

#include "Sarn/Types.h"

namespace KivTest {

/// Bounds that the tests' attributes keep to.
struct TestLimits {
   static constexpr U8 minDial = 10;
   static constexpr U8 maxDial = 20;
   static constexpr S16 minTick = -3;
};

}  // namespace KivTest
