// Compares the table of leaves with the documentation and, with the files of the model, with the
// model itself. PTPLIB_YANG_DIR is the directory of openconfig-ptp.yang and what it imports;
// without it, or without yanglint (Debian's libyang2-tools), these tests are skipped.
//
// OPENCONFIG_UPDATE=1 rewrites the tables of docs/openconfig.md.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>

#include "Holt/Openconfig/Conversions.h"
#include "Holt/Openconfig/Roots.test.h"
#include "Holt/Openconfig/Schema.h"
#include "Holt/Openconfig/Write.h"
#include "Holt/State/Walk.h"

namespace Holt {
namespace {

using namespace OpenconfigTesting;
using OpenconfigRows::Leaf;
using OpenconfigRows::leaves;

std::string const sources = PTPLIB_SOURCE_DIR;
std::string const ownYang = sources + "/Holt/Openconfig/ptplib-openconfig-ptp.yang";

std::string textOfFile(std::string const& path) {
   std::ostringstream text;
   text << std::ifstream(path).rdbuf();
   return text.str();
}

std::vector<std::string> linesOfText(std::string const& text) {
   std::vector<std::string> lines;
   std::istringstream in(text);
   for (std::string line; std::getline(in, line);) {
      lines.push_back(line);
   }
   return lines;
}

// ---- The documentation ----

bool isOfClock(Leaf const& leaf) {
   return leaf.path.starts_with(std::string(OpenconfigRows::clockPath) + "/");
}

std::string entityName(bool ofClock) {
   return ofClock ? "TransparentClockDefaultDS" : "Instance";
}

/// "`priority1` | ...": each leaf, with what it is filled from.
std::string leafTable() {
   std::string table = "| leaf | filled from |\n|---|---|\n";
   for (Leaf const& leaf : leaves()) {
      std::string from;
      if (leaf.conversion == nullptr) {
         from = "nothing: " + std::string(leaf.attribute);
      } else {
         from = "`" + entityName(isOfClock(leaf)) + "." + std::string(leaf.attribute) + "`";
         if (!leaf.onlyIf.empty()) {
            from += ", if `" + std::string(leaf.onlyIf) + "` is true";
         }
         if (!leaf.own.empty()) {
            from += "; else, or beside it, `" + std::string(leaf.own) + "`";
         }
      }
      table += "| `" + std::string(leaf.path) + "` | " + from + " |\n";
   }
   return table;
}

void attributesBelow(Kiv::TypeImpl const& type, std::string const& path,
                     std::vector<std::string>& all) {
   Kiv::forEachField(type, [&](Kiv::FieldDescriptor const& field) {
      if (type.entity != nullptr && !isInState(field)) {
         return;
      }
      std::string const here = path.empty() ? field.name : path + "." + field.name;
      if (field.kind == Kiv::MemberKind::child || field.type->kind == Kiv::TypeKind::value) {
         attributesBelow(*field.type, here, all);
      } else {
         all.push_back(here);
      }
   });
}

/// Each attribute of our entities, with the leaves that it goes to.
std::string attributeTable() {
   std::string table = "| attribute | leaves |\n|---|---|\n";
   for (bool const ofClock : {false, true}) {
      std::vector<std::string> all{"name"};  // which is not a member of the state
      attributesBelow(ofClock ? TransparentClockDefaultDS::kivTypeImpl : Instance::kivTypeImpl, "",
                      all);
      for (std::string const& attribute : all) {
         std::string to;
         for (Leaf const& leaf : leaves()) {
            if (leaf.conversion != nullptr && isOfClock(leaf) == ofClock &&
                leaf.attribute == attribute) {
               to += (to.empty() ? "`" : ", `") + std::string(leaf.path) + "`";
            }
         }
         table += "| `" + entityName(ofClock) + "." + attribute + "` | " +
                  (to.empty() ? "none: the model knows no names of roots" : to) + " |\n";
      }
   }
   return table;
}

/// The text between two comments of the page, which `OPENCONFIG_UPDATE` replaces.
void expectInPage(std::string const& name, std::string const& table) {
   std::string const page = sources + "/docs/openconfig.md";
   std::string const text = textOfFile(page);
   std::string const begin = "<!-- " + name + " -->\n";
   std::string const end = "<!-- end of " + name + " -->\n";
   std::size_t const from = text.find(begin);
   std::size_t const to = text.find(end);
   ASSERT_NE(from, text.npos) << page << ": " << begin;
   ASSERT_NE(to, text.npos) << page << ": " << end;
   std::size_t const first = from + begin.size();
   if (std::getenv("OPENCONFIG_UPDATE") != nullptr) {
      std::ofstream(page) << text.substr(0, first) << table << text.substr(to);
      return;
   }
   EXPECT_EQ(text.substr(first, to - first), table);
}

TEST(OpenconfigModel, ThePageSaysWhatEachLeafIsFilledFrom) {
   expectInPage("leaves", leafTable());
}

TEST(OpenconfigModel, ThePageSaysWhereEachAttributeGoes) {
   expectInPage("attributes", attributeTable());
}

TEST(OpenconfigModel, EachAttributeButTheNamesHasALeaf) {
   std::vector<std::string> without;
   for (std::string const& line : linesOfText(attributeTable())) {
      if (line.find("| none: ") != line.npos) {
         without.push_back(line.substr(2, line.find(" |", 2) - 2));
      }
   }
   EXPECT_THAT(without,
               testing::ElementsAre("`Instance.name`", "`TransparentClockDefaultDS.name`"));
}

// ---- Our module ----

/// The identities of our module with a base, by name: the number in the description.
std::map<std::string, int> identitiesOf(std::string const& base) {
   std::map<std::string, int> found;
   std::string const text = textOfFile(ownYang);
   std::regex const identity(
         R"(identity (\w+) \{\s+base oc-ptp-types:(\w+);\s+description\s+"\w+ ([0-9A-F]+)( hex)?: )");
   for (std::sregex_iterator at(text.begin(), text.end(), identity), end; at != end; ++at) {
      if ((*at)[2] == base) {
         found[(*at)[1]] = std::stoi((*at)[3], nullptr, (*at)[4].matched ? 16 : 10);
      }
   }
   return found;
}

std::map<std::string, int> mapOf(std::span<OpenconfigRows::Identity const> identities) {
   std::map<std::string, int> map;
   for (OpenconfigRows::Identity const& identity : identities) {
      map[std::string(identity.name)] = identity.number;
   }
   return map;
}

TEST(OpenconfigModel, OurModuleHasTheIdentitiesThatWeWrite) {
   EXPECT_EQ(identitiesOf("CLOCK_CLASS"), mapOf(OpenconfigRows::clockClasses()));
   EXPECT_EQ(identitiesOf("CLOCK_ACCURACY"), mapOf(OpenconfigRows::clockAccuracies()));
   EXPECT_THAT(
         identitiesOf("TIME_SOURCE"),
         testing::ElementsAre(
               testing::Pair("ATOMIC_CLOCK", 0x10), testing::Pair("GNSS", 0x20),
               testing::Pair("HAND_SET", 0x60), testing::Pair("INTERNAL_OSCILLATOR", 0xa0),
               testing::Pair("NTP", 0x50), testing::Pair("OTHER", 0x90), testing::Pair("PTP", 0x40),
               testing::Pair("SERIAL_TIME_CODE", 0x39), testing::Pair("TERRESTRIAL_RADIO", 0x30)));
}

// ---- The model's files ----

class OpenconfigYang : public testing::Test {
protected:
   void SetUp() override {
      char const* const given = std::getenv("PTPLIB_YANG_DIR");
      if (given == nullptr || *given == '\0') {
         GTEST_SKIP() << "PTPLIB_YANG_DIR does not name the directory of openconfig-ptp.yang";
      }
      directory_ = given;
      ASSERT_TRUE(std::filesystem::exists(directory_ + "/openconfig-ptp.yang")) << directory_;
      if (run("yanglint --version").status != 0) {
         GTEST_SKIP() << "yanglint is not installed";
      }
      std::string pattern = (std::filesystem::temp_directory_path() / "openconfig.XXXXXX").string();
      ASSERT_NE(mkdtemp(pattern.data()), nullptr);
      scratch_ = pattern;
   }
   void TearDown() override {
      if (!scratch_.empty()) {
         std::filesystem::remove_all(scratch_);
      }
   }

