// What a path leads to in a live state, and what can be done with it through the generic interface.
#pragma once

#include <memory>
#include <span>

#include "Holt/State/Path.h"
#include "Holt/State/Values.h"
#include "Kiv/Entity.h"
#include "Kiv/Visit.h"

namespace Holt {

/// A place in a state: an entity's attribute, or an element of it, or a field within its value. It
/// need not exist: a child that is to be created has a place, too.
class Place {
public:
   /// Follows `steps` from `root`. Throws `Failure` if a step names no attribute, or an entity on
   /// the way is missing.
   Place(Sarn::Ptr<Kiv::Entity> const& root, Sarn::String const& rootName,
         std::vector<PathStep> const& steps);

   /// The path with its keys as the types print them.
   Sarn::String const& path() const noexcept { return path_; }
   /// The root, or the entity that has the attribute.
   Kiv::Entity& owner() const noexcept { return *owner_; }
   /// Null for the root itself.
   Kiv::FieldDescriptor const* field() const noexcept { return field_; }
   /// The path of `owner()`.
   Sarn::String const& ownerPath() const noexcept { return ownerPath_; }
   /// No value unless the path names an element.
   Kiv::ValueRef key() const noexcept { return key_ != nullptr ? key_->ref() : Kiv::ValueRef(); }

   /// The entity that stands here: the root, a child. Null for all else, and for none.
   Kiv::Entity* entity() const;
   /// Whether an entity stands here, or may: the root, a singleton child, a child under a key.
   bool leadsToEntity() const noexcept;
   /// Whether this is a collection or queue as a whole.
   bool isCollection() const noexcept;
   /// The value that stands here, as text. Throws `Failure` if there is none.
   Sarn::String text() const;
   /// A copy of the value that stands here. Throws `Failure` if there is none.
   std::unique_ptr<Kiv::AnyValue> value() const;

   // What a writer does. All go through the setters; what these refuse is a `Failure` in their
   // words.

   /// Sets an attribute, an element, or a field within the value of either.
   void set(std::string_view text);
   /// The same with a value of the type that stands here; nothing is published if it is that.
   void set(Kiv::AnyValue const& value);
   /// Creates a child from its constructor arguments, inserts an element, appends to a queue.
   void add(std::span<Sarn::String const> args);
   /// Removes a child, an element, a queue's front; or all elements.
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

/// Whether a value that contains its map's key, if it does, has this one.
bool hasOwnKey(Kiv::FieldDescriptor const& field, Kiv::ValueRef key, Kiv::ValueRef value);

/// Where a path leads by the types alone, whether or not there is anything now.
struct Destination {
   /// The path with its keys as the types print them.
   Sarn::String path;
   /// Of the entity or value there; of a collection as a whole, that of its elements.
   Kiv::TypeImpl const* type;
   /// The last attribute of an entity on the way; null for the root itself.
   Kiv::FieldDescriptor const* field = nullptr;
   /// Whether a key stands behind that.
   bool keyed = false;
   /// Whether the path goes on into a value.
   bool inside = false;
};

/// Throws `Failure` if a step names no attribute, or a key cannot be read.
Destination destinationOf(Kiv::TypeImpl const& rootType, Path const& path);

/// Says that there is no such member, and which one may have been meant.
Sarn::String unknownMember(Kiv::TypeImpl const& type, Sarn::String const& name);

/// What the creation of a child takes besides its key, for a message: "enabled (bool),
/// mpassEnabled (bool)".
Sarn::String childArgsText(Kiv::FieldDescriptor const& field);

}  // namespace Holt
