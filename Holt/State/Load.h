// A document applied to a live state: only what differs, through the setters.
#pragma once

#include "Holt/State/Doc.h"

namespace Holt {

/// Brings an entity, of the document's type, to the document's state. Members that the document
/// leaves out stay as they are; of a collection that it has, what it does not name is removed. A
/// child whose constant arguments differ is replaced. What is computed is not loaded. What a setter
/// refuses is left as it is and told in `errors`.
void loadEntity(Kiv::Entity& entity, DocEntity const& doc, Sarn::String const& path,
                DocErrors& errors);

/// The same for what stands at a place below `root`; a child that is not there is created.
void loadPlace(Sarn::Ptr<Kiv::Entity> const& root, DocPlace const& doc, DocErrors& errors);

/// An entity of the same type and name, on its own, with the same state.
Sarn::Ptr<Kiv::NamedEntity> copyOfRoot(Kiv::NamedEntity const& root);

}  // namespace Holt
