// Which attributes of a status become metrics, and under which names.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Sarn/Types.h"

namespace Ptpexport {

/// What a family of metrics is, and which samples an entity gives it.
enum class MetricKind : U8 {
   /// A number that goes up and down; a boolean is 0 or 1.
   gauge,
   /// A number that only grows; see `Counters`.
   counter,
   /// Text as labels of a sample whose value is 1. A label without text is left out, and a sample
   /// without any labels of its own, too.
   info,
   /// An enumeration: a sample for each of its names, 1 for the present one and 0 for all others.
   states,
   /// A map from an enumeration to booleans: a sample for each element.
   flags,
   /// How many elements a collection has.
   size,
};

/// How an attribute's number becomes one in the unit of its family.
enum class Scale : U8 {
   /// As it is.
   one,
   /// Nanoseconds to seconds, by shifting the decimal point: exact.
   nanoseconds,
   /// A base-2 logarithm of seconds to seconds.
   logSeconds,
   /// Divides by 2 to the power of 41 (IEEE 802.1AS, 11.4.4.3.6).
   scaledRate,
};

/// A label and the member that gives its text.
struct MetricLabel {
   char const* name;
   /// As in `MetricFamily`; empty where the kind gives the text.
   char const* member = "";
};

/// One family: a row of the table. All its samples come from entities of one type.
struct MetricFamily {
   /// Without the suffixes `_total` and `_info`.
   char const* name;
   MetricKind kind;
   /// The entity type, such as "Ptp::PortDS".
   char const* type;
   /// The attribute, or a field within its value: "clockQuality.clockClass". Empty for an info,
   /// whose labels name members.
   char const* member;
   char const* help;
   Scale scale = Scale::one;
   /// Of an info: one for each member. Of states and flags: the one that has the name.
   std::vector<MetricLabel> labels = {};
   /// Of a counter that the source can set back to zero: the attribute that says when it did so
   /// last.
   char const* clearedAt = "";
};

/// An attribute that is not exported, or a field within it.
struct LeftOut {
   char const* type;
   char const* member;
   char const* reason;
};

/// All families of a status, those of the same type next to each other.
std::span<MetricFamily const> metricFamilies();

/// Everything else that a status streams.
std::span<LeftOut const> leftOutOfMetrics();

/// The unit that ends the name, as OpenMetrics declares it: "seconds", "ratio"; empty if none.
std::string_view unitOf(MetricFamily const& family) noexcept;

/// The name of the samples: with `_total` or `_info`.
std::string sampleName(MetricFamily const& family);

namespace Impl {
// Parts of the table.
std::vector<MetricFamily> clockFamilies();
std::vector<MetricFamily> portFamilies();
}  // namespace Impl

}  // namespace Ptpexport
