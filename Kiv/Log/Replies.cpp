#include "Kiv/Log/Replies.h"

#include <algorithm>
#include <utility>

#include "Kiv/NboAttrLogSession.h"

namespace Kiv::NboAttrLog {

void Replies::enqueue(Opcode opcode, U32 token, Sarn::String text, U64 after, U64 confirmed) {
   waiting_.push_back({opcode, token, std::move(text), after, confirmed});
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
   return outbox_.write(Opcode::mount, 4 + 1 + 4 + type.size() + 4 + name.size(), 0, 0,
                        [&](Out& out) {
                           out.writeU32(Mounts::idOf(mount));
                           out.writeU8(static_cast<U8>(mount.mode()));
                           out.writeString(type);
                           out.writeString(name);
                        });
}

/// If there are more roots than fit into a message in parts, it lists the first ones.
bool Replies::writeRoots() {
   std::size_t size = 4;
   U32 count = 0;
   std::vector<NamedEntity*> const roots = hub_.roots();
   for (NamedEntity const* const root : roots) {
      std::size_t const more =
            4 + std::string_view(root->kivType().name).size() + 4 + root->nameString().size();
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
