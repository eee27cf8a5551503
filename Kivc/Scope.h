// Which type a name means, seen from one place of one module.
#pragma once

#include <string>
#include <vector>

#include "Kivc/Diagnostics.h"
#include "Kivc/Model.h"

namespace Kivc {

class Scope {
public:
   /// Sees the built-in types, `module`'s own and those of the modules that it uses directly.
   explicit Scope(Module const& module);

   /// The type that `name` means inside `nameSpace`: the name is tried in the namespace itself,
   /// then in each enclosing one; with a leading `::` only as it stands. Null if there is none.
   Type const* lookUp(std::string const& name, std::string const& nameSpace) const;

   /// Resolves `ref`, or reports an unknown type with the nearest known name.
   void resolve(TypeRef& ref, std::string const& nameSpace, Diagnostics& diagnostics) const;

   /// Names by which types could be meant from inside `nameSpace`, for suggestions.
   std::vector<std::string> knownNames(std::string const& nameSpace) const;

private:
   Type const* exact(std::string const& qualifiedName) const;
   /// The type of that name in a module that is reached but not used directly.
   Type const* hidden(std::string const& name, std::string const& nameSpace) const;

   Module const& module_;
};

/// "A::B::C" to "A::B"; a name without qualification gives the empty string.
std::string qualifierOf(std::string const& name);
/// "A::B::C" to "C".
std::string lastPartOf(std::string const& name);
/// The namespaces in which a name is looked up, innermost first: "A::B", "A", "".
std::vector<std::string> enclosingNamespaces(std::string nameSpace);

}  // namespace Kivc
