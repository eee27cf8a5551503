#include "tools/statedb/Recorder.h"

#include "Kiv/Path.h"
#include "tools/statedb/Snapshot.h"

namespace Statedb {

using Kiv::Entity;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;

namespace {

/// Below this many keys, a collection is never written as a whole.
constexpr std::size_t fewKeys = 1024;

RowChange entityChange(RowChange::Kind kind, S64 root, std::string path) {
   RowChange change{kind, root};
   change.entity.path = std::move(path);
   return change;
}

RowChange valueChange(RowChange::Kind kind, S64 root, std::string const& entity,
                      FieldDescriptor const& field, std::string key = {}) {
   return {kind, root, {}, {entity, field.name, std::move(key), {}}};
}

}  // namespace

Recorder::Recorder(Sarn::Ptr<Kiv::NamedEntity> root, S64 number)
      : root_(std::move(root)), number_(number) {
   root_->observerAdd(*this, Kiv::Scope::subtree);
}

Recorder::~Recorder() {
   root_->observerDel(*this, Kiv::Scope::subtree);
}

void Recorder::onChange(Kiv::Change const& change) {
   Entity& entity = Kiv::entityOf(change);
   Changed& changed =
         last_ != nullptr && last_->entity.get() == &entity ? *last_ : this->changed(entity);
   std::size_t const id = change.attributeId;
   if (id < changed.members.size() && changed.members[id]) {
      return;
   }
   FieldDescriptor const* const field = entity.kivType().field(change.attributeId);
   if (field == nullptr || !isKept(*field)) {
      return;
   }
   if (field->kind != MemberKind::queue && field->keyType != nullptr) {
      keyHasChanged(changed, *field, change.key);
      return;
   }
   if (id >= changed.members.size()) {
      changed.members.resize(id + 1);
   }
   changed.members[id] = true;
}

Recorder::Changed& Recorder::changed(Entity& entity) {
   if (entities_.size() > lookBeyond_) {
      forgetRemoved();
   }
   Changed& changed = entities_[&entity];
   if (changed.entity == nullptr) {
      changed.entity = Sarn::Ptr<Entity>(&entity);
   }
   last_ = &changed;
   return changed;
}

void Recorder::keyHasChanged(Changed& changed, FieldDescriptor const& field, void const* key) {
   Kiv::CollectionOps const& ops = *field.ops->collection;
   auto const [at, isNew] = changed.collections.try_emplace(field.fieldId);
   std::unique_ptr<Kiv::DirtyKeys>& keys = at->second.keys;
   if (isNew && key != nullptr) {
      keys.reset(ops.newDirtyKeys());
   }
   if (keys == nullptr) {
      return;  // all of it is written anyway
   }
   if (key == nullptr || (keys->size() >= fewKeys && keys->size() > 2 * ops.size(*changed.entity) &&
                          !keys->has(key))) {
      keys.reset();
      return;
   }
   keys->insert(key, true);
}

bool Recorder::isAttached(Entity const& entity) const noexcept {
   Entity const* at = &entity;
   while (at != nullptr && at != root_.get()) {
      at = at->parent();
   }
   return at != nullptr;
}

void Recorder::forgetRemoved() {
   last_ = nullptr;
   std::erase_if(entities_, [this](auto const& each) { return !isAttached(*each.second.entity); });
   lookBeyond_ = std::max<std::size_t>(1024, 2 * entities_.size());
}

void Recorder::take(Batch& batch) {
   last_ = nullptr;
   auto const entities = std::exchange(entities_, {});
   for (auto const& each : entities) {
      if (isAttached(*each.second.entity)) {
         take(const_cast<Changed&>(each.second), batch.changes);
      }
   }
}

void Recorder::take(Changed& changed, std::vector<RowChange>& out) const {
   using Kind = RowChange::Kind;
   Entity const& entity = *changed.entity;
   std::string const path = pathWithin(*root_, entity);
   for (std::size_t id = 0; id != changed.members.size(); ++id) {
      if (!changed.members[id]) {
         continue;
      }
      FieldDescriptor const& field = *entity.kivType().field(static_cast<Kiv::AttributeId>(id));
      if (field.kind == MemberKind::child) {
         out.push_back(entityChange(Kind::delEntity, number_, pathBelow(path, field.name)));
      }
      appendMember(out, number_, entity, path, field);
   }
   for (auto const& [id, collection] : changed.collections) {
      FieldDescriptor const& field = *entity.kivType().field(id);
      bool const ofChildren = field.kind == MemberKind::children;
      if (collection.keys == nullptr) {
         out.push_back(ofChildren
                             ? entityChange(Kind::delChildren, number_, pathBelow(path, field.name))
                             : valueChange(Kind::delElements, number_, path, field));
         appendMember(out, number_, entity, path, field);
         continue;
      }
      auto const each = [&](void const* key) {
         std::string text = Kiv::keyText({*field.keyType, key});
         out.push_back(
               ofChildren
                     ? entityChange(Kind::delEntity, number_, pathBelow(path, field.name, text))
                     : valueChange(Kind::delValue, number_, path, field, std::move(text)));
         appendMember(out, number_, entity, path, field, key);
      };
      collection.keys->flush(const_cast<void*>(static_cast<void const*>(&each)),
                             [](void* context, void const* key, bool) {
                                (*static_cast<decltype(each)*>(context))(key);
                                return Kiv::DirtyKeyResult::written;
                             });
   }
}

}  // namespace Statedb
