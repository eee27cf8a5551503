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

#include "Kivc/Source.h"

namespace kivc {

struct Member;
struct Type;
struct Module;

/// Wide enough for every value of S64 and U64.
__extension__ using WideInteger = __int128;

/// A name with its place.
struct Name {
   std::string text;
   Span span;
};

/// A mention of a type.
struct TypeRef {
   Name name;
   Type const* type = nullptr;  ///< checked; stays null after an error

   explicit operator bool() const { return !name.text.empty(); }
};

/// A default, an argument or a bound as written.
struct Expr {
   enum class Kind : std::uint8_t {
      number,  ///< `-7`, `0xff`, `1.5`
      text,    ///< `"..."`, quotes included
      name,    ///< `true`, `initializing`, `Constants::maxDscp`, `::Ptp::Constants::min()`
      call,    ///< `ClockQuality(248, 254, 65535)`, `ordinal(1)`
   };
   Kind kind = Kind::number;
   Span span;
   std::string text;         ///< as written, without blanks; of a call its name
   std::vector<Expr> args;   ///< of a call
   bool isFunction = false;  ///< a name with `()` behind it

   std::optional<WideInteger> integer;  ///< checked: value, where it is known and whole
   Type const* scope = nullptr;         ///< checked, of a name: the class that holds the constant
   Member const* target = nullptr;      ///< checked, of a name: constant or enumerator, where known
};

/// A parameter of an operation or, checked, of a constructor.
struct Parameter {
   Name name;
   TypeRef type;
};

enum class MemberKind : std::uint8_t {
   name,      ///< the root entity's name
   key,       ///< const, first, names the entity within its collection
   constant,  ///< fixed value without storage
   constArg,  ///< const constructor argument
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
   field,  ///< of a value type
   enumerator,
};

/// How one kind of member is declared and recorded.
struct MemberKindInfo {
   std::string_view keyword;
   std::string_view inWords;  ///< for the reference, such as "keyed values"
};

MemberKindInfo const& info(MemberKind kind);

struct Member {
   MemberKind kind = MemberKind::attr;
   Name name;
   std::vector<std::string> doc;
   Span span;  ///< the whole declaration

   TypeRef type;  ///< value, child or result type; none for an operation without one
   TypeRef key;   ///< of collections; checked for a key inside the value
   std::optional<Name> keyField;  ///< `by .field`: the key is a field of the value
   std::optional<Expr> defaultValue;
   std::optional<Expr> lower;         ///< of a range
   std::optional<Expr> upper;         ///< absent: open
   std::optional<Name> hash;          ///< hash constant of a collection, as written
   std::vector<Name> childArgs;       ///< what a collection's creator passes on after the key
   std::optional<Name> creationName;  ///< `named "..."`: made with the parent, with this name
   std::optional<Name> viewOf;        ///< `derived ... from attribute`
   std::vector<Parameter> params;     ///< of an operation
   std::array<bool, 3> instantiation{};
   bool given = false;          ///< initial value is a constructor argument
   bool local = false;          ///< not streamed
   bool named = false;          ///< a child created with a name
   bool isConst = false;        ///< const field, const operation
   std::uint32_t places = 1;    ///< ids skipped by `reserved`; 1 otherwise
   std::optional<Name> number;  ///< of an enumerator, as written

   std::uint32_t id = 0;  ///< checked: attribute id; an enumerator's value; the name's 154
   std::uint32_t hashConstant = 0;  ///< checked

   bool isCollection() const;  ///< children, map, ordered or queue
   bool isStored() const;      ///< has a place in the object
   bool isReadable() const;    ///< has an accessor without arguments that gives a value
   bool isStreamed() const;    ///< travels under its own id
   bool isConstructorArg() const;
   bool isInSeconds() const;  ///< its values, or what they hold, are of type `Seconds`
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
   constants,  ///< a class of named limits, written in C++; not a type of attributes
};

/// Whether a type is written in C++ or by the compiler.
enum class Origin : std::uint8_t { builtin, declared, external };

/// An argument that a derived entity hands to its base's constructor.
struct BaseArg {
   Expr expr;
   bool passedOn = false;  ///< checked: a parameter of the derived type too
};

struct Type {
   TypeKind kind = TypeKind::value;
   Origin origin = Origin::declared;
   Name name;              ///< last part as declared
   std::string nameSpace;  ///< "Ptp::Mpass"; empty for built-in types
   std::vector<std::string> doc;
   std::string header;  ///< of an external type; of others checked: generated header
   Module const* module = nullptr;
   bool hashable = true;
   bool ordered = true;
   bool transparent = false;  ///< hash and text are those of its only field

   std::vector<Member> members;      ///< in declaration order
   std::optional<Expr> enumDefault;  ///< the enumerator after `default`
   TypeRef base;
   std::vector<BaseArg> baseArgs;
   bool baseArgsGiven = false;

   int bits = 0;           ///< of integers and floating types
   bool isSigned = false;  ///< of integers

   std::uint32_t firstId = 0;                 ///< checked
   std::vector<Parameter> constructorParams;  ///< checked; the base's first

   /// "Ptp::Mpass::Status".
   std::string qualifiedName() const;
   /// Name in records and tables: as qualifiedName(), but "Kiv::String" for String.
   std::string recordName() const;
   Member const* find(std::string_view member) const;
   /// The member of that name here or in a base.
   Member const* findInherited(std::string_view member) const;
   Type const* baseType() const { return base.type; }
   bool isValueLike() const { return kind != TypeKind::entity && kind != TypeKind::constants; }
   Member const* keyMember() const;  ///< own or inherited
   bool isNamedRoot() const;         ///< own or inherited `name;`
   Member const* defaultEnumerator() const;
};

struct Module {
   Name name;
   Name hash;              ///< digits after 0x, as written
   std::string directory;  ///< include directory: "PtpLib", or empty
   std::unique_ptr<Source> source;
   std::vector<Name> uses;
   std::vector<Module const*> imports;        ///< in the order of `uses`
   std::vector<std::unique_ptr<Type>> types;  ///< in declaration order
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

}  // namespace kivc
