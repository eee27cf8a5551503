// The tree of the model openconfig-ptp, made of the table in `Rows.h`: what may be where in a
// document.
#pragma once

#include <memory>
#include <vector>

#include "Holt/Openconfig/Rows.h"
#include "Sarn/String.h"

namespace Holt::OpenconfigRows {

/// A node below `/openconfig-ptp:ptp`: a leaf, a container or a list. Never changes; any thread may
/// read it.
struct Node {
   std::string_view name;
   /// Of a leaf, and of a leaf of our own module, which has `isOwn`; else null.
   Leaf const* leaf = nullptr;
   bool isOwn = false;
   /// Of a container that is an entity or a value of ours; else null.
   Container const* container = nullptr;
   /// Of a list: the leaf that is its key; else empty.
   std::string_view key;
   /// In the order of the model. A leaf of our own module follows the one that it adds to.
   std::vector<std::unique_ptr<Node>> children;

   bool isList() const noexcept { return !key.empty(); }
   /// The module that defines it.
   std::string_view module() const noexcept { return isOwn ? ownModule : modelModule; }
   /// Null if there is no such child. Our own leaves are a separate set of names.
   Node const* child(std::string_view childName, bool own) const noexcept;
   /// "; did you mean 'flag'?", or empty if no child has a similar name.
   Sarn::String nearest(std::string_view childName, bool own) const;
};

/// The node `ptp`.
Node const& schema();

/// A name in a document or in a path, "clock-class" or "openconfig-ptp:clock-class".
struct QualifiedName {
   /// Empty if it is not given: that of the parent.
   std::string_view module;
   std::string_view name;
};

QualifiedName qualifiedName(std::string_view text) noexcept;

}  // namespace Holt::OpenconfigRows
