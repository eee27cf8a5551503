#include "Kiv/Log/Schema.h"

#include <algorithm>
#include <bit>
#include <string>

#include "Kiv/Printable.h"
#include "Kiv/ValueOps.h"
#include "Kiv/Visit.h"

namespace Kiv::NboAttrLog {
namespace {

/// What a description is about.
enum class Sort : U8 { entity, value, enumeration };

/// The flags of a member on the wire.
enum MemberFlag : U8 {
   constantMember = 1,
   namedChild = 2,
   keyInside = 4,
   bounded = 8,
   notStreamed = 16,
   allMemberFlags = 31,
};

Sort sortOf(TypeImpl const& type) noexcept {
   switch (type.kind) {
      case TypeKind::entity:
         return Sort::entity;
      case TypeKind::enumeration:
         return Sort::enumeration;
      default:
         return Sort::value;
   }
}

char const* sortText(U8 sort) noexcept {
   static constexpr char const* texts[] = {"an entity", "a value type", "an enumeration"};
   return texts[sort];
}

char const* kindText(U8 kind) noexcept {
   static constexpr char const* texts[] = {"nothing",       "one value",
                                           "a child",       "children by key",
                                           "values by key", "ordered values by key",
                                           "a queue",       "an operation"};
   return texts[kind];
}

std::string_view nameOf(TypeImpl const* type) noexcept {
   return type != nullptr ? std::string_view(type->name) : std::string_view();
}

U8 flagsOf(FieldDescriptor const& field) noexcept {
   return static_cast<U8>((field.has(FieldDescriptor::constant) ? constantMember : 0) |
                          (field.has(FieldDescriptor::named) ? namedChild : 0) |
                          (field.has(FieldDescriptor::keyInside) ? keyInside : 0) |
                          (field.has(FieldDescriptor::streamed) ? 0 : notStreamed) |
                          (field.bounds != nullptr ? bounded : 0));
}

/// A number of any type as 64 bits.
struct ToBits {
   U64 operator()(U64 v) const noexcept { return v; }
   U64 operator()(S64 v) const noexcept { return static_cast<U64>(v); }
   U64 operator()(double v) const noexcept { return std::bit_cast<U64>(v); }
   U64 operator()(float v) const noexcept { return (*this)(static_cast<double>(v)); }
   U64 operator()(auto const&) const noexcept { return 0; }
};

/// Whether `a` is below or equal to `b`; never for a NaN.
bool isOrdered(TypeImpl const& type, U64 a, U64 b) noexcept {
   switch (type.kind) {
      case TypeKind::signedNumber:
         return static_cast<S64>(a) <= static_cast<S64>(b);
      case TypeKind::floating:
         return std::bit_cast<double>(a) <= std::bit_cast<double>(b);
      default:
         return a <= b;
   }
}

bool isNumber(TypeImpl const& type) noexcept {
   return type.kind == TypeKind::signedNumber || type.kind == TypeKind::unsignedNumber ||
          type.kind == TypeKind::floating;
}

NumberRange rangeOf(FieldDescriptor const& field) {
   return {visitValue(field.least(), ToBits()), visitValue(field.greatest(), ToBits())};
}

template <class Visit>
void forEachShared(TypeImpl const& type, Visit&& visit) {
   for (U16 i = 0; i != type.rowCount; ++i) {
      if (isShared(type, type.rows[i])) {
         visit(type.rows[i]);
      }
   }
}

/// One line of a description, as the peer sends it.
struct Member {
   U16 id;
   U8 kind;
   U8 flags;
   std::string_view name;
   std::string_view type;
   std::string_view key;
   NumberRange range;
};

Member nextMember(In& in) {
   Member member{};
   member.id = in.nextU16();
   member.kind = in.nextU8();
   if (member.kind > static_cast<U8>(MemberKind::operation)) {
      in.fault("there is no kind of member " + std::to_string(member.kind), 1);
   }
   member.flags = in.nextU8();
   if (member.flags > allMemberFlags) {
      in.fault("a member has the unknown flags " + std::to_string(member.flags), 1);
   }
   member.name = in.nextValidString(longestName);
   member.type = in.nextValidString(longestName);
   member.key = in.nextValidString(longestName);
   if ((member.flags & bounded) != 0) {
      member.range.least = in.nextU64();
      member.range.greatest = in.nextU64();
   }
   return member;
}

/// Calls `visit` for each of the elements that follow, in ascending order of what `read` returns
/// first.
template <class Read, class Visit>
void forEachNext(In& in, char const* what, Read&& read, Visit&& visit) {
   S32 before = -1;
   for (U16 left = in.nextU16(); left != 0; --left) {
      auto const next = read(in);
      if (static_cast<S32>(next.id) <= before) {
         in.fault(Sarn::String(what) + " " + std::to_string(next.id) + " follows " +
                  std::to_string(before));
      }
      before = next.id;
      visit(next);
   }
}

Sarn::String quoted(std::string_view text) {
   return text.empty() ? "nothing" : printable(Sarn::String(text));
}

/// "X at the peer, Y here".
Sarn::String bothSides(std::string_view theirs, std::string_view ours) {
   return quoted(theirs) + " at the peer, " + quoted(ours) + " here";
}

/// Compares a description with our type, in one pass over both.
class SchemaComparison {
public:
   explicit SchemaComparison(TypeImpl const& ours) noexcept : ours_(ours) {}

