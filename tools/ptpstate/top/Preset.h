// What `top` knows about types that people look at most: which columns matter first, and columns
// that are computed from more than one attribute.
#pragma once

#include "tools/ptpstate/top/Table.h"

namespace Ptpstate {

/// A column's name as a column of the type: a computed one, an attribute, or a path. Throws
/// `Failure` if there is none.
TopColumn columnOf(Kiv::TypeImpl const& type, Sarn::String const& name);

/// The columns that are shown unless somebody says otherwise: those that matter first of the types
/// that this program knows, else all attributes.
std::vector<TopColumn> firstColumns(Kiv::TypeImpl const& type);

/// All columns that can be chosen: those that matter first, and then the other attributes.
std::vector<TopColumn> choiceOf(Kiv::TypeImpl const& type);

}  // namespace Ptpstate
