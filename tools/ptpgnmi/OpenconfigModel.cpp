#include "tools/ptpgnmi/OpenconfigModel.h"

#include <nlohmann/json.hpp>

#include "Holt/Openconfig/Conversions.h"
#include "Holt/Openconfig/Schema.h"
#include "Holt/Openconfig/Write.h"
#include "Holt/State/Walk.h"
#include "Kiv/Visit.h"
#include "PtpLib/PtpOpenConfig/Instance.h"
#include "PtpLib/PtpOpenConfig/TransparentClockDefaultDS.h"

namespace Ptpgnmi {

using Holt::OpenconfigRows::Node;
using Kiv::FieldDescriptor;
using Kiv::TypeImpl;
using ::Openconfig::Ptp::Instance;
using ::Openconfig::Ptp::TransparentClockDefaultDS;
using Row = Holt::OpenconfigRows::Leaf;

namespace {

constexpr char const* top = "ptp";

/// The elements of "a/b/c".
Elems elemsOf(std::string_view path) {
   Elems elems;
   while (!path.empty()) {
      std::size_t const slash = path.find('/');
      elems.push_back({std::string(path.substr(0, slash)), {}});
      path = slash == std::string_view::npos ? "" : path.substr(slash + 1);
   }
   return elems;
}

/// What follows "a/b/" in "a/b/c".
std::string_view below(std::string_view path, std::string_view base) {
   return path.substr(std::min(path.size(), base.size() + 1));
}

/// A value of the model as a leaf.
Value valueOf(Holt::Json const& json, Row const& row) {
   if (json.is_boolean()) {
      return {json.get<bool>()};
   }
   if (row.conversion == &Holt::OpenconfigRows::timeInterval) {
      return {S64{std::stoll(json.get<std::string>())}, true};
   }
   if (json.is_number() && row.type.starts_with("int")) {
      return {json.get<S64>()};
   }
   return json.is_number() ? Value{json.get<U64>()} : Value{json.get<std::string>()};
}

/// A field of a value: "state.clockClass".
Holt::Json const& partOf(Holt::Json const& value, std::string_view path) {
   if (path.empty()) {
      return value;
   }
   std::size_t const dot = path.find('.');
   return partOf(value.at(std::string(path.substr(0, dot))),
                 dot == std::string_view::npos ? "" : path.substr(dot + 1));
}

}  // namespace

/// How an attribute or a child is in the model.
struct OpenconfigModel::Member {
   struct Filled {
      Row const* row;
      /// Below the entity.
      Elems elems;
      /// Within the attribute's value.
      std::string_view part;
      /// The attribute beside it that must be true for the leaf to exist, or null.
      FieldDescriptor const* onlyIf = nullptr;
   };

   /// Of a child.
   Elems elems;
   std::vector<Filled> leaves;
   FieldDescriptor const* dependent = nullptr;
};

/// The table by members. An entity type of the module is in one place of the model only.
struct OpenconfigModel::Tables {
   std::map<std::pair<std::string, Kiv::AttributeId>, Member> members;
   /// The place of each entity type.
   std::map<std::string, std::string_view> places;