   SchemaDifference run(In& in) {
      U8 const sort = in.nextU8();
      if (sort > static_cast<U8>(Sort::enumeration)) {
         in.fault("there is no sort of type " + std::to_string(sort), 1);
      }
      if (sort != static_cast<U8>(sortOf(ours_))) {
         conflict(Sarn::String("is ") + sortText(sort) + " at the peer, " +
                  sortText(static_cast<U8>(sortOf(ours_))) + " here");
         skip(in, sort);
      } else if (sort == static_cast<U8>(Sort::entity)) {
         entity(in);
      } else if (sort == static_cast<U8>(Sort::value)) {
         value(in);
      } else {
         enumeration(in);
      }
      in.expectEnd();
      return std::move(result_);
   }

   static void skip(In& in, U8 sort) {
      if (sort == static_cast<U8>(Sort::entity)) {
         in.nextValidString(longestName);
         in.nextbool();
         in.nextBytes(in.nextU16() * std::size_t(2));
         forEachNext(in, "member", nextMember, [](Member const&) {});
      } else if (sort == static_cast<U8>(Sort::value)) {
         forEachNext(in, "field", nextField, [](Field const&) {});
      } else {
         forEachNext(in, "enumerator", nextEnumerator, [](Enumerator const&) {});
      }
   }

private:
   struct Field {
      U16 id;
      std::string_view name;
      std::string_view type;
   };
   static Field nextField(In& in) {
      U16 const id = in.nextU16();
      std::string_view const name = in.nextValidString(longestName);
      return {id, name, in.nextValidString(longestName)};
   }
   struct Enumerator {
      U16 id;
      std::string_view name;
   };
   static Enumerator nextEnumerator(In& in) {
      U16 const number = in.nextU8();
      return {number, in.nextValidString(longestName)};
   }

   /// Only the first conflict counts.
   void conflict(Sarn::String const& what) {
      if (result_.conflict.empty()) {
         result_.conflict = Sarn::String(ours_.name) + " " + what;
      }
   }
   void conflict(FieldDescriptor const& field, Sarn::String const& what) {
      if (result_.conflict.empty()) {
         result_.conflict = Sarn::String(ours_.name) + "." + field.name + " (" +
                            std::to_string(field.fieldId) + ") " + what;
      }
   }

   void entity(In& in) {
      std::string_view const base = in.nextValidString(longestName);
      if (base != nameOf(ours_.base)) {
         conflict("is derived from " + bothSides(base, nameOf(ours_.base)));
      }
      if (bool const named = in.nextbool(); named != ours_.named) {
         conflict(Sarn::String("has ") + (named ? "a" : "no") + " name at the peer, " +
                  (named ? "none" : "one") + " here");
      }
      arguments(in);
      U16 row = 0;
      auto const lackingUpTo = [&](U32 id) {
         for (; row != ours_.rowCount && U32(ours_.firstId) + row < id; ++row) {
            FieldDescriptor const& field = ours_.rows[row];
            if (isShared(ours_, field) && field.has(FieldDescriptor::streamed)) {
               result_.lacking.push_back(&field);
            }
         }
      };
      forEachNext(in, "member", nextMember, [&](Member const& member) {
         lackingUpTo(member.id);
         bool const ours = row != ours_.rowCount && U32(ours_.firstId) + row == member.id &&
                           isShared(ours_, ours_.rows[row]);
         if (ours) {
            this->member(member, ours_.rows[row++]);
         } else {
            moved(member);
         }
      });
      lackingUpTo(U32(ours_.firstId) + ours_.rowCount);
   }

