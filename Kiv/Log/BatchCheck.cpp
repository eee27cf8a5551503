#include "Kiv/Log/BatchCheck.h"

#include <algorithm>

#include "Kiv/Log/Mounts.h"
#include "Kiv/NboAttrLogSa.h"
#include "Kiv/Specimen.h"

namespace Kiv::NboAttrLog {

namespace {
/// Whoever creates a child of a specimen.
class Creator final : public CreationReceiver {
public:
   void found(Entity&) override {}
   bool wanted(void const*) override { return true; }
};
}  // namespace

void BatchCheck::run(U8 const* at, U8 const* end, std::size_t longestValue) {
   auto const bound = [](void* context, Opcode) { return *static_cast<std::size_t*>(context); };
   while (at != end) {
      Header const header = readHeader(at);
      last_ = header;
      U8 const* const body = at + headerSize;
      at = body + header.bodySize;
      In in(body, at);
      if (header.opcode != Opcode::part) {
         if (parts_.any()) {
            in.fault("a message comes between the parts of another");
         }
         check(header, in);
      } else if (parts_.add(header, in, bound, &longestValue)) {
         last_ = parts_.header();
         std::vector<U8> const bytes = parts_.take();
         In whole(bytes.data(), bytes.data() + bytes.size());
         check(last_, whole);
      }
   }
   if (parts_.any()) {
      In(end, end).fault("the batch ends before the last part of a message");
   }
}

void BatchCheck::check(Header const& header, In& in) {
   if (header.opcode == Opcode::bind) {
      U32 const ours = in.nextU32();
      in.expectEnd();
      Entity* const entity = handles_.find(ours);
      know({header.handle, entity, entity != nullptr ? &entity->kivType() : nullptr});
      return;
   }
   if (!isChange(header.opcode)) {
      return;  // checked and applied as outside a batch
   }
   if (Known const* const known = find(header.handle)) {
      Known const target = *known;
      checkChange(target, header, in);
      return;
   }
   Names::Theirs const* const theirs = names_.theirs(header.handle);
   if (theirs == nullptr) {
      in.fault("the peer has not introduced this entity");
   }
   Entity* const entity = theirs->entity.get();
   TypeImpl const* const type = entity != nullptr ? &entity->kivType() : nullptr;
   checkChange({header.handle, entity, type}, header, in);
}

void BatchCheck::checkChange(Known const& target, Header const& header, In& in) {
   Entity* const entity = target.entity;
   if (target.type == nullptr) {
      throw Exception("the entity has been deleted meanwhile");
   }
   if (entity != nullptr && mounts_.followed(*entity) != nullptr) {
      return;  // the peer is its source
   }
   FieldDescriptor const* const field = target.type->field(header.attribute);
   if (field == nullptr || !field->has(FieldDescriptor::streamed)) {
      in.fault("the type " + Sarn::String(target.type->name) + " has no such attribute");
   }
   if (entity != nullptr && !mounts_.isWrittenByPeer(*entity)) {
      Sa::throwWriteUpdateFromReadOnlyProxyException(*entity, header.attribute);
   }
   if (entity != nullptr && mounts_.peerWaits(*entity)) {
      throw Exception("another peer leads " + *entityName(*rootOf(*entity)));
   }
   Entity& owner = specimen(*target.type);
   MemberKind const kind = field->kind;
   bool const keyed = kind == MemberKind::map || kind == MemberKind::ordered;
   bool const marks =
         header.opcode == Opcode::collectionBegin || header.opcode == Opcode::collectionEnd;
   if (kind == MemberKind::queue) {
      checkQueue(owner, *field, header, in);
   } else if (header.opcode == Opcode::set && kind == MemberKind::single &&
              field->ops->apply != nullptr) {
      field->ops->apply(owner, in);
   } else if (header.opcode == Opcode::element && keyed) {
      field->ops->collection->applyElement(owner, in, nullptr);
   } else if (header.opcode == Opcode::erase && kind == MemberKind::child) {
      in.expectEnd();
   } else if (header.opcode == Opcode::erase && (keyed || holdsEntities(*field))) {
      if (in.readableBytes() != 0) {
         Sarn::Ptr<Entity> removed;
         field->ops->collection->applyDelete(owner, in, nullptr, removed);
      }
   } else if (header.opcode == Opcode::create && holdsEntities(*field)) {
      checkCreate(owner, *field, in);
   } else if (marks && (keyed || kind == MemberKind::children)) {
      checkMarker(target, header, in);
   } else {
      in.fault("a message of kind " + std::to_string(static_cast<unsigned>(header.opcode)) +
               " does not fit the attribute");
   }
}

void BatchCheck::checkCreate(Entity& owner, FieldDescriptor const& field, In& in) {
   U32 const handle = in.nextU32();
   names_.checkHandle(handle, in);
   Sarn::Ptr<Entity> child;
   if (field.kind == MemberKind::children) {
      Creator creator;
      child = field.ops->collection->applyCreate(owner, in, nullptr, creator);
   } else {
      std::string_view const name =
            field.has(FieldDescriptor::named) ? in.nextString() : std::string_view();
      in.expectEnd();
      child = field.ops->child->is(owner, name);
      child = child ? child : Sarn::Ptr<Entity>(field.ops->child->get(owner));
   }
   know({handle, nullptr, child ? &child->kivType() : field.type});
}

void BatchCheck::checkQueue(Entity& owner, FieldDescriptor const& field, Header const& header,
                            In& in) {
   if (header.opcode == Opcode::enqueue) {
      U32 const sequence = in.nextU32();
      field.ops->queue->applyEnq(owner, sequence, in);
      return;
   }
   if (header.opcode == Opcode::front || header.opcode == Opcode::collectionBegin) {
      in.nextU32();
   } else if (header.opcode != Opcode::collectionEnd) {
      in.fault("a message of kind " + std::to_string(static_cast<unsigned>(header.opcode)) +
               " does not fit the attribute");
   }
   in.expectEnd();
}

/// A replay that began before the batch may end in it; whether it had begun is checked when it is
/// applied.
void BatchCheck::checkMarker(Known const& target, Header const& header, In const& in) {
   in.expectEnd();
   auto const same = [&](Open const& open) {
      return open.handle == target.handle && open.attribute == header.attribute;
   };
   auto const found = std::find_if(open_.begin(), open_.end(), same);
   if (header.opcode == Opcode::collectionEnd) {
      if (found != open_.end()) {
         open_.erase(found);
      }
   } else if (found != open_.end()) {
      in.fault("the collection's replay has begun already");
   } else {
      open_.push_back({target.handle, header.attribute});
   }
}

BatchCheck::Known const* BatchCheck::find(U32 handle) const noexcept {
   auto const at = std::lower_bound(known_.begin(), known_.end(), handle,
                                    [](Known const& k, U32 h) { return k.handle < h; });
   return at != known_.end() && at->handle == handle ? &*at : nullptr;
}

/// Handles mostly grow, so a new one mostly comes last.
void BatchCheck::know(Known const& known) {
   auto const at = std::lower_bound(known_.begin(), known_.end(), known.handle,
                                    [](Known const& k, U32 h) { return k.handle < h; });
   if (at != known_.end() && at->handle == known.handle) {
      *at = known;
   } else {
      known_.insert(at, known);
   }
}

Entity& BatchCheck::specimen(TypeImpl const& type) {
   auto const found = std::find_if(specimens_.begin(), specimens_.end(),
                                   [&](auto const& one) { return &one->kivType() == &type; });
   if (found != specimens_.end()) {
      return **found;
   }
   specimens_.push_back(specimenOf(type));
   return *specimens_.back();
}

}  // namespace Kiv::NboAttrLog
