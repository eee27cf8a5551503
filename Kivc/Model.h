// What a declaration file says, as data.
//
// The parser fills in what is written; `Check` resolves names, evaluates values and assigns ids
// (fields marked "checked"). Emitters see checked models only.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Kivc/Expr.h"

namespace Kivc {

struct Module;

enum class MemberKind : std::uint8_t {
   /// The root entity's name.
   name,
   /// Const, first, names the entity within its collection.
   key,
   /// Fixed value without storage.
   constant,
   /// Const constructor argument.
   constArg,
   attr,
   counter,
   optional,
   child,
   children,
   map,
   ordered,
   queue,
   derived,
   operation,
   reserved,
   /// Of a value type.
   field,
   enumerator,
};

/// How one kind of member is declared and recorded.
struct MemberKindInfo {
   std::string_view keyword;
   /// For the reference, such as "keyed values".
   std::string_view inWords;
};

MemberKindInfo const& info(MemberKind kind);

struct Member {
   MemberKind kind = MemberKind::attr;
   Name name;
   std::vector<std::string> doc;
   /// The whole declaration.
   Span span;

   /// Value, child or result type; none for an operation without one.
   TypeRef type;
   /// Of collections; checked for a key inside the value.
   TypeRef key;
   /// `by .field`: the key is a field of the value.
   std::optional<Name> keyField;
   std::optional<Expr> defaultValue;
   /// The lower bound of a range.
   std::optional<Expr> lower;
   /// The upper bound; absent where the range is open.
   std::optional<Expr> upper;
   /// Hash constant of a collection, as written.
   std::optional<Name> hash;
   /// What a collection's creator passes on after the key.
   std::vector<Name> childArgs;
   /// `named "..."`: made with the parent, with this name.
   std::optional<Name> creationName;
   /// `derived ... from attribute`.
   std::optional<Name> viewOf;
   /// Of an operation.
   std::vector<Parameter> params;
   std::array<bool, 3> instantiation{};
   /// Initial value is a constructor argument.
   bool given = false;
   /// Not streamed.
   bool local = false;
   /// A child created with a name.
   bool named = false;
   /// Const field, const operation.
   bool isConst = false;
   /// Ids skipped by `reserved`; 1 otherwise.
   std::uint32_t places = 1;
   /// Of an enumerator, as written.
   std::optional<Name> number;

   /// Checked: attribute id; an enumerator's value; the name's 154.
   std::uint32_t id = 0;
   /// Checked.
   std::uint32_t hashConstant = 0;

   /// Children, map, ordered or queue.
   bool isCollection() const;
   /// Has a place in the object.
   bool isStored() const;
   /// Has an accessor without arguments that gives a value.
   bool isReadable() const;
   /// Travels under its own id.
   bool isStreamed() const;
   bool isConstructorArg() const;
   /// Its values, or what they hold, are of type `Seconds`.
   bool isInSeconds() const;
   /// The 16-bit word that marks the kind in module records.
   std::uint16_t kindWord() const;
   /// Ids that the member takes: two for a queue, none for the name.
   std::uint32_t idCount() const;
};

enum class TypeKind : std::uint8_t {
   boolean,
   integer,
   floating,
   string,
   enumeration,
   value,
   entity,
   /// A class of named limits, written in C++; not a type of attributes.
   constants,
};

/// Whether a type is written in C++ or by the compiler.
enum class Origin : std::uint8_t { builtin, declared, external };

/// An argument that a derived entity hands to its base's constructor.
struct BaseArg {
   Expr expr;
   /// Checked: a parameter of the derived type too.
   bool passedOn = false;
};

struct Type {
   TypeKind kind = TypeKind::value;
   Origin origin = Origin::declared;
   /// Last part as declared.
   Name name;
   /// "Ptp::Mpass"; empty for built-in types.
   std::string nameSpace;
   std::vector<std::string> doc;
   /// Of an external type; of others checked: generated header.
   std::string header;
   Module const* module = nullptr;
   bool hashable = true;
   bool ordered = true;
   /// Hash and text are those of its only field.
   bool transparent = false;

   /// In declaration order.
   std::vector<Member> members;
   /// The enumerator after `default`.
   std::optional<Expr> enumDefault;
   TypeRef base;
   std::vector<BaseArg> baseArgs;
   bool baseArgsGiven = false;

   /// Of integers and floating types.
   int bits = 0;
   /// Of integers.
   bool isSigned = false;

   /// Checked.
   std::uint32_t firstId = 0;
   /// Checked; the base's first.
   std::vector<Parameter> constructorParams;

   /// "Ptp::Mpass::Status".
   std::string qualifiedName() const;
   /// Name in records and tables: as qualifiedName(), but "Kiv::String" for String.
   std::string recordName() const;
   Member const* find(std::string_view member) const;
   /// The member of that name here or in a base.
   Member const* findInherited(std::string_view member) const;
   Type const* baseType() const { return base.type; }
   bool isValueLike() const { return kind != TypeKind::entity && kind != TypeKind::constants; }
   /// Own or inherited.
   Member const* keyMember() const;
   /// Own or inherited `name;`.
   bool isNamedRoot() const;
   Member const* defaultEnumerator() const;
};

struct Module {
   Name name;
   /// Digits after 0x, as written.
   Name hash;
   /// Include directory: "PtpLib", or empty.
   std::string directory;
   std::unique_ptr<Source> source;
   std::vector<Name> uses;
   /// In the order of `uses`.
   std::vector<Module const*> imports;
   /// In declaration order.
   std::vector<std::unique_ptr<Type>> types;
   std::vector<std::string> doc;

   std::uint32_t hashValue() const;
   /// "_PtpMib_b0acfc69_kivModule".
   std::string recordSymbol() const;
   /// "PtpLib/PtpMib": where the generated headers are, relative to the output directory.
   std::string outputPath() const;
   /// "PtpLib/PtpMib.kiv": what generated files name as their origin.
   std::string displayPath() const;
};

/// The built-in types, by name; null for any other name.
Type const* builtinType(std::string_view name);
std::vector<std::string> builtinTypeNames();

}  // namespace Kivc
