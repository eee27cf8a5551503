#pragma once

#include <exception>
#include <new>

namespace Kiv::Impl {

/// Keeps the first exception of several steps that must all be taken. Exceptions of observers come
/// when a step has done its work. After std::bad_alloc a step may not have done it, so
/// std::bad_alloc takes precedence over any other.
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
