// The model openconfig-ptp, from the entities of the module `PtpOpenConfig`:
//
//     /ptp/instances/instance[id=0]/current-ds/state/offset-from-master
//
// Which leaf is filled from which attribute is in the table of `Holt/Openconfig/Rows.h`.
#pragma once

#include <memory>

#include "tools/ptpgnmi/Model.h"

namespace Ptpgnmi {

class OpenconfigModel final : public Model {
public:
   OpenconfigModel();
   ~OpenconfigModel() override;

   std::string const& origin() const override;
   OfferedModel offered() const override;
   Elems root(Kiv::NamedEntity const& root) const override;
   std::optional<Elems> member(Kiv::Entity const& owner, Kiv::FieldDescriptor const& field,
                               Kiv::ValueRef key) const override;
   void leaves(Kiv::Entity const& owner, Kiv::FieldDescriptor const& field, Kiv::ValueRef value,
               Leaf const& leaf) const override;
   bool varies(Kiv::FieldDescriptor const& field) const override;
   Kiv::FieldDescriptor const* dependent(Kiv::Entity const& owner,
                                         Kiv::FieldDescriptor const& field) const override;
   std::string objection(Elems const& path,
                         std::vector<Kiv::NamedEntity const*> const& roots) const override;
   bool isConfig(Elems const& leaf) const override;
   std::string qualified(std::string const& name, bool top) const override;

private:
   struct Member;
   struct Tables;

   Member const* find(Kiv::Entity const& owner, Kiv::FieldDescriptor const& field) const;

   std::unique_ptr<Tables> tables_;
};

}  // namespace Ptpgnmi
