#include "Kiv/NboAttrLogHub.h"

#include <algorithm>
#include <cassert>

#include "Kiv/AttrOps.h"
#include "Kiv/NboAttrLogSa.h"
#include "Kiv/NboAttrLogSession.h"
#include "Sarn/Publications.h"

namespace Kiv {

/// What the log alone may do with an entity.
class EntityStreamAccess {
public:
   static void tagIs(Entity& entity, U32 handle) noexcept { entity.tag_ = handle; }
};

}  // namespace Kiv

namespace Kiv::NboAttrLog {

U32 HandleTable::add(Entity& entity) {
   if (freeCount_ > resting || (firstFree_ != none && entries_.size() >= limit_)) {
      U32 const at = firstFree_;
      Entry& entry = entries_[at];
      firstFree_ = entry.nextFree;
      if (firstFree_ == none) {
         lastFree_ = none;
      }
      --freeCount_;
      U32 const turn = (entry.handle >> 24) % 255 + 1;
      entry = {turn << 24 | at, none, &entity};
      return entry.handle;
   }
   if (entries_.size() >= limit_) {
      return 0;
   }
   auto const at = static_cast<U32>(entries_.size());
   entries_.push_back({U32(1) << 24 | at, none, &entity});
   return entries_.back().handle;
}

void HandleTable::remove(U32 handle) noexcept {
   U32 const at = place(handle);
   assert(find(handle) != nullptr);
   entries_[at].entity = nullptr;
   entries_[at].nextFree = none;
   (lastFree_ != none ? entries_[lastFree_].nextFree : firstFree_) = at;
   lastFree_ = at;
   ++freeCount_;
}

Hub::Hub(Limits const& limits)
      : limits_(limits),
        shortMessage_(std::min(limits.longestMessage, limits.unmounted)),
        handles_(std::min(limits.entities, HandleTable::placeMask)) {
   budget_.bound = limits.sessionBytes;
}

Hub::~Hub() {
   assert(sessions_.empty());
   for (auto const& root : roots_) {
      unregisterTree(root->entity());
   }
}

void Hub::tagIs(Entity& entity, U32 handle) noexcept {
   EntityStreamAccess::tagIs(entity, handle);
}

bool Hub::registerTree(Entity& entity) {
   struct Numbering {
      Hub& hub;
      Entity& entity;
      bool done = false;
      ~Numbering() {
         if (!done) {
            hub.unregisterTree(entity);
         }
      }
   } numbering{*this, entity};
   numbering.done = numberTree(entity);
   return numbering.done;
}

bool Hub::numberTree(Entity& entity) {
   if (entity.streamHandle() != 0) {
      return true;
   }
   U32 const handle = handles_.add(entity);
   if (handle == 0) {
      return false;
   }
   tagIs(entity, handle);
   bool all = true;
   forEachChild(entity, [&](Entity& child, FieldDescriptor const&, void const*) {
      all = all && numberTree(child);
   });
   return all;
}

Sarn::String Hub::tooManyEntities() const {
   return "more than " + std::to_string(limits_.entities) + " entities cannot be streamed";
}

void Hub::unregisterTree(Entity& entity) {
   U32 const handle = entity.streamHandle();
   if (handle == 0) {
      return;
   }
   for (Session* const session : sessions_) {
      session->forget(entity, handle);
   }
   handles_.remove(handle);
   tagIs(entity, 0);
   forEachChild(entity, [this](Entity& child, FieldDescriptor const&, void const*) {
      unregisterTree(child);
   });
}

void Hub::unregisterUntold() {
   struct Context {
      Hub& hub;
      bool any;
   } context{*this, true};
   while (context.any) {  // what is found may have lost children itself
      context.any = false;
      Sarn::Publications::forEach(&context, [](void* c, Change const& change) {
         auto& [hub, any] = *static_cast<Context*>(c);
         Entity const& owner = entityOf(change);
         FieldDescriptor const* const field = owner.kivType().field(change.attributeId);
         bool const ofEntities = field != nullptr && (field->kind == MemberKind::child ||
                                                      field->kind == MemberKind::children);
         if (!ofEntities || change.oldValue == nullptr || owner.streamHandle() != 0) {
            return;
         }
         Entity& removed = **static_cast<Sarn::Ptr<Entity> const*>(change.oldValue);
         any = any || removed.streamHandle() != 0;
         hub.unregisterTree(removed);
      });
   }
}

Hub::Root* Hub::find(std::string_view type, std::string_view name) const noexcept {
   for (auto const& root : roots_) {
      if (root->entity().kivType().name == type && root->entity().nameString() == name) {
         return root.get();
      }
   }
   return nullptr;
}

Hub::Root* Hub::findOffered(std::string_view type, std::string_view name) const noexcept {
   Root* const root = find(type, name);
   return root != nullptr && root->offered ? root : nullptr;
}

Hub::Root& Hub::adopt(Sarn::Ptr<NamedEntity> const& entity, bool offered, Session* subscriber) {
   Root* root = find(entity->kivType().name, entity->nameString());
   if (root != nullptr && (&root->entity() != entity.get() || (offered && root->offered))) {
      throw Exception(Sarn::String(entity->kivType().name) + " " + entity->nameString() +
                      " is a root of this hub already");
   }
   // What may throw comes before anything is changed; the numbers, which others see, come last.
   std::unique_ptr<Root> made;
   if (root == nullptr) {
      made = std::make_unique<Root>(*this, entity, offered);
      root = made.get();
      roots_.reserve(roots_.size() + 1);
   }
   bool const subscribes =
         subscriber != nullptr && std::find(root->subscribers.begin(), root->subscribers.end(),
                                            subscriber) == root->subscribers.end();
   if (subscribes) {
      root->subscribers.reserve(root->subscribers.size() + 1);
   }
   if (made != nullptr) {
      if (!registerTree(*entity)) {
         throw Exception(tooManyEntities());
      }
      roots_.push_back(std::move(made));
   }
   if (subscribes) {
      root->subscribers.push_back(subscriber);
   }
   root->offered = root->offered || offered;
   ++root->users;
   return *root;
}

void Hub::release(Root& root) {
   if (--root.users != 0) {
      return;
   }
   unregisterTree(root.entity());
   unregisterUntold();
   std::erase_if(roots_, [&root](auto const& at) { return at.get() == &root; });
}

Session const* Hub::inTheWay(Root const& root, MountMode mode) const noexcept {
   if (!writesBack(mode)) {
      return nullptr;
   }
   for (Session const* const session : sessions_) {
      for (Session::Served const& served : session->served_) {
         bool const claimed = mode == MountMode::owner || served.mode == MountMode::owner;
         if (served.root == &root && writesBack(served.mode) && claimed) {
            return session;
         }
      }
   }
   return nullptr;
}

void Hub::rootIs(Sarn::Ptr<NamedEntity> const& root) {
   adopt(root, true);
}

Sarn::Ptr<NamedEntity> Hub::rootDel(std::string_view type, std::string_view name) {
   Root* const root = findOffered(type, name);
   if (root == nullptr) {
      return {};
   }
   Sarn::Ptr<NamedEntity> entity(&root->entity());
   std::vector<Session*> const sessions = sessions_;
   for (Session* const session : sessions) {
      session->rootGone(*root);
   }
   root->offered = false;
   release(*root);
   return entity;
}

NamedEntity* Hub::root(std::string_view type, std::string_view name) const noexcept {
   Root* const root = findOffered(type, name);
   return root != nullptr ? &root->entity() : nullptr;
}

std::vector<NamedEntity*> Hub::roots() const {
   std::vector<NamedEntity*> offered;
   for (auto const& root : roots_) {
      if (root->offered) {
         offered.push_back(&root->entity());
      }
   }
   return offered;
}

Hub::Root::Root(Hub& hub, Sarn::Ptr<NamedEntity> entity, bool isOffered)
      : offered(isOffered), hub_(hub), entity_(std::move(entity)) {
   // Before all other observers, so that the log keeps the order in which changes were made.
   entity_->observerAddFirst(*this);
}

Hub::Root::~Root() {
   entity_->observerDel(*this, Scope::subtree);
}

void Hub::Root::onChange(Change const& change) {
   Entity& entity = entityOf(change);
   if (entity.streamHandle() == 0) {
      return;
   }
   FieldDescriptor const* const field = entity.kivType().field(change.attributeId);
   if (field == nullptr || !field->has(FieldDescriptor::streamed)) {
      return;
   }
   Session* const from = hub_.applying_.session != nullptr ? madeBy(change) : nullptr;
   // Of queues the session keeps account itself, since their changes build on each other.
   bool const skips =
         from != nullptr && (field->kind == MemberKind::queue || !from->mustEcho(*this));
   Session* const skipped = skips ? from : nullptr;
   if (field->kind == MemberKind::single) {
      onSingle(entity, *field, skipped);
   } else {
      onOther(entity, *field, change, from, skipped);
   }
}

Session* Hub::Root::madeBy(Change const& change) const noexcept {
   bool const direct = Sarn::Publications::around(change) == hub_.applying_.inside;
   return direct ? hub_.applying_.session : nullptr;
}

inline U8 const* Session::tellValue(Entity& entity, FieldDescriptor const& field, std::size_t body,
                                    U8 const* encoded) {
   if (live() && reach(entity)) [[likely]] {
      if (isLeftOut(body)) [[unlikely]] {
         leaveOut(body, entity, &field, nullptr);
         return encoded;
      }
      if (body > longestBody_) [[unlikely]] {
         if (write(Opcode::set, body, entity.streamHandle(), field.fieldId,
                   [&](Out& out) { field.ops->encode(entity, out); })) {
            return encoded;
         }
      } else if (encoded != nullptr) {
         if (copy(encoded, headerSize + body)) {
            return encoded;
         }
      } else if (U8* const at = reserve(Opcode::set, body, entity.streamHandle(), field.fieldId))
            [[likely]] {
         Out out(at + headerSize, body);
         field.ops->encode(entity, out);
         commit(headerSize + body);
         return at;
      }
   }
   markDirty(entity, field, nullptr, false);
   return encoded;
}

namespace {

std::size_t bodySize(Entity const& entity, FieldDescriptor const& field) {
   std::size_t const fixed = field.ops->fixedSize;
   return fixed != 0 ? fixed : field.ops->encodedSize(entity);
}

}  // namespace

void Hub::Root::onSingle(Entity& entity, FieldDescriptor const& field, Session const* skipped) {
   std::size_t const body = bodySize(entity, field);
   U8 const* encoded = nullptr;
   for (Session* const session : subscribers) {
      if (!session->closed() && session != skipped) {
         session->orFail([&] { encoded = session->tellValue(entity, field, body, encoded); });
      }
   }
}

void Sa::onChange(FieldDescriptor const& field, Change const& change) {
   if (field.kind == MemberKind::single) {
      std::size_t const body = bodySize(entity_, field);
      session_.orFail([&] { session_.tellValue(entity_, field, body, nullptr); });
      return;
   }
   bool const holdsEntities = field.kind == MemberKind::child || field.kind == MemberKind::children;
   Entity* const removed = holdsEntities && change.oldValue != nullptr
                                 ? static_cast<Sarn::Ptr<Entity> const*>(change.oldValue)->get()
                                 : nullptr;
   session_.orFail([&] {
      session_.saw(entity_, field, change.key);
      session_.onChange(entity_, field, change.key, removed);
   });
}

void Hub::Root::onOther(Entity& entity, FieldDescriptor const& field, Change const& change,
                        Session* from, Session* skipped) {
   bool const holdsEntities = field.kind == MemberKind::child || field.kind == MemberKind::children;
   Entity* removed = nullptr;
   if (holdsEntities) {
      if (change.oldValue != nullptr) {
         removed = static_cast<Sarn::Ptr<Entity> const*>(change.oldValue)->get();
      }
      Entity* const present = field.kind == MemberKind::child
                                    ? field.ops->child->get(entity)
                                    : field.ops->collection->findChild(entity, change.key);
      if (present != nullptr) {
         registerPresent(*present);
      }
      if (present != nullptr && skipped != nullptr) {
         skipped->orFail([&] { skipped->created(*present); });
      } else if (present == nullptr && from != nullptr && change.oldValue == nullptr) {
         from->orFail([&] { from->vanished(entity, field, change.key); });
      }
   }
   for (Session* const session : subscribers) {
      if (!session->closed() && session != skipped) {
         session->orFail([&] {
            session->saw(entity, field, change.key);
            session->onChange(entity, field, change.key, removed);
         });
      }
   }
   if (removed != nullptr) {
      hub_.unregisterTree(*removed);
      hub_.unregisterUntold();
   }
}

/// Numbers a child that has come. A mirror without it would be wrong for good, and the setter has
/// done its work: if it cannot be numbered, sessions end.
void Hub::Root::registerPresent(Entity& child) noexcept {
   Sarn::String reason = outOfMemory();
   try {
      if (hub_.registerTree(child)) {
         return;
      }
      reason = hub_.tooManyEntities();
   } catch (std::bad_alloc const&) {  // the reason is that
   }
   for (Session* const session : subscribers) {
      session->fail(copyOrOutOfMemory(reason));
   }
}

U8* Hub::Root::roomFor(Sarn::Publisher const& source, AttributeId id,
                       std::size_t size) noexcept {
   if (subscribers.size() != 1 || hub_.applying_.session != nullptr) {
      return nullptr;
   }
   Session& session = *subscribers.front();
   U32 const handle = static_cast<Entity const&>(source).streamHandle();
   if (handle == 0 || !session.live() || session.writesBack_ || !session.introduced(handle)) {
      return nullptr;
   }
   U8* const at = session.reserve(Opcode::set, size, handle, id);
   if (at == nullptr) {
      return nullptr;
   }
   session.commit(headerSize + size);
   return at + headerSize;
}

}  // namespace Kiv::NboAttrLog
