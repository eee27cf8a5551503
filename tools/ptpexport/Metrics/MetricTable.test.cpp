#include "tools/ptpexport/Metrics/MetricTable.h"

#include <gmock/gmock.h>

#include <map>
#include <regex>
#include <set>

#include "Brim/Generation.h"
#include "Dorn/NetU16.h"
#include "Kiv/Visit.h"
#include "PtpLib/PtpStatusStatedbTypes/Status.h"
#include "tools/ptpexport/Metrics/Scrape.h"

namespace Ptpexport::MetricsTest {
namespace {

using Kiv::FieldDescriptor;
using Kiv::MemberKind;
using Kiv::TypeKind;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

/// Adds "Type.attribute", or "Type.attribute.field" for each field of a value.
void addLeaves(std::string const& path, FieldDescriptor const& field, std::set<std::string>& to) {
   bool const record = field.kind == MemberKind::single && field.type->kind == TypeKind::value;
   if (!record) {
      to.insert(path);
   }
   if (record) {
      Kiv::forEachPart(*field.type, [&](FieldDescriptor const& part) {
         addLeaves(path + "." + part.name, part, to);
      });
   }
}

/// All that a status streams, apart from keys, which become labels, and child entities.
std::set<std::string> streamed() {
   std::set<std::string> all;
   for (Kiv::TypeImpl const* const type : typesBelow(Kiv::typeOf<Ptp::Status>())) {
      forEachField(*type, [&](FieldDescriptor const& field) {
         if (field.has(FieldDescriptor::streamed) && !field.has(FieldDescriptor::key) &&
             field.kind != MemberKind::child && field.kind != MemberKind::children) {
            addLeaves(std::string(type->name) + "." + field.name, field, all);
         }
      });
   }
   return all;
}

/// What the table says of each member.
std::multiset<std::string> named(std::span<MetricFamily const> families,
                                 std::span<LeftOut const> leftOut) {
   std::multiset<std::string> all;
   for (MetricFamily const& family : families) {
      if (family.kind == MetricKind::info) {
         for (MetricLabel const& label : family.labels) {
            all.insert(std::string(family.type) + "." + label.member);
         }
      } else {
         all.insert(std::string(family.type) + "." + family.member);
      }
   }
   for (LeftOut const& one : leftOut) {
      all.insert(std::string(one.type) + "." + one.member);
   }
   return all;
}

std::vector<std::string> notNamed(std::span<MetricFamily const> families,
                                  std::span<LeftOut const> leftOut) {
   std::multiset<std::string> const table = named(families, leftOut);
   std::vector<std::string> missing;
   for (std::string const& path : streamed()) {
      if (!table.contains(path)) {
         missing.push_back(path);
      }
   }
   return missing;
}

TEST(MetricTable, EveryStreamedAttributeIsExportedOrLeftOutWithAReason) {
   EXPECT_THAT(notNamed(metricFamilies(), leftOutOfMetrics()), IsEmpty());
   EXPECT_GT(streamed().size(), 120u);
   for (LeftOut const& one : leftOutOfMetrics()) {
      EXPECT_GT(std::string_view(one.reason).size(), 10u) << one.type << "." << one.member;
   }
}

TEST(MetricTable, AnAttributeThatIsForgottenIsFound) {
   std::vector<MetricFamily> fewer(metricFamilies().begin(), metricFamilies().end());
   std::erase_if(fewer, [](MetricFamily const& family) {
      return family.name == std::string("ptp_oscillator_class") ||
             family.name == std::string("ptp_port_state");
   });
   EXPECT_THAT(notNamed(fewer, leftOutOfMetrics()),
               ElementsAre("Ptp::PortDS.portState", "Ptp::Status.localClockQuality.clockClass"));
   EXPECT_THAT(notNamed(metricFamilies(), leftOutOfMetrics().subspan(1)),
               ElementsAre("Ptp::Status.tcTimestampMask"));
}

TEST(MetricTable, NothingIsNamedTwice) {
   std::multiset<std::string> const table = named(metricFamilies(), leftOutOfMetrics());
   std::set<std::string> const once(table.begin(), table.end());
   EXPECT_EQ(table.size(), once.size());
}

TEST(MetricTable, WhatIsNamedExistsAndIsStreamed) {
   std::set<std::string> known = streamed();
   known.insert("Ptp::IntfStatus.foreignMasterDS");  // child entities, which are counted
   for (std::string const& path : named(metricFamilies(), leftOutOfMetrics())) {
      // A generation has no fields in the type's data.
      EXPECT_TRUE(known.contains(path)) << path;
   }
   EXPECT_NO_THROW(boundFamilies());
   EXPECT_EQ(boundFamilies().size(), metricFamilies().size());
}

TEST(MetricTable, NamesAreUniqueAndThoseOfPrometheus) {
   std::regex const name("ptp_[a-z0-9]+(_[a-z0-9]+)*");
   std::regex const label("[a-z][a-z0-9]*(_[a-z0-9]+)*");
   std::set<std::string> names;
   std::vector<MetricFamily> all(healthFamilies().begin(), healthFamilies().end());
   all.insert(all.end(), metricFamilies().begin(), metricFamilies().end());
   for (MetricFamily const& family : all) {
      SCOPED_TRACE(family.name);
      EXPECT_TRUE(std::regex_match(family.name, name));
      EXPECT_TRUE(names.insert(sampleName(family)).second);
      if (family.kind != MetricKind::info) {
         // In OpenMetrics, it must not be a sample of another family.
         EXPECT_FALSE(std::string_view(family.name).ends_with("_info"));
      }
      for (char const* const suffix : {"_total", "_created", "_count", "_sum", "_bucket"}) {
         EXPECT_FALSE(std::string_view(family.name).ends_with(suffix)) << suffix;
      }
      for (MetricLabel const& one : family.labels) {
         EXPECT_TRUE(std::regex_match(one.name, label)) << one.name;
         EXPECT_NE(std::string_view(one.name), "clock");
      }
      std::string_view const help = family.help;
      EXPECT_TRUE(help.ends_with('.'));
      EXPECT_EQ(help.find_first_of("\\\"\n|"), help.npos) << "it would have to be escaped";
   }
}

TEST(MetricTable, LabelsOfPortsAreNotThoseOfTheirKeys) {
   for (BoundFamily const& family : boundFamilies()) {
      if (family.place->toCollection != 0) {
         for (MetricLabel const& label : family.family->labels) {
            EXPECT_NE(std::string_view(label.name), "interface") << family.sampleName;
            EXPECT_NE(std::string_view(label.name), "vlan") << family.sampleName;
         }
      }
   }
}

/// Types of values are the same if their names are: each library has data of its own about them.
template <class T>
bool is(Kiv::TypeImpl const& type) {
   return std::string_view(type.name) == Kiv::typeOf<T>().name;
}

bool isWhole(Kiv::TypeImpl const& type) {
   return type.kind == TypeKind::unsignedNumber || type.kind == TypeKind::signedNumber ||
          is<Dorn::NetU16>(type);
}

TEST(MetricTable, TypesAgree) {
   for (BoundFamily const& family : boundFamilies()) {
      MetricFamily const& row = *family.family;
      SCOPED_TRACE(row.name);
      for (MemberPath const& path : family.members) {
         bool const single = row.kind != MetricKind::flags && row.kind != MetricKind::size;
         EXPECT_EQ(path.front()->kind == MemberKind::single, single);
      }
      FieldDescriptor const& member = *family.members.front().back();
      Kiv::TypeImpl const& type = *member.type;
      bool const floating = type.kind == TypeKind::floating;
      switch (row.kind) {
         case MetricKind::gauge:
            EXPECT_TRUE(isWhole(type) || floating || type.kind == TypeKind::boolean);
            break;
         case MetricKind::counter:
            EXPECT_TRUE(type.kind == TypeKind::unsignedNumber || is<Brim::Generation>(type));
            break;
         case MetricKind::info:
            EXPECT_FALSE(row.labels.empty());
            break;
         case MetricKind::states:
            EXPECT_EQ(type.kind, TypeKind::enumeration);
            EXPECT_EQ(row.labels.size(), 1u);
            break;
         case MetricKind::flags:
            EXPECT_EQ(member.keyType->kind, TypeKind::enumeration);
            EXPECT_EQ(type.kind, TypeKind::boolean);
            EXPECT_EQ(row.labels.size(), 1u);
            break;
         case MetricKind::size:
            EXPECT_NE(member.ops->collection, nullptr);
            break;
      }
      if (member.has(FieldDescriptor::seconds) && row.kind != MetricKind::size) {
         EXPECT_EQ(unitOf(row), "seconds");
      }
      if (row.scale != Scale::one) {
         EXPECT_EQ(row.kind, MetricKind::gauge);
         EXPECT_EQ(unitOf(row), row.scale == Scale::scaledRate ? "ratio" : "seconds");
      }
      EXPECT_TRUE(row.scale == Scale::one || isWhole(type) ||
                  (row.scale == Scale::nanoseconds && floating));
      EXPECT_EQ(type.kind == TypeKind::signedNumber && type.size <= 2,
                row.scale == Scale::logSeconds)
            << "all logarithms are of this type";
      if (family.clearedAt != nullptr) {
         EXPECT_TRUE(is<double>(*family.clearedAt->type));
      }
   }
}

TEST(MetricTable, FamiliesOfATypeAreAdjacent) {
   std::set<std::string> done;
   std::string current;
   for (MetricFamily const& family : metricFamilies()) {
      if (family.type != current) {
         EXPECT_TRUE(done.insert(family.type).second) << family.name;
         current = family.type;
      }
   }
}

}  // namespace
}  // namespace Ptpexport::MetricsTest
