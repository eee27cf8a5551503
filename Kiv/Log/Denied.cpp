#include "Kiv/Log/Denied.h"

#include <algorithm>

#include "Kiv/Log/Teller.h"
#include "Kiv/Specimen.h"

namespace Kiv::NboAttrLog {

bool Denied::note(Header const& header, In& in) {
   Names& names = teller_.names();
   Names::Theirs const* const target = names.theirs(header.handle);
   Sarn::Ptr<Entity> const entity = target != nullptr ? target->entity : Sarn::Ptr<Entity>();
   if (entity && mounts_.followed(*entity) != nullptr) {
      return false;
   }
   if (header.opcode == Opcode::create) {
      In body = in;
      U32 const handle = body.nextU32();
      names.checkHandle(handle, body);
      names.map(handle, nullptr, true);
   }
   FieldDescriptor const* const field =
         entity ? entity->kivType().field(header.attribute) : nullptr;
   if (field == nullptr || !field->has(FieldDescriptor::streamed) || entity->streamHandle() == 0) {
      return true;
   }
   Noted& noted = notedOf(entity->streamHandle(), *field);
   if (field->kind != MemberKind::children) {
      return true;
   }
   bool const one = header.opcode == Opcode::erase && in.readableBytes() != 0;
   noted.all = noted.all || header.opcode == Opcode::collectionEnd ||
               (header.opcode == Opcode::erase && !one);
   if (one && !noted.all) {
      noteErased(noted, *entity, in);
   }
   return true;
}

Denied::Noted& Denied::notedOf(U32 handle, FieldDescriptor const& field) {
   // The changes of an entity mostly follow each other.
   auto const same = [&](Noted const& noted) {
      return noted.handle == handle && noted.field == &field;
   };
   auto const recent = noted_.size() > 64 ? noted_.end() - 64 : noted_.begin();
   auto const found = std::find_if(recent, noted_.end(), same);
   return found != noted_.end() ? *found : noted_.emplace_back(Noted{handle, &field, false, {}});
}

/// Only the collection itself can read its keys: a specimen of the owner, which is empty, erases
/// the key from the set of those that are left.
void Denied::noteErased(Noted& noted, Entity& owner, In& in) {
   CollectionOps const& ops = *noted.field->ops->collection;
   if (noted.kept == nullptr) {
      noted.kept.reset(ops.newDirtyKeys());
      forEachChild(owner, [&](Entity&, FieldDescriptor const& field, void const* key) {
         if (&field == noted.field) {
            noted.kept->insert(key, false);
         }
      });
   }
   try {
      Sarn::Ptr<Entity> removed;
      ops.applyDelete(*specimenOf(owner.kivType()), in, noted.kept.get(), removed);
   } catch (Exception const&) {  // no key of this collection: the peer has erased anything
      noted.all = true;
   }
}

void Denied::answerLater(U32 token, Sarn::String reason) {
   answers_.push_back({token, std::move(reason)});
}

U64 Denied::settle() {
   std::vector<Noted> const noted = std::move(noted_);
   noted_.clear();
   for (Noted const& one : noted) {
      settle(one);
   }
   U64 const until = teller_.backlog().sequence();
   for (Answer& answer : answers_) {
      teller_.replies().enqueue(Opcode::decided, answer.token, std::move(answer.reason), until);
   }
   answers_.clear();
   return until;
}

void Denied::settle(Noted const& noted) {
   Entity* const entity = handles_.find(noted.handle);
   if (entity == nullptr || !teller_.names().known(*entity)) {
      return;
   }
   FieldDescriptor const& field = *noted.field;
   if (field.kind == MemberKind::single) {
      teller_.backlog().mark(*entity, field, nullptr, false);
   } else if (field.kind == MemberKind::child) {
      if (Entity* const child = field.ops->child->get(*entity)) {
         teller_.peerLost(*child);
      }
      teller_.backlog().mark(*entity, field, nullptr, true);
   } else {
      forEachChild(*entity, [&](Entity& child, FieldDescriptor const& its, void const* key) {
         if (&its == &field && (noted.all || (noted.kept != nullptr && !noted.kept->has(key)))) {
            teller_.peerLost(child);
         }
      });
      teller_.backlog().markCollection(*entity, field);
   }
}

void Denied::clear() noexcept {
   noted_.clear();
   answers_.clear();
}

}  // namespace Kiv::NboAttrLog
