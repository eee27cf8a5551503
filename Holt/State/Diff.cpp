#include "Holt/State/Diff.h"

#include <unordered_map>

namespace Holt {

using Kiv::FieldDescriptor;
using Kiv::MemberKind;

namespace {

class Lines {
public:
   explicit Lines(std::vector<StateLine>& lines) : lines_(lines) {}

   void entity(DocEntity const& entity, Sarn::String const& path) {
      lines_.push_back({path, entity.type->name, true, entity.type, nullptr});
      for (bool const below : {false, true}) {  // values before entities, as in a dump
         for (DocMember const& each : entity.members) {
            if (below == isEntities(each)) {
               member(each, path + "." + each.field->name);
            }
         }
      }
   }

   void member(DocMember const& member, Sarn::String const& path) {
      FieldDescriptor const& field = *member.field;
      if (member.value != nullptr) {
         value(*member.value, path);
         return;
      }
      U32 sequence = member.next - static_cast<U32>(member.elements.size());
      for (DocElement const& element : member.elements) {
         Sarn::String const key = field.kind == MemberKind::child ? ""
                                  : element.key == nullptr ? "[" + std::to_string(sequence++) + "]"
                                                           : "[" + valueText(*element.key) + "]";
         if (element.child != nullptr) {
            entity(*element.child, path + key);
         } else {
            value(*element.value, path + key);
         }
      }
      if (field.kind == MemberKind::queue && member.next != 1) {
         lines_.push_back({path, "next " + std::to_string(member.next), false, nullptr, nullptr});
      }
   }

   void value(Kiv::AnyValue const& value, Sarn::String const& path) {
      lines_.push_back({path, valueText(value), false, &value.type(), value.get()});
   }

private:
   static bool isEntities(DocMember const& member) {
      return member.field->kind == MemberKind::child || member.field->kind == MemberKind::children;
   }

   std::vector<StateLine>& lines_;
};

}  // namespace

std::vector<StateLine> linesOf(StateDoc const& doc) {
   std::vector<StateLine> all;
   Lines lines(all);
   for (DocPlace const& place : doc.places) {
      if (place.entity != nullptr) {
         lines.entity(*place.entity, place.text);
      } else if (place.member != nullptr) {
         lines.member(*place.member, place.text);
      } else {
         lines.value(*place.value, place.text);
      }
   }
   return all;
}

U64 compareLines(std::vector<StateLine> const& first, std::vector<StateLine> const& second,
                 std::function<void(StateLine const* first, StateLine const* second)> const& tell) {
   std::unordered_map<std::string_view, StateLine const*> firstByPath;
   std::unordered_map<std::string_view, StateLine const*> secondByPath;
   for (StateLine const& line : first) {
      firstByPath[line.path] = &line;
   }
   for (StateLine const& line : second) {
      secondByPath[line.path] = &line;
   }
   U64 count = 0;
   auto right = second.begin();
   auto const onlySecondUpTo = [&](StateLine const* end) {
      for (; right != second.end() && &*right != end; ++right) {
         if (!firstByPath.contains(right->path)) {
            tell(nullptr, &*right);
            ++count;
         }
      }
   };
   for (StateLine const& left : first) {
      auto const found = secondByPath.find(left.path);
      if (found == secondByPath.end()) {
         tell(&left, nullptr);
         ++count;
         continue;
      }
      if (found->second >= second.data() + (right - second.begin())) {
         onlySecondUpTo(found->second);
      }
      if (left.text != found->second->text) {
         tell(&left, found->second);
         ++count;
      }
   }
   onlySecondUpTo(nullptr);
   return count;
}

}  // namespace Holt
