#include "tools/ptpstate/fleet/SwitchRoots.h"

#include "Holt/Failure.h"
#include "Kiv/Printable.h"

namespace Ptpstate {

using namespace Holt;

std::vector<OfferedRoot> SwitchRoots::roots() {
   std::vector<OfferedRoot> roots;
   if (Fleet::Switch const* const its = session_->mirror().find(name_)) {
      for (Kiv::NamedEntity const* const root : its->roots()) {
         roots.push_back({root->kivType().name, root->nameString()});
      }
   }
   return roots;
}

Sarn::Ptr<Kiv::NamedEntity> SwitchRoots::mirror(OfferedRoot const& root) {
   Fleet::Switch const* const its = session_->mirror().find(name_);
   Sarn::Ptr<Kiv::NamedEntity> found;
   if (its != nullptr) {
      found = its->root(root.name);
   }
   if (found == nullptr) {
      throw Failure(name_ + " has no root " + root.name);
   }
   mirrors_[root.name] = found;
   return found;
}

Sarn::String SwitchRoots::trouble() const {
   Fleet::Switch const* const its = session_->mirror().find(name_);
   std::string const trouble = troubleOf(its);
   if (trouble.empty()) {
      for (auto const& [name, root] : mirrors_) {
         if (its->root(name) != root) {
            return "the switch has withdrawn " + Kiv::printable(name);
         }
      }
   }
   return trouble.empty() ? trouble : "not current " + trouble;
}

}  // namespace Ptpstate
