#include "tools/ptpstate/types/Catalog.h"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>

#include "Holt/State/Values.h"
#include "KivTest/TestTypes/Stem.h"

namespace Ptpstate {

using namespace Holt;

namespace {

std::string rangeOf(std::string_view type, std::string_view name) {
   for (MemberInfo const& member : membersOf(*Kiv::typeByName(type))) {
      if (member.field->name == name) {
         return member.field->bounds != nullptr ? valueText(member.field->least()) + ".." +
                                                        valueText(member.field->greatest())
                                                : "";
      }
   }
   return "no such member";
}

TEST(TypeCatalog, FindsTheBoundsOfEverySetter) {
   EXPECT_EQ(rangeOf("KivTest::Stem", "dial"), "10..20");
   EXPECT_EQ(rangeOf("KivTest::Stem", "tick"), "-3..32767");
   EXPECT_EQ(rangeOf("KivTest::Stem", "knob"), "-2..2");
   for (char const* const free : {"u8", "s8", "u64", "s64", "ratio", "precise", "mark", "text"}) {
      EXPECT_EQ(rangeOf("KivTest::Stem", free), "") << free;
   }
}

/// "kind : type" of a member.
std::string declared(std::string_view type, std::string_view name) {
   for (MemberInfo const& member : membersOf(*Kiv::typeByName(type))) {
      if (member.field->name == name) {
         return std::string(member.kind) + " : " + member.type;
      }
   }
   return "no such member";
}

TEST(TypeCatalog, KnowsAKeyFromAConstantThatIsGivenWithIt) {
   EXPECT_EQ(declared("Ptp::HwIntfStatus", "intf"), "key : Dorn::IntfId");
   EXPECT_EQ(declared("Ptp::HwIntfStatus", "linuxTsOptions"), "constant : Ptp::LinuxTsOptions");
   EXPECT_EQ(declared("KivTest::Leaf", "number"), "key : U32");
   EXPECT_EQ(declared("KivTest::Leaf", "origin"), "constant : KivTest::Opaque");
   EXPECT_EQ(declared("Ptp::VlanStatus", "trunkAllowed"), "attribute : bool");
}

TEST(TypeCatalog, CallsATimeWhatItWasDeclared) {
   EXPECT_EQ(declared("Ptp::CurrentDS", "lastSyncSystemTime"), "attribute : Kiv::Seconds");
   EXPECT_EQ(declared("Ptp::CurrentDS", "skew"), "attribute : double");
   EXPECT_EQ(declared("Ptp::RegionBoundaryIntfConfig", "lockTime"),
             "attribute : Kiv::Optional<Kiv::Seconds>");
   EXPECT_EQ(declared("Ptp::DebugCounter::CounterClearList", "clearTime"),
             "map : Kiv::Seconds by Kiv::String");
}

TEST(TypeCatalog, TellsWhatAFreshObjectHas) {
   for (MemberInfo const& member : membersOf(*Kiv::typeByName("KivTest::Stem"))) {
      std::string const name = member.field->name;
      if (name == "dial") {
         EXPECT_EQ(valueText(*member.initial), "15");
      } else if (name == "secret" || name == "total") {
         EXPECT_EQ(valueText(*member.initial), "0");
      } else if (name == "leaf" || name == "reset") {
         EXPECT_EQ(member.initial, nullptr);
      }
   }
}

/// "default | range" by "type member", as the reference pages have them.
std::map<std::string, std::pair<std::string, std::string>> reference(std::string const& module) {
   std::map<std::string, std::pair<std::string, std::string>> rows;
   std::ifstream page(std::string(PTPLIB_SOURCE_DIR) + "/docs/reference/" + module + ".md");
   std::regex const head("## (.*)");
   std::regex const row(
         R"(\| \d+ \| `(\w+)` \| attribute[^|]*\| ([^|]*) \| ([^|]*) \| ([^|]*)\|.*)");
   std::string type;
   std::smatch match;
   for (std::string line; std::getline(page, line);) {
      if (std::regex_match(line, match, head)) {
         type = match[1];
      } else if (std::regex_match(line, match, row)) {
         rows[type + " " + match[1].str()] = {match[3], match[4]};
      }
   }
   return rows;
}

TEST(TypeCatalog, FindsARangeExactlyWhereTheDeclarationHasOne) {
   int ranges = 0;
   for (auto const& [name, row] : reference("PtpStatusStatedbTypes")) {
      std::size_t const blank = name.find(' ');
      std::string const declared = std::regex_replace(row.second, std::regex(" +$"), "");
      std::string const found = rangeOf(name.substr(0, blank), name.substr(blank + 1));
      // "-7 to 17", "2 and above"
      std::string const bounds = std::regex_replace(declared, std::regex(" to "), "..");
      std::string const above = " and above";
      if (bounds.ends_with(above)) {
         EXPECT_TRUE(found.starts_with(bounds.substr(0, bounds.size() - above.size()) + ".."))
               << name << ": " << declared << ", found " << found;
      } else {
         EXPECT_EQ(found, bounds) << name;
      }
      ranges += found.empty() ? 0 : 1;
   }
   EXPECT_EQ(ranges, 15);
}

}  // namespace
}  // namespace Ptpstate
