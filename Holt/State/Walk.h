// The traversal of a state, live or read from a document, that text, JSON, comparison and loading
// share.
#pragma once

#include <utility>
#include <vector>

#include "Kiv/Entity.h"
#include "Kiv/GenericIfImpl.h"

namespace Holt {

struct DocEntity;
struct DocMember;

/// An element of a collection or queue.
template <class Node>
struct StateElement {
   /// As in a path: the key as `Kiv::keyText` writes it, or the number in a queue.
   Sarn::String keyText;
   /// No value for an element of a queue.
   Kiv::ValueRef key;
   /// No value for a child.
   Kiv::ValueRef value;
   Node const* child = nullptr;
};

/// Visits the members of an entity. `Node` is a live `Kiv::Entity`, or the `DocEntity` of a
/// document. Arguments are valid only during the call.
template <class Node>
class StateVisitor {
public:
   using Elements = std::vector<StateElement<Node>>;

   virtual void value(Kiv::FieldDescriptor const& field, Kiv::ValueRef value) = 0;
   /// A singleton child; null if there is none.
   virtual void child(Kiv::FieldDescriptor const& field, Node const* child) = 0;
   /// A map or children: an ordered map in its order, others in the natural order of their keys.
   virtual void collection(Kiv::FieldDescriptor const& field, Elements const& elements) = 0;
   /// `next`: the number that the next element will get.
   virtual void queue(Kiv::FieldDescriptor const& field, Elements const& elements, U32 next) = 0;

protected:
   ~StateVisitor() = default;
};

/// Which members of an entity are visited.
enum class StatePart { all, values, entities };

/// Whether a member belongs in dumps: it has a value, and is streamed or read-only. An attribute
/// that can be set but is not streamed is known to its own process alone.
bool isInState(Kiv::FieldDescriptor const& field);

/// Visits the members of an entity that belong to its state, in the order of their ids.
void walkMembers(Kiv::Entity const& entity, StatePart part, StateVisitor<Kiv::Entity>& visitor);
void walkMembers(DocEntity const& entity, StatePart part, StateVisitor<DocEntity>& visitor);

/// Visits one member. REQUIRES: it is a row of the entity's type.
void walkMember(Kiv::Entity const& entity, Kiv::FieldDescriptor const& field,
                StateVisitor<Kiv::Entity>& visitor);
void walkMember(DocMember const& member, StateVisitor<DocEntity>& visitor);

Kiv::TypeImpl const& typeOfNode(Kiv::Entity const& entity);
Kiv::TypeImpl const& typeOfNode(DocEntity const& entity);

/// Visits an entity and everything below it in the order of text dumps: the entity, its values, its
/// children.
template <class Node>
class StateLines : protected StateVisitor<Node> {
public:
   void entity(Node const& node, Sarn::String const& path) {
      entityLine(path, typeOfNode(node));
      within(path, [&] { walkMembers(node, StatePart::values, *this); });
      valuesEnd();
      within(path, [&] { walkMembers(node, StatePart::entities, *this); });
   }

protected:
   virtual void entityLine(Sarn::String const& path, Kiv::TypeImpl const& type) = 0;
   virtual void valueLine(Sarn::String const& path, Kiv::ValueRef value) = 0;
   /// The number that the next element of a used queue will get.
   virtual void nextLine(Sarn::String const& path, U32 next) = 0;
   /// Between an entity's values and its children.
   virtual void valuesEnd() {}

   ~StateLines() = default;

   /// Visits one member, whose path is `path`.
   template <class Walk>
   void memberAt(Sarn::String const& path, Walk&& walk) {
      memberPath_ = path;
      walk();
      memberPath_.clear();
   }

private:
   using Elements = typename StateVisitor<Node>::Elements;

   template <class Walk>
   void within(Sarn::String const& path, Walk&& walk) {
      Sarn::String const outer = std::exchange(path_, path);
      walk();
      path_ = outer;
   }
   Sarn::String pathOf(Kiv::FieldDescriptor const& field) const {
      return memberPath_.empty() ? path_ + "." + field.name : memberPath_;
   }

   void value(Kiv::FieldDescriptor const& field, Kiv::ValueRef value) final {
      valueLine(pathOf(field), value);
   }
   void child(Kiv::FieldDescriptor const& field, Node const* child) final {
      if (child != nullptr) {
         below(*child, pathOf(field));
      }
   }
   void collection(Kiv::FieldDescriptor const& field, Elements const& elements) final {
      Sarn::String const path = pathOf(field);
      for (StateElement<Node> const& element : elements) {
         Sarn::String const at = path + "[" + element.keyText + "]";
         if (element.child != nullptr) {
            below(*element.child, at);
         } else {
            valueLine(at, element.value);
         }
      }
   }
   void queue(Kiv::FieldDescriptor const& field, Elements const& elements, U32 next) final {
      collection(field, elements);
      if (next != 1) {  // the number of a queue's first element
         nextLine(pathOf(field), next);
      }
   }
   void below(Node const& node, Sarn::String const& path) {
      Sarn::String const member = std::exchange(memberPath_, Sarn::String());
      entity(node, path);
      memberPath_ = member;
   }

   /// Path of the entity whose members are visited.
   Sarn::String path_;
   /// Path of a member that is visited by itself; else empty.
   Sarn::String memberPath_;
};

}  // namespace Holt
