// One way through a state, live or read from a document. Text, JSON, comparison and loading go it.
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
   /// As it stands in a path: the key's text form, or the number in a queue.
   Sarn::String keyText;
   /// No value in a queue.
   Kiv::ValueRef key;
   /// No value where it is a child.
   Kiv::ValueRef value;
   Node const* child = nullptr;
};

/// Is told of the members of one entity. `Node` is a live `Kiv::Entity`, or the `DocEntity` of a
/// document. What it is given is good during the call alone.
template <class Node>
class StateVisitor {
public:
   using Elements = std::vector<StateElement<Node>>;

   virtual void value(Kiv::FieldDescriptor const& field, Kiv::ValueRef value) = 0;
   /// A singleton child, null if there is none.
   virtual void child(Kiv::FieldDescriptor const& field, Node const* child) = 0;
   /// A map, or children: ordered maps in their order, others in the natural order of their keys.
   virtual void collection(Kiv::FieldDescriptor const& field, Elements const& elements) = 0;
   /// `next`: the number that the next element gets.
   virtual void queue(Kiv::FieldDescriptor const& field, Elements const& elements, U32 next) = 0;

protected:
   ~StateVisitor() = default;
};

/// Which members of an entity are visited.
enum class StatePart { all, values, entities };

/// Whether a member belongs to a state that is written down: it has a value, and travels or is
/// read-only. What can be set but does not travel only the process itself knows.
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

/// Tells an entity and all below it line by line, as text dumps have it: the entity, its values,
/// its children.
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
   /// The number that the next element of a queue gets, where it has been used.
   virtual void nextLine(Sarn::String const& path, U32 next) = 0;
   /// Between an entity's values and its children.
   virtual void valuesEnd() {}

   ~StateLines() = default;

   /// Tells one member, whose path is `path`.
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

   /// Of the entity whose members are told.
   Sarn::String path_;
   /// Of the one member that is told by itself; else empty.
   Sarn::String memberPath_;
};

}  // namespace Holt
