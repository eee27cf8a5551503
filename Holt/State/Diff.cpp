#include "Holt/State/Diff.h"

#include <nlohmann/json.hpp>
#include <unordered_map>

#include "Holt/State/Walk.h"

namespace Holt {

namespace {

class Lines final : public StateLines<DocEntity> {
public:
   explicit Lines(std::vector<StateLine>& lines) : lines_(lines) {}

   void member(DocMember const& member, Sarn::String const& path) {
      memberAt(path, [&] { walkMember(member, *this); });
   }
   void valueLine(Sarn::String const& path, Kiv::ValueRef value) override {
      lines_.push_back(
            {path, value.type->genericIfStrRep(value.address), false, value.type, value.address});
   }

private:
   void entityLine(Sarn::String const& path, Kiv::TypeImpl const& type) override {
      lines_.push_back({path, type.name, true, &type, nullptr});
   }
   void nextLine(Sarn::String const& path, U32 next) override {
      lines_.push_back({path, "next " + std::to_string(next), false, nullptr, nullptr});
   }

   std::vector<StateLine>& lines_;
};

}  // namespace

Json StateLine::json() const {
   return value != nullptr ? jsonOf({*type, value}) : Json(text);
}

std::vector<StateLine> linesOf(StateDoc const& doc) {
   std::vector<StateLine> all;
   Lines lines(all);
   for (DocPlace const& place : doc.places) {
      if (place.entity != nullptr) {
         lines.entity(*place.entity, place.text);
      } else if (place.member != nullptr) {
         lines.member(*place.member, place.text);
      } else {
         lines.valueLine(place.text, place.value->ref());
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