   void arguments(In& in) {
      U16 const count = in.nextU16();
      bool same = count == ours_.ctorArgs.size();
      for (U16 i = 0; i != count; ++i) {
         AttributeId const id = in.nextU16();
         same = same && id == ours_.ctorArgs[i];
      }
      if (!same) {
         conflict("is made from other arguments at the peer (" + std::to_string(count) +
                  ") than here (" + std::to_string(ours_.ctorArgs.size()) + ")");
      }
   }

   /// A member of the peer's under an id that we do not share.
   void moved(Member const& member) {
      forEachShared(ours_, [&](FieldDescriptor const& field) {
         if (field.name == member.name) {
            conflict(field, "has id " + std::to_string(member.id) + " at the peer");
         }
      });
   }

   void member(Member const& theirs, FieldDescriptor const& field) {
      if (theirs.name != field.name) {
         conflict(field, "is " + bothSides(theirs.name, field.name));
         return;
      }
      if (theirs.kind != static_cast<U8>(field.kind)) {
         conflict(field, Sarn::String("is ") + kindText(theirs.kind) + " at the peer, " +
                               kindText(static_cast<U8>(field.kind)) + " here");
         return;
      }
      if (theirs.type != nameOf(field.type)) {
         conflict(field, "holds " + bothSides(theirs.type, nameOf(field.type)));
         return;
      }
      if (theirs.key != nameOf(field.keyType)) {
         conflict(field, "has keys of type " + bothSides(theirs.key, nameOf(field.keyType)));
         return;
      }
      if (((theirs.flags ^ flagsOf(field)) & ~bounded) != 0) {
         conflict(field, "is declared otherwise at the peer");
         return;
      }
      if ((theirs.flags & bounded) != 0 && isNumber(*field.type)) {
         narrower(theirs.range, field);
      }
   }

   void narrower(NumberRange const& theirs, FieldDescriptor const& field) {
      if (field.bounds != nullptr) {
         NumberRange const own = rangeOf(field);
         if (isOrdered(*field.type, theirs.least, own.least) &&
             isOrdered(*field.type, own.greatest, theirs.greatest)) {
            return;
         }
      }
      result_.narrower.push_back({&field, theirs});
   }

   void value(In& in) {
      U16 row = 0;
      forEachNext(in, "field", nextField, [&](Field const& theirs) {
         while (row != ours_.rowCount && ours_.rows[row].kind == MemberKind::none) {
            ++row;
         }
         if (row == ours_.rowCount) {
            conflict("has no field " + quoted(theirs.name) + " (" + std::to_string(theirs.id) +
                     ") here");
            return;
         }
         FieldDescriptor const& field = ours_.rows[row++];
         if (theirs.id != field.fieldId || theirs.name != field.name) {
            conflict(field, "is " + quoted(theirs.name) + " (" + std::to_string(theirs.id) +
                                  ") at the peer");
         } else if (theirs.type != nameOf(field.type)) {
            conflict(field, "holds " + bothSides(theirs.type, nameOf(field.type)));
         }
      });
      for (; row != ours_.rowCount; ++row) {
         if (ours_.rows[row].kind != MemberKind::none) {
            conflict(ours_.rows[row], "is no field at the peer");
         }
      }
   }

   void enumeration(In& in) {
      forEachNext(in, "enumerator", nextEnumerator, [&](Enumerator const& theirs) {
         forEachEnumerator(ours_, [&](U8 number, char const* name) {
            if ((number == theirs.id) == (theirs.name == name)) {
               return;
            }
            if (number == theirs.id) {
               conflict("calls the number " + std::to_string(number) + " " +
                        bothSides(theirs.name, name));
            } else {
               conflict(Sarn::String("numbers ") + name + " as " + std::to_string(theirs.id) +
                        " at the peer, " + std::to_string(number) + " here");
            }
         });
      });
   }

