#pragma once

#include "Kiv/AttrOps.h"
#include "Kiv/Types.h"

/// The generic interface's working parts. Programs that know no type by name use these and
/// `TypeImpl`; `docs/generic-interface.md` has the table of op codes.
namespace Kiv {

/// Op codes of `genericIfAttributeOp`.
enum class AttributeOp : U8 {
   read = 0,
   write = 1,  ///< or create a singleton child
   del = 2,    ///< remove a singleton child
   name = 10,
   differsFromDefault = 11,
   isEq = 12,
};

namespace GenericIfImpl {

/// What every type's `genericIfAttributeOp` does, with the type's rows.
U8 attributeOp(TypeImpl const& type, void* result, void* object, FieldDescriptor const* field,
               U8 op, void const* other, void const* argument);

/// What every entity type's `genericIfIterator` does. `begin` builds the iterator, `next` steps,
/// `valid` only tells; all three return whether it stands on an element. `destroy` ends it.
bool iterator(Entity& object, IteratorStorage& iterator, FieldDescriptor const& field,
              IteratorOp op);

/// The current element's key. REQUIRES: the iterator stands on an element.
void const* iterKey(FieldDescriptor const& field, IteratorStorage& iterator);
/// The current value, or the child entity.
void const* iterObj(FieldDescriptor const& field, IteratorStorage& iterator);
/// Removes the current element through the deleting accessor; the iterator goes on with `next`.
bool iterDel(Entity& object, FieldDescriptor const& field, IteratorStorage& iterator);

}  // namespace GenericIfImpl

/// A collection's checked iterator with its room, for use in a scope.
class CollectionCursor {
public:
   CollectionCursor(Entity& owner, FieldDescriptor const& field)
         : iterator_(field.ops->collection->iterator(owner, storage_)) {}
   CollectionCursor(CollectionCursor const&) = delete;
   CollectionCursor& operator=(CollectionCursor const&) = delete;
   ~CollectionCursor() { iterator_->~CollectionIterator(); }

   CollectionIterator* operator->() const noexcept { return iterator_; }

private:
   IteratorStorage storage_;
   CollectionIterator* iterator_;
};

/// An attribute's value as text, through the generic read. REQUIRES: `field` is a single member.
Sarn::String attributeText(Entity const& entity, FieldDescriptor const& field);

}  // namespace Kiv
