#include "Kivc/Parser.h"

#include <utility>

#include "Kivc/MemberParser.h"
#include "Kivc/TokenCursor.h"

namespace Kivc {

namespace {

class Parser {
public:
   Parser(std::unique_ptr<Source> source, Diagnostics& diagnostics)
         : module_(std::make_unique<Module>()),
           cursor_(lex(*source, diagnostics), diagnostics),
           diagnostics_(diagnostics),
           members_(cursor_, diagnostics) {
      module_->source = std::move(source);
   }

   std::unique_ptr<Module> run() {
      try {
         module_->doc = cursor_.takeDoc();
         moduleStatement();
      } catch (SyntaxError const&) {
         cursor_.recover();
      }
      while (!cursor_.atEnd()) {
         try {
            statement();
         } catch (SyntaxError const&) {
            cursor_.recover();
            cursor_.accept("}");
         }
      }
      return std::move(module_);
   }

private:
   void moduleStatement() {
      cursor_.expect("module");
      module_->name = cursor_.expectName("the module's name");
      auto const& hash =
            cursor_.expectKind(TokenKind::number, "the module's hash, such as 0x298ecaeb");
      auto const digits = hash.text().substr(0, 2) == "0x" ? hash.text().substr(2) : "";
      module_->hash = {std::string(digits), hash.span};
      if (digits.empty() || digits.size() > 8 ||
          digits.find_first_not_of("0123456789abcdef") != std::string_view::npos) {
         diagnostics_.error(hash.span,
                            "the module's hash is written as 0x and one to eight lower-case "
                            "hexadecimal digits");
         module_->hash.text = "0";
      }
      cursor_.expectSemicolon();
   }

   void statement() {
      auto doc = cursor_.takeDoc();
      if (cursor_.at("use")) {
         use();
      } else if (cursor_.at("namespace")) {
         cursor_.take();
         nameSpace_ = cursor_.expectPath("a namespace").text;
         cursor_.expectSemicolon();
      } else if (cursor_.at("enum")) {
         enumeration(std::move(doc));
      } else if (cursor_.at("value")) {
         value(std::move(doc));
      } else if (cursor_.at("entity")) {
         entity(std::move(doc));
      } else if (cursor_.at("extern")) {
         external(std::move(doc));
      } else {
         std::string const found(cursor_.peek().text());
         cursor_.fail("use, namespace, enum, value, entity or extern",
                      suggestion(found, {"use", "namespace", "enum", "value", "entity", "extern"}));
      }
   }

   void use() {
      cursor_.take();
      do {
         module_->uses.push_back(cursor_.expectName("a module's name"));
      } while (cursor_.accept(","));
      cursor_.expectSemicolon();
   }

   Type& newType(TypeKind kind, std::vector<std::string> doc) {
      auto& type = *module_->types.emplace_back(std::make_unique<Type>());
      type.kind = kind;
      type.doc = std::move(doc);
      type.nameSpace = nameSpace_;
      type.module = module_.get();
      return type;
   }

   void enumeration(std::vector<std::string> doc) {
      cursor_.take();
      auto const name = cursor_.expectName("the enumeration's name");
      auto& type = newType(TypeKind::enumeration, std::move(doc));
      type.name = name;
      block(type, [this](Type& owner) { members_.enumerator(owner); });
   }

   void value(std::vector<std::string> doc) {
      cursor_.take();
      auto const name = cursor_.expectName("the value type's name");
      auto& type = newType(TypeKind::value, std::move(doc));
      type.name = name;
      // Ordering is offered on request only: most values have no order that means something.
      type.ordered = false;
      while (!cursor_.at("{")) {
         if (cursor_.accept("unhashable")) {
            type.hashable = false;
         } else if (cursor_.accept("ordered")) {
            type.ordered = true;
         } else if (cursor_.accept("transparent")) {
            type.transparent = true;
         } else {
            cursor_.fail("'{', 'unhashable', 'ordered' or 'transparent'");
         }
      }
      block(type, [this](Type& owner) { members_.field(owner); });
   }

   void entity(std::vector<std::string> doc) {
      cursor_.take();
      auto const name = cursor_.expectName("the entity's name");
      auto& type = newType(TypeKind::entity, std::move(doc));
      type.name = name;
      type.hashable = false;
      type.ordered = false;
      if (cursor_.accept(":")) {
         type.base.name = cursor_.expectPath("the base entity", true);
         if (cursor_.accept("(")) {
            type.baseArgsGiven = true;
            if (!cursor_.at(")")) {
               do {
                  type.baseArgs.push_back({members_.expression("an argument"), false});
               } while (cursor_.accept(","));
            }
            cursor_.expect(")");
         }
      }
      block(type, [this](Type& owner) { members_.entityMember(owner); });
   }

   /// `extern value Dorn::IntfId in "Dorn/IntfId.h";`, where a qualified name is absolute.
   void external(std::vector<std::string> doc) {
      cursor_.take();
      bool const isConstants = cursor_.at("constants");
      if (!isConstants && !cursor_.at("value")) {
         cursor_.fail("'value' or 'constants'");
      }
      cursor_.take();
      auto const name = cursor_.expectPath("the type's name");
      cursor_.expect("in");
      auto const& header =
            cursor_.expectKind(TokenKind::text, "the header, such as \"Dorn/IntfId.h\"");
      auto& type = newType(isConstants ? TypeKind::constants : TypeKind::value, std::move(doc));
      type.origin = Origin::external;
      type.header = std::string(header.text().substr(1, header.text().size() - 2));
      auto const split = name.text.rfind("::");
      type.name = {split == std::string::npos ? name.text : name.text.substr(split + 2), name.span};
      if (split != std::string::npos) {
         type.nameSpace = name.text.substr(0, split);
      }
      if (isConstants) {
         if (cursor_.at("{")) {
            block(type, [this](Type& owner) { members_.limit(owner); });
            return;
         }
      } else {
         for (bool more = true; more;) {
            if (cursor_.accept("unhashable")) {
               type.hashable = false;
            } else if (cursor_.accept("unordered")) {
               type.ordered = false;
            } else {
               more = false;
            }
         }
      }
      cursor_.expectSemicolon();
   }

   template <typename MemberParser>
   void block(Type& owner, MemberParser member) {
      cursor_.expect("{");
      while (!cursor_.at("}") && !cursor_.atEnd()) {
         try {
            member(owner);
         } catch (SyntaxError const&) {
            cursor_.recover();
         }
      }
      cursor_.expect("}");
   }

   std::unique_ptr<Module> module_;
   TokenCursor cursor_;
   Diagnostics& diagnostics_;
   MemberParser members_;
   std::string nameSpace_;
};

}  // namespace

std::unique_ptr<Module> parse(std::unique_ptr<Source> source, Diagnostics& diagnostics) {
   return Parser(std::move(source), diagnostics).run();
}

}  // namespace Kivc
