#pragma once

#include "Kiv/Entity.h"
#include "Kiv/FirstException.h"

namespace Kiv {

/// An operation on an entity that consists of several setters: all of them are called even if
/// observers throw, and the entity lives until the end even if an observer drops the last
/// reference.
///
///     Kiv::AllSteps steps(*this);
///     steps.take([&] { skewNumeratorIs(1); });
///     steps.take([&] { skewDenominatorIs(1); });
///     steps.finish();
class AllSteps {
public:
   explicit AllSteps(Entity& owner) : alive_(&owner) {}

   template <class Step>
   void take(Step&& step) {
      thrown_.attempt(step);
   }
   /// Throws the first exception of the steps, if there was one.
   void finish() const { thrown_.rethrow(); }

private:
   Sarn::Ptr<Entity> const alive_;
   Impl::FirstException thrown_;
};

}  // namespace Kiv