   TypeImpl const& ours_;
   SchemaDifference result_;
};

/// The enumerators of a type in the order of their numbers.
std::vector<std::pair<U8, std::string_view>> enumeratorsOf(TypeImpl const& type) {
   std::vector<std::pair<U8, std::string_view>> all;
   forEachEnumerator(type, [&](U8 number, char const* name) { all.emplace_back(number, name); });
   std::sort(all.begin(), all.end());
   return all;
}

/// Writes the description with `put`, which has the functions of `Out`.
template <class Put>
void describe(Put& put, TypeImpl const& type) {
   put.writeU8(static_cast<U8>(sortOf(type)));
   if (type.kind == TypeKind::enumeration) {
      auto const all = enumeratorsOf(type);
      put.writeU16(static_cast<U16>(all.size()));
      for (auto const& [number, name] : all) {
         put.writeU8(number);
         put.writeString(name);
      }
      return;
   }
   U16 count = 0;
   if (type.kind != TypeKind::entity) {
      forEachPart(type, [&](FieldDescriptor const&) { ++count; });
      put.writeU16(count);
      forEachPart(type, [&](FieldDescriptor const& field) {
         put.writeU16(field.fieldId);
         put.writeString(field.name);
         put.writeString(nameOf(field.type));
      });
      return;
   }
   put.writeString(nameOf(type.base));
   put.writebool(type.named);
   put.writeU16(static_cast<U16>(type.ctorArgs.size()));
   for (AttributeId const id : type.ctorArgs) {
      put.writeU16(id);
   }
   forEachShared(type, [&](FieldDescriptor const&) { ++count; });
   put.writeU16(count);
   forEachShared(type, [&](FieldDescriptor const& field) {
      put.writeU16(field.fieldId);
      put.writeU8(static_cast<U8>(field.kind));
      put.writeU8(flagsOf(field));
      put.writeString(field.name);
      put.writeString(nameOf(field.type));
      put.writeString(nameOf(field.keyType));
      if (field.bounds != nullptr) {
         NumberRange const range = rangeOf(field);
         put.writeU64(range.least);
         put.writeU64(range.greatest);
      }
   });
}

/// Counts what an `Out` would write.
struct Counter {
   std::size_t size = 0;
   void writebool(bool) noexcept { size += 1; }
   void writeU8(U8) noexcept { size += 1; }
   void writeU16(U16) noexcept { size += 2; }
   void writeU64(U64) noexcept { size += 8; }
   void writeString(std::string_view text) noexcept { size += 4 + text.size(); }
};

}  // namespace

bool isShared(TypeImpl const& type, FieldDescriptor const& field) noexcept {
   return field.kind != MemberKind::none &&
          (field.has(FieldDescriptor::streamed) || type.isCtorArg(field.fieldId));
}

std::size_t schemaSize(TypeImpl const& type) {
   Counter counter;
   describe(counter, type);
   return counter.size;
}

void encodeSchema(Out& out, TypeImpl const& type) {
   describe(out, type);
}

SchemaDifference compareSchema(In& in, TypeImpl const& ours) {
   return SchemaComparison(ours).run(in);
}

void skipSchema(In& in) {
   U8 const sort = in.nextU8();
   if (sort > static_cast<U8>(Sort::enumeration)) {
      in.fault("there is no sort of type " + std::to_string(sort), 1);
   }
   SchemaComparison::skip(in, sort);
   in.expectEnd();
}

bool isWithin(TypeImpl const& type, void const* value, NumberRange const& range) noexcept {
   U64 const bits = visitValue({type, value}, ToBits());
   return isOrdered(type, range.least, bits) && isOrdered(type, bits, range.greatest);
}

Sarn::String rangeText(TypeImpl const& type, NumberRange const& range) {
   auto const text = [&type](U64 bits) -> Sarn::String {
      switch (type.kind) {
         case TypeKind::signedNumber:
            return std::to_string(static_cast<S64>(bits));
         case TypeKind::floating:
            return strRep(std::bit_cast<double>(bits));
         default:
            return std::to_string(bits);
      }
   };
   return text(range.least) + " to " + text(range.greatest);
}

}  // namespace Kiv::NboAttrLog
