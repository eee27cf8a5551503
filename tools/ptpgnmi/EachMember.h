// The members of an entity, one by one.
#pragma once

#include "Holt/State/Walk.h"

namespace Ptpgnmi {

/// Passes each member on as a single value, an element or a child.
template <class OnValue, class OnChild>
class EachMember final : public Holt::StateVisitor<Kiv::Entity> {
public:
   EachMember(OnValue onValue, OnChild onChild) : onValue_(onValue), onChild_(onChild) {}

   void value(Kiv::FieldDescriptor const& field, Kiv::ValueRef value) override {
      onValue_(field, Kiv::ValueRef(), value);
   }
   void child(Kiv::FieldDescriptor const& field, Kiv::Entity const* child) override {
      if (child != nullptr) {
         onChild_(field, Kiv::ValueRef(), *child);
      }
   }
   void collection(Kiv::FieldDescriptor const& field, Elements const& elements) override {
      for (auto const& element : elements) {
         if (element.child != nullptr) {
            onChild_(field, element.key, *element.child);
         } else {
            onValue_(field, element.key, element.value);
         }
      }
   }
   void queue(Kiv::FieldDescriptor const& field, Elements const& elements, U32 next) override {
      U32 number = next - static_cast<U32>(elements.size());
      for (auto const& element : elements) {
         onValue_(field, Kiv::ValueRef(&number), element.value);
         ++number;
      }
   }

private:
   OnValue onValue_;
   OnChild onChild_;
};

/// Calls `onValue(field, key, value)` for each value and element of an entity's state, and
/// `onChild(field, key, child)` for each child. `key` is empty where there is none.
template <class OnValue, class OnChild>
void forEachMember(Kiv::Entity const& entity, OnValue onValue, OnChild onChild) {
   EachMember<OnValue, OnChild> visitor(onValue, onChild);
   Holt::walkMembers(entity, Holt::StatePart::all, visitor);
}

}  // namespace Ptpgnmi
