#pragma once

#include "Kiv/GenericIfImpl.h"
#include "Kiv/Glue/MemberOps.h"
#include "Kiv/Glue/ValueType.h"
#include "Kiv/Module.h"

/// The functions of an entity type's module record, made from the type's factory and rows.
namespace Kiv {

namespace NboAttrLog {

// What the log does with an entity of any type; see `Kiv/NboAttrLogSa.h`.
FlowOut* newFlowOut(Sa& adapter, bool replayAll, AttributeId from);
S32 handleAttrFlowOut(TypeImpl const& type, Sa& adapter, AttributeId from, FlowOut& flowOut);
void doHandleAttrDeserialization(TypeImpl const& type, Sa& adapter, AttributeId id, bool flag,
                                 U32 count, In& in);
U8 streamAdapterOnAttribute(TypeImpl const& type, Sa& adapter, AttributeId id, void const* change);

}  // namespace NboAttrLog

namespace Impl {

template <class F>
struct FactoryArgs;
template <class T, class... A>
struct FactoryArgs<Sarn::Ptr<T> (*)(A...)> {
   using Tuple =
         std::tuple<std::conditional_t<std::is_same_v<std::remove_cvref_t<A>, std::string_view>,
                                       Sarn::String, std::remove_cvref_t<A>>...>;
};

}  // namespace Impl

#pragma GCC visibility push(hidden)

namespace Impl {

// Tables refer to these: to functions of their own library, so that the loader looks up the names
// inside once for all types.
inline NboAttrLog::FlowOut* newFlowOut(NboAttrLog::Sa& adapter, bool replayAll, AttributeId from) {
   return NboAttrLog::newFlowOut(adapter, replayAll, from);
}
inline bool iterator(Entity& object, IteratorStorage& storage, FieldDescriptor const& field,
                     IteratorOp op) {
   return GenericIfImpl::iterator(object, storage, field, op);
}
template <class T>
AllocTrackTypeInfo& trackerOf() noexcept {
   return T::memAllocationTracker_;
}

}  // namespace Impl

/// `Factory` takes the constructor arguments in declaration order; `T::kivCtorParams(use)` calls
/// `use(value)` with each, in the same order.
template <class T, auto Factory>
struct EntityGlue {
   using Args = typename Impl::FactoryArgs<decltype(Factory)>::Tuple;

   static Sarn::Ptr<Entity> genericIfConstructFromCtorArgs(CtorArgs args) {
      return [&]<std::size_t... i>(std::index_sequence<i...>)->Sarn::Ptr<Entity> {
         checkCtorArgs(T::kivTypeName, args, Impl::typesOf<std::tuple_element_t<i, Args>...>);
         return Factory(*static_cast<std::tuple_element_t<i, Args> const*>(args[i].address)...);
      }
      (std::make_index_sequence<std::tuple_size_v<Args>>());
   }
   static U8 genericIfAttributeOp(void* result, void* object, FieldDescriptor const* field, U8 op,
                                  ValueRef other, ValueRef argument) {
      return GenericIfImpl::attributeOp(T::kivTypeImpl, result, object, field, op, other, argument);
   }

