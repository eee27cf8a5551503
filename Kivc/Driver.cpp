#include "Kivc/Driver.h"

#include <exception>

#include "Kiv/Printable.h"
#include "Kivc/Check.h"
#include "Kivc/EmitEntity.h"
#include "Kivc/EmitEnum.h"
#include "Kivc/EmitManifest.h"
#include "Kivc/EmitRecord.h"
#include "Kivc/EmitReference.h"
#include "Kivc/EmitValue.h"
#include "Kivc/Layout.h"
#include "Kivc/Loader.h"
#include "Kivc/Output.h"

namespace Kivc {

namespace {

/// A path as make and ninja read it.
std::string escaped(std::string const& path) {
   std::string out;
   for (char const c : path) {
      if (c == ' ' || c == '#') {
         out += '\\';
      }
      out += c == '$' ? "$$" : std::string(1, c);
   }
   return out;
}

std::string dependencies(std::string const& depfile, std::vector<std::string> const& files) {
   auto target = depfile;
   if (target.ends_with(".d")) {
      target.resize(target.size() - 2);
   }
   auto out = escaped(target) + ":";
   for (auto const& file : files) {
      out += " \\\n  " + escaped(file);
   }
   return out + "\n";
}

/// The module's C++: two files a type (an enumeration has a header only), one header for all, the
/// record, and the parts that include the types' sources. Returns the headers, one a line.
std::string addCpp(Module const& module, Options const& options, Output& output) {
   std::string headers;
   auto const add = [&](std::string const& suffix, std::string const& text) {
      auto const path = module.outputPath() + suffix;
      output.add(options.out + "/" + path, fitToPage(text));
      if (path.ends_with(".h")) {
         headers += path + "\n";
      }
   };
   for (auto const& type : module.types) {
      if (type->origin != Origin::declared) {
         continue;
      }
      auto const file = "/" + type->name.text;
      if (type->kind == TypeKind::enumeration) {
         add(file + ".h", emitEnumHeader(*type));
      } else if (type->kind == TypeKind::value) {
         add(file + ".h", emitValueHeader(*type));
         add(file + ".cpp", emitValueSource(*type));
      } else {
         add(file + ".h", emitEntityHeader(*type));
         add(file + ".cpp", emitEntitySource(*type));
      }
   }
   add(".h", emitUmbrella(module));
   add("Record.h", emitRecordHeader(module));
   add("Record.cpp", emitRecordSource(module));
   for (std::size_t part = 0; part < options.parts; ++part) {
      add("Part" + std::to_string(part + 1) + ".cpp", emitPart(module, part, options.parts));
   }
   return headers;
}

}  // namespace

int run(Options const& options, std::ostream& errors) {
   Diagnostics diagnostics;
   Loader loader(options.roots, diagnostics);
   auto const* main = loader.load(options.input);
   for (auto const& module : loader.modules()) {
      check(*module, diagnostics);
   }
   if (main != nullptr && diagnostics.empty()) {
      checkRecordLimits(*main, diagnostics);
   }
   if (main == nullptr || !diagnostics.empty()) {
      errors << diagnostics.render();
      return 1;
   }
   Output output;
   if (!options.out.empty()) {
      auto const headers = addCpp(*main, options, output);
      if (!options.headers.empty()) {
         output.add(options.headers, headers);
      }
   }
   if (!options.manifest.empty()) {
      output.add(options.manifest, emitManifest(*main));
   }
   if (!options.reference.empty()) {
      output.add(options.reference, emitReference(*main));
   }
   if (!options.depfile.empty()) {
      output.add(options.depfile, dependencies(options.depfile, loader.files()));
   }
   try {
      output.write();
   } catch (std::exception const& error) {
      errors << "error: " << Kiv::printable(error.what()) << "\n";
      return 1;
   }
   return 0;
}

}  // namespace Kivc
