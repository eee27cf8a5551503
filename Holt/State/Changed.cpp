#include "Holt/State/Changed.h"

#include <algorithm>
#include <unordered_map>

#include "Kiv/Printable.h"
#include "Kiv/Specimen.h"
#include "Kiv/Visit.h"

namespace Holt {

using Kiv::FieldDescriptor;
using Kiv::MemberKind;
using Kiv::TypeImpl;

namespace {

class Keeper {
public:
   void keep(DocEntity& doc) {
      std::erase_if(doc.members, [&](DocMember& member) { return isDefault(*doc.type, member); });
   }
   void keep(DocMember& member) {
      for (DocElement& element : member.elements) {
         if (element.child != nullptr) {
            keep(*element.child);
         }
      }
   }

private:
   bool isDefault(TypeImpl const& type, DocMember& member) {
      FieldDescriptor const& field = *member.field;
      if (field.kind != MemberKind::single) {
         keep(member);
         return field.kind == MemberKind::child ? isDefaultChild(type, member)
                                                : member.elements.empty() && member.next == 1;
      }
      if (type.isCtorArg(field.fieldId)) {
         return false;
      }
      return field.ops->write == nullptr ||
             valueText(*member.value) == valueText(Kiv::Present(specimen(type), field).value());
   }

   /// Whether a new entity has the same singleton child, or none either.
   bool isDefaultChild(TypeImpl const& type, DocMember const& member) {
      Kiv::Entity const* const made = Kiv::Present(specimen(type), *member.field).child();
      if (made == nullptr || member.elements.empty()) {
         return made == nullptr && member.elements.empty();
      }
      DocEntity const& child = *member.elements.front().child;
      return child.members.empty() &&
             (!member.field->has(FieldDescriptor::named) || child.name == *entityName(*made));
   }

   Kiv::Entity const& specimen(TypeImpl const& type) {
      Sarn::Ptr<Kiv::Entity>& made = specimens_[&type];
      if (made == nullptr) {
         made = specimenOf(type);
      }
      return *made;
   }

   std::unordered_map<TypeImpl const*, Sarn::Ptr<Kiv::Entity>> specimens_;
};

}  // namespace

void keepChanged(StateDoc& doc) {
   Keeper keeper;
   for (DocPlace& place : doc.places) {
      if (place.entity != nullptr) {
         keeper.keep(*place.entity);
      } else if (place.member != nullptr) {
         keeper.keep(*place.member);
      }
   }
}

void writeLines(std::ostream& out, std::vector<StateLine> const& lines) {
   for (auto at = lines.begin(); at != lines.end();) {
      if (at->isEntity) {
         out << Kiv::printable(at->path) << " : " << at->text << '\n';
         ++at;
         continue;
      }
      auto const end = std::find_if(at, lines.end(), [](StateLine const& l) { return l.isEntity; });
      std::size_t width = 0;
      for (auto each = at; each != end; ++each) {
         width = std::max(width, Kiv::printable(each->path).size());
      }
      for (; at != end; ++at) {
         Sarn::String const path = Kiv::printable(at->path);
         out << path << Sarn::String(width - path.size(), ' ') << " = " << Kiv::printable(at->text)
             << '\n';
      }
   }
}

}  // namespace Holt
