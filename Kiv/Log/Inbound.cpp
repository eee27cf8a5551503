#include "Kiv/Log/Inbound.h"

#include <algorithm>

#include "Kiv/Log/Prefetch.h"
#include "Kiv/NboAttrLogSa.h"
#include "Kiv/Path.h"
#include "Kiv/Printable.h"
#include "Sarn/Publications.h"
#include "Sarn/Util.h"

namespace Kiv::NboAttrLog {

namespace {
/// Whether such a message may be part of a run: see `Inbound::applyRun`.
constexpr bool mayBeInRun(Opcode opcode) noexcept {
   return opcode == Opcode::set || opcode == Opcode::erase;
}
/// The longest value that `Inbound::applySimple` takes.
constexpr std::size_t longestSimple = 255;
}  // namespace

Inbound::Inbound(Limits const& limits, ByteBudget& budget, Clock const& clock, Applying& applying,
                 Handles const& handles, Closing& closing, Mounts const& mounts,
                 OpenCollections& open, Teller& teller, Control& control) noexcept
      : shortMessage_(std::min(limits.longestMessage, limits.unmounted)),
        limits_(limits),
        budget_(budget),
        clock_(clock),
        applying_(applying),
        handles_(handles),
        closing_(closing),
        mounts_(mounts),
        open_(open),
        teller_(teller),
        names_(teller.names()),
        control_(control),
        parts_(budget) {}

void Inbound::take(U8 const* bytes, std::size_t size) {
   SARN_CHECK(!taking_);
   struct Taking {
      bool& taking;
      ~Taking() { taking = false; }
   } const taking{taking_ = true};
   bytes_ += size;
   U64 const before = messages_ + scan_.messages();
   inside_ = Sarn::Publications::innermost();
   interrupted_ = false;
   {
      // If an observer throws, the bytes not parsed yet are kept for the next call, too.
      struct Rest {
         Inbound& inbound;
         U8 const* begin;
         U8 const* end;
         std::size_t size() const noexcept { return static_cast<std::size_t>(end - begin); }
         ~Rest() { inbound.keep(begin + inbound.consumed_, size() - inbound.consumed_); }
      } rest{*this, bytes, bytes + size};
      completeKept(rest.begin, rest.end);
      if (kept_.empty()) {
         parse(rest.begin, rest.size());
      }
   }
   boundKept(before);
}

/// Parses what was kept, completed by as many of the new bytes as that takes; moves `begin` behind
/// them. The other bytes need not be copied.
void Inbound::completeKept(U8 const*& begin, U8 const* end) {
   struct Drop {
      Inbound& inbound;
      ~Drop() {
         auto const first = inbound.kept_.begin();
         inbound.kept_.erase(first, first + static_cast<std::ptrdiff_t>(inbound.consumed_));
         inbound.consumed_ = 0;
      }
   };
   while (!kept_.empty()) {
      {
         Drop const drop{*this};
         parse(kept_.data(), kept_.size());
      }
      std::size_t whole = headerSize;
      if (kept_.size() >= headerSize) {
         whole += readHeader(kept_.data()).bodySize;
      }
      // Of a batch, all that has come: one copy is cheaper than one for each of its messages.
      std::size_t const missing = scan_.any() ? static_cast<std::size_t>(end - begin)
                                              : whole - std::min(whole, kept_.size());
      std::size_t const more = std::min(missing, static_cast<std::size_t>(end - begin));
      if (kept_.empty() || more == 0) {
         return;
      }
      keep(begin, more);
      begin += more;
   }
}

void Inbound::applyAlone(Header const& header, In& in) {
   struct Outer {
      void const*& inside;
      void const* before;
      ~Outer() { inside = before; }
   } const outer{inside_, inside_};
   inside_ = Sarn::Publications::innermost();
   applyChange(header, in);
}

/// Keeps bytes for the next call. If there is no memory for them, the stream is broken.
void Inbound::keep(U8 const* bytes, std::size_t size) noexcept {
   closing_.orFail([&] { kept_.insert(kept_.end(), bytes, bytes + size); });
   consumed_ = 0;
}

void Inbound::parse(U8 const* bytes, std::size_t size) {
   while (size - consumed_ >= headerSize && !closing_.closed()) {
      Header const header = readHeader(bytes + consumed_);
      if (!greeted_ && header.opcode != Opcode::hello) [[unlikely]] {
         failFor("the peer does not begin with the attribute log's greeting");
         return;
      }
      if (header.bodySize > shortMessage_ && header.bodySize > control_.longestMessage())
            [[unlikely]] {
         failFor(describe(header) + ": a message of " + std::to_string(header.bodySize) +
                 " bytes exceeds the bound of " + std::to_string(control_.longestMessage()));
         return;
      }
      std::size_t const total = headerSize + header.bodySize;
      if (size - consumed_ < total) {
         return;
      }
      if (mayBeInRun(header.opcode) && !parts_.any() && applyRun(bytes, bytes + size)) [[likely]] {
         continue;
      }
      if (header.opcode == Opcode::begin && !parts_.any()) [[unlikely]] {
         if (!takeBatch(bytes, size)) {
            return;
         }
         continue;
      }
      U8 const* const body = bytes + consumed_ + headerSize;
      consumed_ += total;
      ++messages_;
      In in(body, body + header.bodySize);
      parseOne(header, in);
   }
}

/// Applies what `work` applies; if that is a fault, of the message with the header `headerOf()`,
/// closes the session.
///
/// A message that cannot be applied for lack of memory must not count as applied. Decoding and
/// checks come before anything is published. Anything thrown later comes from an observer or a
/// listener and is not the peer's fault.
template <class HeaderOf, class Work>
[[gnu::always_inline]] inline void Inbound::attempt(HeaderOf const& headerOf, Work const& work) {
   listenerThrew_ = false;
   U32 const observersThrew = Sarn::Publisher::observersThrew();
   try {
      work();
      return;
   } catch (Exception const& error) {
      if (listenerThrew_ || observersThrew != Sarn::Publisher::observersThrew()) {
         interrupted_ = true;
         throw;
      }
      closing_.fail(faultText(headerOf(), error.what()));
   } catch (std::bad_alloc const&) {
      closing_.fail(outOfMemory());
   } catch (...) {
      interrupted_ = true;
      throw;
   }
   control_.onFailed();
}

/// Successive messages, which the session counts together: nothing else happens between them.
class Inbound::Run {
public:
   /// `message`: the last message that was begun.
   Run(Inbound& inbound, U8 const*& message, U8 const* last) noexcept
         : end(last), inbound_(inbound), counted_(message), message_(message) {}
   ~Run() { count(); }
   Run(Run const&) = delete;
   Run& operator=(Run const&) = delete;

