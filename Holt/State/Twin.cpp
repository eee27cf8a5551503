#include "Holt/State/Twin.h"

#include <cassert>
#include <cstring>
#include <utility>

#include "Kiv/AnyValue.h"
#include "Kiv/AttrOps.h"
#include "Kiv/GenericIfImpl.h"
#include "Kiv/NboAttrLog.h"

namespace Holt {
namespace {

using Kiv::CollectionOps;
using Kiv::Entity;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;
using Kiv::NboAttrLog::In;
using Kiv::NboAttrLog::Out;
using Bytes = std::vector<U8>;

/// What `encode` writes, of `size` bytes.
template <class Encode>
Bytes encoded(std::size_t size, Encode&& encode) {
   Bytes bytes(size);
   Out out(bytes.data(), size);
   encode(out);
   return bytes;
}

Bytes valueBytes(Entity const& entity, FieldDescriptor const& field) {
   return encoded(field.ops->encodedSize(entity),
                  [&](Out& out) { field.ops->encode(entity, out); });
}

Bytes elementBytes(CollectionOps const& ops, void const* key, void const* value) {
   return encoded(ops.elementSize(key, value),
                  [&](Out& out) { ops.encodeElement(out, key, value); });
}

Bytes keyBytes(CollectionOps const& ops, void const* key) {
   return encoded(ops.keySize(key), [&](Out& out) { ops.encodeKey(out, key); });
}

Bytes queuedBytes(Kiv::QueueOps const& ops, void const* value) {
   return encoded(ops.elementSize(value), [&](Out& out) { ops.encodeElement(out, value); });
}

/// Takes the child that is there, and wants every other one.
struct TakesAll final : Kiv::CreationReceiver {
   void found(Entity&) override {}
   bool wanted(void const*) override { return true; }
};

void copyValue(Entity const& from, FieldDescriptor const& field, Entity& to) {
   Bytes const wanted = valueBytes(from, field);
   if (wanted != valueBytes(to, field)) {
      In in(wanted.data(), wanted.data() + wanted.size());
      field.ops->apply(to, in);
   }
}

void copyChild(Entity const& from, FieldDescriptor const& field, Entity& to) {
   Entity const* const wanted = field.ops->child->get(from);
   Entity const* const present = field.ops->child->get(to);
   Sarn::String const* const name = wanted != nullptr ? entityName(*wanted) : nullptr;
   if (present != nullptr &&
       (wanted == nullptr || (name != nullptr && *name != *entityName(*present)))) {
      field.ops->child->del(to);
   }
   if (wanted != nullptr) {
      Sarn::Ptr<Entity> const child =
            field.ops->child->is(to, name != nullptr ? std::string_view(*name) : "");
      copyTree(*wanted, *child);
   }
}

/// Copies the element or child with this key; removes it if `from` has none.
void copyElement(Entity const& from, FieldDescriptor const& field, void const* key, Entity& to) {
   CollectionOps const& ops = *field.ops->collection;
   void const* const wanted = ops.find(from, key);
   if (wanted == nullptr) {
      ops.del(to, key);
      return;
   }
   if (field.kind == MemberKind::children) {
      Entity const& child = *ops.findChild(from, key);
      Kiv::StreamFunctions const& constructor = *child.kivType().entity->stream;
      Bytes const arguments = encoded(constructor.attrLogSizeCtorParams(child), [&](Out& out) {
         constructor.serializeConstructorParams(out, child);
      });
      In in(arguments.data(), arguments.data() + arguments.size());
      TakesAll receiver;
      if (Sarn::Ptr<Entity> const copy = ops.applyCreate(to, in, nullptr, receiver)) {
         copyTree(child, *copy);
      }
      return;
   }
   Bytes const bytes = elementBytes(ops, key, wanted);
   void const* const present = ops.find(to, key);
   if (present == nullptr || bytes != elementBytes(ops, key, present)) {
      In in(bytes.data(), bytes.data() + bytes.size());
      ops.applyElement(to, in, nullptr);
   }
}

void copyCollection(Entity const& from, FieldDescriptor const& field, Entity& to) {
   CollectionOps const& ops = *field.ops->collection;
   for (Kiv::CollectionCursor at(to, field); at->valid(); at->next()) {
      if (ops.find(from, at->key()) == nullptr) {
         Bytes const key = keyBytes(ops, at->key());
         In in(key.data(), key.data() + key.size());
         Sarn::Ptr<Entity> removed;
         ops.applyDelete(to, in, nullptr, removed);
      }
   }
   // A cursor does not change what it walks over.
   for (Kiv::CollectionCursor at(const_cast<Entity&>(from), field); at->valid(); at->next()) {
      copyElement(from, field, at->key(), to);
   }
}

/// Whether the elements of `to` behind its first `dropped` are the first ones of `from`.
bool continues(Entity const& from, Kiv::QueueOps const& ops, Entity const& to, U32 dropped) {
   U32 at = ops.frontSequence(from);
   for (U32 i = ops.frontSequence(to) + dropped; i != ops.nextSequence(to); ++i, ++at) {
      if (queuedBytes(ops, ops.at(from, at)) != queuedBytes(ops, ops.at(to, i))) {
         return false;
      }
   }
   return true;
}

/// Copies a queue: removes from the front what is not in `from`, and appends what is missing. The
/// numbers of the elements do not count: whoever serves `to` to others numbers them.
void copyQueue(Entity const& from, FieldDescriptor const& field, Entity& to) {
   Kiv::QueueOps const& ops = *field.ops->queue;
   U32 const wanted = ops.nextSequence(from) - ops.frontSequence(from);
   U32 const present = ops.nextSequence(to) - ops.frontSequence(to);
   U32 dropped = present > wanted ? present - wanted : 0;
   while (dropped != present && !continues(from, ops, to, dropped)) {
      ++dropped;
   }
   for (U32 i = 0; i != dropped; ++i) {
      ops.deq(to);
   }
   for (U32 at = ops.frontSequence(from) + (present - dropped); at != ops.nextSequence(from);
        ++at) {
      ops.enq(to, ops.at(from, at));
   }
}

/// Copies a member, or only what it has at `key`.
void copyMember(Entity const& from, FieldDescriptor const& field, void const* key, Entity& to) {
   switch (field.kind) {
      case MemberKind::single:
         if (field.ops->apply != nullptr) {
            copyValue(from, field, to);
         }
         break;
      case MemberKind::child:
         copyChild(from, field, to);
         break;
      case MemberKind::children:
      case MemberKind::map:
      case MemberKind::ordered:
         if (key != nullptr) {
            copyElement(from, field, key, to);
         } else {
            copyCollection(from, field, to);
         }
         break;
      case MemberKind::queue:
         copyQueue(from, field, to);
         break;
      case MemberKind::none:
      case MemberKind::operation:
         break;
   }
}

/// What `field` holds for the key of `child`, in `from` and in `to`: if the former is the child,
/// the latter is its twin.
bool findByKey(Entity const& child, Entity const& from, Entity const& to, Entity*& twin) {
   FieldDescriptor const* const held = child.kivType().key();
   if (held == nullptr) {
      return false;
   }
   Kiv::AnyValue key(*held->type);
   key.read(&child, *held);
   bool found = false;
   Kiv::forEachField(from.kivType(), [&](FieldDescriptor const& field) {
      if (!found && field.kind == MemberKind::children &&
          std::strcmp(field.keyType->name, held->type->name) == 0 &&
          field.ops->collection->findChild(from, key.get()) == &child) {
         found = true;
         twin = field.ops->collection->findChild(to, key.get());
      }
   });
   return found;
}

/// What `child` of `from` is in `to`, the twin of its parent; null if `to` has nothing there.
Entity* counterpart(Entity const& child, Entity const& from, Entity const& to) {
   Entity* twin = nullptr;
   if (!findByKey(child, from, to, twin)) {
      Kiv::forEachChild(from, [&](Entity& one, FieldDescriptor const& field, void const* key) {
         if (&one == &child) {
            twin = key != nullptr ? field.ops->collection->findChild(to, key)
                                  : field.ops->child->get(to);
         }
      });
   }
   return twin;
}

/// What `entity`, below the root `from` or that root, is below `to`.
Entity* twinOf(Entity const& entity, Entity const& from, Entity& to) {
   if (&entity == &from) {
      return &to;
   }
   Entity const* const parent = entity.parent();
   Entity const* const there = parent != nullptr ? twinOf(*parent, from, to) : nullptr;
   return there != nullptr ? counterpart(entity, *parent, *there) : nullptr;
}

}  // namespace

void copyTree(Entity const& from, Entity& to) {
   assert(&from.kivType() == &to.kivType());
   Kiv::forEachField(from.kivType(), [&](FieldDescriptor const& field) {
      if (field.has(FieldDescriptor::streamed) && !field.has(FieldDescriptor::constant)) {
         copyMember(from, field, nullptr, to);
      }
   });
}

Twin::Twin(Sarn::Ptr<Entity> from, Sarn::Ptr<Entity> to)
      : from_(std::move(from)), to_(std::move(to)) {
   copyTree(*from_, *to_);
   from_->observerAdd(*this, Kiv::Scope::subtree);
}

Twin::~Twin() {
   from_->observerDel(*this, Kiv::Scope::subtree);
}

void Twin::onChange(Kiv::Change const& change) {
   Entity const& entity = Kiv::entityOf(change);
   FieldDescriptor const* const field = entity.kivType().field(change.attributeId);
   if (field == nullptr || !field->has(FieldDescriptor::streamed)) {
      return;
   }
   // What is not there comes with the change that makes it, which is still to be told.
   if (Entity* const twin = twinOf(entity, *from_, *to_)) {
      copyMember(entity, *field, change.key, *twin);
   }
}

}  // namespace Holt
