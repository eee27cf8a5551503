// C++ of one member of an entity, in the parts of which the entity's header and source are put
// together. One source file per construct: EmitAttribute, EmitChild, EmitCollection.
#pragma once

#include <string>

#include "Kivc/CppNames.h"
#include "Kivc/Model.h"
#include "Kivc/Template.h"

namespace Kivc {

/// Lines without indentation; each part is empty or ends with a line break.
struct MemberCode {
   /// Public part of the class.
   std::string declarations;
   /// Private constants.
   std::string privates;
   /// The data member.
   std::string storage;
   /// Behind the class, in the header.
   std::string inlineBodies;
   /// In the source.
   std::string sourceBodies;
   /// Steps of the constructor.
   std::string constructorBody;
   /// Its rows of the member table, each closed by a comma.
   std::string row;
   /// Bytes, as far as known; members are laid out largest first.
   int alignment = 0;
};

/// What emitters of members share: the member, its owner, and a template with `owner`, `name`, `id`
/// and `doc` set.
class MemberEmitter {
public:
   MemberEmitter(Type const& owner, Member const& member)
         : owner_(owner), member_(member), names_(owner.nameSpace) {}

   MemberCode run() const;

private:
   // EmitAttribute.cpp
   MemberCode attribute() const;
   MemberCode constant() const;
   MemberCode derived() const;
   MemberCode operation() const;
   std::string streamedArgument() const;
   void range(MemberCode& code) const;
   // EmitChild.cpp
   MemberCode child() const;
   MemberCode children() const;
   std::string childFactory() const;
   std::string updateExisting() const;
   // EmitCollection.cpp
   MemberCode map() const;
   MemberCode queue() const;
   std::string mapType() const;

   /// Fills in `text`, of which only the keys that it mentions are needed.
   std::string fill(std::string_view text,
                    std::initializer_list<std::pair<char const*, std::string>> keys = {}) const;
   /// The member's documentation and its facts: id, default, range.
   std::string doc(std::string const& facts) const;
   /// "Kiv::FieldDescriptor::streamed | ...", or "0".
   std::string flags() const;
   Type const& type() const { return *member_.type.type; }
   Type const& keyType() const { return *member_.key.type; }
   /// A key or element as a parameter: as others, but a text as a string.
   std::string elementParam(Type const& type) const;

   Type const& owner_;
   Member const& member_;
   CppNames names_;
};

/// How far the layout of a stored value is known: 8, 4, 2 or 1 bytes.
int alignmentOf(Type const& type);

}  // namespace Kivc
