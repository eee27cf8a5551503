#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <sstream>

#include "Holt/Failure.h"
#include "Holt/Openconfig/Find.h"
#include "Holt/Openconfig/Read.h"
#include "Holt/Openconfig/Write.h"
#include "Holt/State/Dump.h"
#include "Holt/State/Load.h"
#include "PtpLib/PtpOpenConfig/Instance.h"
#include "PtpLib/PtpOpenConfig/TransparentClockDefaultDS.h"

// Arbitrary bytes as a document of the OpenConfig model are refused with an error, or give roots
// that can be written, and read back equal. The first line, if it begins with a slash, is a path to
// look up in what was written.

using namespace Holt;

namespace {

void expect(bool holds, char const* what, std::string const& text) {
   if (!holds) {
      std::fprintf(stderr, "%s: %s\n", what, text.c_str());
      std::abort();
   }
}

std::string dumped(Kiv::Entity const& root) {
   std::ostringstream text;
   Dump(text).entity(root, "root");
   return text.str();
}

/// A new root with what a part of a document says.
Sarn::Ptr<Kiv::NamedEntity> loaded(OpenconfigPart const& part) {
   Sarn::Ptr<Kiv::NamedEntity> root;
   if (part.id) {
      root = Openconfig::Ptp::instanceFactory("root");
   } else {
      root = Openconfig::Ptp::transparentClockDefaultDSFactory("root");
   }
   DocErrors errors;
   loadPlace(root, part.state, errors);
   expect(errors.empty(), "is read, but cannot be applied", errors.empty() ? "" : errors.front());
   return root;
}

std::vector<Sarn::Ptr<Kiv::NamedEntity>> loaded(OpenconfigData const& data) {
   std::vector<Sarn::Ptr<Kiv::NamedEntity>> roots;
   for (OpenconfigPart const& part : data.parts) {
      roots.push_back(loaded(part));
   }
   return roots;
}

Json written(std::vector<Sarn::Ptr<Kiv::NamedEntity>> const& roots) {
   std::vector<Kiv::NamedEntity const*> all;
   for (auto const& root : roots) {
      all.push_back(root.get());
   }
   return openconfigJson(all);
}

void requireComesBack(OpenconfigData const& data) {
   for (OpenconfigPart const& part : data.parts) {
      auto const root = loaded(part);
      std::string const text = openconfigText(written({root}));
      DocErrors errors;
      OpenconfigData const again = readOpenconfig(parseJson(text, "text"), "text", errors);
      expect(errors.empty() && again.notes.empty() && again.parts.size() == 1,
             "what is written cannot be read", text);
      expect(dumped(*loaded(again.parts[0])) == dumped(*root), "reads differently", text);
   }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(U8 const* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(U8 const* data, std::size_t size) {
   std::string text(reinterpret_cast<char const*>(data), size);
   std::string path;
   if (text.starts_with('/')) {
      std::size_t const end = std::min(text.find('\n'), text.size());
      path = text.substr(0, end);
      text.erase(0, end);
   }
   try {
      DocErrors errors;
      OpenconfigData const read = readOpenconfig(parseJson(text, "input"), "input", errors);
      if (errors.empty()) {
         requireComesBack(read);
         openconfigAt(written(loaded(read)), path);
      }
   } catch (Failure const&) {
   }
   return 0;
}
