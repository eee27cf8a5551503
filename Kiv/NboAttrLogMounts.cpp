// What ends say of themselves: who they are, which roots they mirror, and by which handles they
// know the entities in them.
#include <algorithm>

#include "Kiv/Module.h"
#include "Kiv/NboAttrLogSa.h"
#include "Kiv/NboAttrLogSession.h"
#include "Kiv/Printable.h"

namespace Kiv::NboAttrLog {

void Session::applyHello(In& in) {
   if (greeted_) {
      in.fault("the peer greets twice");
   }
   if (std::memcmp(in.nextBytes(8), helloMagic, 8) != 0) {
      in.fault("the peer does not speak the attribute log", 8);
   }
   U32 const version = in.nextU32();
   if (version != protocolVersion) {
      in.fault("the peer speaks version " + std::to_string(version) +
                     " of the attribute log, not " + std::to_string(protocolVersion),
               4);
   }
   bool common = false;
   for (U32 left = in.nextU32(); left != 0; --left) {
      std::string_view const name = in.nextValidString(longestName);
      U32 const hash = in.nextU32();
      KivModule const* const module = moduleByName(name);
      if (module != nullptr && module->hash() != hash) {
         auto const hex = [](U32 v) {
            char text[16];
            std::snprintf(text, sizeof text, "%x", v);
            return Sarn::String(text);
         };
         in.fault("module " + Sarn::String(name) + " has hash " + hex(hash) + " at the peer, " +
                        hex(module->hash()) + " here",
                  4);
      }
      common = common || module != nullptr;
   }
   in.expectEnd();
   if (!common) {
      in.fault("the peer has none of the modules that are loaded here");
   }
   greeted_ = true;
}

void Session::applyMount(In& in) {
   U32 const id = in.nextU32();
   U8 const mode = in.nextU8();
   if (mode > static_cast<U8>(MountMode::owner)) {
      in.fault("there is no mount mode " + std::to_string(mode), 1);
   }
   OfferedRoot asked{Sarn::String(in.nextValidString(longestName)), {}};
   asked.name = in.nextValidString(longestName);
   in.expectEnd();
   if (served_.size() + pending_.size() >= hub_.limits_.nesting) {
      in.fault("more than " + std::to_string(hub_.limits_.nesting) + " mounts");
   }
   Hub::Root* const root = hub_.findOffered(asked.type, asked.name);
   auto const refuse = [&](std::string_view reason) {
      pendingEnq(Opcode::refused, id, Sarn::String(reason.substr(0, longestName)), 0);
   };
   Sarn::String reason;
   try {
      reason = refusal(root, asked, static_cast<MountMode>(mode));
   } catch (...) {  // the listener's, who has not said yes
      refuse("whether " + asked.name + " may be mounted could not be decided");
      throw;
   }
   if (!reason.empty()) {
      refuse(reason);
      callListener(
            [&](SessionListener& listener) { listener.onMountRefused(*this, asked, reason); });
      return;
   }
   hasMount();
   served_.push_back({root, id, static_cast<MountMode>(mode)});
   ++root->users;
}

/// Why a mount is refused; empty if it is not.
Sarn::String Session::refusal(Hub::Root const* root, OfferedRoot const& asked, MountMode mode) {
   if (root == nullptr) {
      return "there is no " + printable(asked.type) + " named " + printable(asked.name);
   }
   for (Served const& served : served_) {
      if (served.root == root) {
         return asked.name + " is mounted already";
      }
   }
   Sarn::String reason;
   callListener([&](SessionListener& listener) {
      reason = listener.onMountAsked(*this, root->entity(), mode);
   });
   if (!reason.empty()) {
      return reason;
   }
   if (Session const* const other = hub_.inTheWay(*root, mode)) {
      return asked.name +
             (mode == MountMode::owner ? " cannot be claimed: it is written by "
                                       : " is claimed by ") +
             peerText(other->peer_);
   }
   return {};
}

void Session::applyMountState(Header const& header, In& in) {
   U32 const id = in.nextU32();
   if (id == 0 || id > mounts_.size()) {
      in.fault("there is no mount " + std::to_string(id), 4);
   }
   Mount& mount = mounts_[id - 1];
   Mount::State const state = mount.state_;
   std::string_view reason;
   if (header.opcode == Opcode::refused) {
      reason = in.nextString();
   }
   in.expectEnd();
   switch (header.opcode) {
      case Opcode::refused:
         if (state == Mount::State::asked) {
            mount.reason_ = printable(Sarn::String(reason));
            mountStateIs(mount, Mount::State::refused);
            return;
         }
         break;
      case Opcode::replayBegin:
         if (state == Mount::State::asked) {
            checkHandle(header.handle, in);
            map(header.handle, mount.root_.get(), true);
            mountStateIs(mount, Mount::State::replaying);
            return;
         }
         break;
      case Opcode::replayEnd:
         if (state == Mount::State::replaying) {
            mountStateIs(mount, Mount::State::complete);
            return;
         }
         break;
      default:
         if (state == Mount::State::replaying || state == Mount::State::complete) {
            forgetTree(*mount.root_);
            mountStateIs(mount, Mount::State::gone);
            return;
         }
   }
   in.fault("the message does not fit the mount's state");
}

void Session::applyBind(Header const& header, In& in) {
   U32 const ours = in.nextU32();
   in.expectEnd();
   checkHandle(header.handle, in);
   if (!hub_.handles_.known(ours)) {
      in.fault("we have introduced no entity " + std::to_string(ours), 4);
   }
   Entity* const entity = hub_.handles_.find(ours);
   if (entity == nullptr) {
      // Deleted while the message was on its way. The peer's may have come to another since, which
      // was made in its place.
      U32 const place = HandleTable::place(header.handle);
      if (place >= incoming_.size() || incoming_[place].handle != header.handle) {
         map(header.handle, nullptr, true);
      }
      return;
   }
   Entity const* const root = rootOf(*entity);
   bool writer = false;
   for (Served const& served : served_) {
      writer = writer || (&served.root->entity() == root && writesBack(served.mode));
   }
   for (Mount const& mount : mounts_) {  // the source tells its own handle for a child of ours
      bool const followed =
            mount.state_ == Mount::State::replaying || mount.state_ == Mount::State::complete;
      writer = writer || (followed && mount.root_.get() == root);
   }
   if (!writer) {
      Sa::throwWriteUpdateFromReadOnlyProxyException(*entity, header.attribute);
   }
   map(header.handle, entity, true);
}

void Session::checkHandle(U32 handle, In const& in) const {
   if (handle >> 24 == 0) {
      in.fault("the handle " + std::to_string(handle) + " is of turn 0, but turns begin at 1");
   }
   if (HandleTable::place(handle) >= hub_.limits_.entities) {
      in.fault("the handle " + std::to_string(handle) + " exceeds the bound of " +
               std::to_string(hub_.limits_.entities) + " entities");
   }
}

void Session::map(U32 handle, Entity* entity, bool writable) {
   U32 const place = HandleTable::place(handle);
   if (place >= incoming_.size()) {
      std::size_t const wanted = std::max<std::size_t>(place + 1, incoming_.size() * 2);
      incoming_.resize(std::min<std::size_t>(wanted, hub_.limits_.entities));
   }
   Incoming& entry = incoming_[place];
   if (entry.entity.get() == entity && entry.handle == handle) {
      return;
   }
   if (entry.entity && entry.entity.get() != entity) {
      U64 const before = reinterpret_cast<U64>(entry.entity.get());
      U32 const* const known = incomingHandles_.find(before);
      if (known != nullptr && *known == entry.handle) {
         incomingHandles_.erase(before);
         closeCollections(*entry.entity);
      }
   }
   entry.handle = handle;
   entry.writable = writable;
   entry.entity = Sarn::Ptr<Entity>(entity);
   if (entity != nullptr) {
      U64 const key = reinterpret_cast<U64>(entity);
      if (U32* const known = incomingHandles_.find(key)) {
         if (*known != handle) {
            // The peer has put another in the place of the one that it called so. It replays that
            // one no further, and does not know this one by our handle.
            closeCollections(*entity);
            if (entity->streamHandle() != 0 && !serves(*entity)) {
               introducedIs(entity->streamHandle(), false);
            }
         }
         *known = handle;
      } else {
         incomingHandles_.insert(key, handle);
      }
   }
}

/// What is gone, or the peer's no longer, is not replayed to its end.
void Session::closeCollections(Entity const& entity) noexcept {
   std::erase_if(open_, [&entity](OpenCollection const& open) { return open.entity == &entity; });
}

void Session::forgetTree(Entity& entity) {
   // A walk stays below one root; what was taken out of the tree it leaves by itself.
   Entity const* const walked = walkDepth_ != 0 ? hub_.handles_.find(walk_[0]->handle) : nullptr;
   if (walked != nullptr && rootOf(*walked) == &entity) {
      while (walkDepth_ != 0) {
         walk_[--walkDepth_]->freeResyncState();
      }
   }
   forgetBelow(entity);
}

void Session::forgetBelow(Entity& entity) {
   if (U32 const handle = entity.streamHandle()) {
      forget(entity, handle);
   }
   unmapTree(entity);
   forEachChild(entity,
                [this](Entity& child, FieldDescriptor const&, void const*) { forgetBelow(child); });
}

void Session::unmapTree(Entity& entity) {
   U64 const key = reinterpret_cast<U64>(&entity);
   if (U32 const* const handle = incomingHandles_.find(key)) {
      incoming_[HandleTable::place(*handle)].entity.reset();
      incomingHandles_.erase(key);
   }
   closeCollections(entity);
   forEachChild(entity,
                [this](Entity& child, FieldDescriptor const&, void const*) { unmapTree(child); });
}

Mount& Session::mountIs(Sarn::Ptr<NamedEntity> const& root, MountMode mode) {
   if (root->nameString().size() > longestName) {
      throw Exception("a root's name of " + std::to_string(root->nameString().size()) +
                      " bytes exceeds the bound of " + std::to_string(longestName));
   }
   struct Undo {
      Session& session;
      bool pending = false;
      bool done = false;
      ~Undo() {
         if (!done) {
            session.mounts_.pop_back();
            if (pending) {
               session.pending_.pop_back();
            }
         }
      }
   };
   mounts_.emplace_back();
   Undo undo{*this};
   Mount& mount = mounts_.back();
   mount.root_ = root;
   mount.mode_ = mode;
   mount.id_ = static_cast<U32>(mounts_.size());
   if (closed_) {
      mount.state_ = Mount::State::lost;
      mount.reason_ = closeReason_;
      undo.done = true;
      return mount;
   }
   pendingEnq(Opcode::mount, mount.id_, {}, 0);
   undo.pending = true;
   if (writesBack(mode)) {
      hub_.adopt(root, false, this);
      mount.adopted_ = true;
      writesBack_ = true;
   }
   undo.done = true;
   hasMount();
   fill();
   return mount;
}

void Session::rootGone(Hub::Root& root) noexcept {
   for (auto at = served_.begin(); at != served_.end();) {
      if (at->root == &root) {
         if (at->begun) {
            forgetTree(root.entity());
         }
         orFail([&] {
            if (at->begun) {
               pendingEnq(Opcode::rootGone, at->id, {}, 0);
            } else {
               pendingEnq(Opcode::refused, at->id, root.entity().nameString() + " is gone", 0);
            }
         });
         std::erase(root.subscribers, this);
         --root.users;
         at = served_.erase(at);
      } else {
         ++at;
      }
   }
   fill();
}

}  // namespace Kiv::NboAttrLog
