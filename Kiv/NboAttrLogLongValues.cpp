// Messages that are longer than one may be, and values that are longer than a session may hold.
#include <algorithm>

#include "Kiv/NboAttrLogSession.h"
#include "Kiv/Path.h"

namespace Kiv::NboAttrLog {
namespace {

/// How many values that were left out a status names, and how much of a name it tells.
constexpr std::size_t mostNames = 16;
constexpr std::size_t longestText = 200;

Sarn::String shortened(Sarn::String text) {
   if (text.size() > longestText) {
      text.resize(longestText - 3);
      text += "...";
   }
   return text;
}

}  // namespace

/// As `write`. The greeting, and what does not even go in parts, ends the session.
bool Session::writeLong(Header const& header, void* context,
                        void (*body)(void* context, Out& out)) {
   if (partsOut_ != nullptr) {
      return false;
   }
   bool const inParts = header.opcode != Opcode::hello && longestBody_ > partHeaderSize &&
                        header.bodySize <= hub_.limits_.longestValue;
   partsOut_ = inParts ? PartsOut::make(header, hub_.budget_) : nullptr;
   if (partsOut_ == nullptr) {
      fail("a message of " + std::to_string(header.bodySize) + " bytes " +
           (inParts ? Sarn::String("finds no memory")
                    : "exceeds the bound of " + std::to_string(longestBody_)));
      return false;
   }
   Out out(partsOut_->body(), header.bodySize);
   body(context, out);
   changesSent_ += isChange(header.opcode) ? 1 : 0;
   if (!writeParts()) {
      fallBehind();
   }
   return true;
}

/// Goes on with the message that travels in parts. False if the output is full.
bool Session::writeParts() {
   while (partsOut_ != nullptr) {
      std::size_t const most = std::min(longestBody_ - partHeaderSize, longestPart);
      std::size_t const size = std::min(partsOut_->left(), most);
      std::size_t const whole = headerSize + partHeaderSize + size;
      U8* const at = out_.reserve(whole);
      if (at == nullptr) {
         if (out_.empty()) {
            noRoom(whole);
         }
         return false;
      }
      Out out(at, whole);
      partsOut_->write(out, size);
      commit(whole);
      if (partsOut_->left() == 0) {
         partsOut_.reset();
      }
   }
   return true;
}

/// Takes a part of a message, or `bye` instead of the next one; applies the message when it is
/// whole.
void Session::applyPart(Header const& header, In& in) {
   if (header.opcode == Opcode::bye) {  // it will send no more of them
      partsIn_.clear();
      apply(header, in);
      return;
   }
   if (header.opcode != Opcode::part) {
      in.fault("a message of kind " + std::to_string(static_cast<unsigned>(header.opcode)) +
               " comes between the parts of another");
   }
   auto const bound = [](void* session, Opcode opcode) {
      return static_cast<Session*>(session)->longestInParts(opcode);
   };
   if (partsIn_.add(header, in, bound, this)) {
      Header const whole = partsIn_.header();
      std::vector<U8> const bytes = partsIn_.take();
      In body(bytes.data(), bytes.data() + bytes.size());
      apply(whole, body);
   }
}

/// Who may not change anything here has nothing long to say.
std::size_t Session::longestInParts(Opcode opcode) const noexcept {
   bool const writer = std::any_of(served_.begin(), served_.end(),
                                   [](Served const& served) { return writesBack(served.mode); });
   bool const expected = isChange(opcode) ? writer || !mounts_.empty()
                                          : opcode == Opcode::roots && rootsAsked_ != 0;
   return expected ? hub_.limits_.longestValue : longestIncoming();
}

/// Called from inside the writing of a change, where nobody may be called: the listener hears of it
/// by the next `pump`.
void Session::leaveOut(std::size_t bodySize, Entity const& entity, FieldDescriptor const* field,
                       void const* key) {
   Sarn::String what = shortened(entityPath(entity));
   if (field != nullptr) {
      what += Sarn::String(".") + field->name;
      if (key != nullptr) {
         what += "[" + shortened(field->keyType->genericIfStrRep(key)) + "]";
      }
      what += " (" + std::to_string(field->fieldId) + ")";
   }
   what += ": " + std::to_string(bodySize) + " bytes exceed the bound of " +
           std::to_string(hub_.limits_.longestValue);
   ++stats_.valuesLeftOut;
   if (std::find(leftOut_.begin(), leftOut_.end(), what) != leftOut_.end()) {
      return;
   }
   if (leftOut_.size() == mostNames) {
      leftOut_.erase(leftOut_.begin());
   }
   leftOut_.push_back(std::move(what));
   leftOutUntold_ = std::min(leftOutUntold_ + 1, leftOut_.size());
}

void Session::tellLeftOut() {
   while (leftOutUntold_ != 0) {
      Sarn::String const what = leftOut_[leftOut_.size() - leftOutUntold_--];
      callListener([&](SessionListener& listener) { listener.onLeftOut(*this, what); });
   }
}

}  // namespace Kiv::NboAttrLog
