#include "Kiv/Visit.h"

namespace Kiv {
namespace Impl {

U64 unsignedAt(ValueRef value) noexcept {
   switch (value.type->size) {
      case 1:
         return *static_cast<U8 const*>(value.address);
      case 2:
         return *static_cast<U16 const*>(value.address);
      case 4:
         return *static_cast<U32 const*>(value.address);
      default:
         return *static_cast<U64 const*>(value.address);
   }
}

S64 signedAt(ValueRef value) noexcept {
   switch (value.type->size) {
      case 1:
         return *static_cast<S8 const*>(value.address);
      case 2:
         return *static_cast<S16 const*>(value.address);
      case 4:
         return *static_cast<S32 const*>(value.address);
      default:
         return *static_cast<S64 const*>(value.address);
   }
}

}  // namespace Impl

Present::Present(Entity const& entity, FieldDescriptor const& field, void const* key) {
   if (field.kind == MemberKind::single) {
      copy_.emplace(*field.type).read(&entity, field);
      value_ = copy_->ref();
   } else if (field.kind == MemberKind::child) {
      child_ = field.ops->child->get(entity);
   } else if (key != nullptr && field.kind == MemberKind::children) {
      child_ = field.ops->collection->findChild(entity, key);
   } else if (key != nullptr && field.kind == MemberKind::queue) {
      QueueOps const& queue = *field.ops->queue;
      U32 const sequence = *static_cast<U32 const*>(key);
      U32 const place = sequence - queue.frontSequence(entity);
      value_ = {*field.type, place < queue.size(entity) ? queue.at(entity, sequence) : nullptr};
   } else if (key != nullptr && field.keyType != nullptr) {
      value_ = {*field.type, field.ops->collection->find(entity, key)};
   }
}

}  // namespace Kiv
