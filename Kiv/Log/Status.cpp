#include "Kiv/NboAttrLogStatus.h"

#include "Kiv/Log/Wire.h"
#include "Kiv/Printable.h"

namespace Kiv::NboAttrLog {
namespace {

constexpr U8 askingFlag = 1;
/// The values that were left out follow the roots.
constexpr U8 leftOutFlag = 2;
/// What the peer lacks follows those.
constexpr U8 lackingFlag = 4;
/// In the byte of the mode: it is the candidate that leads.
constexpr U8 leadsBit = 0x80;
/// Two lengths, the mode, and whether it is complete.
constexpr std::size_t fixedRootSize = 4 + 4 + 1 + 1;

}  // namespace

Sarn::String peerText(PeerIdentity const& peer) {
   if (peer.pid == 0) {
      return "an unknown peer";
   }
   return "pid " + std::to_string(peer.pid) + ", uid " + std::to_string(peer.uid) + ", gid " +
          std::to_string(peer.gid) + (peer.program.empty() ? "" : ", " + printable(peer.program));
}

std::size_t encodedSize(SessionStatus const& status) {
   std::size_t size = smallestStatusSize + status.peer.program.size();
   for (ServedRoot const& served : status.roots) {
      size += fixedRootSize + served.root.type.size() + served.root.name.size();
   }
   if (status.stats.valuesLeftOut != 0) {
      size += 8 + 4;
      for (Sarn::String const& what : status.leftOut) {
         size += 4 + what.size();
      }
   }
   if (status.lackingCount != 0) {
      size += 8 + 4;
      for (Sarn::String const& what : status.lacking) {
         size += 4 + what.size();
      }
   }
   return size;
}

void encode(Out& out, SessionStatus const& status) {
   out.writeU64(status.number);
   out.writeU32(status.peer.pid);
   out.writeU32(status.peer.uid);
   out.writeU32(status.peer.gid);
   out.writeString(status.peer.program);
   bool const leftOut = status.stats.valuesLeftOut != 0;
   bool const lacking = status.lackingCount != 0;
   out.writeU8(static_cast<U8>((status.asking ? askingFlag : 0) | (leftOut ? leftOutFlag : 0) |
                               (lacking ? lackingFlag : 0)));
   out.writeU64(status.age);
   out.writeU64(status.stats.messagesIn);
   out.writeU64(status.stats.messagesOut);
   out.writeU64(status.stats.bytesIn);
   out.writeU64(status.stats.bytesOut);
   out.writeU64(status.stats.changesDeferred);
   out.writeU64(status.stats.changesCoalesced);
   out.writeU64(status.dirtyEntities);
   out.writeU64(status.dirtyAttributes);
   out.writeU64(status.dirtyKeys);
   out.writeU64(status.waiting);
   out.writeU64(status.capacity);
   out.writeU64(status.behind);
   out.writeU32(static_cast<U32>(status.roots.size()));
   for (ServedRoot const& served : status.roots) {
      out.writeString(served.root.type);
      out.writeString(served.root.name);
      out.writeU8(static_cast<U8>(static_cast<U8>(served.mode) | (served.leads ? leadsBit : 0)));
      out.writebool(served.complete);
   }
   if (leftOut) {
      out.writeU64(status.stats.valuesLeftOut);
      out.writeU32(static_cast<U32>(status.leftOut.size()));
      for (Sarn::String const& what : status.leftOut) {
         out.writeString(what);
      }
   }
   if (lacking) {
      out.writeU64(status.lackingCount);
      out.writeU32(static_cast<U32>(status.lacking.size()));
      for (Sarn::String const& what : status.lacking) {
         out.writeString(what);
      }
   }
}

SessionStatus decodeSessionStatus(In& in) {
   SessionStatus status;
   status.number = in.nextU64();
   status.peer.pid = in.nextU32();
   status.peer.uid = in.nextU32();
   status.peer.gid = in.nextU32();
   status.peer.program = in.nextValidString(longestName);
   U8 const flags = in.nextU8();
   if (flags > (askingFlag | leftOutFlag | lackingFlag)) {
      in.fault("a session has the unknown flags " + std::to_string(flags), 1);
   }
   status.asking = (flags & askingFlag) != 0;
   status.age = in.nextU64();
   status.stats.messagesIn = in.nextU64();
   status.stats.messagesOut = in.nextU64();
   status.stats.bytesIn = in.nextU64();
   status.stats.bytesOut = in.nextU64();
   status.stats.changesDeferred = in.nextU64();
   status.stats.changesCoalesced = in.nextU64();
   status.dirtyEntities = in.nextU64();
   status.dirtyAttributes = in.nextU64();
   status.dirtyKeys = in.nextU64();
   status.waiting = in.nextU64();
   status.capacity = in.nextU64();
   status.behind = in.nextU64();
   for (U32 left = in.nextU32(); left != 0; --left) {
      ServedRoot served;
      served.root.type = in.nextValidString(longestName);
      served.root.name = in.nextValidString(longestName);
      U8 const told = in.nextU8();
      U8 const mode = told & static_cast<U8>(~leadsBit);
      served.leads = mode != told;
      if (mode > static_cast<U8>(MountMode::candidate)) {
         in.fault("there is no mount mode " + std::to_string(mode), 1);
      }
      served.mode = static_cast<MountMode>(mode);
      served.complete = in.nextbool();
      status.roots.push_back(std::move(served));
   }
   if ((flags & leftOutFlag) != 0) {
      status.stats.valuesLeftOut = in.nextU64();
      for (U32 left = in.nextU32(); left != 0; --left) {
         status.leftOut.emplace_back(in.nextValidString(longestName));
      }
   }
   if ((flags & lackingFlag) != 0) {
      status.lackingCount = in.nextU64();
      for (U32 left = in.nextU32(); left != 0; --left) {
         status.lacking.emplace_back(in.nextValidString(longestName));
      }
   }
   return status;
}

}  // namespace Kiv::NboAttrLog
