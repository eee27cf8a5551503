#include "Kivc/Scope.h"

#include <algorithm>

namespace Kivc {

namespace {

std::string join(std::string const& nameSpace, std::string const& name) {
   return nameSpace.empty() ? name : nameSpace + "::" + name;
}

Type const* findIn(Module const& module, std::string const& qualifiedName) {
   auto const found = std::find_if(module.types.begin(), module.types.end(), [&](auto const& type) {
      return type->qualifiedName() == qualifiedName;
   });
   return found == module.types.end() ? nullptr : found->get();
}

Type const* findBelow(Module const& module, std::string const& qualifiedName) {
   for (auto const* import : module.imports) {
      auto const* type = findIn(*import, qualifiedName);
      if (type == nullptr) {
         type = findBelow(*import, qualifiedName);
      }
      if (type != nullptr) {
         return type;
      }
   }
   return nullptr;
}

}  // namespace

std::string qualifierOf(std::string const& name) {
   auto const split = name.rfind("::");
   return split == std::string::npos ? std::string() : name.substr(0, split);
}

std::string lastPartOf(std::string const& name) {
   auto const split = name.rfind("::");
   return split == std::string::npos ? name : name.substr(split + 2);
}

std::vector<std::string> enclosingNamespaces(std::string nameSpace) {
   std::vector<std::string> result;
   while (!nameSpace.empty()) {
      result.push_back(nameSpace);
      nameSpace = qualifierOf(nameSpace);
   }
   result.emplace_back();
   return result;
}

Scope::Scope(Module const& module) : module_(module) {}

Type const* Scope::exact(std::string const& qualifiedName) const {
   if (auto const* own = findIn(module_, qualifiedName)) {
      return own;
   }
   for (auto const* import : module_.imports) {
      if (auto const* type = findIn(*import, qualifiedName)) {
         return type;
      }
   }
   return nullptr;
}

Type const* Scope::lookUp(std::string const& name, std::string const& nameSpace) const {
   if (name.starts_with("::")) {
      return exact(name.substr(2));
   }
   for (auto const& enclosing : enclosingNamespaces(nameSpace)) {
      if (auto const* type = exact(join(enclosing, name))) {
         return type;
      }
   }
   return builtinType(name);
}

Type const* Scope::hidden(std::string const& name, std::string const& nameSpace) const {
   for (auto const& enclosing : enclosingNamespaces(nameSpace)) {
      if (auto const* type = findBelow(module_, join(enclosing, name))) {
         return type;
      }
   }
   return nullptr;
}

std::vector<std::string> Scope::knownNames(std::string const& nameSpace) const {
   auto names = builtinTypeNames();
   auto const enclosing = enclosingNamespaces(nameSpace);
   auto const addAll = [&](Module const& module) {
      for (auto const& type : module.types) {
         // Inside its own namespace a type is called by its last name.
         bool const isNear =
               std::find(enclosing.begin(), enclosing.end(), type->nameSpace) != enclosing.end();
         names.push_back(isNear ? type->name.text : type->qualifiedName());
      }
   };
   addAll(module_);
   for (auto const* import : module_.imports) {
      addAll(*import);
   }
   return names;
}

void Scope::resolve(TypeRef& ref, std::string const& nameSpace, Diagnostics& diagnostics) const {
   if (!ref || ref.type != nullptr) {
      return;
   }
   auto const& name = ref.name.text;
   ref.type = lookUp(name, nameSpace);
   if (ref.type != nullptr) {
      if (ref.type->kind == TypeKind::constants) {
         diagnostics.error(ref.name.span, "'" + name +
                                                "' holds constants and is not a type of "
                                                "values or entities");
         ref.type = nullptr;
      }
      return;
   }
   if (auto const* type = hidden(name, nameSpace)) {
      diagnostics.error(ref.name.span, "type '" + name + "' is in module '" +
                                             type->module->name.text +
                                             "', which this module does not use");
      return;
   }
   auto const hint = suggestion(name, knownNames(nameSpace));
   diagnostics.error(ref.name.span, "unknown type '" + name + "'" +
                                          (hint.empty() ? "; expected a built-in type, a type of "
                                                          "this module or of one that it uses"
                                                        : hint));
}

}  // namespace Kivc
