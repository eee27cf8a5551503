// Single values: keys, constant arguments, attributes, counters, optional ones, constants, derived
// members; and operations, which are declared here and written by hand.

#include "Kivc/EmitMember.h"
#include "Kivc/Layout.h"
#include "Kivc/Words.h"

namespace Kivc {

namespace {

std::string factsOf(Member const& member) {
   switch (member.kind) {
      case MemberKind::key:
         return "the key, fixed at construction";
      case MemberKind::constArg:
         return "fixed at construction";
      default:
         break;
   }
   auto const initial = member.given ? "first value given to the constructor"
                                     : "default " + defaultInWords(member);
   auto const range = rangeInWords(member);
   return range.empty() ? initial : initial + "; " + range;
}

}  // namespace

MemberCode MemberEmitter::attribute() const {
   bool const isFixed = member_.kind == MemberKind::key || member_.kind == MemberKind::constArg;
   MemberCode code;
   code.alignment = alignmentOf(type());
   code.storage = fill("@type@ @name@_@initial@;\n", {{"type", names_.stored(member_)},
                                                      {"initial", names_.initializer(member_)}});
   code.declarations = fill(
         R"(
         @doc@
         @result@ @name@() const { return @name@_; }
         )",
         {{"doc", doc(factsOf(member_))}, {"result", names_.result(member_)}});
   if (isFixed) {
      code.row =
            fill("Kiv::single<@Owner@, &@Owner@::@name@>(@id@, @kind@, \"@name@\", @flags@),\n");
      return code;
   }
   auto const param = names_.param(member_);
   if (member_.lower) {
      code.declarations += docComment("Throws `Kiv::RangeException` outside the range.");
   }
   code.declarations += fill("void @name@Is(@param@ v);\n", {{"param", param}});
   if (member_.kind == MemberKind::counter) {
      code.declarations += fill(
            R"(
            /// Adds with wrap-around.
            void @name@Inc(@type@ n) { @name@Is(static_cast<@type@>(@name@_ + n)); }
            )",
            {{"type", names_.stored(member_)}});
   }
   if (member_.lower) {
      range(code);
   } else {
      code.inlineBodies = fill(
            R"(
            inline void @Owner@::@name@Is(@param@ v) {
               Kiv::attributeIs@streamed@(*this, @id@, @name@_, v);
            }
            )",
            {{"param", param}, {"streamed", streamedArgument()}});
   }
   code.row = fill(
         "Kiv::single<@Owner@, &@Owner@::@name@, &@Owner@::@name@Is@range@>(@id@, @kind@, "
         "\"@name@\", @flags@),\n",
         {{"range",
           member_.lower ? ", &" + owner_.name.text + "::" + member_.name.text + "Range_" : ""}});
   return code;
}

/// What tells a setter's steps that the attribute log has no place for the change.
std::string MemberEmitter::streamedArgument() const {
   return member_.local ? "<Kiv::Streamed::no>" : "";
}

/// The parts of a bounded attribute: its range, checking setter, check of the initial value.
void MemberEmitter::range(MemberCode& code) const {
   auto const isOpen = !member_.upper;
   auto const message = owner_.qualifiedName() + "::" + member_.name.text + " < " +
                        boundName(*member_.lower) +
                        (isOpen ? "" : " or > " + boundName(*member_.upper)) + " not allowed";
   auto const type = names_.type(this->type());
   code.privates = fill(
         R"(
         static constexpr Kiv::Range<@type@> @name@Range_() {
            return {@low@, @high@, "@message@"};
         }
         )",
         {{"type", type},
          {"low", names_.bound(*member_.lower)},
          {"high",
           isOpen ? "std::numeric_limits<" + type + ">::max()" : names_.bound(*member_.upper)},
          {"message", message}});
   code.constructorBody = fill("Kiv::checkRange(@name@_, @name@Range_());\n");
   auto const isFloating = this->type().kind == TypeKind::floating;
   auto const stored = member_.name.text + '_';
   code.inlineBodies = fill(
         R"(
         inline void @Owner@::@name@Is(@param@ v) {
            if (@unchanged@) {
               return;
            }
            Kiv::checkRange(v, @name@Range_());
            Kiv::attributeStore@streamed@(*this, @id@, @name@_, v);
         }
         )",
         {{"param", names_.param(member_)},
          {"unchanged", isFloating ? "Kiv::isUnchanged(" + stored + ", v)" : stored + " == v"},
          {"streamed", streamedArgument()}});
}

MemberCode MemberEmitter::constant() const {
   MemberCode code;
   auto const value = names_.literal(*member_.defaultValue, type());
   if (isScalar(type())) {
      code.declarations = fill(
            R"(
            @doc@
            static constexpr @type@ @name@() { return @value@; }
            )",
            {{"doc", doc("constant")}, {"type", names_.type(type())}, {"value", value}});
   } else {
      code.declarations = fill(
            R"(
            @doc@
            static @type@ @name@();
            )",
            {{"doc", doc("constant")}, {"type", names_.type(type())}});
      code.sourceBodies = fill(
            R"(

            @type@ @Owner@::@name@() {
               return @value@;
            }
            )",
            {{"type", names_.type(type())}, {"value", value}});
   }
   code.row = fill("Kiv::single<@Owner@, &@Owner@::@name@>(@id@, @kind@, \"@name@\", @flags@),\n");
   return code;
}

/// A view of a field of the same name and type is generated; any other body is written by hand.
MemberCode MemberEmitter::derived() const {
   MemberCode code;
   auto const* viewed = member_.viewOf ? owner_.findInherited(member_.viewOf->text) : nullptr;
   auto const* viewedType = viewed == nullptr ? nullptr : viewed->type.type;
   bool const isField = viewedType != nullptr && viewedType->kind == TypeKind::value &&
                        viewedType->origin == Origin::declared;
   auto const* field = isField ? viewedType->find(member_.name.text) : nullptr;
   auto const facts = viewed == nullptr ? "computed" : "a view of `" + viewed->name.text + "`";
   auto const type = names_.returned(this->type());
   if (field != nullptr && field->kind == MemberKind::field && field->type.type == &this->type()) {
      code.declarations = fill(
            R"(
            @doc@
            @type@ @name@() const { return @viewed@().@name@(); }
            )",
            {{"doc", doc(facts)}, {"type", type}, {"viewed", viewed->name.text}});
   } else {
      code.declarations = fill(
            R"(
            @doc@
            @type@ @name@() const;
            )",
            {{"doc", doc(facts)}, {"type", type}});
   }
   code.row = fill("Kiv::single<@Owner@, &@Owner@::@name@>(@id@, @kind@, \"@name@\", @flags@),\n");
   return code;
}

MemberCode MemberEmitter::operation() const {
   std::vector<std::string> params;
   for (auto const& param : member_.params) {
      params.push_back(names_.param(*param.type.type) + " " + param.name.text);
   }
   MemberCode code;
   code.declarations = fill(
         R"(
         @doc@
         @result@ @name@(@params@)@const@;
         )",
         {{"doc", doc("")},
          {"result", member_.type ? names_.returned(type()) : "void"},
          {"params", join(params, ", ")},
          {"const", member_.isConst ? " const" : ""}});
   code.row = fill("Kiv::operation(@id@, @kind@, \"@name@\"),\n");
   return code;
}

}  // namespace Kivc
