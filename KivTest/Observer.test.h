// An observer whose reaction is written where the test uses it.
#pragma once

#include <functional>

#include "Kiv/Entity.h"

namespace KivTest {

/// Calls a function for each change during its lifetime. It does not hold a reference to the
/// entity.
class Hears final : public Kiv::Observer {
public:
   using React = std::function<void(Kiv::Change const&)>;

   Hears(Kiv::Entity& entity, React react, Kiv::Scope scope = Kiv::Scope::entity)
         : entity_(&entity), scope_(scope), react_(std::move(react)) {
      entity.observerAdd(*this, scope);
   }
   ~Hears() { stop(); }
   Hears(Hears const&) = delete;
   Hears& operator=(Hears const&) = delete;

   /// Stops observing; `entityGone` does so after the entity has been destroyed.
   void stop() {
      if (entity_ != nullptr) {
         entity_->observerDel(*this, scope_);
         entity_ = nullptr;
      }
   }
   void entityGone() { entity_ = nullptr; }

   void onChange(Kiv::Change const& change) override { react_(change); }

private:
   Kiv::Entity* entity_;
   Kiv::Scope scope_;
   React react_;
};

/// The message of the exception of type `E` that `act` throws, or "nothing thrown".
template <class E, class Act>
std::string thrown(Act&& act) {
   try {
      act();
   } catch (E const& error) {
      return error.what();
   }
   return "nothing thrown";
}

}  // namespace KivTest
