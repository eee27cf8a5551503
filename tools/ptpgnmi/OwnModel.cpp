#include "tools/ptpgnmi/OwnModel.h"

#include <charconv>

#include "Holt/State/Place.h"
#include "Holt/State/Values.h"
#include "Holt/State/Walk.h"
#include "Kiv/Path.h"
#include "Kiv/Visit.h"

namespace Ptpgnmi {

using Kiv::FieldDescriptor;
using Kiv::MemberKind;
using Kiv::TypeImpl;

namespace {

constexpr char const* rootElem = "tree";
constexpr char const* rootKey = "name";
constexpr char const* keyName = "key";
/// How a hand-written type prints an empty value.
constexpr char const* emptyText = "\"\"";

bool hasElements(FieldDescriptor const& field) {
   return field.kind == MemberKind::children || field.kind == MemberKind::map ||
          field.kind == MemberKind::ordered || field.kind == MemberKind::queue;
}

/// Visits a value, and calls `leaf` for each of its leaves.
struct LeafVisitor {
   Model::Leaf const& leaf;
   Elems at;
   bool wide;

   void visit(Kiv::ValueRef value) {
      wide = value.type->size == sizeof(U64);
      Kiv::visitValue(value, *this);
   }
   void operator()(bool v) { leaf(at, {v}); }
   void operator()(U64 v) { leaf(at, {v, wide}); }
   void operator()(S64 v) { leaf(at, {v, wide}); }
   void operator()(double v) { leaf(at, {v}); }
   /// The double with the same text: 0.1, not 0.10000000149011612.
   void operator()(float v) { leaf(at, {std::stod(Holt::valueText(Kiv::ValueRef(&v)))}); }
   void operator()(Sarn::String const& v) { leaf(at, {v}); }
   void operator()(Kiv::EnumRef v) {
      char const* const name = v.name();
      leaf(at, {name != nullptr ? std::string(name) : std::to_string(v.value)});
   }
   void operator()(Kiv::OptionalRef v) {
      if (v.held.address != nullptr) {
         visit(v.held);
      }
   }
   void operator()(Kiv::RecordRef v) {
      Kiv::forEachPart(v, [this](FieldDescriptor const& field, Kiv::ValueRef part) {
         at.push_back({field.name, {}});
         visit(part);
         at.pop_back();
      });
   }
   /// Its text is all that is known about it: a whole number, or anything.
   void operator()(Kiv::OpaqueRef v) {
      std::string text = Holt::valueText(v.value);
      U64 number = 0;
      auto const read = std::from_chars(text.data(), text.data() + text.size(), number);
      if (read.ec == std::errc() && read.ptr == text.data() + text.size() &&
          std::to_string(number) == text) {
         leaf(at, {number, v.value.type->size >= sizeof(U64)});
      } else {
         leaf(at, {text == emptyText ? std::string() : std::move(text)});
      }
   }
};

bool isWildcard(std::string const& name) {
   return name == "*" || name == "...";
}

/// What an optional holds; else the type itself.
TypeImpl const& inner(TypeImpl const& type) {
   return type.optional != nullptr ? inner(*type.optional->inner) : type;
}

/// Whether the type is, or contains, an optional.
bool mayBeAbsent(TypeImpl const& type) {
   bool may = type.optional != nullptr;
   Kiv::forEachPart(
         type, [&may](FieldDescriptor const& field) { may = may || mayBeAbsent(*field.type); });
   return may;
}

/// Follows a path from a type as far as it has no wildcards.
std::string objectionBelow(TypeImpl const& root, Elems const& path) {
   TypeImpl const* type = &root;
   for (std::size_t i = 1; i != path.size() && !isWildcard(path[i].name); ++i) {
      FieldDescriptor const* const field =
            type->kind == Kiv::TypeKind::entity || type->kind == Kiv::TypeKind::value
                  ? type->field(std::string_view(path[i].name))
                  : nullptr;
      if (field == nullptr || (type->kind == Kiv::TypeKind::entity && !Holt::isInState(*field))) {
         return Holt::unknownMember(*type, path[i].name);
      }
      for (auto const& [name, value] : path[i].keys) {
         if (!hasElements(*field)) {
            return std::string(field->name) + " has no keys";
         }
         if (name != keyName) {
            return "the key of " + std::string(field->name) + " is named '" + keyName + "', not '" +
                   name + "'";
         }
      }
      type = &inner(*field->type);
   }
   return {};
}

}  // namespace

void leavesOf(Kiv::ValueRef value, Model::Leaf const& leaf) {
   LeafVisitor{leaf, {}, false}.visit(value);
}

std::string const& OwnModel::origin() const {
   static std::string const name = "ptplib";
   return name;
}

OfferedModel OwnModel::offered() const {
   return {"ptplib", "PtpLib", PTPLIB_VERSION};
}

Elems OwnModel::root(Kiv::NamedEntity const& root) const {
   return {{rootElem, {{rootKey, root.nameString()}}}};
}

std::optional<Elems> OwnModel::member(Kiv::Entity const&, FieldDescriptor const& field,
                                      Kiv::ValueRef key) const {
   if (!Holt::isInState(field)) {
      return std::nullopt;
   }
   Elem elem{field.name, {}};
   if (key.address != nullptr) {
      elem.keys.emplace(keyName, Kiv::keyText(key));
   }
   return Elems{std::move(elem)};
}

void OwnModel::leaves(Kiv::Entity const&, FieldDescriptor const&, Kiv::ValueRef value,
                      Leaf const& leaf) const {
   leavesOf(value, leaf);
}

bool OwnModel::varies(FieldDescriptor const& field) const {
   return mayBeAbsent(*field.type);
}

std::string OwnModel::objection(Elems const& path,
                                std::vector<Kiv::NamedEntity const*> const& roots) const {
   if (path.empty() || isWildcard(path[0].name)) {
      return {};
   }
   if (path[0].name != rootElem) {
      return "a path begins with 'tree[name=NAME]', not with '" + path[0].name + "'";
   }
   for (auto const& [name, value] : path[0].keys) {
      if (name != rootKey) {
         return "the key of tree is named 'name', not '" + name + "'";
      }
   }
   // A root that is not there may come, with any type. What may fit several, fits one of them.
   std::string first;
   auto const name = path[0].keys.find(rootKey);
   for (Kiv::NamedEntity const* const root : roots) {
      if (name != path[0].keys.end() && name->second != "*" && name->second != root->nameString()) {
         continue;
      }
      std::string const why = objectionBelow(root->kivType(), path);
      if (why.empty()) {
         return {};
      }
      if (first.empty()) {
         first = why;
      }
   }
   return first;
}

}  // namespace Ptpgnmi
