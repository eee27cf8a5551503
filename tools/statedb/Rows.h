// The rows in which a state is kept, and changes of them.
#pragma once

#include <string>
#include <vector>

#include "Sarn/Types.h"

namespace Statedb {

/// An entity below a root. The root itself has no row here.
struct EntityRow {
   /// From the root: "intfConfig[Ethernet1]".
   std::string path;
   /// Path of the entity that has it; empty for the root.
   std::string parent;
   /// The attribute of `parent` that holds it.
   std::string attribute;
   /// Its key in a collection, as in a path; else empty.
   std::string key;
   /// Of a child that is constructed with a name.
   std::string name;
   /// What it was created with besides key and name: a JSON object.
   std::string arguments;

   bool operator==(EntityRow const&) const = default;
};

/// A value: an attribute, an element of a map, a whole queue; or `null` for a singleton child that
/// is not there.
struct ValueRow {
   /// Path of the entity that has it; empty for the root.
   std::string entity;
   std::string attribute;
   /// Of an element, as in a path, where no key is empty. Empty for anything else.
   std::string key;
   /// JSON.
   std::string value;

   bool operator==(ValueRow const&) const = default;
};

/// One step of a transaction. Each leaves the rows as the state is at its end, whatever the order.
struct RowChange {
   enum class Kind : U8 {
      putEntity,
      putValue,
      /// The value of `value.entity`, `attribute` and `key`.
      delValue,
      /// All elements of a map, whatever their keys.
      delElements,
      /// An entity, whose path is `entity.path`, and everything below it.
      delEntity,
      /// All children of a collection, and what is below them: those whose path begins with
      /// `entity.path` and a bracket.
      delChildren,
   };
   Kind kind;
   S64 root;
   EntityRow entity = {};
   ValueRow value = {};
};

/// What is written in one transaction: all or nothing of it is ever read again.
struct Batch {
   std::vector<RowChange> changes;
   /// The time of the transaction: "2026-11-21T13:03:59.120Z".
   std::string at;
};

/// A row that could not be used, and why.
struct RejectedRow {
   /// "Ptp::Config=ptp/config"
   std::string root;
   /// Of the value or entity, as in a path.
   std::string path;
   /// JSON: the value, or the arguments of the entity.
   std::string value;
   std::string reason;
};

/// All rows of a root.
struct RootRows {
   /// In the order of their paths, so that each comes after its parent.
   std::vector<EntityRow> entities;
   std::vector<ValueRow> values;
};

}  // namespace Statedb
