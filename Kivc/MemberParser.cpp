#include "Kivc/MemberParser.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace Kivc {

namespace {

struct Keyword {
   std::string_view word;
   MemberKind kind;
};

constexpr std::array<Keyword, 15> entityKeywords{{
      {"name", MemberKind::name},
      {"key", MemberKind::key},
      {"const", MemberKind::constArg},
      {"attr", MemberKind::attr},
      {"counter", MemberKind::counter},
      {"optional", MemberKind::optional},
      {"constant", MemberKind::constant},
      {"child", MemberKind::child},
      {"children", MemberKind::children},
      {"map", MemberKind::map},
      {"ordered", MemberKind::ordered},
      {"queue", MemberKind::queue},
      {"derived", MemberKind::derived},
      {"op", MemberKind::operation},
      {"reserved", MemberKind::reserved},
}};

std::vector<std::string> entityKeywordNames() {
   std::vector<std::string> names(entityKeywords.size());
   std::transform(entityKeywords.begin(), entityKeywords.end(), names.begin(),
                  [](Keyword const& keyword) { return std::string(keyword.word); });
   return names;
}

}  // namespace

Member& MemberParser::add(Type& owner, Member member, Token const& first) {
   member.span = first.span.to(cursor_.last().span);
   owner.members.push_back(std::move(member));
   return owner.members.back();
}

void MemberParser::enumerator(Type& owner) {
   Member member;
   member.kind = MemberKind::enumerator;
   member.doc = cursor_.takeDoc();
   auto const& first = cursor_.peek();
   if (cursor_.at("default") && cursor_.peek(1).kind == TokenKind::identifier) {
      cursor_.take();
      auto const name = cursor_.expectName("an enumerator");
      if (owner.enumDefault) {
         diagnostics_.error(name.span, "the default of '" + owner.name.text + "' is stated twice")
               .note(owner.enumDefault->span, "first stated here");
      }
      Expr expr;
      expr.kind = Expr::Kind::name;
      expr.text = name.text;
      expr.span = name.span;
      owner.enumDefault = expr;
      cursor_.expectSemicolon();
      return;
   }
   member.name = cursor_.expectName("an enumerator or 'default'");
   if (cursor_.accept("=")) {
      auto const& number = cursor_.expectKind(TokenKind::number, "the enumerator's number");
      member.number = Name{std::string(number.text()), number.span};
   }
   add(owner, std::move(member), first);
   cursor_.expectSemicolon();
}

void MemberParser::limit(Type& owner) {
   Member member;
   member.kind = MemberKind::constant;
   member.doc = cursor_.takeDoc();
   auto const& first = cursor_.peek();
   member.name = cursor_.expectName("a limit's name");
   cursor_.expect("=");
   member.defaultValue = expression("the limit's value");
   add(owner, std::move(member), first);
   cursor_.expectSemicolon();
}

void MemberParser::field(Type& owner) {
   Member member;
   member.doc = cursor_.takeDoc();
   auto const& first = cursor_.peek();
   member.isConst = cursor_.accept("const");
   if (cursor_.accept("field")) {
      member.kind = MemberKind::field;
   } else if (!member.isConst && cursor_.accept("optional")) {
      member.kind = MemberKind::optional;
   } else {
      cursor_.fail("field, const field or optional");
   }
   member.name = cursor_.expectName("the field's name");
   cursor_.expect(":");
   member.type = typeRef();
   defaultAndRange(member);
   add(owner, std::move(member), first);
   cursor_.expectSemicolon();
}

void MemberParser::entityMember(Type& owner) {
   Member member;
   member.doc = cursor_.takeDoc();
   auto const& first = cursor_.peek();
   auto const* keyword =
         std::find_if(entityKeywords.begin(), entityKeywords.end(),
                      [&](Keyword const& candidate) { return first.is(candidate.word); });
   if (keyword == entityKeywords.end()) {
      cursor_.fail("a member, such as 'attr', 'child' or 'map'",
                   suggestion(first.text(), entityKeywordNames()));
   }
   cursor_.take();
   member.kind = keyword->kind;
   member.name.span = first.span;
   declaration(member);
   add(owner, std::move(member), first);
   cursor_.expectSemicolon();
}

void MemberParser::declaration(Member& member) {
   if (member.kind == MemberKind::name) {
      member.name.text = "nameString";
      return;
   }
   if (member.kind == MemberKind::reserved) {
      reserved(member);
      return;
   }
   member.name = cursor_.expectName("the member's name");
   if (member.kind == MemberKind::operation) {
      operation(member);
      return;
   }
   cursor_.expect(":");
   member.type = typeRef();
   switch (member.kind) {
      case MemberKind::child:
         child(member);
         break;
      case MemberKind::children:
      case MemberKind::map:
      case MemberKind::ordered:
         collection(member);
         break;
      case MemberKind::queue:
         options(member);
         break;
      case MemberKind::derived:
         derived(member);
         break;
      default:
         single(member);
         break;
   }
}

