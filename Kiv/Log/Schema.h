#pragma once

#include <vector>

#include "Kiv/Log/Wire.h"
#include "Kiv/TypeImpl.h"

/// A type as it looks in the attribute log: what two versions of a module must agree on to mirror
/// each other's trees. `docs/attribute-log.md` has the grammar.
///
///     entity        base, constructor arguments, and each member that is streamed or an argument:
///                   id, kind, name, types of value and key, range
///     value type    its fields in order, since their encodings follow each other without tags
///     enumeration   its numbers and their names
namespace Kiv::NboAttrLog {

/// The bounds of a number: a U64, an S64 or a double, by the kind of its type, as 64 bits.
struct NumberRange {
   U64 least = 0;
   U64 greatest = 0;
};

/// Whether the member is of interest to a peer: streamed, or an argument of the constructor.
bool isShared(TypeImpl const& type, FieldDescriptor const& field) noexcept;

/// The size of a type's description, and the description.
std::size_t schemaSize(TypeImpl const& type);
void encodeSchema(Out& out, TypeImpl const& type);

/// What a peer's version of a type means for us.
struct SchemaDifference {
   /// An attribute whose values the peer accepts only within these bounds.
   struct Narrower {
      FieldDescriptor const* field;
      NumberRange range;
   };
   /// Why the two do not fit together; empty if they do. Printable.
   Sarn::String conflict;
   /// Our streamed members that the peer's type does not have.
   std::vector<FieldDescriptor const*> lacking;
   std::vector<Narrower> narrower;
};

/// Reads the description of the peer's version of `ours`, up to its end. Whether both fit together
/// does not depend on which end asks. Throws `FaultException` if it is malformed.
SchemaDifference compareSchema(In& in, TypeImpl const& ours);
/// Reads the description of a type that we do not have.
void skipSchema(In& in);

/// Whether a number is within the bounds, as a setter decides. `value`: the address of a value of
/// the type.
bool isWithin(TypeImpl const& type, void const* value, NumberRange const& range) noexcept;
/// "1 to 100".
Sarn::String rangeText(TypeImpl const& type, NumberRange const& range);

}  // namespace Kiv::NboAttrLog