   /// The message at `at` is taken. REQUIRES: it is complete, and `next()`.
   void begin(U8 const* at) noexcept {
      message_ = at;
      ++taken_;
   }
   /// Where the next message begins.
   U8 const* next() const noexcept {
      return taken_ != 0 ? message_ + headerSize + readHeader(message_).bodySize : counted_;
   }
   /// The session counts all messages taken so far.
   void count() noexcept {
      U8 const* const counted = next();
      inbound_.consumed_ += static_cast<std::size_t>(counted - counted_);
      inbound_.messages_ += taken_;
      inbound_.teller_.crossing().received += taken_;
      counted_ = counted;
      taken_ = 0;
   }

   /// The end of the received bytes.
   U8 const* const end;

private:
   Inbound& inbound_;
   U8 const* counted_;
   U8 const*& message_;
   /// How many messages were taken and not counted yet.
   U32 taken_ = 0;
};

/// Reads ahead which entities the next messages are for, so that these are in the cache when their
/// turn comes: many small changes of many entities would otherwise wait for memory most of the
/// time.
class Inbound::Scout {
public:
   Scout(Names const& names, U8 const* begin, U8 const* end) noexcept
         : names_(names), at_(begin), end_(end) {}

   /// Goes on to the messages that are near `next`.
   void keepAhead(U8 const* next) noexcept {
      at_ = std::max(at_, next);
      while (at_ - next < lead && static_cast<std::size_t>(end_ - at_) >= headerSize) {
         Header const header = readHeader(at_);
         if (Names::Theirs const* const target = names_.theirs(header.handle)) {
            prefetch(target->entity.get(), 2);
         }
         std::size_t const left = static_cast<std::size_t>(end_ - at_);
         at_ += std::min(left, headerSize + header.bodySize);
      }
   }

private:
   /// About eight messages of one number each.
   static constexpr std::ptrdiff_t lead = 160;