TypeRef MemberParser::typeRef() {
   return {cursor_.expectPath("a type", true), nullptr};
}

void MemberParser::single(Member& member) {
   member.given = cursor_.accept("given");
   defaultAndRange(member);
   options(member);
}

void MemberParser::defaultAndRange(Member& member) {
   if (cursor_.accept("=")) {
      member.defaultValue = expression("a default value");
   }
   if (cursor_.accept("in")) {
      member.lower = expression("the lowest value");
      cursor_.expect("..");
      if (!cursor_.at(";") && !cursor_.at("local")) {
         member.upper = expression("the highest value, or ';'");
      }
   }
}

void MemberParser::options(Member& member) {
   member.local = cursor_.accept("local");
}

void MemberParser::child(Member& member) {
   if (cursor_.accept("named")) {
      member.named = true;
      if (cursor_.peek().kind == TokenKind::text) {
         auto const& text = cursor_.take();
         member.creationName = Name{std::string(text.text()), text.span};
      }
   }
   instantiation(member);
}

void MemberParser::collection(Member& member) {
   cursor_.expect("by");
   if (cursor_.accept(".")) {
      member.keyField = cursor_.expectName("the field that is the key");
   } else {
      member.key = typeRef();
   }
   if (cursor_.accept("(")) {
      do {
         member.childArgs.push_back(cursor_.expectName("a constructor argument of the child"));
      } while (cursor_.accept(","));
      cursor_.expect(")");
   }
   if (cursor_.accept("hash")) {
      auto const& number = cursor_.expectKind(TokenKind::number, "the hash constant");
      member.hash = Name{std::string(number.text()), number.span};
   }
   instantiation(member);
   options(member);
}

void MemberParser::instantiation(Member& member) {
   if (!cursor_.accept("instantiation")) {
      return;
   }
   cursor_.expect("(");
   for (std::size_t i = 0; i < member.instantiation.size(); ++i) {
      if (i != 0) {
         cursor_.expect(",");
      }
      if (!cursor_.at("true") && !cursor_.at("false")) {
         cursor_.fail("true or false");
      }
      member.instantiation[i] = cursor_.take().is("true");
   }
   cursor_.expect(")");
}

void MemberParser::derived(Member& member) {
   if (cursor_.accept("from")) {
      member.viewOf = cursor_.expectName("the attribute that it is a view of");
   }
}

void MemberParser::operation(Member& member) {
   cursor_.expect("(");
   if (!cursor_.at(")")) {
      do {
         Parameter param;
         param.name = cursor_.expectName("a parameter's name");
         cursor_.expect(":");
         param.type = typeRef();
         member.params.push_back(std::move(param));
      } while (cursor_.accept(","));
   }
   cursor_.expect(")");
   if (cursor_.accept("->")) {
      member.type = typeRef();
   }
   member.isConst = cursor_.accept("const");
}

void MemberParser::reserved(Member& member) {
   auto const& number = cursor_.expectKind(TokenKind::number, "how many ids are reserved");
   auto const text = number.text();
   auto const parsed = std::from_chars(text.data(), text.data() + text.size(), member.places);
   if (parsed.ec != std::errc() || parsed.ptr != text.data() + text.size() || member.places == 0) {
      diagnostics_.error(number.span, "the number of reserved ids is a whole number from 1");
      member.places = 1;
   }
   member.name.text.clear();
}

Expr MemberParser::expression(std::string_view what) {
   Expr expr;
   expr.span = cursor_.peek().span;
   if (cursor_.accept("-")) {
      auto const& number = cursor_.expectKind(TokenKind::number, "a number behind '-'");
      expr.kind = Expr::Kind::number;
      expr.text = "-" + std::string(number.text());
   } else if (cursor_.peek().kind == TokenKind::number) {
      expr.kind = Expr::Kind::number;
      expr.text = std::string(cursor_.take().text());
   } else if (cursor_.peek().kind == TokenKind::text) {
      expr.kind = Expr::Kind::text;
      expr.text = std::string(cursor_.take().text());
   } else {
      expr.kind = Expr::Kind::name;
      expr.text = cursor_.expectPath(what, true).text;
      if (cursor_.accept("(")) {
         if (cursor_.at(")")) {
            expr.isFunction = true;
         } else {
            expr.kind = Expr::Kind::call;
            do {
               expr.args.push_back(expression("an argument"));
            } while (cursor_.accept(","));
         }
         cursor_.expect(")");
      }
   }
   expr.span = expr.span.to(cursor_.last().span);
   return expr;
}

}  // namespace Kivc
