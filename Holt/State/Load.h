// Applies a document to a live state: only the differences, and through the setters.
#pragma once

#include "Holt/State/Doc.h"

namespace Holt {

/// Brings an entity of the document's type to the document's state. Members that the document
/// leaves out stay as they are. If the document has a collection, elements that it does not name
/// are removed. A child whose constant arguments differ is replaced. Computed members are not
/// loaded. A value that a setter refuses is skipped and added to `errors`.
void loadEntity(Kiv::Entity& entity, DocEntity const& doc, Sarn::String const& path,
                DocErrors& errors);

/// The same for a place below `root`; a child that does not exist is created.
void loadPlace(Sarn::Ptr<Kiv::Entity> const& root, DocPlace const& doc, DocErrors& errors);

/// An independent copy: a root of the same type and name with the same state.
Sarn::Ptr<Kiv::NamedEntity> copyOfRoot(Kiv::NamedEntity const& root);

}  // namespace Holt
