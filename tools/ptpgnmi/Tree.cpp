#include "tools/ptpgnmi/Tree.h"

#include <algorithm>

#include "Kiv/Path.h"
#include "Kiv/Visit.h"
#include "tools/ptpgnmi/Codec.h"
#include "tools/ptpgnmi/EachMember.h"
#include "tools/ptpgnmi/Wire.h"

namespace Ptpgnmi {

using Kiv::Entity;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;

namespace {

bool isEntity(FieldDescriptor const& field) {
   return field.kind == MemberKind::child || field.kind == MemberKind::children;
}

Elems joined(Elems a, Elems const& b) {
   a.insert(a.end(), b.begin(), b.end());
   return a;
}

std::size_t index(Encoding encoding) {
   return encoding == Encoding::json ? 0 : encoding == Encoding::proto ? 1 : 2;
}

Pattern::State stateOf(std::vector<std::pair<Interest*, Pattern::State>> const& states,
                       Interest const& interest) {
   for (auto const& [known, state] : states) {
      if (known == &interest) {
         return state;
      }
   }
   return 0;
}

std::string keyOf(Kiv::ValueRef key) {
   return key.address != nullptr ? std::string(Kiv::keyText(key)) : std::string();
}

}  // namespace

Tree::~Tree() {
   for (auto const& root : roots_) {
      root->observerDel(*this, Kiv::Scope::subtree);
   }
}

//--- Roots ----------------------------------------------------------------------------------------

void Tree::rootIs(Sarn::Ptr<Kiv::NamedEntity> const& root) {
   roots_.push_back(root);
   root->observerAdd(*this, Kiv::Scope::subtree);
   for (auto const& [pattern, interest] : interests_) {
      coverRoot(root, *interest);
   }
}

void Tree::rootDel(Kiv::NamedEntity const& root) {
   auto const at = std::find_if(roots_.begin(), roots_.end(),
                                [&root](auto const& known) { return &*known == &root; });
   if (at == roots_.end()) {
      return;
   }
   (*at)->observerDel(*this, Kiv::Scope::subtree);
   if (auto const rec = rootRecs_.find(&root); rec != rootRecs_.end()) {
      removed(*rec->second);
      rootRecs_.erase(rec);
   }
   roots_.erase(at);
}

std::vector<Kiv::NamedEntity const*> Tree::roots() const {
   std::vector<Kiv::NamedEntity const*> roots;
   for (auto const& root : roots_) {
      roots.push_back(&*root);
   }
   return roots;
}

void Tree::coverRoot(Sarn::Ptr<Kiv::NamedEntity> const& root, Interest& interest) {
   Elems const path = model_.root(*root);
   Pattern::State const state = interest.pattern.steps(interest.pattern.start(), path);
   if (path.empty() || state == 0) {
      return;
   }
   auto& rec = rootRecs_[&*root];
   if (rec == nullptr) {
      rec = std::make_unique<Rec>();
      rec->entity = root;
      rec->path = path;
      recs_[&*root] = rec.get();
   }
   cover(*rec, interest, state);
}

//--- Interests ------------------------------------------------------------------------------------

Interest& Tree::interest(Elems const& pattern) {
   auto& known = interests_[pattern];
   if (known == nullptr) {
      known = std::make_unique<Interest>(pattern);
      for (auto const& root : roots_) {
         coverRoot(root, *known);
      }
   }
   ++known->holders;
   return *known;
}

void Tree::release(Interest& interest) {
   if (--interest.holders != 0) {
      return;
   }
   if (interests_.size() == 1) {
      recs_.clear();
      rootRecs_.clear();
      leaves_.clear();
      free_.clear();
   } else {
      for (Leaf& leaf : leaves_) {
         std::erase(leaf.interests, &interest);
         if (leaf.group != nullptr && leaf.interests.empty()) {
            auto const id = static_cast<LeafId>(&leaf - leaves_.data());
            for (Slot& slot : leaf.group->slots) {
               slot.leaf = slot.leaf == id ? noLeaf : slot.leaf;
            }
            leaf = Leaf();
            free_.push_back(id);
         }
      }
      for (auto const& [entity, rec] : recs_) {
         std::erase_if(rec->states, [&](auto const& state) { return state.first == &interest; });
      }
   }
   Elems const pattern = interest.pattern.elems();
   interests_.erase(pattern);
}

std::vector<LeafId> const& Tree::leavesOf(Interest& interest) {
   if (interest.isStale) {
      // The number of a leaf that is gone may belong to another of the same interest now.
      std::vector<bool> seen(leaves_.size());
      std::erase_if(interest.leaves, [&](LeafId id) {
         auto const& of = leaves_[id].interests;
         bool const gone = seen[id] || std::find(of.begin(), of.end(), &interest) == of.end();
         seen[id] = true;
         return gone;
      });
      interest.isStale = false;
   }
   return interest.leaves;
}

void Tree::wants(Group& group, Slot& slot, Elems const& memberPath, Interest& interest) {
   if (slot.leaf == noLeaf) {
      if (free_.empty()) {
         slot.leaf = static_cast<LeafId>(leaves_.size());
         leaves_.emplace_back();
      } else {
         slot.leaf = free_.back();
         free_.pop_back();
      }
      leaves_[slot.leaf].group = &group;
      leaves_[slot.leaf].path = pathBytes(joined(memberPath, slot.below));
   }
   Leaf& leaf = leaves_[slot.leaf];
   if (std::find(leaf.interests.begin(), leaf.interests.end(), &interest) == leaf.interests.end()) {
      if (interest.isStale && interest.leaves.size() > 2 * leaves_.size() + 64) {
         leavesOf(interest);  // leaves that come and go must not cost memory for ever
      }
      leaf.interests.push_back(&interest);
      interest.leaves.push_back(slot.leaf);
      for (Watch* const watch : interest.watches) {
         watch->onAdded(slot.leaf);
      }
   }
}

void Tree::coverValue(Rec& rec, FieldDescriptor const& field, Kiv::ValueRef key,
                      Kiv::ValueRef value, Interest& interest, Pattern::State state) {
   auto const elems = model_.member(*rec.entity, field, key);
   if (!elems || (state = interest.pattern.steps(state, *elems)) == 0) {
      return;
   }
   MemberKey const at(field.fieldId, keyOf(key));
   Group* group = groupOf(rec, at);
   if (group == nullptr) {
      Group made{&rec, &field, nullptr, {}, model_.varies(field)};
      if (key.address != nullptr) {
         made.key = std::make_unique<Kiv::AnyValue>(*key.type);
         made.key->copy(key.address);
      }
      model_.leaves(*rec.entity, field, value, [&made](Elems const& below, Value const&) {
         made.slots.push_back({below, noLeaf});
      });
      group = key.address != nullptr
                    ? &rec.elements.emplace(at, std::move(made)).first->second
                    : &rec.singles.emplace(at.first, std::move(made)).first->second;
   }
   Elems const path = joined(rec.path, *elems);
   for (Slot& slot : group->slots) {
      if (interest.pattern.fits(interest.pattern.steps(state, slot.below))) {
         wants(*group, slot, path, interest);
      }
   }
}

void Tree::coverChild(Rec& rec, FieldDescriptor const& field, Kiv::ValueRef key,
                      Entity const& child, Interest& interest, Pattern::State state) {
   auto const elems = model_.member(*rec.entity, field, key);
   if (!elems || (state = interest.pattern.steps(state, *elems)) == 0) {
      return;
   }
   auto& below = rec.children[{field.fieldId, keyOf(key)}];
   if (below == nullptr) {
      below = std::make_unique<Rec>();
      below->entity = Sarn::Ptr<Entity>(const_cast<Entity*>(&child));
      below->path = joined(rec.path, *elems);
      recs_[&child] = below.get();
   }
   cover(*below, interest, state);
}

void Tree::cover(Rec& rec, Interest& interest, Pattern::State state) {
   if (stateOf(rec.states, interest) == 0) {
      rec.states.emplace_back(&interest, state);
   }
   forEachMember(
         *rec.entity,
         [&](FieldDescriptor const& field, Kiv::ValueRef key, Kiv::ValueRef value) {
            coverValue(rec, field, key, value, interest, state);
         },
         [&](FieldDescriptor const& field, Kiv::ValueRef key, Entity const& child) {
            coverChild(rec, field, key, child, interest, state);
         });
}

//--- Changes --------------------------------------------------------------------------------------

Tree::Group* Tree::groupOf(Rec& rec, MemberKey const& at) {
   if (auto const single = rec.singles.find(at.first); single != rec.singles.end()) {
      return &single->second;
   }
   auto const element = rec.elements.find(at);
   return element != rec.elements.end() ? &element->second : nullptr;
}

void Tree::onChange(Kiv::Change const& change) {
   Entity& entity = Kiv::entityOf(change);
   auto const at = recs_.find(&entity);
   if (at == recs_.end()) {
      return;
   }
   Rec& rec = *at->second;
   FieldDescriptor const* const field = entity.kivType().field(change.attributeId);
   if (field == nullptr) {
      return;
   }
   FieldDescriptor const* const dependent = model_.dependent(entity, *field);
   auto const single = rec.singles.find(change.attributeId);
   if (single != rec.singles.end() && !single->second.varies) {
      changed(single->second);
   } else {
      reconcile(rec, *field, change.key);
   }
   if (dependent != nullptr) {
      reconcile(rec, *dependent, nullptr);
   }
   // The path of a root may depend on its attributes.
   if (auto const root = rootRecs_.find(&entity); root != rootRecs_.end()) {
      auto const& named = static_cast<Kiv::NamedEntity&>(entity);
      if (model_.root(named) != rec.path) {
         auto const known = std::find_if(roots_.begin(), roots_.end(),
                                         [&](auto const& r) { return &*r == &named; });
         Sarn::Ptr<Kiv::NamedEntity> const held = *known;
         rootDel(named);
         rootIs(held);
      }
   }
}

void Tree::reconcile(Rec& rec, FieldDescriptor const& field, void const* key) {
   static Kiv::TypeImpl const& number = Kiv::typeOf<U32>();
   Kiv::ValueRef const keyRef =
         key == nullptr ? Kiv::ValueRef()
                        : Kiv::ValueRef(field.keyType != nullptr ? *field.keyType : number, key);
   MemberKey const at(field.fieldId, keyOf(keyRef));
   Kiv::Present const present(*rec.entity, field, key);
   if (isEntity(field)) {
      reconcileChild(rec, field, keyRef, at, present.child());
   } else {
      reconcileValue(rec, field, keyRef, at, present.value());
   }
}

void Tree::reconcileChild(Rec& rec, FieldDescriptor const& field, Kiv::ValueRef key,
                          MemberKey const& at, Entity* child) {
   auto const known = rec.children.find(at);
   if (known != rec.children.end()) {
      if (&*known->second->entity == child) {
         return;
      }
      removed(*known->second);
      rec.children.erase(known);
   }
   if (child != nullptr) {
      for (auto const& [interest, state] : rec.states) {
         coverChild(rec, field, key, *child, *interest, state);
      }
   }
}

void Tree::reconcileValue(Rec& rec, FieldDescriptor const& field, Kiv::ValueRef key,
                          MemberKey const& at, Kiv::ValueRef value) {
   if (Group* const group = groupOf(rec, at)) {
      bool same = value.address != nullptr;
      if (same) {
         std::size_t i = 0;
         model_.leaves(*rec.entity, field, value, [&](Elems const& below, Value const&) {
            same = same && i < group->slots.size() && group->slots[i].below == below;
            ++i;
         });
         same = same && i == group->slots.size();
      }
      if (same) {
         changed(*group);
         return;
      }
      forget(*group, {});
      rec.singles.erase(at.first);
      rec.elements.erase(at);
   }
   if (value.address != nullptr) {
      for (auto const& [interest, state] : rec.states) {
         coverValue(rec, field, key, value, *interest, state);
      }
   }
}

void Tree::changed(Group const& group) {
   for (Slot const& slot : group.slots) {
      if (slot.leaf != noLeaf) {
         Leaf& leaf = leaves_[slot.leaf];
         for (std::string& update : leaf.updates) {
            update.clear();
         }
         for (Interest* const interest : leaf.interests) {
            for (Watch* const watch : interest->watches) {
               watch->onChanged(slot.leaf);
            }
         }
      }
   }
}

/// `told`: the interests whose watches have been told that all of it is gone.
void Tree::forget(Group const& group,
                  std::vector<std::pair<Interest*, Pattern::State>> const& told) {
   for (Slot const& slot : group.slots) {
      if (slot.leaf == noLeaf) {
         continue;
      }
      Leaf& leaf = leaves_[slot.leaf];
      for (Interest* const interest : leaf.interests) {
         interest->isStale = true;
         bool const silent = interest->pattern.fits(stateOf(told, *interest));
         for (Watch* const watch : interest->watches) {
            watch->onRemoved(slot.leaf);
            if (!silent) {
               watch->onDeleted(leaf.path);
            }
         }
      }
      leaf = Leaf();
      free_.push_back(slot.leaf);
   }
}

void Tree::forget(Rec& rec, std::vector<std::pair<Interest*, Pattern::State>> const& told) {
   for (auto const& [at, group] : rec.singles) {
      forget(group, told);
   }
   for (auto const& [at, group] : rec.elements) {
      forget(group, told);
   }
   for (auto const& [at, child] : rec.children) {
      forget(*child, told);
   }
   recs_.erase(&*rec.entity);
}

void Tree::removed(Rec& rec) {
   std::string const path = pathBytes(rec.path);
   for (auto const& [interest, state] : rec.states) {
      if (interest->pattern.fits(state)) {
         for (Watch* const watch : interest->watches) {
            watch->onDeleted(path);
         }
      }
   }
   forget(rec, rec.states);
}

//--- Values ---------------------------------------------------------------------------------------

std::string const& Tree::update(LeafId id, Encoding encoding) {
   std::string& update = leaves_[id].updates[index(encoding)];
   if (update.empty()) {
      encode(*leaves_[id].group, encoding);
   }
   return update;
}

void Tree::encode(Group const& group, Encoding encoding) {
   Kiv::Present const present(*group.rec->entity, *group.field,
                              group.key != nullptr ? group.key->get() : nullptr);
   std::size_t i = 0;
   model_.leaves(*group.rec->entity, *group.field, present.value(),
                 [&](Elems const&, Value const& value) {
                    Slot const& slot = group.slots[i++];
                    if (slot.leaf != noLeaf) {
                       Leaf& leaf = leaves_[slot.leaf];
                       std::string& update = leaf.updates[index(encoding)];
                       update.clear();
                       Wire::bytes(update, 1, leaf.path);
                       Wire::bytes(update, 3, valueBytes(value, encoding));
                    }
                 });
}

}  // namespace Ptpgnmi
