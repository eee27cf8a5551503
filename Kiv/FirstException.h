#pragma once

#include <exception>

namespace Kiv::Impl {

/// Keeps the first exception of several steps that must all be taken: those of observers, which
/// come when a step has done its work.
class FirstException {
public:
   template <class Step>
   void attempt(Step&& step) {
      try {
         step();
      } catch (...) {
         if (first_ == nullptr) {
            first_ = std::current_exception();
         }
      }
   }
   void rethrow() const {
      if (first_ != nullptr) {
         std::rethrow_exception(first_);
      }
   }

private:
   std::exception_ptr first_;
};

}  // namespace Kiv::Impl
