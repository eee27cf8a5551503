#include "Kivc/EmitEnum.h"

#include "Kivc/CppFile.h"
#include "Kivc/CppNames.h"
#include "Kivc/Layout.h"
#include "Kivc/Template.h"

namespace Kivc {

std::string emitEnumHeader(Type const& type) {
   std::string enumerators;
   for (auto const& member : type.members) {
      enumerators += docComment(join(member.doc, "\n")) + member.name.text + " = " +
                     std::to_string(member.id) + ",\n";
   }
   auto const qualified = type.qualifiedName();
   Includes includes;
   includes.add("<iosfwd>");
   includes.add("Kiv/Glue/EnumType.h");
   Template text;
   text.set("banner", banner(*type.module))
         .set("includes", includes.text())
         .set("open", namespaceOpening(type.nameSpace))
         .set("close", namespaceClosing(type.nameSpace))
         .set("doc", docComment(join(type.doc, "\n")))
         .set("Enum", type.name.text)
         .set("qualified", qualified)
         .set("default", type.enumDefault->text)
         .set("enumerators", enumerators);
   text.append(R"(
      @banner@
      #pragma once

      @includes@

      @open@
      @doc@
      enum class @Enum@ : U8 {
         @enumerators@
      };

      /// The enumerator's name; the decimal number of a value that has none.
      Sarn::String stringValue(@Enum@ value);
      std::ostream& operator<<(std::ostream& out, @Enum@ value);
      /// The enumeration as an object.
      inline Kiv::EnumInstance<@Enum@> @Enum@Instance() {
         return {};
      }
      @close@

      template <>
      struct Kiv::EnumTraits<@qualified@> {
         static constexpr std::string_view name = "@qualified@";
         static constexpr @qualified@ defaultValue = @qualified@::@default@;
         static TypeImpl const typeImpl;
         static TypeImpl const& type() noexcept { return typeImpl; }
      };
      )");
   return text.finish();
}

std::string emitEnumDefinitions(Type const& type) {
   Template text;
   text.set("open", namespaceOpening(type.nameSpace))
         .set("close", namespaceClosing(type.nameSpace))
         .set("Enum", type.name.text)
         .set("qualified", type.qualifiedName())
         .set("record", type.module->recordSymbol())
         .set("index", std::to_string(recordIndex(type)));
   text.append(R"(

      constinit Kiv::TypeImpl const Kiv::EnumTraits<@qualified@>::typeImpl =
            Kiv::Impl::enumType<@qualified@>(@record@At, @index@);

      @open@
      Sarn::String stringValue(@Enum@ value) {
         return Kiv::enumStringValue(value);
      }

      std::ostream& operator<<(std::ostream& out, @Enum@ value) {
         return out << Kiv::enumStringValue(value);
      }
      @close@
      )");
   return text.finish();
}

}  // namespace Kivc
