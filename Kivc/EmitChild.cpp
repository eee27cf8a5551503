// Child entities: single ones and collections of them.

#include "Kivc/EmitMember.h"
#include "Kivc/Layout.h"
#include "Kivc/Scope.h"

namespace Kivc {

/// The child's factory, as the owner's namespace sees it.
std::string MemberEmitter::childFactory() const {
   auto const qualifier = qualifierOf(names_.type(type()));
   return (qualifier.empty() ? "" : qualifier + "::") + factoryName(type());
}

MemberCode MemberEmitter::child() const {
   auto const child = names_.type(type());
   auto const factory = childFactory();
   auto const slot = "*this, " + std::to_string(member_.id) + ", " + member_.name.text + "_, ";
   auto const make = member_.named ? "Kiv::namedChildIs(" + slot + "name, [&] { return " + factory +
                                           "(name); })"
                                   : "Kiv::childIs(" + slot + factory + ")";
   std::string made = "a child, none until it is made";
   if (member_.creationName) {
      made = "a child, made with its parent";
   }
   MemberCode code;
   code.alignment = 8;
   code.storage = fill("Kiv::ChildSlot<@child@> @name@_;\n", {{"child", child}});
   code.declarations = fill(
         R"(
         @doc@
         Sarn::Ptr<@child@> const& @name@() const { return @name@_.get(); }
         /// @made@
         Sarn::Ptr<@child@> @name@Is(@param@);
         /// Removes the child and returns it; null if there was none.
         Sarn::Ptr<@child@> @name@Del();
         )",
         {{"doc", doc(made)},
          {"child", child},
          {"made", member_.named ? "Makes the child, unless there is one of that name."
                                 : "Makes the child, unless there is one."},
          {"param", member_.named ? "std::string_view name" : ""}});
   code.sourceBodies = fill(
         R"(

         Sarn::Ptr<@child@> @Owner@::@name@Is(@param@) {
            return @make@;
         }

         Sarn::Ptr<@child@> @Owner@::@name@Del() {
            return Kiv::childDel(*this, @id@, @name@_);
         }
         )",
         {{"child", child},
          {"param", member_.named ? "std::string_view name" : ""},
          {"make", make}});
   if (member_.creationName) {
      code.constructorBody = fill("@name@Is(@made@);\n", {{"made", member_.creationName->text}});
   }
   code.row = fill(
         "Kiv::child<@Owner@, &@Owner@::@name@, &@Owner@::@name@Is, &@Owner@::@name@Del>(@id@, "
         "\"@name@\", @flags@),\n");
   return code;
}

MemberCode MemberEmitter::children() const {
   auto const& params = type().constructorParams;
   std::vector<std::string> declared{elementParam(keyType()) + " key"};
   std::vector<std::string> passed{"key"};
   for (std::size_t i = 1; i < params.size(); ++i) {
      declared.push_back(names_.param(*params[i].type.type) + " " + params[i].name.text);
      passed.push_back(params[i].name.text);
   }
   auto const child = names_.type(type());
   auto const key = elementParam(keyType());
   auto const upper = capitalized(member_.name.text);
   auto const factory = childFactory();
   auto const keyResult = names_.result(*type().keyMember());

   MemberCode code;
   code.alignment = 8;
   code.storage = fill("@Upper@Map @name@_;\n", {{"Upper", upper}});
   code.declarations = fill(
         R"(
         /// Reads the key of a child in `@name@`.
         struct @Upper@KeyFunktor {
            @keyResult@ operator()(Sarn::Ptr<@child@> const& child) const noexcept;
         };
         using @Upper@Map = Kiv::ChildMap<@child@, @Upper@KeyFunktor, @hash@>;
         @doc@
         Sarn::Ptr<@child@> @name@(@key@ key) const;
         bool @name@Has(@key@ key) const;
         std::size_t @name@Count() const { return @name@_.size(); }
         /// All children, to iterate over.
         @Upper@Map const& @name@All() const { return @name@_; }
         /// Makes the child, or brings the one that is there to the given values.@throws@
         Sarn::Ptr<@child@> @name@Is(@params@);
         /// Removes the child and returns it; null if there was none.
         Sarn::Ptr<@child@> @name@Del(@key@ key);
         void @name@DelAll();
         )",
         {{"doc", doc("children by `" + names_.type(keyType()) + "`")},
          {"keyResult", keyResult},
          {"child", child},
          {"Upper", upper},
          {"hash", member_.hash->text},
          {"key", key},
          {"throws", params.size() > 1 ? " Throws\n/// `Kiv::MutatorReinstValException` if one of "
                                         "its constants would have to change."
                                       : ""},
          {"params", join(declared, ", ")}});
   code.inlineBodies = fill(
         R"(
         inline @keyResult@ @Owner@::@Upper@KeyFunktor::operator()(Sarn::Ptr<@child@> const& child) const noexcept {
            return child->@key@();
         }

         inline Sarn::Ptr<@child@> @Owner@::@name@(@param@ key) const {
            return @name@_.child(key);
         }

         inline bool @Owner@::@name@Has(@param@ key) const {
            return @name@_.has(key);
         }
         )",
         {{"keyResult", keyResult},
          {"child", child},
          {"Upper", upper},
          {"param", key},
          {"key", type().keyMember()->name.text}});
   code.sourceBodies = fill(
         R"(

         Sarn::Ptr<@child@> @Owner@::@name@Is(@params@) {
            if (Sarn::Ptr<@child@> const child = @name@_.child(key)) {
               @update@
               return child;
            }
            return Kiv::childrenAdd(*this, @id@, @name@_, key, @factory@(@args@));
         }

         Sarn::Ptr<@child@> @Owner@::@name@Del(@key@ key) {
            return Kiv::childrenDel(*this, @id@, @name@_, key);
         }

         void @Owner@::@name@DelAll() {
            Kiv::childrenDelAll(*this, @id@, @name@_);
         }
         )",
         {{"child", child},
          {"params", join(declared, ", ")},
          {"update", updateExisting()},
          {"factory", factory},
          {"args", join(passed, ", ")},
          {"key", key}});
   code.row =
         fill("Kiv::children<@Owner@, &@Owner@::@name@_, @id@, &@Owner@::@name@Is, "
              "&@Owner@::@name@Del>(\"@name@\", @flags@),\n");
   return code;
}

/// Steps for a child that is there: constants are compared first, so that a difference changes
/// nothing; then settable values are set.
std::string MemberEmitter::updateExisting() const {
   std::string compared;
   std::vector<std::string> setters;
   auto const& params = type().constructorParams;
   for (std::size_t i = 1; i < params.size(); ++i) {
      auto const& name = params[i].name.text;
      auto const* attribute = type().findInherited(name);
      if (attribute->kind == MemberKind::constArg) {
         bool const isText = params[i].type.type->kind == TypeKind::string;
         compared +=
               fill("Kiv::checkReinstVal(*this, @id@, *child, @argId@, child->@arg@(), @given@);\n",
                    {{"argId", std::to_string(attribute->id)},
                     {"arg", name},
                     {"given", isText ? "Sarn::String(" + name + ")" : name}});
      } else {
         setters.push_back("child->" + name + "Is(" + name + ");");
      }
   }
   if (setters.size() < 2) {
      return compared + (setters.empty() ? "" : setters.front() + '\n');
   }
   std::string steps = "Kiv::AllSteps steps(*child);\n";
   for (std::string const& setter : setters) {
      steps += "steps.take([&] { " + setter + " });\n";
   }
   return compared + steps + "steps.finish();\n";
}

}  // namespace Kivc
