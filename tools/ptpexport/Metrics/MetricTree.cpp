#include "tools/ptpexport/Metrics/MetricTree.h"

#include <algorithm>
#include <list>
#include <stdexcept>

#include "Kiv/Visit.h"
#include "PtpLib/PtpStatusStatedbTypes/Status.h"
#include "tools/ptpexport/Metrics/MetricText.h"

namespace Ptpexport {

namespace {

using Kiv::FieldDescriptor;
using Kiv::MemberKind;
using Kiv::TypeImpl;

bool leadsToEntities(FieldDescriptor const& field) {
   return field.kind == MemberKind::child || field.kind == MemberKind::children;
}

[[noreturn]] void fail(MetricFamily const& family, std::string const& what) {
   throw std::logic_error("the metric " + std::string(family.name) + ": " + what);
}

/// Looks for a type below `type`; `path` leads there if it is found.
bool find(TypeImpl const& type, std::string_view name, MemberPath& path) {
   if (type.name == name) {
      return true;
   }
   bool found = false;
   forEachField(type, [&](FieldDescriptor const& field) {
      if (!found && leadsToEntities(field)) {
         path.push_back(&field);
         found = find(*field.type, name, path);
         if (!found) {
            path.pop_back();
         }
      }
   });
   return found;
}

MetricPlace placeOf(MetricFamily const& family) {
   MetricPlace place{};
   if (!find(Kiv::typeOf<Ptp::Status>(), family.type, place.path)) {
      fail(family, "a status has no " + std::string(family.type));
   }
   place.type = place.path.empty() ? &Kiv::typeOf<Ptp::Status>() : place.path.back()->type;
   for (std::size_t i = 0; i != place.path.size(); ++i) {
      if (place.path[i]->kind == MemberKind::children) {
         if (place.toCollection != 0 || place.path[i]->keyType != &Kiv::typeOf<Ptp::PortDSKey>()) {
            fail(family, std::string(family.type) + " is not below one collection of ports");
         }
         place.toCollection = i + 1;
      }
   }
   return place;
}

MemberPath membersOf(MetricFamily const& family, TypeImpl const& type, std::string_view path) {
   MemberPath rows;
   TypeImpl const* in = &type;
   while (true) {
      std::size_t const end = path.find('.');
      FieldDescriptor const* const field = in->field(path.substr(0, end));
      if (field == nullptr) {
         fail(family, std::string(in->name) + " has no member " + std::string(path));
      }
      rows.push_back(field);
      if (end == std::string_view::npos) {
         return rows;
      }
      in = field->type;
      path.remove_prefix(end + 1);
   }
}

BoundFamily bound(MetricFamily const& family, MetricPlace& place) {
   BoundFamily it{&family, &place, sampleName(family), {}, nullptr, 0, {}};
   if (family.kind == MetricKind::info) {
      for (MetricLabel const& label : family.labels) {
         it.members.push_back(membersOf(family, *place.type, label.member));
      }
   } else {
      it.members.push_back(membersOf(family, *place.type, family.member));
   }
   if (family.kind == MetricKind::counter) {
      it.slot = place.counters++;
      if (*family.clearedAt != '\0') {
         it.clearedAt = membersOf(family, *place.type, family.clearedAt).front();
      }
   }
   if (family.kind == MetricKind::states) {
      forEachEnumerator(*it.members.front().back()->type, [&](U8 value, char const* name) {
         std::string label;
         appendLabel(label, family.labels.front().name, name);
         it.states.emplace_back(value, std::move(label));
      });
   }
   return it;
}

}  // namespace

std::vector<BoundFamily> const& boundFamilies() {
   static std::list<MetricPlace> places;
   static std::vector<BoundFamily> const all = [] {
      std::vector<BoundFamily> families;
      for (MetricFamily const& family : metricFamilies()) {
         if (places.empty() || std::string_view(places.back().type->name) != family.type) {
            places.push_back(placeOf(family));
         }
         families.push_back(bound(family, places.back()));
      }
      return families;
   }();
   return all;
}

std::vector<TypeImpl const*> typesBelow(TypeImpl const& type) {
   std::vector<TypeImpl const*> types{&type};
   for (std::size_t i = 0; i != types.size(); ++i) {
      forEachField(*types[i], [&](FieldDescriptor const& field) {
         if (leadsToEntities(field) &&
             std::find(types.begin(), types.end(), field.type) == types.end()) {
            types.push_back(field.type);
         }
      });
   }
   return types;
}

}  // namespace Ptpexport
