// The state as it is declared, of whatever types:
//
//     /tree[name=ptp/status]/portDS[key=Ethernet1]/portState
//     /tree[name=ptp/status]/parentDS/grandmasterClockQuality/clockClass
//
// An element of a collection has its key as in a path of ptpstate, an element of a queue its
// number. A value with fields is a container; a value that is absent has no leaf.
#pragma once

#include "tools/ptpgnmi/Model.h"

namespace Ptpgnmi {

class OwnModel final : public Model {
public:
   std::string const& origin() const override;
   OfferedModel offered() const override;
   Elems root(Kiv::NamedEntity const& root) const override;
   std::optional<Elems> member(Kiv::Entity const& owner, Kiv::FieldDescriptor const& field,
                               Kiv::ValueRef key) const override;
   void leaves(Kiv::Entity const& owner, Kiv::FieldDescriptor const& field, Kiv::ValueRef value,
               Leaf const& leaf) const override;
   bool varies(Kiv::FieldDescriptor const& field) const override;
   std::string objection(Elems const& path,
                         std::vector<Kiv::NamedEntity const*> const& roots) const override;
};

/// Calls `leaf` for each leaf of a value of any type, as `OwnModel` has them.
void leavesOf(Kiv::ValueRef value, Model::Leaf const& leaf);

}  // namespace Ptpgnmi
