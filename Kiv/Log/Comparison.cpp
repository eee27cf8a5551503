#include "Kiv/Log/Comparison.h"

#include <algorithm>
#include <utility>

#include "Kiv/Log/Teller.h"
#include "Kiv/Path.h"

namespace Kiv::NboAttrLog {

namespace {
/// How often entities are asked for again that differ only while changes are on their way.
constexpr U32 mostRounds = 8;
}  // namespace

void Comparison::start(Mount& mount, bool repair) {
   clear();
   if (U32 const* const handle = teller_.names().theirHandle(mount.root())) {
      next_.push_back({*handle, false});
   }
   mount_ = &mount;
   repairs_ = repair;
}

void Comparison::clear() noexcept {
   mount_ = nullptr;
   ended_ = false;
   result_ = {};
   depth_ = DigestDepth::tree;
   for (auto* const refs : {&next_, &asked_, &toRepair_, &sentAgain_, &again_}) {
      std::vector<EntityRef>().swap(*refs);  // `clear` would keep the memory
   }
   rounds_ = passes_ = 0;
   theirs_ = ours_ = 0;
   for (auto* const entities : {&repaired_, &stillDiffer_, &fresh_, &scope_}) {
      entities->clear();
   }
}

void Comparison::end(bool finished) {
   result_.finished = finished;
   result_.repaired = repaired_.size() - stillDiffer_.size();
   ended_ = true;
}

std::optional<Compared> Comparison::takeResult() {
   if (inProgress() && !mount_->complete()) {
      end(false);
   }
   if (!inProgress() || !ended_ || !asked_.empty()) {
      return std::nullopt;
   }
   Compared result = std::move(result_);
   clear();
   return result;
}

// Asking

bool Comparison::write() {
   if (!toRepair_.empty()) {
      if (!teller_.outbox().write(Opcode::repair, toRepair_.size() * EntityRef::size, 0, 0,
                                  [this](Out& out) { writeRefs(out, toRepair_); })) {
         return false;
      }
      toRepair_.clear();
   }
   if (next_.empty()) {
      gather();
   }
   if (next_.empty()) {
      end(true);
      return true;
   }
   return writeQuestion();
}

bool Comparison::writeQuestion() {
   std::size_t const longest = std::max(teller_.outbox().longestBody(), 1 + EntityRef::size);
   std::size_t const most = std::min(EntityRef::most, (longest - 1) / EntityRef::size);
   std::vector<EntityRef> question(
         next_.begin(), next_.begin() + static_cast<std::ptrdiff_t>(std::min(most, next_.size())));
   if (!teller_.outbox().write(Opcode::digestAsk, 1 + question.size() * EntityRef::size, 0, 0,
                               [&](Out& out) {
                                  out.writeU8(static_cast<U8>(depth_));
                                  writeRefs(out, question);
                               })) {
      return false;
   }
   next_.erase(next_.begin(), next_.begin() + static_cast<std::ptrdiff_t>(question.size()));
   asked_ = std::move(question);
   return true;
}

/// Finds the next entities to ask for; none at the end.
void Comparison::gather() {
   depth_ = DigestDepth::nodes;
   do {
      if (next_.empty() && gatherTheirs() && gatherOurs() && next_.empty() &&
          rounds_ != mostRounds) {
         rounds_ += again_.empty() ? 0 : 1;
         next_ = std::exchange(again_, {});
      }
   } while (next_.empty() && nextPass());
}

/// True when all have been gathered.
bool Comparison::gatherTheirs() {
   Names const& names = teller_.names();
   for (; theirs_ < names.theirIndexes(); ++theirs_) {
      if (next_.size() == EntityRef::most) {
         return false;
      }
      Names::Theirs const& entry = names.theirsAt(theirs_);
      if (entry.entity && isWanted(*entry.entity)) {
         next_.push_back({entry.handle, false});
      }
   }
   return true;
}

/// The entities that were made here, and to which the peer has not given a handle.
bool Comparison::gatherOurs() {
   for (; writes() && ours_ < handles_.indexes(); ++ours_) {
      if (next_.size() == EntityRef::most) {
         return false;
      }
      Entity const* const entity = handles_.at(static_cast<U32>(ours_));
      if (entity != nullptr && teller_.names().introduced(entity->streamHandle()) &&
          isWanted(*entity) && teller_.names().theirHandle(*entity) == nullptr) {
         next_.push_back({entity->streamHandle(), true});
      }
   }
   return true;
}

bool Comparison::isBelowRoot(Entity const& entity) const noexcept {
   return rootOf(entity) == &mount_->root();
}

/// Whether this pass compares the entity: the first one compares all, the others the children of
/// what was sent again.
bool Comparison::isWanted(Entity const& entity) const noexcept {
   bool const inScope =
         passes_ == 0 || (entity.parent() != nullptr && scope_.contains(entity.parent()));
   return inScope && isBelowRoot(entity);
}

/// Begins another pass, if anything was sent again in this one. It first asks for just that: when
/// the answer comes, everything that was sent again has been applied, and the children are there.
bool Comparison::nextPass() {
   result_.unsettled += again_.size();
   again_.clear();
   if (fresh_.empty() || passes_ == limits_.nesting) {
      return false;
   }
   scope_ = std::exchange(fresh_, {});
   next_ = std::exchange(sentAgain_, {});
   theirs_ = ours_ = 0;
   rounds_ = 0;
   ++passes_;
   return true;
}

// Comparing

void Comparison::take(In& in) {
   if (asked_.empty()) {
      in.fault("nobody has asked for digests");
   }
   U32 const received = in.nextU32();
   std::size_t const count = in.readableBytes() / DigestState::size;
   if (count == 0 || count > asked_.size()) {
      in.fault("the message has the digests of " + std::to_string(count) + " entities, not 1 to " +
               std::to_string(asked_.size()));
   }
   std::vector<std::pair<U8, Digest>> answers;
   answers.reserve(count);
   for (std::size_t i = 0; i != count; ++i) {
      U8 const state = in.nextU8();
      if (state > DigestState::all) {
         in.fault("there is no state " + std::to_string(state) + " of a digest", 1);
      }
      U64 const high = in.nextU64();
      answers.emplace_back(state, Digest{high, in.nextU64()});
   }
   in.expectEnd();
   std::vector<EntityRef> const asked = std::exchange(asked_, {});
   if (!inProgress() || !mount_->complete()) {
      return;
   }
   next_.insert(next_.begin(), asked.begin() + static_cast<std::ptrdiff_t>(count), asked.end());
   if (depth_ == DigestDepth::tree) {
      if (compareTree(answers[0].first, answers[0].second)) {
         end(true);
      }
      return;
   }
   bool const settled = !writes() || (received == teller_.outbox().changes() && teller_.upToDate());
   for (std::size_t i = 0; i != count; ++i) {
      compareNode(asked[i], answers[i].first, answers[i].second, settled);
   }
}

/// Whether the whole mirror is equal to its source.
bool Comparison::compareTree(U8 state, Digest const& theirs) {
   if ((state & DigestState::present) == 0) {
      return false;
   }
   digester_.restart();
   if (digester_.treeUpTo(mount_->root(), limits_.digestWork) != theirs || !followsAll()) {
      return false;
   }
   result_.entities = digester_.entities();
   return true;
}

/// Whether the source's changes reach every entity whose digest was just computed: one that was
/// removed and made again in a mirror that only reads gets none, although it looks the same.
bool Comparison::followsAll() const noexcept {
   if (writes()) {
      return true;
   }
   Names const& names = teller_.names();
   U64 reached = 0;
   for (std::size_t i = 0; i != names.theirIndexes(); ++i) {
      Entity const* const entity = names.theirsAt(i).entity.get();
      reached += entity != nullptr && isBelowRoot(*entity) ? 1 : 0;
   }
   return reached >= digester_.entities();
}

Entity* Comparison::find(EntityRef const& ref) const noexcept {
   if (ref.sendersOwn) {
      return handles_.find(ref.handle);
   }
   Names::Theirs const* const theirs = teller_.names().theirs(ref.handle);
   return theirs != nullptr ? theirs->entity.get() : nullptr;
}

void Comparison::compareNode(EntityRef const& ref, U8 state, Digest const& theirs, bool settled) {
   Entity* const entity = find(ref);
   if (entity == nullptr || !isBelowRoot(*entity)) {
      return;  // it is gone here; if it should not be, its parent differs
   }
   if ((state & DigestState::present) == 0) {
      if (!settled) {
         again_.push_back(ref);
      } else if (entity->parent() != nullptr) {  // naming its children puts this right
         differs(*entity->parent());
      }
      return;
   }
   digester_.restart();
   // A child that a writer has not sent to the peer was too long. A reader has no such children,
   // unless the peer's changes do not reach them.
   struct Known {
      Names const& names;
      bool writes;
      bool anyUnknown = false;
   } known{teller_.names(), writes()};
   auto const counts = [](void* context, Entity const& child) {
      auto& all = *static_cast<Known*>(context);
      bool const isKnown = all.names.known(child);
      all.anyUnknown = all.anyUnknown || !isKnown;
      return isKnown || !all.writes;
   };
   Digest const ours = digester_.node(*entity, counts, &known);
   bool const equal = ours == theirs && (writes() || !known.anyUnknown);
   bool const ourValueLeftOut = writes() && teller_.outbox().isLeftOut(digester_.longest());
   bool const valueLeftOut = (state & DigestState::valueLeftOut) != 0 || ourValueLeftOut;
   if (!equal && !settled) {
      again_.push_back(ref);
      return;
   }
   result_.entities += passes_ == 0 ? 1 : 0;
   if (!equal && !valueLeftOut) {
      differs(*entity);
   } else if (!equal || (state & DigestState::childLeftOut) != 0) {
      result_.leftOut += passes_ == 0 ? 1 : 0;
   }
}

void Comparison::differs(Entity& entity) {
   if (repaired_.contains(&entity)) {
      if (!fresh_.contains(&entity)) {
         stillDiffer_.try_emplace(&entity, &entity);
      }
      return;
   }
   ++result_.differing;
   if (result_.paths.size() != Compared::mostPaths) {
      result_.paths.push_back(entityPath(entity));
   }
   U32 const* const handle = teller_.names().theirHandle(entity);
   if (!repairs_ || (handle == nullptr && entity.streamHandle() == 0)) {
      return;
   }
   repaired_.try_emplace(&entity, &entity);
   fresh_.try_emplace(&entity, &entity);
   EntityRef const ref =
         handle != nullptr ? EntityRef{*handle, false} : EntityRef{entity.streamHandle(), true};
   toRepair_.push_back(ref);
   sentAgain_.push_back(ref);
}

}  // namespace Kiv::NboAttrLog
