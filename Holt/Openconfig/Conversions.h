// How single values are written in the model openconfig-ptp.
#pragma once

#include <optional>
#include <span>

#include "Holt/Openconfig/Rows.h"

namespace Holt::OpenconfigRows {

/// An identity of our own module, which the model has only the base of.
struct Identity {
   std::string_view name;
   /// As in messages of IEEE 1588.
   U8 number;
};

/// clockClass, IEEE 1588-2019, 7.6.2.5.
std::span<Identity const> clockClasses() noexcept;
/// clockAccuracy, IEEE 1588-2019, 7.6.2.6.
std::span<Identity const> clockAccuracies() noexcept;

extern Conversion const uint8;
extern Conversion const uint16;
extern Conversion const uint32;
extern Conversion const int16;
extern Conversion const boolean;
/// Nanoseconds, in the model multiplied by 2^16 and a string. Saturates.
extern Conversion const timeInterval;
extern Conversion const instanceType;
extern Conversion const domainProfile;
extern Conversion const clockIdentity;
extern Conversion const clockClass;
extern Conversion const clockAccuracy;

/// A value of ours as the value of a leaf of our own module of this type.
Json ownOf(Json const& ours, std::string_view ownType);
/// The reverse. Throws `Failure`.
Json fromOwn(Json const& own, std::string_view ownType);

}  // namespace Holt::OpenconfigRows
