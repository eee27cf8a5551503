#include "Kiv/Glue/Members.h"

namespace Kiv::Impl {

constinit thread_local bool storesEqual = false;
constinit thread_local void const* exactChild = nullptr;

namespace {

/// A string whose capacity is reused for the next old value. A setter that runs inside another
/// finds it empty and allocates.
thread_local Sarn::String spareString;

Sarn::String describe(TypeImpl const& type, AttributeId id) {
   FieldDescriptor const* const field = type.field(id);
   return Sarn::String(type.name) + "::" + (field != nullptr ? field->name : "?") + " (" +
          std::to_string(id) + ")";
}

}  // namespace

void publishString(Entity& owner, AttributeId id, Sarn::String& stored, std::string_view v) {
   Sarn::String old = std::move(spareString);
   old.assign(stored);  // not a swap: `v` may be part of `stored`
   stored.assign(v);
   owner.publishChangeRecursive(id, nullptr, &old, nullptr);
   spareString = std::move(old);
}

void throwMutatorReinstVal(Entity const& owner, AttributeId collection, Entity const& child,
                           AttributeId argument, Sarn::String const& oldArgument,
                           Sarn::String const& newArgument) {
   throw MutatorReinstValException(
         describe(owner.kivType(), collection) + ": the child exists with another " +
               describe(child.kivType(), argument) + ": " + oldArgument + ", not " + newArgument,
         argument, collection);
}

}  // namespace Kiv::Impl
