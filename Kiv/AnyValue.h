#pragma once

#include <cstddef>

#include "Kiv/TypeImpl.h"

namespace Kiv {

/// Storage for one value of a type known at run time; small values are stored inline. Empty until a
/// value is read or constructed.
class AnyValue {
public:
   explicit AnyValue(TypeImpl const& type) : type_(type) {
      room_ =
            type.size <= sizeof(inline_) ? static_cast<void*>(inline_) : ::operator new(type.size);
   }
   AnyValue(AnyValue const&) = delete;
   AnyValue& operator=(AnyValue const&) = delete;
   ~AnyValue() {
      clear();
      if (room_ != inline_) {
         ::operator delete(room_);
      }
   }

   TypeImpl const& type() const noexcept { return type_; }
   /// Raw storage for a value that the caller constructs; call `constructed()` afterwards.
   void* room() {
      clear();
      return room_;
   }
   void constructed() noexcept { full_ = true; }
   bool full() const noexcept { return full_; }
   void const* get() const noexcept { return room_; }
   /// REQUIRES: full().
   ValueRef ref() const noexcept { return {type_, room_}; }
   void clear() {
      if (full_) {
         type_.values->genericIfDestruct(room_);
         full_ = false;
      }
   }

   /// Reads a single member of an entity, passed as its `Entity`, or a field of a value.
   /// REQUIRES: `field` is a row of the object's type, and this value has the row's type.
   void read(void const* object, FieldDescriptor const& field);
   /// Takes a copy of the value of this type at `source`.
   void copy(void const* source) {
      type_.genericIfConstruct(room(), source);
      constructed();
   }
   /// Takes the type's default value.
   void makeDefault() {
      type_.support->construct(room());
      constructed();
   }

private:
   TypeImpl const& type_;
   void* room_;
   bool full_ = false;
   alignas(std::max_align_t) unsigned char inline_[64];
};

}  // namespace Kiv
