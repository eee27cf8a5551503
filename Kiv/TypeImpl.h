#pragma once

#include <algorithm>

#include "Kiv/Exception.h"
#include "Kiv/FieldDescriptor.h"
#include "Sarn/Ptr.h"
#include "Sarn/String.h"
#include "Sarn/Types.h"

/// Types as data: what every generated and built-in type reports about itself, so that a program
/// can use it without knowing it. The basis of the generic interface (`TypeImpl::genericIf...`).
namespace Kiv {

class AllocTrackTypeInfo;
class CharRange;
class Entity;
class TypeImpl;
struct KivModule;
namespace NboAttrLog {
class FlowOut;
class In;
class Out;
class Sa;
}  // namespace NboAttrLog

/// The kind of a type's objects. `Kiv/Visit.h` hands out a value by its kind.
enum class TypeKind : U8 {
   /// A `bool`.
   boolean,
   /// A `U8` to `U64`, by the type's size.
   unsignedNumber,
   /// An `S8` to `S64`, by the type's size.
   signedNumber,
   /// A `float` or a `double`, by the type's size.
   floating,
   /// A `Sarn::String`.
   string,
   /// One byte; `Kiv/Visit.h` lists its names.
   enumeration,
   /// A `Kiv::Optional`; see `TypeImpl::optional` for what it holds.
   optional,
   /// A value with fields, which are the type's rows.
   value,
   /// A value without fields, known only by its text: an address, the name of an interface.
   opaque,
   entity,
};

/// The fixed field id of a root entity's name in the generic interface.
inline constexpr AttributeId nameFieldId = 154;

/// Results of the generic attribute operation.
enum Status : U8 { statusOk = 0, statusRefused = 1, statusUnknownField = 2 };

/// Per value type: the functions that its module record points to. `value`, `dst` and `src` are
/// addresses of values of the type; `genericIfConstruct` and `genericIfStrepToValue` build a value
/// in raw storage.
struct ValueFunctions {
   void (*genericIfConstruct)(void* dst, void const* src);
   void (*genericIfDestruct)(void* value);
   void (*genericIfStrepToValue)(void* dst, CharRange& text);
   void (*genericIfStrRep)(Sarn::String& out, void const* value);
   void (*unused4)();
   void (*unused5)();
   U32 (*genericIfHash)(void const* value, U32 seed);
   void (*genericIfVoidPtrIs)(void* dst, void const* src);
};

/// What the framework needs from a value type beyond its module record's functions.
struct ValueSupport {
   void (*construct)(void* dst);
   bool (*isEq)(void const* a, void const* b);
   bool (*differsFromDefault)(void const* value);
   std::size_t (*encodedSize)(void const* value);
   void (*encode)(NboAttrLog::Out& out, void const* value);
   void (*decode)(void* dst, NboAttrLog::In& in);
   void (*constructFromCtorArgs)(void* dst, CtorArgs args);
};

/// Operations on a `Kiv::Optional` whose type is known only at run time.
struct OptionalSupport {
   /// The type of what it holds.
   TypeImpl const* inner;
   /// The address of what it holds, or null.
   void const* (*held)(void const* optional);
   /// Builds one in raw storage that holds a copy of `inner`, or nothing if `inner` is null.
   void (*construct)(void* dst, void const* inner);
};

/// What `genericIfIterator` is to do.
enum class IteratorOp : U8 { begin, next, valid, destroy };

/// Storage for any collection's checked iterator, so that iterating allocates nothing.
struct alignas(16) IteratorStorage {
   unsigned char bytes[96];
};

/// Per entity type: how the attribute log makes, writes and applies it.
struct StreamFunctions {
   Sarn::Ptr<Entity> (*newEntityForAttrLog)(NboAttrLog::In& in);
   NboAttrLog::FlowOut* (*newFlowOut)(NboAttrLog::Sa& adapter, bool replayAll, AttributeId from);
   void (*unused2)();
   std::size_t (*attrLogSizeCtorParams)(Entity const& entity);
   void (*serializeConstructorParams)(NboAttrLog::Out& out, Entity const& entity);
   void (*unused5)();
   S32(*handleAttrFlowOut)
   (NboAttrLog::Sa& adapter, AttributeId from, NboAttrLog::FlowOut& flowOut);
   void (*unused7)();
   void (*doHandleAttrDeserialization)(NboAttrLog::Sa& adapter, AttributeId id, bool flag,
                                       U32 count, NboAttrLog::In& in);
   U8 (*streamAdapterOnAttribute)(NboAttrLog::Sa& adapter, AttributeId id, void const* value);
};

/// Per entity type: the functions that its module record points to.
struct EntityFunctions {
   Sarn::Ptr<Entity> (*genericIfConstructFromCtorArgs)(CtorArgs args);
   U8(*genericIfAttributeOp)
   (void* result, void* object, FieldDescriptor const* field, U8 op, ValueRef other,
    ValueRef argument);
   /// Null when the type has no collection.
   bool (*genericIfIterator)(Entity& object, IteratorStorage& iterator,
                             FieldDescriptor const& field, IteratorOp op);
   StreamFunctions const* stream;
};

/// A type: one constant object, valid while the library that defines it is loaded.
class TypeImpl {
public:
   char const* name;
   TypeKind kind;
   U16 alignment;
   U32 size;
   /// Null for an entity.
   ValueFunctions const* values = nullptr;
   ValueSupport const* support = nullptr;
   /// Null except for an optional.
   OptionalSupport const* optional = nullptr;
   /// Null except for an entity.
   EntityFunctions const* entity = nullptr;
   /// The type that an entity type is derived from, or null.
   TypeImpl const* base = nullptr;
   /// Own members: `rows[id - firstId]`.
   FieldDescriptor const* rows = nullptr;
   AttributeId firstId = 0;
   U16 rowCount = 0;
   /// The module that defines it (null for a built-in type), and its index in the type records.
   KivModule const* module() const noexcept { return moduleAt != nullptr ? *moduleAt : nullptr; }
   KivModule const* const* moduleAt = nullptr;
   U16 index = 0;
   /// Whether entities of this type have a name (roots and named children).
   bool named = false;
   /// The type's allocation tracker. Null for a type without one of its own.
   AllocTrackTypeInfo& (*tracker)() noexcept = nullptr;
   /// For an entity type: the members whose initial values are the constructor's arguments, in that
   /// order. `nameFieldId` stands for the name. A derived type may fix some of its base's.
   std::span<AttributeId const> ctorArgs = {};

