#include "Kiv/Log/DigestAnswers.h"

#include <algorithm>

#include "Kiv/Log/Teller.h"

namespace Kiv::NboAttrLog {

std::vector<EntityRef> readRefs(In& in, std::size_t most) {
   std::size_t const count = in.readableBytes() / EntityRef::size;
   if (count == 0 || count > most) {
      in.fault("the message names " + std::to_string(count) + " entities, not 1 to " +
               std::to_string(most));
   }
   std::vector<EntityRef> refs;
   refs.reserve(count);
   for (std::size_t i = 0; i != count; ++i) {
      bool const sendersOwn = in.nextbool();
      refs.push_back({in.nextU32(), sendersOwn});
   }
   in.expectEnd();
   return refs;
}

void writeRefs(Out& out, std::vector<EntityRef> const& refs) {
   for (EntityRef const& ref : refs) {
      out.writebool(ref.sendersOwn);
      out.writeU32(ref.handle);
   }
}

void DigestAnswers::ask(In& in) {
   U8 const depth = in.nextU8();
   if (depth > static_cast<U8>(DigestDepth::tree)) {
      in.fault("there is no digest of depth " + std::to_string(depth), 1);
   }
   if (teller_.peerTypes() != nullptr) {
      in.fault("digests of two versions of a module cannot be compared", 1);
   }
   if (!asked_.empty()) {
      in.fault("the last question for digests has not been answered", 1);
   }
   depth_ = static_cast<DigestDepth>(depth);
   asked_ = readRefs(in, depth_ == DigestDepth::tree ? 1 : EntityRef::most);
}

void DigestAnswers::repair(In& in) {
   if (mayRepair_ == 0) {
      in.fault("a repair does not follow an answer");
   }
   toRepair_ = readRefs(in, mayRepair_);
   mayRepair_ = 0;
}

void DigestAnswers::clear() noexcept {
   asked_.clear();
   toRepair_.clear();
   mayRepair_ = 0;
}

/// The entity, if the peer mirrors it; else null.
Entity* DigestAnswers::find(EntityRef const& ref) const noexcept {
   Entity* entity = nullptr;
   if (ref.sendersOwn) {
      Names::Theirs const* const theirs = teller_.names().theirs(ref.handle);
      entity = theirs != nullptr ? theirs->entity.get() : nullptr;
   } else if (teller_.names().introduced(ref.handle)) {
      entity = handles_.find(ref.handle);
   }
   return entity != nullptr && mounts_.serves(*entity) ? entity : nullptr;
}

DigestAnswers::Answer DigestAnswers::answer(EntityRef const& ref) {
   Entity const* const entity = find(ref);
   if (entity == nullptr) {
      return {};
   }
   if (depth_ == DigestDepth::tree) {
      std::optional<Digest> const tree = digester_.treeUpTo(*entity, limits_.digestWork);
      return tree ? Answer{DigestState::present, *tree} : Answer{DigestState::tooLarge, {}};
   }
   struct Known {
      Names const& names;
      bool anyUnknown = false;
   } known{teller_.names()};
   auto const counts = [](void* context, Entity const& child) {
      auto& all = *static_cast<Known*>(context);
      bool const isKnown = all.names.known(child);
      all.anyUnknown = all.anyUnknown || !isKnown;
      return isKnown;
   };
   digester_.forgetLongest();
   Digest const node = digester_.node(*entity, counts, &known);
   U8 state = DigestState::present;
   if (teller_.outbox().isLeftOut(digester_.longest())) {
      state |= DigestState::valueLeftOut;
   }
   if (known.anyUnknown) {
      state |= DigestState::childLeftOut;
   }
   return {state, node};
}

bool DigestAnswers::write() {
   if (!toRepair_.empty()) {
      for (EntityRef const& ref : toRepair_) {
         if (Entity* const entity = find(ref)) {
            sendAgain(*entity);
         }
      }
      toRepair_.clear();
      return true;
   }
   Outbox& outbox = teller_.outbox();
   std::size_t const room =
         outbox.longestBody() - std::min(outbox.longestBody(), DigestState::before);
   std::size_t const most = std::clamp<std::size_t>(room / DigestState::size, 1, asked_.size());
   // Nothing is computed for which there is no space.
   std::size_t const whole = headerSize + DigestState::before + most * DigestState::size;
   if (outbox.reserveRun(whole) == nullptr && !outbox.empty()) {
      return false;
   }
   digester_.restart();
   answers_.clear();
   while (answers_.size() != most &&
          (answers_.empty() || digester_.visited() < limits_.digestWork)) {
      answers_.push_back(answer(asked_[answers_.size()]));
   }
   std::size_t const size = DigestState::before + answers_.size() * DigestState::size;
   if (!outbox.write(Opcode::digests, size, 0, 0, [this](Out& out) {
          out.writeU32(teller_.crossing().received);
          for (Answer const& each : answers_) {
             out.writeU8(each.state);
             out.writeU64(each.digest.high);
             out.writeU64(each.digest.low);
          }
       })) {
      return false;
   }
   mayRepair_ = answers_.size();
   asked_.clear();
   return true;
}

/// Sends all of the entity again, and names its children. A singleton child that the peer knows
/// would not be named, so it is sent in full.
void DigestAnswers::sendAgain(Entity& entity) {
   teller_.backlog().markAll(entity);
   forEachField(entity.kivType(), [&](FieldDescriptor const& field) {
      Entity const* const child =
            field.kind == MemberKind::child ? field.ops->child->get(entity) : nullptr;
      if (child != nullptr) {
         teller_.names().introducedIs(child->streamHandle(), false);
         teller_.backlog().remove(child->streamHandle());
      }
   });
}

}  // namespace Kiv::NboAttrLog
