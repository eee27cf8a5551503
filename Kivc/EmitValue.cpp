#include "Kivc/EmitValue.h"

#include "Kivc/CppFile.h"
#include "Kivc/CppNames.h"
#include "Kivc/Layout.h"
#include "Kivc/Template.h"
#include "Kivc/Words.h"

namespace Kivc {

namespace {

/// One field in the parts of which the class is put together.
struct FieldCode {
   std::string accessors;
   std::string storage;
   /// Its entry in the list of fields.
   std::string listed;
   std::string row;
};

FieldCode fieldCode(Type const& owner, Member const& field, CppNames const& names) {
   auto const facts = "Field id " + std::to_string(field.id) + "; default " +
                      defaultInWords(field) + (field.isConst ? "; fixed at construction" : "") +
                      ".";
   Template text;
   text.set("Owner", owner.name.text).set("name", field.name.text);

   FieldCode code;
   auto accessors = text.fork();
   accessors.set("doc", docComment(join(field.doc, "\n") + "\n" + facts))
         .set("result", names.result(field));
   accessors.append(R"(
      @doc@
      @result@ @name@() const { return @name@_; }
      )");
   code.accessors = accessors.finish();
   if (!field.isConst) {
      auto setter = text.fork();
      setter.set("param", names.param(field));
      setter.append("void @name@Is(@param@ v) { @name@_ = v; }\n");
      code.accessors += setter.finish();
   }
   auto storage = text.fork();
   storage.set("type", names.stored(field)).set("initial", names.initializer(field));
   code.storage = storage.append("@type@ @name@_@initial@;\n").finish();

   code.listed = text.fork().append("Kiv::valueField(\"@name@\", &@Owner@::@name@_)").finish();
   code.listed.pop_back();  // the line end

   auto row = text.fork();
   row.set("id", std::to_string(field.id))
         .set("kind", hexWord(field.kindWord()))
         .set("setter",
              field.isConst ? "" : ", &" + owner.name.text + "::" + field.name.text + "Is")
         .set("flags", std::string("Flag::streamed") + (field.isConst ? " | Flag::constant" : "") +
                             (field.isInSeconds() ? " | Flag::seconds" : ""));
   code.row = row.append(
                       "Kiv::single<@Owner@, &@Owner@::@name@@setter@>(@id@, @kind@, \"@name@\", "
                       "@flags@),\n")
                    .finish();
   return code;
}

std::string storedTypes(Type const& type, CppNames const& names) {
   std::vector<std::string> types;
   for (auto const& field : type.members) {
      types.push_back(names.stored(field));
   }
   return join(types, ", ");
}

}  // namespace

std::string emitValueHeader(Type const& type) {
   CppNames const names(type.nameSpace);
   Includes includes;
   includes.add("Kiv/Glue/ValueType.h");
   includes.add("Kiv/AllocTrack.h");
   std::string accessors;
   std::string storage;
   std::vector<std::string> listed;
   std::vector<std::string> initializers;
   for (auto const& field : type.members) {
      includes.addValuesOf(field);
      auto const code = fieldCode(type, field, names);
      accessors += (accessors.empty() ? "" : "\n") + code.accessors;
      storage += code.storage;
      listed.push_back(code.listed);
      initializers.push_back(field.name.text + "_(" + field.name.text + ")");
   }
   Template text;
   text.set("banner", banner(*type.module))
         .set("includes", includes.text())
         .set("open", namespaceOpening(type.nameSpace))
         .set("close", namespaceClosing(type.nameSpace))
         .set("doc", docComment(join(type.doc, "\n")))
         .set("Type", type.name.text)
         .set("qualified", type.qualifiedName())
         .set("types", storedTypes(type, names))
         .set("explicit", type.members.size() == 1 ? "explicit " : "")
         .set("params", names.params(type))
         .set("initializers", join(initializers, ", "))
         .set("accessors", accessors)
         .set("hash", type.hashable
                            ? "U32 hash(U32 seed) const { return Kiv::valueHash(seed, *this); }\n"
                            : "")
         .set("order", type.ordered ? "friend std::weak_ordering operator<=>(" + type.name.text +
                                            " const& a, " + type.name.text +
                                            " const& b) noexcept {\n   return "
                                            "Kiv::valueOrder(a, b);\n}\n"
                                    : "")
         .set("fields", join(listed, ", "))
         .set("transparent", type.transparent ? "/// Hash and text are those of the field.\n"
                                                "static constexpr bool kivTransparent = true;\n"
                                              : "")
         .set("storage", storage);
   text.append(R"(
      @banner@
      #pragma once

      @includes@

      @open@
      @doc@
      class @Type@ {
      public:
         static constexpr char const* kivTypeName = "@qualified@";
         static constexpr std::size_t kivMaxEncodedSize = Kiv::maxEncodedSize<@types@>;
         static Kiv::TypeImpl const kivTypeImpl;
         static Kiv::AllocTrackTypeInfo memAllocationTracker_;
         @transparent@
         static constexpr auto kivFields() {
            return std::tuple(@fields@);
         }

         /// Every field has its default.
         @Type@() = default;
         @explicit@@Type@(@params@) : @initializers@ {}
         /// Reads the text form. Throws `Kiv::ParseException` and `Kiv::RangeException`.
         explicit @Type@(Kiv::CharRange& text);
         /// Reads the attribute log's form. Throws `Kiv::NboAttrLog::FaultException`.
         @Type@(Kiv::NboAttrLog::In* in, Kiv::StreamBogon);

         @accessors@

         /// Whether every field has its default.
         bool isDefault() const { return isEq(@Type@()); }
         bool isEq(@Type@ const& other) const {
            return this == &other || Kiv::valueIsEq(*this, other);
         }
         @hash@
         /// Appends the text form.
         void print(Sarn::String& out) const;
         std::size_t kivEncodedSize() const { return Kiv::valueEncodedSize(*this); }

         friend bool operator==(@Type@ const& a, @Type@ const& b) { return a.isEq(b); }
         @order@
         friend Kiv::NboAttrLog::Out& operator<<(Kiv::NboAttrLog::Out& out, @Type@ const& v);
         friend std::ostream& operator<<(std::ostream& out, @Type@ const& v);

      private:
         @storage@
      };
      @close@
      )");
   return text.finish();
}

std::string emitValueSource(Type const& type) {
   CppNames const names(type.nameSpace);
   Includes includes;
   includes.add("Kiv/Glue/Provider.h");
   includes.add(recordHeader(*type.module));
   std::string rows;
   for (auto const& field : type.members) {
      rows += fieldCode(type, field, names).row;
   }
   Template text;
   text.set("banner", banner(*type.module))
         .set("include", includeLine(type.header))
         .set("includes", includes.text())
         .set("version", versionCheck())
         .set("open", namespaceOpening(type.nameSpace))
         .set("close", namespaceClosing(type.nameSpace))
         .set("Type", type.name.text)
         .set("qualified", type.qualifiedName())
         .set("rows", rows)
         .set("types", storedTypes(type, names))
         .set("record", type.module->recordSymbol())
         .set("index", std::to_string(recordIndex(type)));
   text.append(R"(
      @banner@
      @include@

      @includes@

      @version@

      @open@
      using Flag = Kiv::FieldDescriptor::Flag;

      namespace {

      constexpr Kiv::FieldDescriptor rowsOf@Type@[] = {
            @rows@
      };

      }  // namespace

      constinit Kiv::AllocTrackTypeInfo @Type@::memAllocationTracker_{"@qualified@"};

      constinit Kiv::TypeImpl const @Type@::kivTypeImpl =
            Kiv::valueType<@Type@, @types@>("@qualified@", rowsOf@Type@, @record@At, @index@);

      @Type@::@Type@(Kiv::CharRange& text) {
         Kiv::valueParse(text, *this);
      }

      @Type@::@Type@(Kiv::NboAttrLog::In* in, Kiv::StreamBogon) {
         Kiv::valueDecode(*in, *this);
      }

      void @Type@::print(Sarn::String& out) const {
         Kiv::valuePrint(out, *this);
      }

      Kiv::NboAttrLog::Out& operator<<(Kiv::NboAttrLog::Out& out, @Type@ const& v) {
         Kiv::valueEncode(out, v);
         return out;
      }

      std::ostream& operator<<(std::ostream& out, @Type@ const& v) {
         return out << Kiv::strRep(v);
      }
      @close@
      )");
   return text.finish();
}

}  // namespace Kivc
