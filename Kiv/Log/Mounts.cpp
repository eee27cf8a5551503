#include "Kiv/Log/Mounts.h"

#include <algorithm>

#include "Kiv/Log/ChildChange.h"

namespace Kiv::NboAttrLog {

Served const* Mounts::find(RootWatcher const& watcher) const noexcept {
   auto const found = std::find_if(served_.begin(), served_.end(),
                                   [&watcher](Served const& s) { return s.watcher == &watcher; });
   return found != served_.end() ? &*found : nullptr;
}

bool Mounts::serves(Entity const& entity) const noexcept {
   Entity const* const root = rootOf(entity);
   return std::any_of(served_.begin(), served_.end(),
                      [root](Served const& s) { return s.root == root; });
}

bool Mounts::isWrittenByPeer(Entity const& entity) const noexcept {
   Entity const* const root = rootOf(entity);
   return std::any_of(served_.begin(), served_.end(),
                      [root](Served const& s) { return s.root == root && writesBack(s.mode); });
}

bool Mounts::peerWrites() const noexcept {
   return std::any_of(served_.begin(), served_.end(),
                      [](Served const& s) { return writesBack(s.mode); });
}

bool Mounts::peerWaits(Entity const& entity) const noexcept {
   Entity const* const root = waiting_ != 0 ? rootOf(entity) : nullptr;
   return std::any_of(served_.begin(), served_.end(),
                      [root](Served const& s) { return s.root == root && s.waits(); });
}

void Mounts::add(Served const& served) {
   served_.push_back(served);
   waiting_ += served.waits() ? 1 : 0;
}

void Mounts::leadsIs(Served& served, bool leads) noexcept {
   waiting_ -= served.waits() ? 1 : 0;
   served.leads = leads;
   waiting_ += served.waits() ? 1 : 0;
}

std::list<Served> Mounts::takeServed() noexcept {
   waiting_ = 0;
   return std::exchange(served_, {});
}

bool Mount::leads() const noexcept {
   return complete() && std::any_of(writers_.begin(), writers_.end(), [](Writer const& writer) {
             return writer.isSelf && writer.leads && claims(writer.mode);
          });
}

Mount const* Mounts::followed(Entity const& entity) const noexcept {
   Entity const* const root = rootOf(entity);
   auto const found = std::find_if(own_.begin(), own_.end(), [root](Mount const& m) {
      return (m.state_ == Mount::State::replaying || m.complete()) && m.root_.get() == root;
   });
   return found != own_.end() ? &*found : nullptr;
}

bool Mounts::writes(Entity const& entity) const noexcept {
   Mount const* const mount = followed(entity);
   return mount != nullptr && writesBack(mount->mode_);
}

Mount& Mounts::add(Sarn::Ptr<NamedEntity> const& root, MountMode mode) {
   Mount& mount = own_.emplace_back();
   mount.root_ = root;
   mount.mode_ = mode;
   mount.id_ = static_cast<U32>(own_.size());
   return mount;
}

}  // namespace Kiv::NboAttrLog
