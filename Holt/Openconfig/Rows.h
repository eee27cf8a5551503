// What each leaf of the model openconfig-ptp (revision 2024-09-17) is filled from: one table, used
// in both directions. The entities are those of the module `PtpOpenConfig`. Values that the model
// cannot express go to leaves of a module of our own, ptplib-openconfig-ptp, beside it, so that
// nothing is lost on the way. `docs/openconfig.md` shows the table to users.
#pragma once

#include <span>
#include <string_view>

#include "Holt/State/Json.h"

namespace Holt::OpenconfigRows {

/// The module of the model, and ours, as prefixes of names.
inline constexpr std::string_view modelModule = "openconfig-ptp";
inline constexpr std::string_view ownModule = "ptplib-openconfig-ptp";

/// How a value is written in the model. "Ours" is a value as `Holt::jsonOf` writes it.
struct Conversion {
   /// Null if the model has no value for it.
   Json (*toModel)(Json const& ours);
   /// Throws a `Failure` that says what is wrong, and which bound or names there are.
   Json (*toOurs)(Json const& model);
   /// The type of a leaf of our own module that takes what the model cannot express; else empty.
   std::string_view ownType = {};
};

/// A leaf of the model.
struct Leaf {
   /// Its path from `/openconfig-ptp:ptp` on.
   std::string_view path;
   /// Its type, as `yanglint -f tree` prints it.
   std::string_view type;
   /// Null if it is not filled.
   Conversion const* conversion;
   /// The path of the attribute from its root on or, of a leaf that is not filled, the reason.
   std::string_view attribute;
   /// The leaf of our own module, beside this one, for values that the model cannot express; it is
   /// written only for these, and counts if both are there. Empty if there is none.
   std::string_view own = {};
   /// The leaf beside this one that must be true for this one to exist; empty for none.
   std::string_view onlyIf = {};
};

/// A container of the model that is an entity, or a value of an entity, of ours.
struct Container {
   std::string_view path;
   std::string_view attribute;
   /// A value is read whole: no leaf of it may be missing.
   bool isValue = false;
};

/// A list of the model.
struct List {
   std::string_view path;
   std::string_view key;
};

/// All leaves, in the order of the model. Those below the first of `lists` belong to an
/// `Openconfig::Ptp::Instance`, those below `clockPath` to the `TransparentClockDefaultDS`.
std::span<Leaf const> leaves() noexcept;
std::span<Container const> containers() noexcept;
std::span<List const> lists() noexcept;

inline constexpr std::string_view instancePath = "instances/instance";
inline constexpr std::string_view clockPath = "transparent-clock-default-ds";

}  // namespace Holt::OpenconfigRows
