#include "Holt/Openconfig/Read.h"

#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "Holt/Failure.h"
#include "Holt/Openconfig/Conversions.h"
#include "Holt/Openconfig/Schema.h"
#include "Kiv/Printable.h"
#include "Kiv/Types.h"
#include "PtpLib/PtpOpenConfig/Instance.h"
#include "PtpLib/PtpOpenConfig/TransparentClockDefaultDS.h"

namespace Holt::OpenconfigRows {

namespace {

using ::Openconfig::Ptp::Instance;
using ::Openconfig::Ptp::TransparentClockDefaultDS;

/// Creates the objects on the way to an attribute of an entity that `readStateAt` will read.
Json& attributeIs(Json& entity, std::string_view attribute) {
   Json* at = &entity;
   while (!attribute.empty()) {
      std::size_t const dot = attribute.find('.');
      at = &(*at)[std::string(attribute.substr(0, dot))];
      attribute = dot == std::string_view::npos ? "" : attribute.substr(dot + 1);
   }
   return *at;
}

/// Reads what is below an instance or the transparent clock.
class PartReader {
public:
   PartReader(std::string_view typeName, DocErrors& errors, std::vector<Sarn::String>& notes)
         : typeName_(typeName), errors_(errors), notes_(notes) {}

   void object(Node const& node, Json const& json, Sarn::String const& path) {
      if (!isObject(json, path)) {
         return;
      }
      if (node.container != nullptr && !node.container->isValue) {
         Json& there = attributeIs(entity_, node.container->attribute);
         there = there.is_null() ? Json::object() : there;
      }
      for (auto const& [name, inner] : json.items()) {
         member(node, name, inner, path + "/" + name);
      }
      for (auto const& child : node.children) {
         if (child->leaf != nullptr && !child->isOwn) {
            checkLeaf(node, *child, path);
         }
      }
   }

   bool isObject(Json const& json, Sarn::String const& path) {
      if (!json.is_object()) {
         error(path, "must be an object");
      }
      return json.is_object();
   }

   /// The child that a member is, or null after an error or a note.
   Node const* childOf(Node const& node, std::string_view text, Sarn::String const& path) {
      QualifiedName const name = qualifiedName(text);
      bool const own = name.module == ownModule;
      if (!own && !name.module.empty() && name.module != modelModule) {
         note(path, "belongs to another module");
         return nullptr;
      }
      Node const* const child = node.child(name.name, own);
      if (child == nullptr) {
         error(path, Sarn::String(own ? ownModule : modelModule) + " has no such member" +
                           node.nearest(name.name, own));
      }
      return child;
   }

   void error(Sarn::String const& path, Sarn::String const& what) {
      errors_.push_back(Kiv::printable(path + ": " + what));
   }
   void note(Sarn::String const& path, Sarn::String const& what) {
      notes_.push_back(Kiv::printable(path + ": " + what));
   }

   /// What was read, for `readStateAt`.
   Json const& entity() const { return entity_; }

private:
   void member(Node const& node, std::string_view name, Json const& json,
               Sarn::String const& path) {
      Node const* const child = childOf(node, name, path);
      if (child == nullptr) {
         return;
      }
      if (child->leaf == nullptr) {
         if (child->isList()) {
            list(*child, json, path);
         } else {
            object(*child, json, path);
         }
      } else if (child->leaf->conversion == nullptr) {
         note(path, Sarn::String("not loaded: ") + Sarn::String(child->leaf->attribute));
      } else {
         value(*child, json, path);
      }
   }

   /// None of the lists below an instance has leaves with attributes, so it only matters which
   /// members there are.
   void list(Node const& node, Json const& json, Sarn::String const& path) {
      if (!json.is_array()) {
         error(path, "must be a list");
         return;
      }
      std::size_t at = 0;
      for (Json const& entry : json) {
         object(node, entry, path + "[" + std::to_string(at++) + "]");
      }
   }

   void value(Node const& node, Json const& json, Sarn::String const& path) {
      Leaf const& leaf = *node.leaf;
      Json read;
      try {
         read =
               node.isOwn ? fromOwn(json, leaf.conversion->ownType) : leaf.conversion->toOurs(json);
         checkValue(leaf, read);
      } catch (Failure const& failure) {
         error(path, failure.what());
         failed_.insert(&leaf);
         return;
      }
      given_.insert(&node);
      Json& there = attributeIs(entity_, leaf.attribute);
      // The leaf that is a list's key occurs several times.
      if (!there.is_null() && leaf.own.empty() && there != read) {
         error(path, jsonLine(read) + " contradicts " + jsonLine(there));
         return;
      }
      bool const ownCounts = !node.isOwn && isOwnGiven_.contains(&leaf);
      if (!ownCounts) {
         there = std::move(read);
      }
      if (node.isOwn) {
         isOwnGiven_.insert(&leaf);
      }
   }

   /// Throws `Failure` if the attribute does not take it.
   void checkValue(Leaf const& leaf, Json const& read) const {
      Path path{{Sarn::String(typeName_), ""}, parseSteps("." + Sarn::String(leaf.attribute))};
      DocErrors wrong;
      DocPlace const place = readStateAt(read, path, wrong);
      if (!wrong.empty()) {
         // "PATH: what", and the path is ours.
         throw Failure(wrong.front().substr(place.text.size() + 2));
      }
   }

