// A live state as rows, and rows as a live state.
#pragma once

#include "Kiv/Entity.h"
#include "tools/statedb/Rows.h"

namespace Statedb {

/// Whether a member is kept: it can be set and is streamed. What is computed, or given at
/// construction, is not.
bool isKept(Kiv::FieldDescriptor const& field);

/// The path of an attribute below an entity, of a child or an element: "intfConfig[Ethernet1]".
std::string pathBelow(std::string const& entity, char const* attribute,
                      std::string const& key = {});

/// From the root, which is not part of it; empty for the root. REQUIRES: it is below `root`.
std::string pathWithin(Kiv::NamedEntity const& root, Kiv::Entity const& entity);

/// Appends one member of an entity at `path`: its value, all elements, all children. `key`: only
/// that element or child; null for all.
void appendMember(std::vector<RowChange>& out, S64 root, Kiv::Entity const& entity,
                  std::string const& path, Kiv::FieldDescriptor const& field,
                  void const* key = nullptr);

/// All rows of a root.
RootRows rowsOf(Kiv::NamedEntity const& root);

/// Brings a new root to the state that the rows have, through its setters. What it cannot use is
/// appended to `rejected`.
void restore(Kiv::NamedEntity& root, RootRows const& rows, std::vector<RejectedRow>& rejected);

}  // namespace Statedb
