#pragma once

#include <optional>

#include "Kiv/GenericIfImpl.h"
#include "Kiv/Module.h"

/// Iterates over the parts of values and the members of entities. A visitor gets each part as what
/// it is, so that no other code needs a `switch` over kinds:
///
///     struct IsZero {
///        bool operator()(U64 v) { return v == 0; }
///        bool operator()(S64 v) { return v == 0; }
///        bool operator()(double v) { return v == 0; }
///        bool operator()(auto const&) { return false; }
///     };
///     bool const isZero = Kiv::visitValue(value, IsZero());
///
/// Addresses that a visitor gets are valid only during the call.
namespace Kiv {

// ---- Values ----

/// A value of an enumeration.
struct EnumRef {
   TypeImpl const& type;
   U8 value;
   /// Its name, or null if it has none.
   char const* name() const noexcept { return enumName(type, value); }
};

/// A `Kiv::Optional`.
struct OptionalRef {
   TypeImpl const& type;
   /// What it holds, or no value.
   ValueRef held;
};

/// A value with fields; `forEachPart` visits them.
struct RecordRef {
   ValueRef value;
};

/// A value without fields, known only by its text.
struct OpaqueRef {
   ValueRef value;
};

namespace Impl {
U64 unsignedAt(ValueRef value) noexcept;
S64 signedAt(ValueRef value) noexcept;
}  // namespace Impl

/// Calls `visitor` with the value as a `bool`, `U64`, `S64`, `float`, `double`, `Sarn::String
/// const&`, `EnumRef`, `OptionalRef`, `RecordRef` or `OpaqueRef`, and returns what it returns.
/// REQUIRES: `value` is not empty, and not an entity.
template <class Visitor>
decltype(auto) visitValue(ValueRef value, Visitor&& visitor) {
   TypeImpl const& type = *value.type;
   switch (type.kind) {
      case TypeKind::boolean:
         return visitor(*static_cast<bool const*>(value.address));
      case TypeKind::unsignedNumber:
         return visitor(Impl::unsignedAt(value));
      case TypeKind::signedNumber:
         return visitor(Impl::signedAt(value));
      case TypeKind::floating:
         return type.size == sizeof(float) ? visitor(*static_cast<float const*>(value.address))
                                           : visitor(*static_cast<double const*>(value.address));
      case TypeKind::string:
         return visitor(*static_cast<Sarn::String const*>(value.address));
      case TypeKind::enumeration:
         return visitor(EnumRef{type, *static_cast<U8 const*>(value.address)});
      case TypeKind::optional: {
         void const* const held = type.optional->held(value.address);
         return visitor(OptionalRef{
               type, held != nullptr ? ValueRef(*type.optional->inner, held) : ValueRef()});
      }
      case TypeKind::value:
         return visitor(RecordRef{value});
      case TypeKind::opaque:
      case TypeKind::entity:
         break;
   }
   return visitor(OpaqueRef{value});
}

/// Calls `visit(field)` for every field of a value type, in the order of its constructor; not at
/// all for other types.
template <class Visit>
void forEachPart(TypeImpl const& type, Visit&& visit) {
   if (type.kind == TypeKind::value) {
      forEachField(type, visit);
   }
}

/// Calls `visit(field, part)` for every field of a value.
template <class Visit>
void forEachPart(RecordRef record, Visit&& visit) {
   forEachPart(*record.value.type, [&](FieldDescriptor const& field) {
      AnyValue part(*field.type);
      part.read(record.value.address, field);
      visit(field, part.ref());
   });
}

/// Calls `visit(value, name)` for every enumerator that has a name, in the order of the
/// declaration; not at all for other types.
template <class Visit>
void forEachEnumerator(TypeImpl const& type, Visit&& visit) {
   if (type.kind == TypeKind::enumeration) {
      KivModule const& module = *type.module();
      TypeRecord const& record = module.typeRecords[type.index];
      for (U32 i = 0; i != record.memberCount; ++i) {
         MemberRecord const& enumerator = module.memberRecords[record.firstMember + i];
         visit(static_cast<U8>(enumerator.value), module.memberNames + enumerator.nameOffset());
      }
   }
}

// ---- Members of entities ----

/// Calls one of the visitor's functions with the member as it is now:
///
/// - `value(field, ValueRef value)` for an attribute, a key, a constant, a derived member;
/// - `child(field, Entity const* child)` for a singleton child, null if there is none;
/// - `collection(field, CollectionCursor& at)` for a map or children, `at` being at the first
///   element;
/// - `queue(field, CollectionCursor& at, U32 next)` for a queue, `next` being the number that the
///   next element gets;
/// - nothing for an operation.
///
/// `field`: a row of the entity's own type.
template <class Visitor>
void visitMember(Entity const& entity, FieldDescriptor const& field, Visitor&& visitor) {
   switch (field.kind) {
      case MemberKind::single: {
         AnyValue value(*field.type);
         value.read(&entity, field);
         visitor.value(field, value.ref());
         break;
      }
      case MemberKind::child:
         visitor.child(field, static_cast<Entity const*>(field.ops->child->get(entity)));
         break;
      case MemberKind::children:
      case MemberKind::map:
      case MemberKind::ordered: {
         CollectionCursor at(const_cast<Entity&>(entity), field);
         visitor.collection(field, at);
         break;
      }
      case MemberKind::queue: {
         CollectionCursor at(const_cast<Entity&>(entity), field);
         visitor.queue(field, at, field.ops->queue->nextSequence(entity));
         break;
      }
      case MemberKind::operation:
      case MemberKind::none:
         break;
   }
}

/// `visitMember` for every member, inherited ones first, in id order.
template <class Visitor>
void visitMembers(Entity const& entity, Visitor&& visitor) {
   forEachField(entity.kivType(),
                [&](FieldDescriptor const& field) { visitMember(entity, field, visitor); });
}

/// The current content of a member: its value, its child, or the element under a key. Holds a copy
/// of an attribute's value; anything else belongs to the entity and is valid until it changes.
class Present {
public:
   /// `key`: for a collection or queue, the address of a key of the row's type; without one, a
   /// collection counts as empty.
   Present(Entity const& entity, FieldDescriptor const& field, void const* key = nullptr);

   explicit operator bool() const noexcept {
      return value_.address != nullptr || child_ != nullptr;
   }
   /// No value if there is nothing, or an entity.
   ValueRef value() const noexcept { return value_; }
   /// Null if there is nothing, or a value.
   Entity* child() const noexcept { return child_; }

private:
   std::optional<AnyValue> copy_;
   ValueRef value_;
   Entity* child_ = nullptr;
};

}  // namespace Kiv