   /// Checks what depends on other leaves of the object.
   void checkLeaf(Node const& parent, Node const& node, Sarn::String const& path) {
      Leaf const& leaf = *node.leaf;
      bool const isGiven = given_.contains(&node);
      if (isGiven && !leaf.onlyIf.empty()) {
         Node const* const condition = parent.child(leaf.onlyIf, false);
         Json const& holds = attributeIs(entity_, condition->leaf->attribute);
         if (holds != Json(true) && !failed_.contains(condition->leaf)) {
            error(path + "/" + Sarn::String(node.name),
                  "is only allowed if " + Sarn::String(leaf.onlyIf) + " is true");
         }
      }
      if (parent.container != nullptr && parent.container->isValue && !isGiven &&
          !isOwnGiven_.contains(&leaf) && !failed_.contains(&leaf)) {
         error(path, "'" + Sarn::String(node.name) + "' is missing: its leaves are one value");
      }
   }

   std::string_view typeName_;
   DocErrors& errors_;
   std::vector<Sarn::String>& notes_;
   Json entity_ = Json::object();
   std::set<Node const*> given_;
   std::set<Leaf const*> isOwnGiven_;
   std::set<Leaf const*> failed_;
};

class OpenconfigReader {
public:
   OpenconfigReader(OpenconfigData& data, DocErrors& errors) : data_(data), errors_(errors) {}

   void ptp(Json const& json, Sarn::String const& path) {
      PartReader none("", errors_, data_.notes);
      if (!none.isObject(json, path)) {
         return;
      }
      for (auto const& [name, inner] : json.items()) {
         Sarn::String const there = path + "/" + name;
         Node const* const child = none.childOf(schema(), name, there);
         if (child == nullptr) {
            continue;
         }
         if (child->name == clockPath) {
            part(*child, TransparentClockDefaultDS::kivTypeImpl, inner, there);
         } else if (child->name == "instances") {
            instances(*child, inner, there);
         } else {
            none.object(*child, inner, there);  // only notes
         }
      }
   }

private:
   void instances(Node const& node, Json const& json, Sarn::String const& path) {
      PartReader none("", errors_, data_.notes);
      if (!none.isObject(json, path)) {
         return;
      }
      for (auto const& [name, list] : json.items()) {
         Sarn::String const there = path + "/" + name;
         Node const* const child = none.childOf(node, name, there);
         if (child == nullptr) {
            continue;
         }
         if (!list.is_array()) {
            none.error(there, "must be a list");
            continue;
         }
         std::size_t at = 0;
         for (Json const& entry : list) {
            instance(*child, entry, there, at++);
         }
      }
   }

   void instance(Node const& node, Json const& json, Sarn::String const& list, std::size_t at) {
      PartReader none("", errors_, data_.notes);
      Sarn::String const byIndex = list + "[" + std::to_string(at) + "]";
      if (!none.isObject(json, byIndex)) {
         return;
      }
      Json const* key = nullptr;
      for (auto const& [name, inner] : json.items()) {
         QualifiedName const one = qualifiedName(name);
         if (one.name == node.key && (one.module.empty() || one.module == modelModule)) {
            key = &inner;
         }
      }
      if (key == nullptr) {
         none.error(byIndex, "'" + Sarn::String(node.key) + "' is missing");
         return;
      }
      U32 id = 0;
      try {
         id = uint32.toOurs(*key).get<U32>();
      } catch (Failure const& failure) {
         none.error(byIndex + "/" + Sarn::String(node.key), failure.what());
         return;
      }
      Sarn::String const there = list + "=" + std::to_string(id);
      if (!ids_.insert(id).second) {
         none.error(there, "occurs twice");
         return;
      }
      part(node, Instance::kivTypeImpl, json, there)->id = id;
   }

   OpenconfigPart* part(Node const& node, Kiv::TypeImpl const& type, Json const& json,
                        Sarn::String const& at) {
      PartReader reader(type.name, errors_, data_.notes);
      std::size_t const before = errors_.size();
      reader.object(node, json, at);
      OpenconfigPart& part = data_.parts.emplace_back();
      part.at = at;
      if (errors_.size() == before) {
         part.state =
               readStateAt(reader.entity(), Path{{Sarn::String(type.name), ""}, {}}, errors_);
      }
      return &part;
   }

   OpenconfigData& data_;
   DocErrors& errors_;
   std::set<U32> ids_;
};

}  // namespace

}  // namespace Holt::OpenconfigRows

namespace Holt {

OpenconfigData readOpenconfig(Json const& json, std::string const& source, DocErrors& errors) {
   using namespace OpenconfigRows;
   std::string const top = std::string(modelModule) + ":ptp";
   if (!json.is_object() || !json.contains(top)) {
      throw Failure(source + ": has no \"" + top +
                    "\" at its top; 'ptpstate export openconfig' writes the expected format");
   }
   OpenconfigData data;
   OpenconfigReader reader(data, errors);
   for (auto const& [name, inner] : json.items()) {
      if (name == top) {
         reader.ptp(inner, "/" + top);
      } else {
         data.notes.push_back(Kiv::printable("/" + name + ": belongs to another module"));
      }
   }
   return data;
}

}  // namespace Holt