   struct Result {
      int status = 0;
      std::string output;
   };

   static Result run(std::string const& command) {
      Result result;
      FILE* const pipe = popen(("timeout 60 " + command + " 2>&1").c_str(), "r");
      std::array<char, 4096> buffer;
      for (std::size_t n = 0; (n = std::fread(buffer.data(), 1, buffer.size(), pipe)) != 0;) {
         result.output.append(buffer.data(), n);
      }
      int const ended = pclose(pipe);
      result.status = WIFEXITED(ended) ? WEXITSTATUS(ended) : -1;
      return result;
   }

   static std::string quoted(std::string const& text) { return "'" + text + "'"; }

   /// yanglint with our module, which brings the model with it.
   Result lint(std::string const& options, std::string const& more) const {
      return run("yanglint " + options + " -p " + quoted(directory_) + " " + quoted(ownYang) + " " +
                 more);
   }

   /// Validates documents, each by itself; yanglint stops at the first that is invalid.
   Result validate(std::vector<Json> const& documents) const {
      std::string files;
      for (Json const& document : documents) {
         std::string const file =
               scratch_ + "/" + std::to_string(&document - documents.data()) + ".json";
         std::ofstream(file) << openconfigText(document);
         files += " " + quoted(file);
      }
      return lint("", files);
   }

