#include <algorithm>
#include <cassert>

#include "Kiv/Log/HubImpl.h"
#include "Kiv/Log/SessionImpl.h"
#include "Kiv/Printable.h"
#include "Sarn/Util.h"

namespace Kiv::NboAttrLog {

Hub::Impl::Impl(Limits const& limits)
      : limits_(limits), ring_(budget_, longestBody(limits)), handles_(limits.entities, *this) {
   SARN_CHECK(limits.outputBuffer > smallestOutputBuffer);
   SARN_CHECK(limits.longestMessage <= longestEncodableBody);
   SARN_CHECK(limits.longestValue <= longestEncodableValue);
   budget_.bound = limits.sessionBytes;
}

Hub::Impl::~Impl() {
   assert(sessions_.empty());
   for (Held const& held : held_) {
      handles_.unregisterTree(held.watcher->root());
   }
}

void Hub::Impl::onGone(Entity& entity, U32 handle) {
   for (Session* const session : sessions_) {
      session->impl().teller().forget(entity, handle);
   }
}

U64 Hub::Impl::add(Session& session) {
   sessions_.push_back(&session);
   return ++sessionsMade_;
}

Hub::Impl::Held const* Hub::Impl::findHeld(std::string_view type,
                                           std::string_view name) const noexcept {
   for (Held const& held : held_) {
      NamedEntity const& root = held.watcher->root();
      if (root.kivType().name == type && root.nameString() == name) {
         return &held;
      }
   }
   return nullptr;
}

Hub::Impl::Held& Hub::Impl::heldOf(RootWatcher const& watcher) noexcept {
   return *std::find_if(held_.begin(), held_.end(),
                        [&watcher](Held const& held) { return held.watcher.get() == &watcher; });
}

RootWatcher* Hub::Impl::find(std::string_view type, std::string_view name) const noexcept {
   Held const* const held = findHeld(type, name);
   return held != nullptr ? held->watcher.get() : nullptr;
}

RootWatcher* Hub::Impl::findOffered(std::string_view type, std::string_view name) const noexcept {
   Held const* const held = findHeld(type, name);
   return held != nullptr && held->offered ? held->watcher.get() : nullptr;
}

RootWatcher& Hub::Impl::hold(Sarn::Ptr<NamedEntity> const& root, bool offered, Teller* subscriber) {
   Held const* const there = findHeld(root->kivType().name, root->nameString());
   if (there != nullptr && (&there->watcher->root() != root.get() || (offered && there->offered))) {
      throw Exception(Sarn::String(root->kivType().name) + " " + printable(root->nameString()) +
                      " is a root of this hub already");
   }
   // Everything that may throw comes before any change; the handles, which others see, come last.
   std::unique_ptr<RootWatcher> made;
   RootWatcher* watcher = there != nullptr ? there->watcher.get() : nullptr;
   if (watcher == nullptr) {
      made = std::make_unique<RootWatcher>(handles_, applying_, ring_, root);
      watcher = made.get();
      held_.reserve(held_.size() + 1);
   }
   bool const subscribes = subscriber != nullptr && !watcher->hasSubscriber(*subscriber);
   if (subscribes) {
      watcher->reserve(*subscriber);
   }
   if (made != nullptr) {
      if (!handles_.registerTree(*root)) {
         throw Exception(handles_.tooMany());
      }
      held_.emplace_back().watcher = std::move(made);
   }
   if (subscribes) {
      watcher->subscribe(*subscriber);
   }
   Held& held = heldOf(*watcher);
   held.offered = held.offered || offered;
   ++held.users;
   return *watcher;
}

void Hub::Impl::release(RootWatcher& watcher) {
   if (--heldOf(watcher).users != 0) {
      return;
   }
   handles_.unregisterTree(watcher.root());
   handles_.unregisterUntold();
   std::erase_if(held_, [&watcher](Held const& held) { return held.watcher.get() == &watcher; });
}

Session const* Hub::Impl::inTheWay(RootWatcher const& watcher, MountMode mode) const noexcept {
   if (!writesBack(mode)) {
      return nullptr;
   }
   for (Session const* const session : sessions_) {
      Served const* const served = session->impl().mounted().find(watcher);
      if (served == nullptr || !writesBack(served->mode)) {
         continue;
      }
      bool const bothCandidates =
            mode == MountMode::candidate && served->mode == MountMode::candidate;
      if ((claims(mode) || claims(served->mode)) && !bothCandidates) {
         return session;
      }
   }
   return nullptr;
}

Sarn::Ptr<NamedEntity> Hub::Impl::withdraw(std::string_view type, std::string_view name) {
   RootWatcher* const watcher = findOffered(type, name);
   if (watcher == nullptr) {
      return {};
   }
   Sarn::Ptr<NamedEntity> root(&watcher->root());
   std::vector<Session*> const sessions = sessions_;
   for (Session* const session : sessions) {
      session->impl().rootGone(*watcher);
   }
   heldOf(*watcher).offered = false;
   release(*watcher);
   return root;
}

std::vector<NamedEntity*> Hub::Impl::offered() const {
   std::vector<NamedEntity*> roots;
   for (Held const& held : held_) {
      if (held.offered) {
         roots.push_back(&held.watcher->root());
      }
   }
   return roots;
}

// Batches

void Hub::Impl::batchBegin() noexcept {
   ++batches_;
   for (Session* const session : sessions_) {
      session->impl().teller().walk().hold();
   }
}

void Hub::Impl::batchEnd() noexcept {
   --batches_;
   for (Session* const session : sessions_) {
      session->impl().teller().walk().release(0);
   }
}

// Time

U64 Hub::Impl::deadline() const noexcept {
   if (clock_.read == nullptr) {
      return 0;
   }
   U64 first = ring_.capacity() != 0 ? ringIdleSince_ + limits_.idle : 0;
   auto const consider = [&first](U64 next) {
      first = next != 0 && (first == 0 || next < first) ? next : first;
   };
   for (Session const* const session : sessions_) {
      consider(session->impl().deadline());
   }
   for (Held const& held : held_) {
      if (held.claim.ever) {
         consider(leaderDeadline(*held.watcher));
      }
   }
   return first;
}

void Hub::Impl::expire() {
   U64 const time = clock_.now();
   for (std::size_t i = 0; i < sessions_.size(); ++i) {  // a listener may end some
      sessions_[i]->impl().expire(time);
   }
   for (std::size_t i = 0; i < held_.size(); ++i) {
      if (held_[i].claim.ever && clock_.read != nullptr) {
         watchLeader(*held_[i].watcher, time);
      }
   }
   if (ring_.head() != ringHead_) {
      ringHead_ = ring_.head();
      ringIdleSince_ = time;
   } else if (clock_.read == nullptr || time - ringIdleSince_ >= limits_.idle) {
      ring_.shrink();
   }
}

// The public interface.

Hub::Hub(Limits const& limits) : impl_(std::make_unique<Impl>(limits)) {}

Hub::~Hub() = default;

Limits const& Hub::limits() const noexcept {
   return impl_->limits();
}

void Hub::rootIs(Sarn::Ptr<NamedEntity> const& root) {
   impl_->hold(root, true, nullptr);
}

Sarn::Ptr<NamedEntity> Hub::rootDel(std::string_view type, std::string_view name) {
   return impl_->withdraw(type, name);
}

NamedEntity* Hub::root(std::string_view type, std::string_view name) const noexcept {
   RootWatcher const* const watcher = impl_->findOffered(type, name);
   return watcher != nullptr ? &watcher->root() : nullptr;
}

std::vector<NamedEntity*> Hub::roots() const {
   return impl_->offered();
}

std::vector<Session*> const& Hub::sessions() const noexcept {
   return impl_->sessions();
}

void Hub::batchBegin() noexcept {
   impl_->batchBegin();
}

void Hub::batchEnd() noexcept {
   impl_->batchEnd();
}

void Hub::clockIs(U64 (*clock)() noexcept, U64 (*wall)() noexcept) noexcept {
   impl_->clock().read = clock;
   impl_->wallIs(wall);
}

void Hub::staleIs(NamedEntity const& root, bool stale, U64 since) {
   impl_->staleIs(root, stale, since);
}

bool Hub::stale(NamedEntity const& root, U64* since) const noexcept {
   Impl::Claim const* const claim = impl_->claim(root);
   if (claim != nullptr && since != nullptr) {
      *since = claim->since;
   }
   return claim != nullptr && claim->stale;
}

U64 Hub::now() const noexcept {
   return impl_->clock().now();
}

U64 Hub::deadline() const noexcept {
   return impl_->deadline();
}

void Hub::expire() {
   impl_->expire();
}

std::size_t Hub::heldBytes() const noexcept {
   return impl_->budget().held;
}

}  // namespace Kiv::NboAttrLog
