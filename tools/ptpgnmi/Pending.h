// Which leaves a subscriber has still to be sent.
#pragma once

#include <limits>
#include <vector>

#include "tools/ptpgnmi/Tree.h"

namespace Ptpgnmi {

/// A set of leaves in the order in which they came, with how often each has changed. It costs at
/// most six bytes for each leaf of the tree, however many changes there are.
///
/// Invariant: a leaf is in `order_` from `head_` on exactly when its `queued` is set, and once; it
/// is in the set when its count is not 0, too.
class Pending {
public:
   /// Adds a leaf, unless it is there, with a count of 1; a `change` of one that is there counts
   /// one more.
   void add(LeafId leaf, bool change) {
      if (leaf >= counts_.size()) {
         counts_.resize(leaf + 1);
      }
      U16& count = counts_[leaf];
      if ((count & mostCount) == 0) {
         ++size_;
         ++count;
      } else if (change && (count & mostCount) != mostCount) {
         ++count;
      }
      if ((count & queued) == 0) {
         count |= queued;
         order_.push_back(leaf);
         ++pushed_;
      }
   }
   void remove(LeafId leaf) {
      if (leaf < counts_.size() && (counts_[leaf] & mostCount) != 0) {
         counts_[leaf] &= queued;
         --size_;
      }
   }

   bool empty() const noexcept { return size_ == 0; }
   std::size_t size() const noexcept { return size_; }
   /// How many have been queued in all, and how many of them have been taken or dropped.
   U64 pushed() const noexcept { return pushed_; }
   U64 popped() const noexcept { return pushed_ - (order_.size() - head_); }

   struct Taken {
      LeafId leaf;
      U16 count;
   };
   /// Takes the oldest. REQUIRES: !empty().
   Taken take() {
      for (;;) {
         LeafId const leaf = order_[head_++];
         U16 const count = counts_[leaf] & mostCount;
         counts_[leaf] = 0;
         if (head_ == order_.size()) {
            order_.clear();
            head_ = 0;
         } else if (head_ > order_.size() / 2 && head_ > 64) {
            order_.erase(order_.begin(), order_.begin() + static_cast<std::ptrdiff_t>(head_));
            head_ = 0;
         }
         if (count != 0) {
            --size_;
            return {leaf, count};
         }
      }
   }
   /// Drops what was removed at the head, so that `popped` is exact. Afterwards, an empty set has
   /// nothing queued.
   void settle() {
      if (empty()) {
         for (std::size_t i = head_; i != order_.size(); ++i) {
            counts_[order_[i]] = 0;
         }
         order_.clear();
         head_ = 0;
      }
   }
   /// Bytes of its memory.
   std::size_t bytes() const noexcept {
      return counts_.capacity() * sizeof(U16) + order_.capacity() * sizeof(LeafId);
   }

private:
   static constexpr U16 queued = 0x8000;
   static constexpr U16 mostCount = 0x7fff;

   std::vector<U16> counts_;
   std::vector<LeafId> order_;
   std::size_t head_ = 0;
   std::size_t size_ = 0;
   U64 pushed_ = 0;
};

}  // namespace Ptpgnmi
