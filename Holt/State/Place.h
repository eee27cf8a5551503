// Reads and changes what a path leads to in a live state, through the generic interface.
#pragma once

#include <memory>
#include <span>

#include "Holt/State/Path.h"
#include "Holt/State/Values.h"
#include "Kiv/Entity.h"
#include "Kiv/Visit.h"

namespace Holt {

/// A place in a state: a root, an attribute, an element of a collection, or a field within a value.
/// Nothing need exist there: a child that is yet to be created has a place, too.
class Place {
public:
   /// Follows `steps` from `root`. Throws `Failure` if an attribute is unknown, or if an entity on
   /// the way does not exist.
   Place(Sarn::Ptr<Kiv::Entity> const& root, Sarn::String const& rootName,
         std::vector<PathStep> const& steps);

   /// The path with its keys as `keyText` writes them.
   Sarn::String const& path() const noexcept { return path_; }
   /// The entity that has the attribute; for a root, the root.
   Kiv::Entity& owner() const noexcept { return *owner_; }
   /// Null for the root itself.
   Kiv::FieldDescriptor const* field() const noexcept { return field_; }
   /// The path of `owner()`.
   Sarn::String const& ownerPath() const noexcept { return ownerPath_; }
   /// The key of an element; no value for other places.
   Kiv::ValueRef key() const noexcept { return key_ != nullptr ? key_->ref() : Kiv::ValueRef(); }

   /// The root or child at this place; null if there is none, or if this is no place for an entity.
   Kiv::Entity* entity() const;
   /// Whether there is an entity, a collection or a value.
   bool exists() const;
   /// Whether this is a place for an entity: a root, a singleton child, or a child with its key.
   bool leadsToEntity() const noexcept;
   /// Whether this is a whole collection or queue.
   bool isCollection() const noexcept;
   /// The value at this place as text. Throws `Failure` if there is none.
   Sarn::String text() const;
   /// A copy of the value at this place. Throws `Failure` if there is none.
   std::unique_ptr<Kiv::AnyValue> value() const;

   // Changes. All go through the setters; if a setter refuses, its message is in the `Failure`.

   /// Sets an attribute, an element, or a field within the value of either.
   void set(std::string_view text);
   /// The same with a value of the right type. An equal value is not published.
   void set(Kiv::AnyValue const& value);
   /// Creates a child from its constructor arguments, inserts an element, appends to a queue.
   void add(std::span<Sarn::String const> args);
   /// Removes a child, an element, the front of a queue, or all elements of a collection.
   void del();

private:
   struct Placed;

   void step(PathStep const& step, bool last);
   void descend();
   void keyIs(PathStep const& step);
   Kiv::Present present() const;
   void read(Kiv::AnyValue& value) const;
   void write(Kiv::AnyValue const& value);
   void checkStreamed() const;
   void checkSettable() const;
   void addChild(std::span<Sarn::String const> args);
   void addToCollection(std::span<Sarn::String const> args);
   [[noreturn]] void fail(std::string_view what) const;
   template <class Do>
   void refusing(Do&& doIt) const;

   Sarn::Ptr<Kiv::Entity> owner_;
   Kiv::FieldDescriptor const* field_ = nullptr;
   std::unique_ptr<Kiv::AnyValue> key_;
   std::vector<Kiv::FieldDescriptor const*> inside_;
   Sarn::String path_;
   Sarn::String ownerPath_;
};

/// Whether a value contains this key, if its type contains the key of its map.
bool hasOwnKey(Kiv::FieldDescriptor const& field, Kiv::ValueRef key, Kiv::ValueRef value);

/// Where a path leads according to the types, whether or not anything exists there.
struct Destination {
   /// The path with its keys as `keyText` writes them; those with a "*" as they are.
   Sarn::String path;
   /// The type of the entity or value; for a whole collection, that of its elements.
   Kiv::TypeImpl const* type;
   /// The last attribute of an entity on the way; null for the root itself.
   Kiv::FieldDescriptor const* field = nullptr;
   /// Whether a key follows that attribute.
   bool keyed = false;
   /// Whether the path continues into a value.
   bool inside = false;
};

/// Throws `Failure` if an attribute is unknown, or if a key cannot be read.
Destination destinationOf(Kiv::TypeImpl const& rootType, Path const& path);

/// A message that there is no such member, with the name that may have been meant.
Sarn::String unknownMember(Kiv::TypeImpl const& type, Sarn::String const& name);

/// The constructor arguments of a child, without its key, for a message: "enabled (bool),
/// mpassEnabled (bool)".
Sarn::String childArgsText(Kiv::FieldDescriptor const& field);

}  // namespace Holt
