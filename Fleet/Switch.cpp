#include "Fleet/Switch.h"

#include <algorithm>

#include "Fleet/Mirror.h"
#include "Fleet/Names.h"
#include "Holt/Client.h"
#include "Holt/Failure.h"
#include "Holt/State/Doc.h"
#include "Holt/State/Key.h"
#include "Holt/State/Load.h"
#include "Kiv/Module.h"
#include "Kiv/Printable.h"

namespace Fleet {

using Kiv::Entity;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;

namespace {

/// Whether a message of such an entity may ask for another one in its place.
bool isReplaceable(Kiv::TypeImpl const& type) {
   bool found = type.named;
   Kiv::forEachGivenMember(type, [&](FieldDescriptor const& field) {
      found = found || field.has(FieldDescriptor::constant);
   });
   return found;
}

std::string_view rootOf(std::string_view place) {
   return place.substr(0, place.find('.'));
}

std::unique_ptr<Kiv::AnyValue> keyOf(FieldDescriptor const& field, std::string_view token) {
   auto key = std::make_unique<Kiv::AnyValue>(*field.keyType);
   std::optional<std::string> const text = tokenText(token);
   if (!text) {
      throw Holt::Failure("the subject has the invalid token '" + std::string(token) + "'");
   }
   Holt::parseKey(*text, *key);
   if (Kiv::keyText(key->ref()) != *text) {
      throw Holt::Failure("the key '" + *text + "' is written '" + Kiv::keyText(key->ref()) + "'");
   }
   return key;
}

}  // namespace

Switch::Switch(Mirror& mirror, std::string name) : mirror_(mirror), name_(std::move(name)) {
   status_.since = Holt::wallNow();
}

Switch::~Switch() = default;

std::vector<Kiv::NamedEntity*> Switch::roots() const {
   std::vector<Kiv::NamedEntity*> roots;
   for (auto const& [name, root] : roots_) {
      roots.push_back(&*root);
   }
   return roots;
}

Sarn::Ptr<Kiv::NamedEntity> Switch::root(std::string_view name) const {
   auto const at = roots_.find(name);
   return at != roots_.end() ? at->second : Sarn::Ptr<Kiv::NamedEntity>();
}

// ---- Entities ----

void Switch::onMessage(std::string_view subject, std::string_view place,
                       EntityMessage const& message) {
   ++status_.messages;
   status_.sequence = std::max(status_.sequence, message.sequence);
   if (message.isDeleted()) {
      remove(place);
      return;
   }
   if (!apply(subject, place, message)) {
      return;
   }
   if (!waiting_.empty()) {
      applyWaiting(std::string(place));
   }
}

/// Returns whether there is an entity now.
bool Switch::apply(std::string_view subject, std::string_view place, EntityMessage const& message) {
   ApplyProblems problems;
   auto const at = records_.find(place);
   if (at != records_.end() && at->second.digest == digestOf(place, message.value)) {
      at->second.reading = mirror_.reading_;
      return true;
   }
   bool later = false;
   Sarn::Ptr<Entity> entity;
   try {
      entity = at != records_.end() && !isReplaceable(at->second.entity->kivType())
                     ? at->second.entity
                     : resolve(place, message, later, problems);
   } catch (Holt::Failure const& failure) {
      mirror_.malformed(subject, failure.what());
      return false;
   }
   if (later) {
      keep(place, message);
      return false;
   }
   bool applied = false;
   if (entity != nullptr) {
      applied = mirror_.text_.apply(*entity, message.value, problems);
      Record& record = records_.try_emplace(std::string(place)).first->second;
      record.entity = entity;
      record.digest = applied ? digestOf(place, message.value) : 0;
      record.reading = mirror_.reading_;
   }
   status_.refused += problems.count;
   status_.unknown += problems.unknown;
   if (!problems.texts.empty()) {
      status_.lastRefused = Kiv::printable(std::string(subject)) + ": " + problems.texts.back();
   }
   return applied;
}

/// The entity at a place, which is created with what the message says; null, with a problem, if it
/// is refused. `later`: set if the entity above it must come first. Throws `Holt::Failure` if there
/// can be no such place.
Sarn::Ptr<Entity> Switch::resolve(std::string_view place, EntityMessage const& message, bool& later,
                                  ApplyProblems& problems) {
   std::vector<std::string_view> const tokens = tokensOf(place);
   std::optional<std::string> const name = rootName(tokens[0]);
   if (!name) {
      throw Holt::Failure("the subject names no root");
   }
   Sarn::Ptr<Kiv::NamedEntity> top = root(*name);
   if (top == nullptr) {
      top = Holt::newRoot(std::string(message.rootType), *name);
      roots_.emplace(*name, top);
      mirror_.tell([&](Mirror::Listener& listener) { listener.onRoot(*this, top); });
   } else if (top->kivType().name != message.rootType) {
      throw Holt::Failure("the root '" + *name + "' is a " + top->kivType().name + " here, not a " +
                          std::string(message.rootType));
   }
   Sarn::Ptr<Entity> entity = top;
   std::size_t at = 1;
   while (at != tokens.size()) {
      std::optional<std::string> const member = tokenText(tokens[at]);
      FieldDescriptor const* const field =
            member ? entity->kivType().field(std::string_view(*member)) : nullptr;
      bool const keyed = field != nullptr && field->kind == MemberKind::children;
      if (field == nullptr || !field->has(FieldDescriptor::streamed) ||
          (!keyed && field->kind != MemberKind::child) || (keyed && at + 1 == tokens.size())) {
         throw Holt::Failure(std::string(entity->kivType().name) + " has no child at '" +
                             std::string(place) + "'");
      }
      at += keyed ? 2 : 1;
      bool const last = at == tokens.size();
      Sarn::Ptr<Entity> child;
      if (keyed) {
         auto const key = keyOf(*field, tokens[at - 1]);
         child = Sarn::Ptr<Entity>(field->ops->collection->findChild(*entity, key->get()));
         if (last && child != nullptr && mirror_.text_.wasMadeOtherwise(*child, message.value)) {
            child = madeAnew(*entity, *field, key->ref(), child, std::string(place), message.value,
                             problems);
         } else if (last && child == nullptr) {
            child = mirror_.text_.makeChild(*entity, *field, key->ref(), message.value, problems);
         }
      } else {
         Kiv::ChildOps const& ops = *field->ops->child;
         child = Sarn::Ptr<Entity>(ops.get(*entity));
         bool const named = field->has(FieldDescriptor::named);
         if (last && named && child != nullptr &&
             *entityName(*child) != mirror_.text_.nameIn(message.value)) {
            forgetBelow(std::string(place));
            ops.del(*entity);
            child = {};
         }
         if (child == nullptr && (last || !named)) {
            try {
               child = ops.is(*entity, last ? mirror_.text_.nameIn(message.value) : "");
            } catch (Kiv::Exception const& refused) {
               problems.add(field->name, refused.what());
               return {};
            }
         }
      }
      if (child == nullptr) {
         later = !last;
         return {};
      }
      entity = child;
   }
   return entity;
}

/// A child whose constant arguments have changed: another one with what is below it. The messages
/// of those do not come again, since they have not changed.
Sarn::Ptr<Entity> Switch::madeAnew(Entity& parent, FieldDescriptor const& field, Kiv::ValueRef key,
                                   Sarn::Ptr<Entity> const& child, std::string const& place,
                                   std::string_view text, ApplyProblems& problems) {
   std::unique_ptr<Holt::DocEntity> const below = Holt::docOf(*child);
   field.ops->collection->del(parent, key.address);
   Sarn::Ptr<Entity> made = mirror_.text_.makeChild(parent, field, key, text, problems);
   if (made == nullptr) {
      forgetBelow(place);
      return {};
   }
   // Constants are refused here; the message has them.
   Holt::DocErrors ignored;
   Holt::loadEntity(*made, *below, place, ignored);
   // The records below have the old entities.
   auto const reindex = [this](auto const& self, std::string const& at, Entity& entity) -> void {
      if (auto const record = records_.find(at); record != records_.end()) {
         record->second.entity = Sarn::Ptr<Entity>(&entity);
      }
      Kiv::forEachChild(entity,
                        [&](Entity& inner, FieldDescriptor const& member, void const* innerKey) {
                           std::string there = at;
                           appendChild(there, member, innerKey);
                           self(self, there, inner);
                        });
   };
   reindex(reindex, place, *made);
   return made;
}

void Switch::remove(std::string_view place) {
   auto const record = records_.find(place);
   if (record == records_.end()) {
      forgetBelow(std::string(place));  // what waits
      return;
   }
   Sarn::Ptr<Entity> const entity = record->second.entity;
   std::vector<std::string_view> const tokens = tokensOf(place);
   std::string const there(place);
   if (tokens.size() == 1) {
      forgetBelow(there);
      std::optional<std::string> const name = rootName(tokens[0]);
      if (auto const at = name ? roots_.find(*name) : roots_.end(); at != roots_.end()) {
         Sarn::Ptr<Kiv::NamedEntity> const root = at->second;
         roots_.erase(at);
         mirror_.tell([&](Mirror::Listener& listener) { listener.onRootGone(*this, *root); });
      }
      return;
   }
   forgetBelow(there);
   Entity* const parent = entity->parent();
   if (parent == nullptr) {
      return;
   }
   FieldDescriptor const* found = nullptr;
   std::unique_ptr<Kiv::AnyValue> foundKey;
   Kiv::forEachField(parent->kivType(), [&](FieldDescriptor const& field) {
      if (field.kind == MemberKind::child && field.ops->child->get(*parent) == &*entity) {
         found = &field;
      } else if (field.kind == MemberKind::children && tokens.size() > 2 &&
                 tokenText(tokens[tokens.size() - 2]) == field.name) {
         auto key = keyOf(field, tokens.back());
         if (field.ops->collection->findChild(*parent, key->get()) == &*entity) {
            found = &field;
            foundKey = std::move(key);
         }
      }
   });
   if (foundKey != nullptr) {
      found->ops->collection->del(*parent, foundKey->get());
   } else if (found != nullptr) {
      found->ops->child->del(*parent);
   }
}

void Switch::forgetBelow(std::string const& place) {
   auto const erase = [&](auto& map, auto&& each) {
      if (auto const at = map.find(place); at != map.end()) {
         each(*at);
         map.erase(at);
      }
      std::string const below = place + ".";
      for (auto at = map.lower_bound(below); at != map.end() && at->first.starts_with(below);) {
         each(*at);
         at = map.erase(at);
      }
   };
   erase(records_, [](auto&) {});
   erase(waiting_, [&](auto& waiting) {
      waitingBytes_ -= waiting.first.size() + waiting.second.value.size();
   });
}

void Switch::keep(std::string_view place, EntityMessage const& message) {
   Waiting& waiting = waiting_[std::string(place)];
   if (waiting.value.empty()) {
      waitingBytes_ += place.size();
   }
   waitingBytes_ += message.value.size() - waiting.value.size();
   waiting = {std::string(message.rootType), std::string(message.value)};
   if (waitingBytes_ > mirror_.options_.waiting) {
      // The digests say that something is missing.
      waiting_.clear();
      waitingBytes_ = 0;
   }
}

/// What is below an entity that has come, one level after the other.
void Switch::applyWaiting(std::string const& place) {
   std::string const below = place + ".";
   std::map<std::string, Waiting, std::less<>> ready;
   for (auto at = waiting_.lower_bound(below);
        at != waiting_.end() && at->first.starts_with(below);) {
      waitingBytes_ -= at->first.size() + at->second.value.size();
      auto const next = std::next(at);
      ready.insert(waiting_.extract(at));
      at = next;
   }
   // In this order, what contains another comes first.
   for (auto const& [there, waiting] : ready) {
      EntityMessage message;
      message.rootType = waiting.rootType;
      message.value = waiting.value;
      (void)apply(there, there, message);
   }
}

// ---- Completeness ----

/// Whether the digests of the last heartbeat are those of what is here. `reading`: if not 0, of
/// what was seen in that reading.
bool Switch::isEqual(U32 reading) const {
   std::map<std::string, RootSum, std::less<>> sums;
   for (auto const& [place, record] : records_) {
      if (reading == 0 || record.reading == reading) {
         auto at = sums.find(rootOf(place));
         if (at == sums.end()) {
            at = sums.emplace(rootOf(place), RootSum()).first;
         }
         ++at->second.entities;
         at->second.digest += record.digest;
      }
   }
   for (MetaRoot const& root : meta_.roots) {
      auto const at = sums.find(rootToken(root.name));
      RootSum const sum = at != sums.end() ? at->second : RootSum();
      if (sum.entities != root.entities || sum.digest != root.digest) {
         return false;
      }
      if (at != sums.end()) {
         sums.erase(at);
      }
   }
   // A publisher that has no source yet does not know of roots that are here.
   return sums.empty() || !meta_.current;
}

void Switch::onMeta(std::string_view text, U64 storedAt) {
   Meta meta = readMeta(text);
   if (!meta_.session.empty() && meta.session != meta_.session) {
      ++status_.restarts;
   }
   meta_ = std::move(meta);
   status_.session = meta_.session;
   status_.sequence = meta_.sequence;
   U64 const wall = Holt::wallNow();
   bool const live = mirror_.consumer_ != nullptr && mirror_.consumer_->caughtUp();
   U64 const age = live || storedAt >= wall ? 0 : wall - storedAt;
   status_.heartbeat = wall - age;
   U64 const now = mirror_.connection_.now();
   heard_ = now - std::min(age, now);
   bool equal = isEqual(mirror_.reading_);
   if (equal) {
      sweep();
      differed_ = 0;
   } else if (live) {
      ++status_.differences;
      if (++differed_ > 1) {
         sweep();
         equal = isEqual(0);
         if (!equal && mirror_.repairAt_ == 0) {
            mirror_.repairAt_ = now + mirror_.repairPause_;
         }
      }
   }
   // What is on its way may make a difference once.
   status_.complete = equal || (live && status_.complete && differed_ == 1);
   review();
}

/// Removes what was not seen in this reading of the stream.
void Switch::sweep() {
   std::vector<std::string> unseen;
   for (auto const& [place, record] : records_) {
      if (record.reading != mirror_.reading_) {
         unseen.push_back(place);
      }
   }
   for (std::string const& place : unseen) {
      remove(place);
   }
}

void Switch::onBegin() {
   waiting_.clear();
   waitingBytes_ = 0;
   differed_ = 0;
}

void Switch::onCaughtUp() {
   bool const silent = meta_.session.empty() || meta_.ended ||
                       mirror_.connection_.now() - heard_ > mirror_.options_.missing * meta_.every;
   if (silent) {
      // No heartbeat will say what is gone.
      sweep();
      status_.complete = !meta_.session.empty() && isEqual(0);
   }
   review();
}

U64 Switch::review() {
   U64 const now = mirror_.connection_.now();
   U64 const patience = mirror_.options_.missing * meta_.every;
   std::string why;
   if (!mirror_.status_.current) {
      why = mirror_.status_.reason;
   } else if (meta_.session.empty()) {
      why = "no heartbeat yet";
   } else if (meta_.ended) {
      why = "the publisher has ended";
   } else if (now - heard_ > patience) {
      why = "no heartbeat since " + Holt::timeText(status_.heartbeat, Holt::TimeForm::universal);
   } else if (!meta_.current) {
      why = meta_.reason;
   } else if (!status_.complete) {
      why = status_.differences == 0 ? "not complete yet"
                                     : "differs from what the publisher has sent";
   }
   statusIs(why);
   return heard_ + patience;
}

void Switch::statusIs(std::string const& why) {
   bool const current = why.empty();
   bool const told = current == status_.current && why == status_.reason;
   if (told) {
      return;
   }
   if (current) {
      status_.since = Holt::wallNow();
   } else if (status_.current || status_.since == 0) {
      status_.since = !meta_.current && meta_.since != 0 ? meta_.since
                      : status_.heartbeat != 0           ? status_.heartbeat
                                                         : Holt::wallNow();
   }
   status_.current = current;
   status_.reason = Kiv::printable(why);
   mirror_.tell([this](Mirror::Listener& listener) { listener.onStatus(*this); });
}

MetaRoot rootDigest(Kiv::NamedEntity const& root) {
   MetaRoot sum{root.nameString(), root.kivType().name, 0, 0};
   EntityText text;
   std::string value;
   auto const add = [&](auto const& self, std::string const& place, Entity const& entity) -> void {
      value.clear();
      text.write(entity, value);
      sum.digest += digestOf(place, value);
      ++sum.entities;
      Kiv::forEachChild(entity, [&](Entity& child, FieldDescriptor const& field, void const* key) {
         if (field.has(FieldDescriptor::streamed)) {
            std::string there = place;
            appendChild(there, field, key);
            self(self, there, child);
         }
      });
   };
   add(add, rootToken(root.nameString()), root);
   return sum;
}

}  // namespace Fleet
