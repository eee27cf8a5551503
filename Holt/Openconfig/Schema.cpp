#include "Holt/Openconfig/Schema.h"

#include "Holt/Nearest.h"

namespace Holt::OpenconfigRows {

namespace {

Node& childIs(Node& parent, std::string_view name, bool own) {
   for (auto const& child : parent.children) {
      if (child->name == name && child->isOwn == own) {
         return *child;
      }
   }
   parent.children.push_back(std::make_unique<Node>());
   Node& made = *parent.children.back();
   made.name = name;
   made.isOwn = own;
   return made;
}

/// The node at a path, which is created.
Node& nodeIs(Node& root, std::string_view path) {
   Node* at = &root;
   while (!path.empty()) {
      std::size_t const slash = path.find('/');
      at = &childIs(*at, path.substr(0, slash), false);
      path = slash == std::string_view::npos ? "" : path.substr(slash + 1);
   }
   return *at;
}

std::string_view parentOf(std::string_view path) {
   return path.substr(0, path.rfind('/'));
}

Node const* made() {
   static Node root;
   root.name = "ptp";
   for (Leaf const& leaf : leaves()) {
      nodeIs(root, leaf.path).leaf = &leaf;
      if (!leaf.own.empty()) {
         childIs(nodeIs(root, parentOf(leaf.path)), leaf.own, true).leaf = &leaf;
      }
   }
   for (Container const& container : containers()) {
      nodeIs(root, container.path).container = &container;
   }
   for (List const& list : lists()) {
      nodeIs(root, list.path).key = list.key;
   }
   return &root;
}

}  // namespace

Node const* Node::child(std::string_view childName, bool own) const noexcept {
   for (auto const& candidate : children) {
      if (candidate->name == childName && candidate->isOwn == own) {
         return candidate.get();
      }
   }
   return nullptr;
}

Sarn::String Node::nearest(std::string_view childName, bool own) const {
   std::vector<std::string_view> names;
   for (auto const& candidate : children) {
      if (candidate->isOwn == own) {
         names.push_back(candidate->name);
      }
   }
   return didYouMean(childName, names);
}

Node const& schema() {
   static Node const* const root = made();
   return *root;
}

QualifiedName qualifiedName(std::string_view text) noexcept {
   std::size_t const colon = text.find(':');
   return colon == std::string_view::npos
                ? QualifiedName{{}, text}
                : QualifiedName{text.substr(0, colon), text.substr(colon + 1)};
}

}  // namespace Holt::OpenconfigRows
