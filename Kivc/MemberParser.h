// Parses one member of a type: one function per place where members stand.
#pragma once

#include <string_view>

#include "Kivc/TokenCursor.h"

namespace Kivc {

class MemberParser {
public:
   MemberParser(TokenCursor& cursor, Diagnostics& diagnostics)
         : cursor_(cursor), diagnostics_(diagnostics) {}

   /// `initializing = 1;` or `default initializing;`
   void enumerator(Type& owner);
   /// A member of a value type.
   void field(Type& owner);
   void entityMember(Type& owner);
   /// `mindriftLimit = 50;` of a class of named limits.
   void limit(Type& owner);
   /// A default, argument or bound; `what` is used in messages.
   Expr expression(std::string_view what);

private:
   Member& add(Type& owner, Member member, Token const& first);
   void declaration(Member& member);
   void single(Member& member);
   void child(Member& member);
   void collection(Member& member);
   void derived(Member& member);
   void operation(Member& member);
   void reserved(Member& member);
   void defaultAndRange(Member& member);
   void options(Member& member);
   void instantiation(Member& member);
   TypeRef typeRef();

   TokenCursor& cursor_;
   Diagnostics& diagnostics_;
};

}  // namespace Kivc
