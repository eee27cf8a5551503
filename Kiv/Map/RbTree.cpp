#include "Kiv/Map/RbTree.h"

namespace Kiv::Impl {

namespace {

bool isRed(RbNode const* node) {
   return node != nullptr && node->isRed();
}

/// Puts `node` (or nothing) where `old` hangs, the root's count included. The colour stays
/// `node`'s.
void takePlace(RbNode*& root, RbNode* old, RbNode* node) {
   if (old->isRoot()) {
      root = node;
      if (node != nullptr) {
         node->parentWord =
               (old->parentWord & ~RbNode::redBit) | (node->parentWord & RbNode::redBit);
      }
   } else {
      RbNode* const parent = old->parent();
      parent->child[parent->child[1] == old] = node;
      if (node != nullptr) {
         node->parentIs(parent);
      }
   }
}

/// Turns `node` down to its child on `side`; its other child comes up.
void rotate(RbNode*& root, RbNode* node, bool side) {
   RbNode* const up = node->child[!side];
   RbNode* const across = up->child[side];
   takePlace(root, node, up);
   node->child[!side] = across;
   if (across != nullptr) {
      across->parentIs(node);
   }
   up->child[side] = node;
   node->parentIs(up);
}

/// `node` has two children, `next` is the one after it in order: they change places and colours.
void swapWithNext(RbNode*& root, RbNode* node, RbNode* next) {
   RbNode* const nextParent = next->parent();
   RbNode* const nextRight = next->child[1];
   bool const nodeRed = node->isRed();
   bool const nextRed = next->isRed();
   takePlace(root, node, next);
   next->child[0] = node->child[0];
   next->child[0]->parentIs(next);
   if (nextParent == node) {
      next->child[1] = node;
      node->parentIs(next);
   } else {
      next->child[1] = node->child[1];
      next->child[1]->parentIs(next);
      nextParent->child[0] = node;
      node->parentIs(nextParent);
   }
   node->child[0] = nullptr;
   node->child[1] = nextRight;
   if (nextRight != nullptr) {
      nextRight->parentIs(node);
   }
   next->redIs(nodeRed);
   node->redIs(nextRed);
}

/// The ways through `parent` on `side` are one black node short.
void fillBlack(RbNode*& root, RbNode* parent, bool side) {
   for (;;) {
      RbNode* sibling = parent->child[!side];
      if (sibling->isRed()) {
         sibling->redIs(false);
         parent->redIs(true);
         rotate(root, parent, side);
         sibling = parent->child[!side];
      }
      if (!isRed(sibling->child[0]) && !isRed(sibling->child[1])) {
         sibling->redIs(true);
         if (parent->isRed()) {
            parent->redIs(false);
            return;
         }
         if (parent->isRoot()) {
            return;
         }
         side = parent->isRightChild();
         parent = parent->parent();
         continue;
      }
      if (!isRed(sibling->child[!side])) {
         sibling->child[side]->redIs(false);
         sibling->redIs(true);
         rotate(root, sibling, !side);
         sibling = parent->child[!side];
      }
      sibling->redIs(parent->isRed());
      parent->redIs(false);
      sibling->child[!side]->redIs(false);
      rotate(root, parent, side);
      return;
   }
}

/// The black nodes on each way down from `node`, -1 if they differ or another invariant is broken.
int blackHeight(RbNode const* node) {
   if (node == nullptr) {
      return 0;
   }
   for (RbNode const* const child : node->child) {
      if (child != nullptr && (child->parent() != node || (node->isRed() && child->isRed()))) {
         return -1;
      }
   }
   int const left = blackHeight(node->child[0]);
   int const right = blackHeight(node->child[1]);
   return left < 0 || left != right ? -1 : left + !node->isRed();
}

std::size_t countNodes(RbNode const* node) {
   return node == nullptr ? 0 : 1 + countNodes(node->child[0]) + countNodes(node->child[1]);
}

}  // namespace

RbNode* rbOutermost(RbNode* root, int side) noexcept {
   if (root != nullptr) {
      while (root->child[side] != nullptr) {
         root = root->child[side];
      }
   }
   return root;
}

RbNode* rbNeighbour(RbNode* node, int side) noexcept {
   if (node->child[side] != nullptr) {
      return rbOutermost(node->child[side], 1 - side);
   }
   RbNode* parent = node->parent();
   while (parent != nullptr && parent->child[side] == node) {
      node = parent;
      parent = node->parent();
   }
   return parent;
}

void rbInsert(RbNode*& root, RbNode* node, RbNode* parent, bool right) noexcept {
   node->child[0] = nullptr;
   node->child[1] = nullptr;
   if (parent == nullptr) {
      node->parentWord = RbNode::countOne | RbNode::rootBit;
      root = node;
      return;
   }
   node->parentWord = RbNode::redBit;
   node->parentIs(parent);
   parent->child[right] = node;
   root->parentWord += RbNode::countOne;
   while (parent->isRed()) {
      // Not the root, which is black: there is a grandparent, and it is black.
      RbNode* const grandparent = parent->parent();
      bool const side = grandparent->child[1] == parent;
      if (RbNode* const uncle = grandparent->child[!side]; isRed(uncle)) {
         parent->redIs(false);
         uncle->redIs(false);
         if (grandparent->isRoot()) {
            return;
         }
         grandparent->redIs(true);
         node = grandparent;
         parent = node->parent();
         continue;
      }
      if (parent->child[!side] == node) {
         rotate(root, parent, side);
         parent = node;
      }
      parent->redIs(false);
      grandparent->redIs(true);
      rotate(root, grandparent, !side);
      return;
   }
}

void rbErase(RbNode*& root, RbNode* node) noexcept {
   if (node->child[0] != nullptr && node->child[1] != nullptr) {
      swapWithNext(root, node, rbOutermost(node->child[1], 0));
   }
   RbNode* const child = node->child[0] != nullptr ? node->child[0] : node->child[1];
   RbNode* const parent = node->parent();
   bool const side = parent != nullptr && parent->child[1] == node;
   takePlace(root, node, child);
   if (root != nullptr) {
      root->parentWord -= RbNode::countOne;
   }
   if (child != nullptr) {
      // An only child is red, and its parent black.
      child->redIs(false);
   } else if (parent != nullptr && !node->isRed()) {
      fillBlack(root, parent, side);
   }
}

bool rbIsValid(RbNode const* root) noexcept {
   return root == nullptr || (root->isRoot() && !root->isRed() && blackHeight(root) > 0 &&
                              countNodes(root) == rbCount(root));
}

}  // namespace Kiv::Impl
