// Collections of values: hash maps with the key beside or inside the value, ordered maps, queues.

#include "Kivc/EmitMember.h"
#include "Kivc/Layout.h"

namespace Kivc {

std::string MemberEmitter::mapType() const {
   auto const key = names_.type(keyType());
   auto const value = names_.type(type());
   if (member_.kind == MemberKind::ordered) {
      return "Kiv::RbTreeMap<" + key + ", " + value + ">";
   }
   if (member_.keyField) {
      return "Kiv::HashMap2018NodeInternalKey<" + value + ", " + capitalized(member_.name.text) +
             "KeyFunktor, " + member_.hash->text + ">";
   }
   return "Kiv::HashMap2018<" + key + ", " + value + ", " + member_.hash->text + ">";
}

MemberCode MemberEmitter::map() const {
   bool const isOrdered = member_.kind == MemberKind::ordered;
   bool const isInside = member_.keyField.has_value();
   auto const value = names_.type(type());
   auto const key = names_.type(keyType());
   auto const keyParam = elementParam(keyType());
   auto const lookUp = names_.param(keyType());
   auto const upper = capitalized(member_.name.text);
   auto const set = isInside ? elementParam(type()) + " value"
                             : keyParam + " key, " + elementParam(type()) + " value";
   std::string facts = isOrdered ? "values in the order of their keys, by `" : "values by `";
   facts += isInside ? member_.keyField->text + "`, which they contain" : key + "`";

   MemberCode code;
   code.alignment = 8;
   code.storage = fill("@Upper@Map @name@_;\n", {{"Upper", upper}});
   if (isInside) {
      code.declarations = fill(
            R"(
            /// Reads the key of a value in `@name@`.
            struct @Upper@KeyFunktor {
               @keyResult@ operator()(@value@ const& value) const noexcept { return value.@key@(); }
            };
            )",
            {{"Upper", upper},
             {"keyResult", names_.result(*type().find(member_.keyField->text))},
             {"value", value},
             {"key", member_.keyField->text}});
   }
   code.declarations += fill(
         R"(
         using @Upper@Map = @map@;
         @doc@
         /// The value, or the type's default if there is none.
         @value@ @name@(@lookUp@ key) const;
         bool @name@Has(@lookUp@ key) const;
         std::size_t @name@Count() const { return @name@_.size(); }
         /// All elements, to iterate over.
         @Upper@Map const& @name@All() const { return @name@_; }
         void @name@Is(@set@);
         /// Removes the value and returns it, or the type's default if there was none.
         @value@ @name@Del(@key@ key);
         @delAt@
         void @name@DelAll();
         )",
         {{"doc", doc(facts)},
          {"Upper", upper},
          {"map", mapType()},
          {"value", value},
          {"key", keyParam},
          {"lookUp", lookUp},
          {"set", set},
          {"delAt", isOrdered ? fill("/// The same for the element at `at`.\n"
                                     "@value@ @name@Del(@Upper@Map::ConstIterator at);\n",
                                     {{"value", value}, {"Upper", upper}})
                              : ""}});
   code.inlineBodies = fill(
         R"(
         inline @value@ @Owner@::@name@(@lookUp@ key) const {
            return Kiv::mapValue<@value@>(@name@_, key);
         }

         inline bool @Owner@::@name@Has(@lookUp@ key) const {
            return @name@_.has(key);
         }
         )",
         {{"value", value}, {"lookUp", lookUp}});
   code.sourceBodies = fill(
         R"(

         void @Owner@::@name@Is(@set@) {
            @steps@
         }

         @value@ @Owner@::@name@Del(@key@ key) {
            return Kiv::mapDel<@value@>(*this, @id@, @name@_, key);
         }
         @delAt@

         void @Owner@::@name@DelAll() {
            Kiv::mapDelAll<@value@, @plainKey@>(*this, @id@, @name@_);
         }
         )",
         {{"set", set},
          {"steps",
           isInside ? fill("Kiv::internalKeyMapIs(*this, @id@, @name@_, value.@key@(), value);\n",
                           {{"key", member_.keyField->text}})
                    : fill("Kiv::mapIs(*this, @id@, @name@_, key, value);\n")},
          {"value", value},
          {"key", keyParam},
          {"plainKey", key},
          {"delAt", isOrdered ? fill(
                                      R"(

                                      @value@ @Owner@::@name@Del(@Upper@Map::ConstIterator at) {
                                         return @name@Del(at->key);
                                      }
                                      )",
                                      {{"value", value}, {"Upper", upper}})
                              : ""}});
   code.row = fill("Kiv::@map@<@Owner@, &@Owner@::@name@_, @id@>(\"@name@\", @flags@),\n",
                   {{"map", isInside ? "internalKeyMap" : "map"}});
   return code;
}

MemberCode MemberEmitter::queue() const {
   auto const value = names_.type(type());
   MemberCode code;
   code.alignment = 8;
   code.storage = fill("Sarn::RQueue<@value@> @name@_;\n", {{"value", value}});
   code.declarations = fill(
         R"(
         @doc@
         /// The value with that sequence number, or the type's default if it is not there.
         @value@ @name@(U32 sequence) const { return @name@_.at(sequence); }
         bool @name@Has(U32 sequence) const { return @name@_.has(sequence); }
         std::size_t @name@Count() const { return @name@_.size(); }
         /// The whole queue, to iterate over.
         Sarn::RQueue<@value@> const& @name@All() const { return @name@_; }
         /// The oldest value; the type's default if the queue is empty.
         @value@ @name@Front() const { return @name@_.front(); }
         /// The newest value; the type's default if the queue is empty.
         @value@ @name@Back() const { return @name@_.back(); }
         void @name@Enq(@param@ value);
         /// Removes the oldest value and returns it; the type's default if the queue is empty.
         @value@ @name@Deq();
         void @name@DelAll();
         )",
         {{"doc", doc("a queue, each value with a sequence number")},
          {"value", value},
          {"param", elementParam(type())}});
   code.sourceBodies = fill(
         R"(

         void @Owner@::@name@Enq(@param@ value) {
            Kiv::queueEnq(*this, @id@, @name@_, value);
         }

         @value@ @Owner@::@name@Deq() {
            return Kiv::queueDeq(*this, @id@, @name@_);
         }

         void @Owner@::@name@DelAll() {
            Kiv::queueDelAll(*this, @id@, @name@_);
         }
         )",
         {{"value", value}, {"param", elementParam(type())}});
   code.row = "Kiv::reserved(" + std::to_string(member_.id - 1) + "),\n" +
              fill("Kiv::queue<@Owner@, &@Owner@::@name@_, @id@>(\"@name@\", @flags@),\n");
   return code;
}

}  // namespace Kivc
