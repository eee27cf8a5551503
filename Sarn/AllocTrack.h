#pragma once

#include <atomic>
#include <cstddef>
#include <string_view>

#include "Sarn/Node.h"
#include "Sarn/Types.h"

/// Allocation counters per type, readable at run time.
///
/// Whoever allocates objects of one type (an entity type, a collection, a queue) owns one static
/// record and reports each allocation and release to it. A record that was never used costs
/// nothing but its place in the data segment; its first allocation links it into a process-wide
/// list, which `AllocTrackRecord::forEach` walks:
///
///     AllocTrackRecord::forEach([](AllocTrackRecord const& r) {
///        report(r.typeName(), r.liveObjects(), r.liveBytes());
///     });
///
/// Threads: everything may be called from any thread. The counters of a record are exact, but are
/// read one by one, so a reader beside a running writer may see one that is ahead of the other.
namespace Sarn {

/// Adds to a counter that is only ever changed through this function: a plain add while the
/// process has one thread, an atomic one afterwards.
inline void counterAdd(std::atomic<U64>& counter, U64 n) noexcept {
   if (!threadsExist()) {
      counter.store(counter.load(std::memory_order_relaxed) + n, std::memory_order_relaxed);
   } else {
      counter.fetch_add(n, std::memory_order_relaxed);
   }
}

/// The counters of one type. Has static storage duration; never allocates.
class AllocTrackRecord {
public:
   /// REQUIRES: `typeName` outlives the record (a literal, in general).
   constexpr explicit AllocTrackRecord(std::string_view typeName) noexcept : typeName_(typeName) {}
   AllocTrackRecord(AllocTrackRecord const&) = delete;
   AllocTrackRecord& operator=(AllocTrackRecord const&) = delete;

   /// Counts one object, or one array counted as a whole, of `size` bytes.
   void allocated(std::size_t size, std::size_t alignment) noexcept {
      if (!linked_.load(std::memory_order_relaxed)) [[unlikely]] {
         link(alignment);
      }
      counterAdd(allocations_, 1);
      counterAdd(liveBytes_, size);
   }

   /// Takes back what `allocated` counted with the same size.
   void released(std::size_t size) noexcept {
      counterAdd(releases_, 1);
      counterAdd(liveBytes_, U64{0} - size);
   }

   std::string_view typeName() const noexcept { return typeName_; }
   /// Objects allocated and not yet released.
   U64 liveObjects() const noexcept {
      U64 const gone = releases_.load(std::memory_order_relaxed);
      return allocations_.load(std::memory_order_relaxed) - gone;
   }
   /// The bytes of the live objects, without what the allocator adds.
   U64 liveBytes() const noexcept { return liveBytes_.load(std::memory_order_relaxed); }
   /// Objects allocated since the process started.
   U64 allocations() const noexcept { return allocations_.load(std::memory_order_relaxed); }
   /// The alignment that the first allocation asked for; 0 before it.
   std::size_t alignment() const noexcept { return alignment_; }

   /// Calls `visit(AllocTrackRecord const&)` for each record that was ever allocated from, the
   /// latest to join first. Records that join meanwhile may be missed.
   template <class Visit>
   static void forEach(Visit&& visit) {
      for (AllocTrackRecord const* r = first(); r != nullptr; r = r->next_) {
         visit(*r);
      }
   }

   /// Takes the records that lie in [begin, end) out of the list: to be called when a shared object
   /// is unloaded, with the bounds of its data. REQUIRES: nobody else uses the list meanwhile.
   static void forget(void const* begin, void const* end) noexcept;

private:
   static AllocTrackRecord* first() noexcept;
   void link(std::size_t alignment) noexcept;

   std::string_view typeName_;
   std::atomic<U64> allocations_{0};
   std::atomic<U64> releases_{0};
   std::atomic<U64> liveBytes_{0};
   AllocTrackRecord* next_ = nullptr;
   std::size_t alignment_ = 0;
   std::atomic<bool> linked_{false};
};

/// The name of a type as the compiler spells it, such as "Kiv::HSet<unsigned short, 1>"; made at
/// compile time, for the records of types that have no declared name.
template <class T>
consteval std::string_view typeNameOf() {
   std::string_view const function = __PRETTY_FUNCTION__;
   std::size_t const begin = function.find("T = ") + 4;
   std::size_t end = begin;
   // The name ends at the bracket's end or, with gcc, at the next template argument.
   for (int depth = 0; end < function.size(); ++end) {
      char const c = function[end];
      if (depth == 0 && (c == ';' || c == ']')) {
         break;
      }
      depth += c == '<' || c == '[' || c == '(';
      depth -= c == '>' || c == ']' || c == ')';
   }
   return function.substr(begin, end - begin);
}

}  // namespace Sarn
