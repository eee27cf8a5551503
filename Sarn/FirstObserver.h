#pragma once

#include "Sarn/Publisher.h"

namespace Sarn {

/// The observer of a subtree that is told of a change before all others, and that may be told of it
/// without a publication where no other could see the difference.
///
/// A change that is bypassed makes no frame and climbs nothing:
///
///     publish:  setter -> frame -> observers here -> subtree observers above, this one first
///     bypass:   setter -> roomFor -> the setter encodes the new value there
///
/// It is the first observer of one publisher at a time.
class FirstObserver : public Observer {
public:
   /// Called instead of `onChange` when nobody else is to be told, before the value is stored.
   /// Returns the address at which the caller puts exactly `size` bytes of the new value, which are
   /// what the observer is told; or null, and then the change is published.
   virtual U8* roomFor(U16 attributeId, std::size_t size, Publisher const& source) noexcept = 0;

protected:
   ~FirstObserver() = default;

private:
   friend class Publisher;
   /// Whether its publisher has no other observer.
   bool alone_ = false;
};

}  // namespace Sarn
