// How a state looks as a tree of paths and leaves.
#pragma once

#include <functional>
#include <optional>

#include "Kiv/Entity.h"
#include "tools/ptpgnmi/Path.h"
#include "tools/ptpgnmi/Value.h"

namespace Ptpgnmi {

/// What a client is told of a model.
struct OfferedModel {
   std::string name;
   std::string organization;
   std::string version;
};

/// One of the trees that are offered. It says what the paths of entities, their members and values
/// are; `Tree` does the rest.
///
/// Threads: used by one.
class Model {
public:
   /// Is given a leaf: its elements below the member's own, and its value; valid during the call.
   using Leaf = std::function<void(Elems const& below, Value value)>;

   virtual ~Model() = default;

   /// The origin of its paths.
   virtual std::string const& origin() const = 0;
   /// As it is offered to clients.
   virtual OfferedModel offered() const = 0;
   /// The elements of a root; none if it is not in this tree.
   virtual Elems root(Kiv::NamedEntity const& root) const = 0;
   /// The elements of a member below those of its entity, or of an element of a collection if there
   /// is a `key`; nothing if it is not in this tree.
   virtual std::optional<Elems> member(Kiv::Entity const& owner, Kiv::FieldDescriptor const& field,
                                       Kiv::ValueRef key) const = 0;
   /// Calls `leaf` for each leaf of a value, in an order that is always the same.
   virtual void leaves(Kiv::Entity const& owner, Kiv::FieldDescriptor const& field,
                       Kiv::ValueRef value, Leaf const& leaf) const = 0;
   /// Whether values of a member may differ in which leaves they have.
   virtual bool varies(Kiv::FieldDescriptor const& field) const = 0;
   /// A member of the same entity whose leaves depend on this one; null if there is none.
   virtual Kiv::FieldDescriptor const* dependent(Kiv::Entity const&,
                                                 Kiv::FieldDescriptor const&) const {
      return nullptr;
   }
   /// Why there can never be anything at a path, for a message; empty if there can. `roots`: those
   /// that there are.
   virtual std::string objection(Elems const& path,
                                 std::vector<Kiv::NamedEntity const*> const& roots) const = 0;
   /// Whether a leaf is configuration rather than state.
   virtual bool isConfig(Elems const&) const { return false; }
   /// The name of an element in JSON_IETF, with its module where the standard wants it. `top`:
   /// whether it is the first in its document.
   virtual std::string qualified(std::string const& name, bool /*top*/) const { return name; }
};

}  // namespace Ptpgnmi
