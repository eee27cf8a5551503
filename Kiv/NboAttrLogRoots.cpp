// What roots there are to be mounted: asking, answering, taking the answer.
#include <algorithm>

#include "Kiv/NboAttrLogSession.h"

namespace Kiv::NboAttrLog {

void Session::rootsAsk() {
   if (!closed_) {
      pendingEnq(Opcode::listRoots, 0, {}, 0);
      ++rootsAsked_;
      pump();
   }
}

/// False when the output is full. Of more roots than a message in parts holds, the first are told.
bool Session::writeRoots() {
   std::size_t size = 4;
   U32 count = 0;
   std::vector<NamedEntity*> const roots = hub_.roots();
   for (NamedEntity const* const root : roots) {
      std::size_t const more =
            4 + std::string_view(root->kivType().name).size() + 4 + root->nameString().size();
      if (size + more > std::max(longestBody_, hub_.limits_.longestValue)) {
         break;
      }
      size += more;
      ++count;
   }
   return write(Opcode::roots, size, 0, 0, [&](Out& out) {
      out.writeU32(count);
      for (U32 i = 0; i != count; ++i) {
         out.writeString(roots[i]->kivType().name);
         out.writeString(roots[i]->nameString());
      }
   });
}

void Session::applyRoots(In& in) {
   if (rootsAsked_ == 0) {
      in.fault("nobody has asked for the roots");
   }
   U32 const count = in.nextU32();
   // Each takes the lengths of two strings at least.
   if (count > in.readableBytes() / 8) {
      in.fault(std::to_string(count) + " roots exceed the bound of " +
                     std::to_string(in.readableBytes() / 8) + " in the message",
               4);
   }
   std::vector<OfferedRoot> roots;
   roots.reserve(count);
   for (U32 i = 0; i != count; ++i) {
      Sarn::String type(in.nextString());
      Sarn::String name(in.nextString());
      roots.push_back({std::move(type), std::move(name)});
   }
   in.expectEnd();
   --rootsAsked_;
   callListener([&](SessionListener& listener) { listener.onRoots(*this, roots); });
}

void Session::checkRoomForAnswer(In const& in) const {
   if (pending_.size() >= hub_.limits_.nesting) {
      in.fault("more than " + std::to_string(hub_.limits_.nesting) +
               " requests wait for an answer");
   }
}

}  // namespace Kiv::NboAttrLog
