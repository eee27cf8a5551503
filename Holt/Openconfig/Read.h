// Reads data of the model openconfig-ptp, JSON as RFC 7951 defines it, as what `loadPlace` applies
// to entities of the module `PtpOpenConfig`.
#pragma once

#include <optional>

#include "Holt/State/Doc.h"

namespace Holt {

/// What a document says about one root.
struct OpenconfigPart {
   /// Of an instance; nothing for the transparent clock.
   std::optional<U32> id;
   /// Where it is in the document, as in a message.
   Sarn::String at;
   /// The root's type and state. The document knows no names of roots: set `path.root.name` and
   /// `text` to the one that it is for. Members that the document leaves out stay as they are.
   DocPlace state;
};

struct OpenconfigData {
   std::vector<OpenconfigPart> parts;
   /// Leaves for which the entities have no attribute, and members of other modules; printable:
   /// "PATH: why".
   std::vector<Sarn::String> notes;
};

/// Reads a document. Whatever cannot be read is left out and added to `errors`: members that the
/// model does not have, with the name that may have been meant, and values that it does not allow,
/// with the bounds. Apply nothing if there are any. Throws `Failure`, which names `source`, if it
/// is not such a document at all.
OpenconfigData readOpenconfig(Json const& json, std::string const& source, DocErrors& errors);

}  // namespace Holt
