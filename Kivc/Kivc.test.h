// Helpers of the compiler's tests.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "Kivc/Check.h"
#include "Kivc/Diagnostics.h"
#include "Kivc/Model.h"
#include "Kivc/Parser.h"

namespace Kivc::test {

/// A module from text: parsed and checked, without imports.
struct Compiled {
   Diagnostics diagnostics;
   std::unique_ptr<Module> module;

   explicit Compiled(std::string_view declarations, bool isChecked = true)
         : module(parse(std::make_unique<Source>("Demo.kiv",
                                                 "module Demo 0x1f;\n" + std::string(declarations)),
                        diagnostics)) {
      if (isChecked) {
         check(*module, diagnostics);
      }
   }

   Type const& type(std::string_view name) const {
      for (auto const& type : module->types) {
         if (type->name.text == name) {
            return *type;
         }
      }
      throw std::invalid_argument("no type " + std::string(name));
   }
};

}  // namespace Kivc::test