   /// The member with this id, own or inherited; null if there is none. O(depth of derivation).
   FieldDescriptor const* field(AttributeId id) const noexcept {
      auto const at = static_cast<U32>(id) - firstId;
      if (at < rowCount) [[likely]] {
         return rows[at].kind != MemberKind::none ? &rows[at] : nullptr;
      }
      return base != nullptr && id < firstId ? base->field(id) : nullptr;
   }
   /// The member with this name, or null. O(members).
   FieldDescriptor const* field(std::string_view name) const noexcept;
   /// For an entity type: the member that is its key, or null.
   FieldDescriptor const* key() const noexcept {
      if (base != nullptr) {
         return base->key();
      }
      return rowCount != 0 && rows[0].has(FieldDescriptor::key) ? &rows[0] : nullptr;
   }
   /// Whether this is `other` or derived from it.
   bool isA(TypeImpl const& other) const noexcept;
   /// Whether the member's initial value is an argument of this type's constructor.
   bool isCtorArg(AttributeId id) const noexcept;

   // The generic interface. A `ValueRef` whose type is not the operation's throws. An address alone
   // cannot be checked: it must point to the right type.

   /// Copy-constructs a value in raw storage.
   void genericIfConstruct(void* dst, void const* src) const {
      values->genericIfConstruct(dst, src);
   }
   /// Builds a value in raw storage from its constructor arguments, in declaration order; for an
   /// entity, the storage gets a `Sarn::Ptr<Entity>`. Throws `NewEntityArgsException` for arguments
   /// of the wrong kind or number.
   void genericIfConstructFromCtorArgs(void* dst, CtorArgs args) const;
   /// See `docs/generic-interface.md` for the op codes. `result` is raw storage. Throws
   /// `TypeException` if `other` or `argument` is needed but missing or of another type.
   U8 genericIfAttributeOp(void* result, void* object, FieldDescriptor const* field, U8 op,
                           ValueRef other, ValueRef argument) const;
   Sarn::String genericIfStrRep(void const* value) const;
   void genericIfStrepToValue(void* dst, CharRange& text) const;
   U32 genericIfHash(void const* value, U32 seed) const {
      return values->genericIfHash(value, seed);
   }
};

inline ValueRef FieldDescriptor::least() const noexcept {
   return bounds != nullptr ? ValueRef(*type, bounds) : ValueRef();
}

inline ValueRef FieldDescriptor::greatest() const noexcept {
   return bounds != nullptr ? ValueRef(*type, static_cast<char const*>(bounds) + type->size)
                            : ValueRef();
}

inline FieldDescriptor const* FieldDescriptor::keyField() const noexcept {
   return has(keyInside) ? type->rows : nullptr;
}

/// Calls `visit(row)` for every member whose initial value is a constructor argument, in the order
/// of the arguments. The name is not a member.
template <class Visit>
void forEachCtorArg(TypeImpl const& type, Visit&& visit) {
   for (AttributeId const id : type.ctorArgs) {
      if (id != nameFieldId) {
         visit(*type.field(id));
      }
   }
}

/// The same without the key: what is needed to create a child besides its key or name.
template <class Visit>
void forEachGivenMember(TypeImpl const& type, Visit&& visit) {
   forEachCtorArg(type, [&](FieldDescriptor const& field) {
      if (!field.has(FieldDescriptor::key)) {
         visit(field);
      }
   });
}

/// Calls `visit(row)` for every member, inherited ones first, in id order.
template <class Visit>
void forEachField(TypeImpl const& type, Visit&& visit) {
   if (type.base != nullptr) {
      forEachField(*type.base, visit);
   }
   for (U16 i = 0; i != type.rowCount; ++i) {
      if (type.rows[i].kind != MemberKind::none) {
         visit(type.rows[i]);
      }
   }
}

}  // namespace Kiv
