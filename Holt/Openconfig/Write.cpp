#include "Holt/Openconfig/Write.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Holt/Failure.h"
#include "Holt/Openconfig/Conversions.h"
#include "Holt/Openconfig/Schema.h"
#include "Holt/State/Doc.h"
#include "Kiv/Printable.h"
#include "PtpLib/PtpOpenConfig/Instance.h"
#include "PtpLib/PtpOpenConfig/TransparentClockDefaultDS.h"

namespace Holt::OpenconfigRows {

namespace {

/// What is at an attribute, such as "defaultDs.state.priority1", of an entity that `jsonOf` has
/// written; null if it is absent.
Json const* attributeAt(Json const& entity, std::string_view attribute) {
   Json const* at = &entity;
   while (at != nullptr && !attribute.empty()) {
      std::size_t const dot = attribute.find('.');
      auto const found = at->find(attribute.substr(0, dot));
      at = found == at->end() || found->is_null() ? nullptr : &*found;
      attribute = dot == std::string_view::npos ? "" : attribute.substr(dot + 1);
   }
   return at;
}

bool isTrue(Json const& object, std::string_view name) {
   auto const found = object.find(name);
   return found != object.end() && *found == Json(true);
}

/// Writes a root, which `jsonOf` has written, below a node of the model.
class OpenconfigWriter {
public:
   explicit OpenconfigWriter(Json const& entity) : entity_(entity) {}

   Json below(Node const& node) const {
      Json object = Json::object();
      for (auto const& child : node.children) {
         if (child->leaf != nullptr) {
            leaf(*child, object);
         } else if (!child->isList()) {
            Json inner = below(*child);
            bool const exists = child->container != nullptr &&
                                attributeAt(entity_, child->container->attribute) != nullptr;
            if (exists || !inner.empty()) {
               object[std::string(child->name)] = std::move(inner);
            }
         }
      }
      // A leaf that depends on one after it.
      for (auto const& child : node.children) {
         if (!child->isOwn && child->leaf != nullptr) {
            restrict(*child->leaf, child->name, object);
         }
      }
      return object;
   }

private:
   void leaf(Node const& node, Json& object) const {
      Conversion const* const conversion = node.leaf->conversion;
      Json const* const ours =
            conversion != nullptr ? attributeAt(entity_, node.leaf->attribute) : nullptr;
      if (ours == nullptr) {
         return;
      }
      Json model = conversion->toModel(*ours);
      if (!node.isOwn) {
         if (!model.is_null()) {
            object[std::string(node.name)] = std::move(model);
         }
      } else if (model.is_null() || conversion->toOurs(model) != *ours) {
         object[ownName(*node.leaf)] = ownOf(*ours, conversion->ownType);
      }
   }

   /// Moves a leaf that must not exist to our own.
   void restrict(Leaf const& leaf, std::string_view name, Json& object) const {
      auto const found = object.find(name);
      if (!leaf.onlyIf.empty() && found != object.end() && !isTrue(object, leaf.onlyIf)) {
         object.erase(found);
         object[ownName(leaf)] =
               ownOf(*attributeAt(entity_, leaf.attribute), leaf.conversion->ownType);
      }
   }

   static std::string ownName(Leaf const& leaf) {
      return std::string(ownModule) + ":" + std::string(leaf.own);
   }

   Json const& entity_;
};

Json written(Kiv::NamedEntity const& root, std::string_view path) {
   Node const* node = &schema();
   while (!path.empty()) {
      std::size_t const slash = path.find('/');
      node = node->child(path.substr(0, slash), false);
      path = slash == std::string_view::npos ? "" : path.substr(slash + 1);
   }
   Json const entity = jsonOf(*docOf(static_cast<Kiv::Entity const&>(root)));
   return OpenconfigWriter(entity).below(*node);
}

using ::Openconfig::Ptp::Instance;
using ::Openconfig::Ptp::TransparentClockDefaultDS;

Sarn::String quotedName(Kiv::NamedEntity const& root) {
   return "'" + Kiv::printable(root.nameString()) + "'";
}

}  // namespace

}  // namespace Holt::OpenconfigRows

namespace Holt {

bool isInOpenconfig(Kiv::TypeImpl const& type) noexcept {
   using namespace ::Openconfig::Ptp;
   return type.isA(Instance::kivTypeImpl) || type.isA(TransparentClockDefaultDS::kivTypeImpl);
}

Json openconfigJson(std::vector<Kiv::NamedEntity const*> const& roots) {
   using namespace OpenconfigRows;
   std::vector<Instance const*> instances;
   TransparentClockDefaultDS const* clock = nullptr;
   for (Kiv::NamedEntity const* const root : roots) {
      if (root->kivType().isA(Instance::kivTypeImpl)) {
         instances.push_back(static_cast<Instance const*>(root));
      } else if (root->kivType().isA(TransparentClockDefaultDS::kivTypeImpl)) {
         if (clock != nullptr) {
            throw Failure("the model has one transparent clock, and there are several, such as " +
                          quotedName(*clock) + " and " + quotedName(*root) + "; name one");
         }
         clock = static_cast<TransparentClockDefaultDS const*>(root);
      }
   }
   std::stable_sort(instances.begin(), instances.end(),
                    [](Instance const* a, Instance const* b) { return a->id() < b->id(); });
   Json ptp = Json::object();
   for (std::size_t i = 0; i != instances.size(); ++i) {
      if (i != 0 && instances[i - 1]->id() == instances[i]->id()) {
         throw Failure("two instances have the id " + std::to_string(instances[i]->id()) + ", " +
                       quotedName(*instances[i - 1]) + " and " + quotedName(*instances[i]) +
                       "; set another, or name one");
      }
      ptp["instances"]["instance"].push_back(written(*instances[i], instancePath));
   }
   if (clock != nullptr) {
      ptp[std::string(clockPath)] = written(*clock, clockPath);
   }
   return {{std::string(modelModule) + ":ptp", std::move(ptp)}};
}

std::string openconfigText(Json const& document) {
   return document.dump(3) + "\n";
}

}  // namespace Holt