   Names const& names_;
   U8 const* at_;
   U8 const* end_;
};

/// Applies the next messages as long as they are of the two most frequent kinds: a value for an
/// entity that no hub watches here, and an erase of everything in a collection that is empty
/// anyway. Returns false, with no effect, if the next message is neither.
bool Inbound::applyRun(U8 const* const bytes, U8 const* const end) {
   U8 const* const begin = bytes + consumed_;
   U8 const* message = begin;
   auto const applyAll = [&] {
      Run run(*this, message, end);
      Scout scout(names_, begin, end);
      for (bool more = true; more;) {
         Names::Theirs const* const target = names_.theirs(readHeader(run.next()).handle);
         Entity* const entity = target != nullptr ? target->entity.get() : nullptr;
         if (entity == nullptr || !target->writable || entity->streamHandle() != 0) {
            return;
         }
         more = applyRunTo(*entity, run);
         // A replay does not come here, since it introduces each entity before its values.
         if (more) {
            scout.keepAhead(run.next());
         }
      }
   };
   attempt([&message] { return readHeader(message); }, applyAll);
   return bytes + consumed_ != begin;
}

/// The messages to one entity. As long as it is unwatched, its setters run nobody else's code, so
/// it need not be looked up again; otherwise the run ends after one message, since an observer may
/// have done anything. Returns whether the next message continues the run, with another entity.
bool Inbound::applyRunTo(Entity& entity, Run& run) {
   TypeImpl const& type = entity.kivType();
   bool const watched = entity.watched();
   U8 const* at = run.next();
   U32 const handle = readHeader(at).handle;
   for (;;) {
      if (!watched && shortMessage_ >= longestSimple) [[likely]] {
         at = applySimple(entity, type, handle, run, at);
      }
      if (static_cast<std::size_t>(run.end - at) < headerSize) {
         return false;
      }
      Header const header = readHeader(at);
      if (header.handle != handle) {
         return mayBeInRun(header.opcode);
      }
      FieldDescriptor const* const field = type.field(header.attribute);
      U8 const* const body = at + headerSize;
      if (field == nullptr || !field->has(FieldDescriptor::streamed) ||
          header.bodySize > shortMessage_ ||
          header.bodySize > static_cast<std::size_t>(run.end - body)) [[unlikely]] {
         return false;
      }
      if (header.opcode == Opcode::set) {
         if (field->kind != MemberKind::single || field->ops->apply == nullptr) [[unlikely]] {
            return false;
         }
         run.begin(at);
         at = body + header.bodySize;
         In in(body, at);
         if (watched) [[unlikely]] {
            run.count();
            field->ops->apply(entity, in);
            return false;
         }
         field->ops->apply(entity, in);
      } else {
         CollectionOps const* const collection = field->ops->collection;
         if (header.opcode != Opcode::erase || header.bodySize != 0 || collection == nullptr ||
             collection->size(entity) != 0) {
            return false;
         }
         run.begin(at);
         at = body;
      }
   }
}

/// Most messages of a run: a value of at most `longestSimple` bytes for an attribute that the type
/// of an unwatched entity does not inherit. Returns where the first message begins that is none.
U8 const* Inbound::applySimple(Entity& entity, TypeImpl const& type, U32 handle, Run& run,
                               U8 const* at) {
   U8 const* const end = run.end;
   while (static_cast<std::size_t>(end - at) >= headerSize) {
      U8 const* const body = at + headerSize;
      // Any other opcode, or a longer body, makes this number too large.
      U32 const size = readNumber<U32>(at) - opcodeAndSize(Opcode::set, 0);
      U32 const row = readNumber<U16>(at + 8) - U32{type.firstId};
      if (size > longestSimple || readNumber<U32>(at + 4) != handle || row >= type.rowCount) {
         break;
      }
      FieldDescriptor const& field = type.rows[row];
      if (field.kind != MemberKind::single || !field.has(FieldDescriptor::streamed) ||
          size > static_cast<std::size_t>(end - body)) {
         break;
      }
      auto* const apply = field.ops->apply;
      if (apply == nullptr) {
         break;
      }
      run.begin(at);
      at = body + size;
      In in(body, at);
      apply(entity, in);
   }
   return at;
}

void Inbound::parseOne(Header const& header, In& in) {
   auto const applyIt = [&] {
      if (header.opcode == Opcode::part || parts_.any()) [[unlikely]] {
         applyPart(header, in);
      } else {
         apply(header, in);
      }
   };
   attempt([&header] { return header; }, applyIt);
}

void Inbound::failFor(Sarn::String reason) {
   closing_.fail(std::move(reason));
   control_.onFailed();
}

Sarn::String Inbound::faultText(Header const& header, char const* fault) const noexcept {
   try {
      return printable(describe(header) + ": " + fault);  // it may contain names from the peer
   } catch (std::bad_alloc const&) {
      return outOfMemory();
   }
}

Sarn::String Inbound::describe(Header const& header) const {
   Names::Theirs const* const target = names_.theirs(header.handle);
   if (target != nullptr && target->entity) {
      Entity const& entity = *target->entity;
      FieldDescriptor const* const field = entity.kivType().field(header.attribute);
      return entityPath(entity) + "." + (field != nullptr ? field->name : "?") + " (" +
             entity.kivType().name + ", " + std::to_string(header.attribute) + ")";
   }
   return "message " + std::to_string(static_cast<unsigned>(header.opcode)) + " for entity " +
          std::to_string(header.handle) + ", attribute " + std::to_string(header.attribute);
}

void Inbound::apply(Header const& header, In& in) {
   if (isChange(header.opcode)) {
      ++teller_.crossing().received;
      bool const denied = refused_ != 0 || (mounts_.peerWaits() && isOfAnother(header));
      if (!denied || !teller_.denied().note(header, in)) [[likely]] {
         applyChange(header, in);
      }
   } else if (header.opcode == Opcode::commit) {
      applyCommit(in);
   } else {
      control_.onControl(header, in);
   }
}

/// Whether the change is to a root that another peer leads.
bool Inbound::isOfAnother(Header const& header) const noexcept {
   Names::Theirs const* const target = names_.theirs(header.handle);
   return target != nullptr && target->entity && mounts_.peerWaits(*target->entity);
}

/// Takes a part of a message, or `bye` instead of the next one; applies the message when it is
/// complete.
void Inbound::applyPart(Header const& header, In& in) {
   if (header.opcode == Opcode::bye) {  // no more parts will come
      parts_.clear();
      apply(header, in);
      return;
   }
   if (header.opcode != Opcode::part) {
      in.fault("a message of kind " + std::to_string(static_cast<unsigned>(header.opcode)) +
               " comes between the parts of another");
   }
   auto const bound = [](void* control, Opcode opcode) {
      return static_cast<Control*>(control)->longestInParts(opcode);
   };
   if (!parts_.any()) {
      partsSince_ = clock_.now();
   }
   if (parts_.add(header, in, bound, &control_)) {
      Header const whole = parts_.header();
      std::vector<U8> const bytes = parts_.take();
      In body(bytes.data(), bytes.data() + bytes.size());
      apply(whole, body);
   }
}

// Memory and time.

void Inbound::drop() noexcept {
   if (consumed_ == 0) {  // otherwise `take` is parsing them, and frees them
      freeKept();
   }
   parts_.clear();
   scan_.clear();
}

void Inbound::freeIdle() noexcept {
   if (kept_.empty()) {
      freeKept();
   }
}

void Inbound::freeKept() noexcept {
   std::vector<U8>().swap(kept_);  // `clear` would keep the memory
   scan_.clear();
   budget_.change(charged_, 0);
   charged_ = 0;
   halfSince_ = 0;
}

/// Charges what `take` has kept to the budget, and notes since when a message is incomplete.
/// `before`: the message count when `take` began, with those of an incomplete batch.
void Inbound::boundKept(U64 before) {
   if (closing_.closed()) {
      freeKept();
      return;
   }
   if (kept_.empty()) {
      halfSince_ = 0;
   } else if (halfSince_ == 0 || messages_ + scan_.messages() != before) {
      halfSince_ = clock_.now();
   }
   if (kept_.capacity() == charged_) {
      return;
   }
   if (budget_.change(charged_, kept_.capacity())) {
      charged_ = kept_.capacity();
      return;
   }
   Sarn::String const size = std::to_string(kept_.size());
   freeKept();
   Sarn::String reason = outOfMemory();
   try {
      reason = "a half message of " + size + " bytes finds no room: the connections hold " +
               std::to_string(budget_.held) + " bytes of " + std::to_string(budget_.bound);
   } catch (std::bad_alloc const&) {  // `reason` says so already
   }
   failFor(std::move(reason));
}

}  // namespace Kiv::NboAttrLog
