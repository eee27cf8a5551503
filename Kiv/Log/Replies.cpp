#include "Kiv/Log/Replies.h"

#include <algorithm>
#include <utility>

#include "Kiv/Log/SessionImpl.h"

namespace Kiv::NboAttrLog {

void Replies::enqueue(Opcode opcode, U32 token, Sarn::String text, U64 after, U64 confirmed) {
   waiting_.push_back({opcode, token, std::move(text), after, confirmed});
}

void Replies::enqueueWriters(U32 mount) {
   bool const waits = std::any_of(waiting_.begin(), waiting_.end(), [mount](Reply const& reply) {
      return reply.opcode == Opcode::writers && reply.token == mount;
   });
   if (!waits) {
      enqueue(Opcode::writers, mount);
   }
}

bool Replies::write() {
   while (!waiting_.empty()) {
      Reply const& next = waiting_.front();
      if (next.confirmed > confirmed_ || !backlog_.isToldUpTo(next.after)) {
         return true;
      }
      if (!write(next)) {
         return false;
      }
      waiting_.pop_front();
   }
   return true;
}

bool Replies::write(Reply const& reply) {
   switch (reply.opcode) {
      case Opcode::roots:
         return writeRoots();
      case Opcode::mount:
         return writeMount(mounts_.own()[reply.token - 1]);
      case Opcode::sessions:
         return writeSessions();
      case Opcode::writers:
         return writeWriters(reply.token);
      case Opcode::listRoots:
      case Opcode::listSessions:
         return outbox_.write(reply.opcode, 0, 0, 0, [](Out&) {});
      default:
         break;
   }
   bool const withText = reply.opcode == Opcode::refused || reply.opcode == Opcode::decided;
   std::size_t const size = 4 + (withText ? 4 + reply.text.size() : 0);
   return outbox_.write(reply.opcode, size, 0, 0, [&](Out& out) {
      out.writeU32(reply.token);
      if (withText) {
         out.writeString(reply.text);
      }
   });
}

bool Replies::writeMount(Mount const& mount) {
   std::string_view const type = mount.root().kivType().name;
   std::string_view const name = mount.root().nameString();
   bool const candidate = mount.mode() == MountMode::candidate;
   std::size_t const size = 4 + 1 + 4 + type.size() + 4 + name.size() + (candidate ? 4 : 0);
   return outbox_.write(Opcode::mount, size, 0, 0, [&](Out& out) {
      out.writeU32(Mounts::idOf(mount));
      out.writeU8(static_cast<U8>(mount.mode()));
      out.writeString(type);
      out.writeString(name);
      if (candidate) {
         out.writeU32(mount.priority());
      }
   });
}

/// If there are more roots than fit into a message in parts, it lists the first ones.
bool Replies::writeRoots() {
   std::size_t size = 4;
   U32 count = 0;
   bool const tellsStale = session_.knowsTransactions();  // else it expects nothing there
   std::vector<NamedEntity*> const roots = hub_.roots();
   for (NamedEntity const* const root : roots) {
      std::size_t const more = 4 + std::string_view(root->kivType().name).size() + 4 +
                               root->nameString().size() +
                               (tellsStale && hub_.stale(*root) ? 4 + 8 : 0);
      if (size + more > std::max(outbox_.longestBody(), hub_.limits().longestValue)) {
         break;
      }
      size += more;
      ++count;
   }
   return outbox_.write(Opcode::roots, size, 0, 0, [&](Out& out) {
      out.writeU32(count);
      for (U32 i = 0; i != count; ++i) {
         out.writeString(roots[i]->kivType().name);
         out.writeString(roots[i]->nameString());
      }
      for (U32 i = 0; i != count; ++i) {
         if (U64 since = 0; tellsStale && hub_.stale(*roots[i], &since)) {
            out.writeU32(i);
            out.writeU64(since);
         }
      }
   });
}

/// If there are more writers than fit into a message, it lists the oldest.
bool Replies::writeWriters(U32 mount) {
   auto const served = std::find_if(mounts_.served().begin(), mounts_.served().end(),
                                    [mount](Served const& s) { return s.id == mount; });
   if (served == mounts_.served().end()) {  // it has gone meanwhile
      return true;
   }
   std::vector<Writer> writers;
   std::size_t size = 4 + 1 + 8 + 4;
   for (Session const* const session : hub_.sessions()) {
      Served const* const its = session->impl().mounted().find(*served->watcher);
      if (its == nullptr || session->closed() || !writesBack(its->mode)) {
         continue;
      }
      Sarn::String const peer = peerText(session->peer()).substr(0, longestName);
      std::size_t const more = 4 + peer.size() + 1 + 4 + 1 + 1;
      if (size + more > outbox_.longestBody()) {
         break;
      }
      size += more;
      writers.push_back({peer, its->mode, its->priority, !its->waits(), session == &session_});
   }
   U64 since = 0;
   bool const stale = hub_.stale(*served->root, &since);
   return outbox_.write(Opcode::writers, size, 0, 0, [&](Out& out) {
      out.writeU32(mount);
      out.writebool(stale);
      out.writeU64(since);
      out.writeU32(static_cast<U32>(writers.size()));
      for (Writer const& writer : writers) {
         out.writeString(writer.peer);
         out.writeU8(static_cast<U8>(writer.mode));
         out.writeU32(writer.priority);
         out.writebool(writer.leads);
         out.writebool(writer.isSelf);
      }
   });
}

/// If there are more sessions than fit into a message, it lists the oldest.
bool Replies::writeSessions() {
   std::vector<SessionStatus> told;
   std::size_t size = 4 + 4;
   for (Session const* const session : hub_.sessions()) {
      told.push_back(session->status());
      told.back().asking = session == &session_;
      std::size_t const more = encodedSize(told.back());
      if (size + more > outbox_.longestBody()) {
         told.pop_back();
         break;
      }
      size += more;
   }
   return outbox_.write(Opcode::sessions, size, 0, 0, [&](Out& out) {
      out.writeU32(static_cast<U32>(hub_.sessions().size()));
      out.writeU32(static_cast<U32>(told.size()));
      for (SessionStatus const& status : told) {
         encode(out, status);
      }
   });
}

}  // namespace Kiv::NboAttrLog
