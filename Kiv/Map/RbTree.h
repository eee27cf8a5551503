#pragma once

#include <cstddef>
#include <cstdint>

#include "Sarn/Types.h"

/// The red-black tree beneath `RbTreeMap`, without its types: nodes, links, balance. Not for use by
/// anyone else.
///
/// Invariants: the root is black; a red node has black children; every path from a node down to a
/// missing child has the same number of black nodes. So no path is more than twice as long as
/// another.
///
/// The tree is just its root pointer: the root has no parent, so its parent word holds the number
/// of nodes:
///
///     parent word of the root:   count | 1 0      of another node:   parent's address | 0 red
namespace Kiv::Impl {

struct RbNode {
   RbNode* child[2] = {nullptr, nullptr};
   std::uintptr_t parentWord = 0;

   static constexpr std::uintptr_t redBit = 1;
   static constexpr std::uintptr_t rootBit = 2;
   static constexpr std::uintptr_t countOne = 4;

   bool isRed() const noexcept { return (parentWord & redBit) != 0; }
   bool isRoot() const noexcept { return (parentWord & rootBit) != 0; }
   RbNode* parent() const noexcept {
      return isRoot() ? nullptr : reinterpret_cast<RbNode*>(parentWord & ~redBit);
   }
   void parentIs(RbNode* parent) noexcept {
      parentWord = reinterpret_cast<std::uintptr_t>(parent) | (parentWord & redBit);
   }
   void redIs(bool red) noexcept { parentWord = (parentWord & ~redBit) | (red ? redBit : 0); }
   /// REQUIRES: has a parent.
   bool isRightChild() const noexcept { return parent()->child[1] == this; }
};

/// The number of nodes of the tree under `root`, which may be null.
inline std::size_t rbCount(RbNode const* root) noexcept {
   return root == nullptr ? 0 : root->parentWord / RbNode::countOne;
}

/// The outermost node of a subtree: the first in order with `side` 0, the last with 1; null for an
/// empty one.
RbNode* rbOutermost(RbNode* root, int side) noexcept;
/// The neighbour in order: the next with `side` 1, the previous with 0; null at the end.
RbNode* rbNeighbour(RbNode* node, int side) noexcept;
/// Hangs a fresh node under `parent`, null for an empty tree, where there is no child yet.
void rbInsert(RbNode*& root, RbNode* node, RbNode* parent, bool right) noexcept;
/// Takes a node out. All others stay where they are in memory.
void rbErase(RbNode*& root, RbNode* node) noexcept;
/// Whether the invariants hold; O(n), for tests.
bool rbIsValid(RbNode const* root) noexcept;

}  // namespace Kiv::Impl
