#include "Kiv/Log/Inbound.h"

#include <algorithm>

#include "Kiv/NboAttrLogSa.h"
#include "Kiv/Path.h"
#include "Kiv/Printable.h"
#include "Sarn/Publications.h"
#include "Sarn/Util.h"

namespace Kiv::NboAttrLog {

Inbound::Inbound(Limits const& limits, ByteBudget& budget, Clock const& clock,
                 Handles const& handles, Applying& applying, Closing& closing, Mounts const& mounts,
                 OpenCollections& open, Teller& teller, Control& control) noexcept
      : limits_(limits),
        shortMessage_(std::min(limits.longestMessage, limits.unmounted)),
        budget_(budget),
        clock_(clock),
        handles_(handles),
        applying_(applying),
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
   U64 const before = messages_;
   inside_ = Sarn::Publications::innermost();
   interrupted_ = false;
   // If an observer throws, the bytes not parsed yet are kept for the next call.
   if (kept_.empty()) {
      struct Keep {
         Inbound& inbound;
         U8 const* bytes;
         std::size_t size;
         ~Keep() { inbound.keep(bytes + inbound.consumed_, size - inbound.consumed_); }
      } const keepRest{*this, bytes, size};
      parse(bytes, size);
   } else {
      keep(bytes, size);
      struct Drop {
         Inbound& inbound;
         ~Drop() {
            auto const begin = inbound.kept_.begin();
            inbound.kept_.erase(begin, begin + static_cast<std::ptrdiff_t>(inbound.consumed_));
            inbound.consumed_ = 0;
         }
      } const drop{*this};
      parse(kept_.data(), kept_.size());
   }
   boundKept(before);
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
      U8 const* const body = bytes + consumed_ + headerSize;
      consumed_ += total;
      ++messages_;
      In in(body, body + header.bodySize);
      parseOne(header, in);
   }
}

/// The most frequent messages by far: a value for an entity that no watcher watches here, and an
/// erase of everything in a collection that is empty anyway. Returns false, with no effect, for all
/// others.
[[gnu::always_inline]] inline bool Inbound::applyAtOnce(Header const& header, In& in) {
   bool const isSet = header.opcode == Opcode::set;
   if (!isSet && header.opcode != Opcode::erase) {
      return false;
   }
   Names::Theirs const* const target = names_.theirs(header.handle);
   if (target == nullptr) {
      return false;
   }
   Entity* const entity = target->entity.get();
   if (entity == nullptr || !target->writable || entity->streamHandle() != 0) {
      return false;
   }
   FieldDescriptor const* const field = entity->kivType().field(header.attribute);
   if (field == nullptr || !field->has(FieldDescriptor::streamed)) {
      return false;
   }
   if (isSet) {
      if (field->kind != MemberKind::single || field->ops->apply == nullptr) {
         return false;
      }
      ++teller_.crossing().received;
      field->ops->apply(*entity, in);
      return true;
   }
   CollectionOps const* const collection = field->ops->collection;
   if (header.bodySize != 0 || collection == nullptr || collection->size(*entity) != 0) {
      return false;
   }
   ++teller_.crossing().received;
   return true;
}

/// A message that cannot be applied for lack of memory must not count as applied. Decoding and
/// checks come before anything is published. Anything thrown later comes from an observer or a
/// listener and is not the peer's fault.
void Inbound::parseOne(Header const& header, In& in) {
   listenerThrew_ = false;
   U32 const observersThrew = Sarn::Publisher::observersThrew();
   try {
      if (header.opcode == Opcode::part || parts_.any()) [[unlikely]] {
         applyPart(header, in);
      } else if (!applyAtOnce(header, in)) [[unlikely]] {
         apply(header, in);
      }
      return;
   } catch (Exception const& error) {
      if (listenerThrew_ || observersThrew != Sarn::Publisher::observersThrew()) {
         interrupted_ = true;
         throw;
      }
      closing_.fail(faultText(header, error.what()));
   } catch (std::bad_alloc const&) {
      closing_.fail(outOfMemory());
   } catch (...) {
      interrupted_ = true;
      throw;
   }
   control_.onFailed();
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
      applyChange(header, in);
   } else {
      control_.onControl(header, in);
   }
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
}

void Inbound::freeIdle() noexcept {
   if (kept_.empty()) {
      freeKept();
   }
}

void Inbound::freeKept() noexcept {
   std::vector<U8>().swap(kept_);  // `clear` would keep the memory
   budget_.change(charged_, 0);
   charged_ = 0;
   halfSince_ = 0;
}

/// Charges what `take` has kept to the budget, and notes since when a message is incomplete.
/// `before`: the message count when `take` began.
void Inbound::boundKept(U64 before) {
   if (closing_.closed()) {
      freeKept();
      return;
   }
   if (kept_.empty()) {
      halfSince_ = 0;
   } else if (halfSince_ == 0 || messages_ != before) {
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
