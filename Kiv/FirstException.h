#pragma once

#include <exception>
#include <new>

namespace Kiv::Impl {

/// Keeps the first exception of several steps that must all be taken: those of observers, which
/// come when a step has done its work. std::bad_alloc, with which a step may not have done it, goes
/// before any other.
class FirstException {
public:
   template <class Step>
   void attempt(Step&& step) {
      try {
         step();
      } catch (std::bad_alloc const&) {
         first_ = std::current_exception();
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
