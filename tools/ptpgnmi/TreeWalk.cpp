#include "tools/ptpgnmi/EachMember.h"
#include "tools/ptpgnmi/Tree.h"

namespace Ptpgnmi {

using Kiv::Entity;
using Kiv::FieldDescriptor;

/// Walks what a pattern leads to in the live state.
class Tree::Walker {
public:
   Walker(Model const& model, Pattern const& pattern, Visit const& visit)
         : model_(model), pattern_(pattern), visit_(visit) {}

   void root(Kiv::NamedEntity const& root) {
      at({pattern_.start(), unnamed}, model_.root(root), [&](At const& here) {
         if (!path_.empty()) {
            entity(root, here);
         }
      });
   }

private:
   static constexpr std::size_t unnamed = ~std::size_t{0};
   struct At {
      Pattern::State state;
      /// How many elements lead to the place that the pattern names, if one of them does.
      std::size_t named;
   };

   template <class Act>
   void at(At here, Elems const& elems, Act&& act) {
      std::size_t const before = path_.size();
      for (std::size_t i = 0; here.state != 0; ++i) {
         if (here.named == unnamed && pattern_.fits(here.state)) {
            here.named = path_.size();
         }
         if (i == elems.size()) {
            act(here);
            break;
         }
         here.state = pattern_.step(here.state, elems[i]);
         path_.push_back(elems[i]);
      }
      path_.resize(before);
   }
   void entity(Entity const& entity, At const& here) {
      forEachMember(
            entity,
            [&](FieldDescriptor const& field, Kiv::ValueRef key, Kiv::ValueRef value) {
               if (auto const elems = model_.member(entity, field, key)) {
                  at(here, *elems, [&](At const& member) {
                     model_.leaves(entity, field, value, [&](Elems const& below, Value const& v) {
                        at(member, below, [&](At const& leaf) {
                           if (leaf.named != unnamed) {
                              visit_(path_, leaf.named, v);
                           }
                        });
                     });
                  });
               }
            },
            [&](FieldDescriptor const& field, Kiv::ValueRef key, Entity const& child) {
               if (auto const elems = model_.member(entity, field, key)) {
                  at(here, *elems, [&](At const& below) { this->entity(child, below); });
               }
            });
   }

   Model const& model_;
   Pattern const& pattern_;
   Visit const& visit_;
   Elems path_;
};

void Tree::walk(Pattern const& pattern, Visit const& visit) const {
   for (auto const& root : roots_) {
      Walker(model_, pattern, visit).root(*root);
   }
}

}  // namespace Ptpgnmi
