#pragma once

#include "Kiv/AttrOps.h"
#include "Kiv/Types.h"

/// The implementation of the generic interface. Programs that know no type by name use it together
/// with `TypeImpl`; `docs/generic-interface.md` has the table of op codes.
namespace Kiv {

/// Op codes of `genericIfAttributeOp`.
enum class AttributeOp : U8 {
   read = 0,
   /// Or creates a singleton child.
   write = 1,
   /// Removes a singleton child.
   del = 2,
   name = 10,
   differsFromDefault = 11,
   isEq = 12,
};

namespace GenericIfImpl {

/// Implements every type's `genericIfAttributeOp` with the type's rows.
U8 attributeOp(TypeImpl const& type, void* result, void* object, FieldDescriptor const* field,
               U8 op, ValueRef other, ValueRef argument);

/// The entity's own row of a collection or queue, found by id. Throws `TypeException` for a member
/// that is neither, and for an id that the entity's type does not have.
FieldDescriptor const& collectionField(Entity const& object, FieldDescriptor const& field);

/// Builds a checked iterator at the first element of a collection or queue. Throws as
/// `collectionField`.
CollectionIterator* begin(Entity& object, FieldDescriptor const& field, IteratorStorage& storage);

/// Implements every entity type's `genericIfIterator`. `begin` builds the iterator, `next` advances
/// it, `valid` only checks it; all three return whether it is on an element. `destroy` ends it.
/// Throws as `collectionField`.
bool iterator(Entity& object, IteratorStorage& iterator, FieldDescriptor const& field,
              IteratorOp op);

/// The current element's key. REQUIRES: the iterator is on an element.
void const* iterKey(FieldDescriptor const& field, IteratorStorage& iterator);
/// The current value, or the child entity.
void const* iterObj(FieldDescriptor const& field, IteratorStorage& iterator);
/// Removes the current element through the deleting accessor; `next` then continues. False, with no
/// effect, if there is no such element, or if it is not the front of its queue.
bool iterDel(Entity& object, FieldDescriptor const& field, IteratorStorage& iterator);

}  // namespace GenericIfImpl

/// A checked iterator over a collection or queue, together with its storage, for use in a scope.
/// Throws `TypeException` for a member that is neither.
class CollectionCursor {
public:
   CollectionCursor(Entity& owner, FieldDescriptor const& field)
         : iterator_(GenericIfImpl::begin(owner, field, storage_)) {}
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