   static Sarn::Ptr<Entity> newEntityForAttrLog(NboAttrLog::In& in) {
      Args args;
      std::apply(
            [&](auto&... a) {
               ((a = ValueOps<std::remove_reference_t<decltype(a)>>::decode(in)), ...);
            },
            args);
      in.expectEnd();
      return std::apply(Factory, args);
   }
   static std::size_t attrLogSizeCtorParams(Entity const& entity) {
      std::size_t size = 0;
      static_cast<T const&>(entity).kivCtorParams(
            [&](auto const& v) { size += ValueOps<std::remove_cvref_t<decltype(v)>>::size(v); });
      return size;
   }
   static void serializeConstructorParams(NboAttrLog::Out& out, Entity const& entity) {
      static_cast<T const&>(entity).kivCtorParams(
            [&](auto const& v) { ValueOps<std::remove_cvref_t<decltype(v)>>::encode(out, v); });
   }
   static S32 handleAttrFlowOut(NboAttrLog::Sa& adapter, AttributeId from,
                                NboAttrLog::FlowOut& flowOut) {
      return NboAttrLog::handleAttrFlowOut(T::kivTypeImpl, adapter, from, flowOut);
   }
   static void doHandleAttrDeserialization(NboAttrLog::Sa& adapter, AttributeId id, bool flag,
                                           U32 count, NboAttrLog::In& in) {
      NboAttrLog::doHandleAttrDeserialization(T::kivTypeImpl, adapter, id, flag, count, in);
   }
   static U8 streamAdapterOnAttribute(NboAttrLog::Sa& adapter, AttributeId id, void const* change) {
      return NboAttrLog::streamAdapterOnAttribute(T::kivTypeImpl, adapter, id, change);
   }

   static constexpr StreamFunctions stream{&newEntityForAttrLog,
                                           &Impl::newFlowOut,
                                           nullptr,
                                           &attrLogSizeCtorParams,
                                           &serializeConstructorParams,
                                           nullptr,
                                           &handleAttrFlowOut,
                                           nullptr,
                                           &doHandleAttrDeserialization,
                                           &streamAdapterOnAttribute};
};

#pragma GCC visibility pop

/// `hasCollection`: whether the type, or its base, has one.
template <class T, auto Factory, bool hasCollection>
[[gnu::visibility("hidden")]] inline constexpr EntityFunctions entityFunctions{
      &EntityGlue<T, Factory>::genericIfConstructFromCtorArgs,
      &EntityGlue<T, Factory>::genericIfAttributeOp, hasCollection ? &Impl::iterator : nullptr,
      &EntityGlue<T, Factory>::stream};

/// The ids of an entity type's constructor arguments.
template <AttributeId... id>
[[gnu::visibility("hidden")]] inline constexpr std::array<AttributeId, sizeof...(id)> ctorArgIds{
      id...};

/// The type data of a generated entity without members of its own.
template <class T>
constexpr TypeImpl entityType(char const* name, EntityFunctions const& functions,
                              TypeImpl const* base, std::nullptr_t, AttributeId firstId,
                              KivModule const* const& module, U16 index,
                              std::span<AttributeId const> ctorArgs) {
   TypeImpl type{name, TypeKind::entity, alignof(T), sizeof(T)};
   type.entity = &functions;
   type.base = base;
   type.firstId = firstId;
   type.moduleAt = &module;
   type.index = index;
   type.named = std::is_base_of_v<NamedEntity, T>;
   type.tracker = &Impl::trackerOf<T>;
   type.ctorArgs = ctorArgs;
   return type;
}
/// The same for one with members.
template <class T, std::size_t rowCount>
constexpr TypeImpl entityType(char const* name, EntityFunctions const& functions,
                              TypeImpl const* base, FieldDescriptor const (&rows)[rowCount],
                              AttributeId firstId, KivModule const* const& module, U16 index,
                              std::span<AttributeId const> ctorArgs) {
   TypeImpl type = entityType<T>(name, functions, base, nullptr, firstId, module, index, ctorArgs);
   type.rows = rows;
   type.rowCount = rowCount;
   return type;
}

/// The type data of a generated value type. `F`: the types of its fields.
template <class T, class... F, std::size_t rowCount>
constexpr TypeImpl valueType(char const* name, FieldDescriptor const (&rows)[rowCount],
                             KivModule const* const& module, U16 index) {
   TypeImpl type{name, TypeKind::value, alignof(T), sizeof(T)};
   type.values = &Impl::valueFunctions<T>;
   type.support = &Impl::valueSupport<T, &Impl::constructFromFields<T, F...>>;
   type.rows = rows;
   type.firstId = 2;
   type.rowCount = rowCount;
   type.moduleAt = &module;
   type.index = index;
   type.tracker = &Impl::trackerOf<T>;
   return type;
}

}  // namespace Kiv