   /// The leaves that `yanglint -f tree` prints, with their types, by their paths.
   static std::map<std::string, std::string> leavesOf(std::string const& tree) {
      static std::regex const node(R"(^([ |]*)[+x]--r[wo] (\S+?)[?*]?(?:\s+(.*))?$)");
      static std::regex const augmented(R"(^  augment (\S+):$)");
      static std::regex const prefix("/oc-ptp:");
      std::map<std::string, std::string> found;
      std::vector<std::string> above;
      std::string start;
      for (std::string const& line : linesOfText(tree)) {
         std::smatch match;
         if (std::regex_match(line, match, augmented)) {
            start = std::regex_replace(match[1].str(), prefix, "/").substr(1) + "/";
         } else if (std::regex_match(line, match, node)) {
            auto const depth =
                  static_cast<std::size_t>(match[1].length() - (start.empty() ? 2 : 4)) / 3;
            above.resize(depth);
            above.push_back(match[2]);
            std::string const type = match[3];
            if (!type.empty() && type[0] != '[') {
               std::string path = start;
               for (std::string const& name : above) {
                  path += (path.empty() || path.back() == '/' ? "" : "/") + name;
               }
               found[path.substr(path.find('/') + 1)] = type;
            }
         }
      }
      return found;
   }

   std::string directory_;
   std::string scratch_;
};

TEST_F(OpenconfigYang, TheTableHasAllLeavesOfTheModel) {
   Result const tree = run("yanglint -f tree -p " + quoted(directory_) + " " +
                           quoted(directory_ + "/openconfig-ptp.yang"));
   ASSERT_EQ(tree.status, 0) << tree.output;
   std::map<std::string, std::string> table;
   for (Leaf const& leaf : leaves()) {
      table[std::string(leaf.path)] = leaf.type;
   }
   EXPECT_EQ(leavesOf(tree.output), table);
   EXPECT_EQ(table.size(), leaves().size());
   EXPECT_THAT(textOfFile(directory_ + "/openconfig-ptp.yang"),
               testing::HasSubstr("revision 2024-09-17 {"));
}

TEST_F(OpenconfigYang, OurModuleIsValidAndHasTheLeavesThatWeAdd) {
   Result const tree = lint("-f tree", "");
   ASSERT_EQ(tree.status, 0) << tree.output;
   EXPECT_THAT(tree.output, testing::Not(testing::HasSubstr("arning")));
   std::map<std::string, std::string> table;
   for (Leaf const& leaf : leaves()) {
      if (!leaf.own.empty()) {
         std::string const parent(leaf.path.substr(0, leaf.path.rfind('/') + 1));
         table[parent + std::string(leaf.own)] = leaf.conversion->ownType;
      }
   }
   EXPECT_EQ(leavesOf(tree.output), table);
}

TEST_F(OpenconfigYang, WhatIsWrittenIsValid) {
   std::vector<Json> documents;
   auto const usual = usualInstance();
   documents.push_back(openconfigJson({usual.get()}));
   documents.push_back(openconfigJson({}));
   for (U32 seed = 1; seed != 100; ++seed) {
      RandomRoots random(seed);
      auto const first = random.instance(0);
      auto const second = random.instance(4294967295U);
      auto const clock = random.clock();
      documents.push_back(openconfigJson({first.get(), second.get(), clock.get()}));
   }
   Result const result = validate(documents);
   EXPECT_EQ(result.status, 0) << result.output;
   EXPECT_EQ(result.output, "");
}

TEST_F(OpenconfigYang, EachIdentityAndEachNameIsValid) {
   std::vector<Json> documents;
   auto const instance = usualInstance();
   for (int number = 0; number != 256; ++number) {
      auto const byte = static_cast<U8>(number);
      instance->defaultDs()->clockQualityIs(Openconfig::Ptp::ClockQuality(
            Openconfig::Ptp::ClockQualityState(byte, byte, static_cast<U16>(number))));
      instance->defaultDs()->state()->instanceTypeIs(
            static_cast<Openconfig::Ptp::InstanceType>(number % 4));
      instance->defaultDs()->state()->domainProfileIs(static_cast<Ptp::PtpProfile>(number % 5));
      documents.push_back(openconfigJson({instance.get()}));
   }
   Result const result = validate(documents);
   EXPECT_EQ(result.status, 0) << result.output;
}

TEST_F(OpenconfigYang, WhatTheModelDoesNotAllowIsFound) {
   auto const instance = usualInstance();
   Json const good = openconfigJson({instance.get()});
   auto const refused = [&](std::string const& pointer, Json const& value) {
      Json bad = good;
      bad[Json::json_pointer("/openconfig-ptp:ptp/instances/instance/0" + pointer)] = value;
      return validate({bad}).status != 0;
   };
   EXPECT_EQ(validate({good}).status, 0);
   EXPECT_TRUE(refused("/default-ds/state/priority1", 256));
   EXPECT_TRUE(refused("/default-ds/state/priority3", 1));
   EXPECT_TRUE(refused("/default-ds/clock-quality/state/clock-class",
                       "ptplib-openconfig-ptp:CA_UNKNOWN"));
   EXPECT_TRUE(refused("/current-ds/state/offset-from-master", 65536));
   EXPECT_TRUE(refused("/time-properties-ds/state/current-utc-offset-valid", false));
}

}  // namespace
}  // namespace Holt
