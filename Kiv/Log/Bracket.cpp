#include "Kiv/Log/Bracket.h"

#include <cassert>

namespace Kiv::NboAttrLog {

void Bracket::want(U64 until, U32 token) noexcept {
   assert(token == 0 || !any());
   until_ = until;
   if (!any() && understood_) {
      token_ = token;
      state_ = State::wanted;
   }
}

bool Bracket::tend(bool idle) {
   bool const told = idle && backlog_.isToldUpTo(until_);
   switch (state_) {
      case State::none:
         return true;
      case State::wanted:
         if (told && token_ == 0) {  // what it had changed is gone again
            clear();
            return true;
         }
         return begin();
      case State::open:
         if (told) {
            return commit(false);
         }
         return token_ != 0 || outbox_.bytes() - from_ <= longest_ || commit(true);
      case State::torn:
         return !told || commit(false);
   }
   return true;
}

bool Bracket::begin() {
   U64 const from = outbox_.bytes();
   if (!outbox_.write(Opcode::begin, 4, 0, 0, [this](Out& out) { out.writeU32(token_); })) {
      return false;
   }
   from_ = from;
   state_ = State::open;
   return true;
}

bool Bracket::commit(bool torn) {
   if (!outbox_.write(Opcode::commit, 4 + 1, 0, 0, [&](Out& out) {
          out.writeU32(token_);
          out.writebool(torn || spoilt_);
       })) {
      return false;
   }
   spoilt_ = false;
   state_ = torn ? State::torn : State::none;
   return true;
}

}  // namespace Kiv::NboAttrLog