   struct Found {
      TypeImpl const* owner;
      FieldDescriptor const* field;
      std::string_view part;
   };
   /// Follows "defaultDs.state.priority1" to the first member that is no entity, or to the last.
   static Found find(TypeImpl const& root, std::string_view attribute) {
      Found at{&root, nullptr, attribute};
      for (;;) {
         std::size_t const dot = at.part.find('.');
         at.field = at.owner->field(at.part.substr(0, dot));
         at.part = dot == std::string_view::npos ? "" : at.part.substr(dot + 1);
         if (at.part.empty() || at.field->type->kind != Kiv::TypeKind::entity) {
            return at;
         }
         at.owner = at.field->type;
      }
   }
   static TypeImpl const& rootOf(std::string_view path) {
      return path.starts_with(Holt::OpenconfigRows::clockPath)
                   ? TransparentClockDefaultDS::kivTypeImpl
                   : Instance::kivTypeImpl;
   }
   Member& memberOf(Found const& found) {
      return members[{found.owner->name, found.field->fieldId}];
   }
};

OpenconfigModel::OpenconfigModel() : tables_(std::make_unique<Tables>()) {
   using namespace Holt::OpenconfigRows;
   Tables& tables = *tables_;
   tables.places[Instance::kivTypeImpl.name] = instancePath;
   tables.places[TransparentClockDefaultDS::kivTypeImpl.name] = clockPath;
   for (Container const& container : containers()) {  // those above come first
      Tables::Found const found = Tables::find(Tables::rootOf(container.path), container.attribute);
      if (!container.isValue) {
         tables.places[found.field->type->name] = container.path;
         tables.memberOf(found).elems =
               elemsOf(Ptpgnmi::below(container.path, tables.places.at(found.owner->name)));
      }
   }
   for (Row const& row : Holt::OpenconfigRows::leaves()) {
      if (row.conversion == nullptr) {
         continue;
      }
      TypeImpl const& root = Tables::rootOf(row.path);
      Tables::Found const found = Tables::find(root, row.attribute);
      Member::Filled filled{&row,
                            elemsOf(Ptpgnmi::below(row.path, tables.places.at(found.owner->name))),
                            found.part};
      if (!row.onlyIf.empty()) {
         std::string const beside =
               std::string(row.path.substr(0, row.path.rfind('/') + 1)) + std::string(row.onlyIf);
         for (Row const& other : Holt::OpenconfigRows::leaves()) {
            if (other.path == beside) {
               Tables::Found const condition = Tables::find(root, other.attribute);
               filled.onlyIf = condition.field;
               tables.memberOf(condition).dependent = found.field;
            }
         }
      }
      tables.memberOf(found).leaves.push_back(std::move(filled));
   }
}

OpenconfigModel::~OpenconfigModel() = default;

std::string const& OpenconfigModel::origin() const {
   static std::string const name = "openconfig";
   return name;
}

OfferedModel OpenconfigModel::offered() const {
   return {"openconfig-ptp", "OpenConfig working group", "2024-09-17"};
}

OpenconfigModel::Member const* OpenconfigModel::find(Kiv::Entity const& owner,
                                                     FieldDescriptor const& field) const {
   auto const at = tables_->members.find({owner.kivType().name, field.fieldId});
   return at != tables_->members.end() ? &at->second : nullptr;
}

Elems OpenconfigModel::root(Kiv::NamedEntity const& root) const {
   if (!Holt::isInOpenconfig(root.kivType())) {
      return {};
   }
   bool const isInstance = root.kivType().isA(Instance::kivTypeImpl);
   Elems elems =
         elemsOf(isInstance ? Holt::OpenconfigRows::instancePath : Holt::OpenconfigRows::clockPath);
   if (isInstance) {
      elems.back().keys["id"] = std::to_string(static_cast<Instance const&>(root).id());
   }
   elems.insert(elems.begin(), {top, {}});
   return elems;
}

std::optional<Elems> OpenconfigModel::member(Kiv::Entity const& owner, FieldDescriptor const& field,
                                             Kiv::ValueRef) const {
   Member const* const member = find(owner, field);
   return member != nullptr ? std::optional(member->elems) : std::nullopt;
}

void OpenconfigModel::leaves(Kiv::Entity const& owner, FieldDescriptor const& field,
                             Kiv::ValueRef value, Leaf const& leaf) const {
   Member const* const member = find(owner, field);
   if (member == nullptr) {
      return;
   }
   Holt::Json const ours = Holt::jsonOf(value);
   for (Member::Filled const& filled : member->leaves) {
      if (filled.onlyIf != nullptr &&
          Holt::jsonOf(Kiv::Present(owner, *filled.onlyIf).value()) != Holt::Json(true)) {
         continue;
      }
      Holt::Json const json = filled.row->conversion->toModel(partOf(ours, filled.part));
      if (!json.is_null()) {
         leaf(filled.elems, valueOf(json, *filled.row));
      }
   }
}

bool OpenconfigModel::varies(FieldDescriptor const&) const {
   return true;  // the model has no value for some of ours
}

FieldDescriptor const* OpenconfigModel::dependent(Kiv::Entity const& owner,
                                                  FieldDescriptor const& field) const {
   Member const* const member = find(owner, field);
   return member != nullptr ? member->dependent : nullptr;
}

std::string OpenconfigModel::objection(Elems const& path,
                                       std::vector<Kiv::NamedEntity const*> const&) const {
   Node const* node = nullptr;
   for (Elem const& elem : path) {
      if (elem.name == "*" || elem.name == "...") {
         return {};
      }
      Node const* const next =
            node == nullptr ? (elem.name == top ? &Holt::OpenconfigRows::schema() : nullptr)
                            : node->child(elem.name, false);
      if (next == nullptr) {
         return "openconfig-ptp has no '" + elem.name + "' there" +
                (node != nullptr ? std::string(node->nearest(elem.name, false))
                                 : "; its paths begin with 'ptp'");
      }
      for (auto const& [name, value] : elem.keys) {
         if (name != next->key) {
            return next->isList() ? "the key of " + elem.name + " is named '" +
                                          std::string(next->key) + "', not '" + name + "'"
                                  : elem.name + " has no keys";
         }
      }
      node = next;
   }
   return {};
}

bool OpenconfigModel::isConfig(Elems const& leaf) const {
   return leaf.size() > 1 && leaf[leaf.size() - 2].name == "config";
}

std::string OpenconfigModel::qualified(std::string const& name, bool isTop) const {
   return isTop ? std::string(Holt::OpenconfigRows::modelModule) + ":" + name : name;
}

}  // namespace Ptpgnmi
