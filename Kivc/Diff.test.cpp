// `kivc diff`: what it calls compatible, what it prints, and its exit status.
#include "Kivc/Diff.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "Kivc/DiffRun.h"
#include "Kivc/Kivc.test.h"

namespace Kivc {
namespace {

namespace fs = std::filesystem;

/// The differences between the members of an entity, one a line.
std::string between(std::string const& before, std::string const& after) {
   auto const entity = [](std::string const& members) {
      return "/// E.\nentity E {\n" + members + "}\n/// V.\nvalue V { /// F.\n field f : U8; }\n";
   };
   test::Compiled const old(entity(before));
   test::Compiled const now(entity(after));
   EXPECT_EQ(old.diagnostics.render() + now.diagnostics.render(), "");
   std::string all;
   for (auto const& one : differences(*old.module, *now.module)) {
      all += (all.empty() ? "" : "; ") + std::string(name(one.effect)) + ": " + one.what +
             (one.text.empty() ? "" : ": ") + one.text;
   }
   return all;
}

std::string const a = "/// A.\nattr a : U8;\n";
std::string const b = "/// B.\nattr b : U16;\n";
std::string const c = "/// C.\nattr c : V;\n";

TEST(Diff, OfTheSameIsEmpty) {
   EXPECT_EQ(between(a + b + c, a + b + c), "");
}

TEST(Diff, CallsWhatIsAddedAtTheEndCompatible) {
   EXPECT_EQ(between(a, a + b), "compatible: E.b: added at the end with id 259");
   EXPECT_EQ(between(a + "reserved 2;\n" + c, a + "reserved 1;\n" + b + c),
             "compatible: E.b: added in a reserved place with id 260");
}

TEST(Diff, CallsWhatIsMovedOrRenamedIncompatible) {
   EXPECT_EQ(between(a + b, b + a),
             "incompatible: E.a: id 258 is now 259; incompatible: E.b: id 259 is now 258");
   EXPECT_EQ(between(a + b, a + c), "incompatible: E.b: id 259 is now c");
   EXPECT_EQ(between(a + b, b),
             "incompatible: E.a: id 258 is now b; "
             "incompatible: E.b: id 259 is now 258");
   EXPECT_EQ(between(a + b, a + "reserved 1;\n"), "incompatible: E.b: removed");
   EXPECT_EQ(between(a + b, a), "incompatible: E.b: removed");
}

TEST(Diff, TellsWiderRangesFromNarrowerOnes) {
   auto const ranged = [](std::string const& type, std::string const& range) {
      return "/// A.\nattr a : " + type + range + ";\n";
   };
   EXPECT_EQ(between(ranged("U8", " in 1 .. 9"), ranged("U8", " in 0 .. 9")),
             "compatible: E.a: range 1 to 9 is now 0 to 9");
   EXPECT_EQ(between(ranged("U8", " in 1 .. 9"), ranged("U8", " in 1 .. 8")),
             "incompatible: E.a: range 1 to 9 is now 1 to 8");
   EXPECT_EQ(between(ranged("U8", " in 1 .. 9"), ranged("U8", "")),
             "compatible: E.a: range 1 to 9 is now nothing");
   EXPECT_EQ(between(ranged("U8", ""), ranged("U8", " in 1 .. ")),
             "incompatible: E.a: range nothing is now 1 and above");
   EXPECT_EQ(between(ranged("double", " in -0.5 .. 1.5"), ranged("double", " in -0.75 .. 1.5")),
             "compatible: E.a: range -0.5 to 1.5 is now -0.75 to 1.5");
   EXPECT_EQ(between(ranged("double", " in -0.5 .. 1.5"), ranged("double", " in -0.25 .. 2.5")),
             "incompatible: E.a: range -0.5 to 1.5 is now -0.25 to 2.5");
   EXPECT_EQ(between(ranged("U8", ""), ranged("U8", " in 0 .. ")),
             "compatible: E.a: range nothing is now 0 and above");
   EXPECT_EQ(between(ranged("S64", ""), ranged("S64", " in -9223372036854775807 .. ")),
             "incompatible: E.a: range nothing is now -9223372036854775807 and above");
   EXPECT_EQ(between(ranged("U8", " in 0x10 .. 32"), ranged("U8", " in 16 .. 0x20")), "");
}

TEST(Diff, CallsOtherTypesKeysAndKindsIncompatible) {
   EXPECT_EQ(between(a, "/// A.\nattr a : U16;\n"), "incompatible: E.a: U8 is now U16");
   EXPECT_EQ(between(a, "/// A.\noptional a : U8;\n"), "incompatible: E.a: attr is now optional");
   EXPECT_EQ(
         between("/// M.\nmap m : U8 by U8 hash 0x1;\n", "/// M.\nmap m : U8 by U16 hash 0x1;\n"),
         "incompatible: E.m: U8 by U8 is now U8 by U16");
   EXPECT_EQ(between(a, "/// A.\nconst a : U8;\n"),
             "incompatible: E: made from () is now (a: U8); incompatible: E.a: attr is now const");
}

TEST(Diff, CallsOtherDefaultsCompatible) {
   EXPECT_EQ(between(a, "/// A.\nattr a : U8 = 7;\n"), "compatible: E.a: default 0 is now 7");
}

TEST(Diff, TellsDocumentationFromDeclarations) {
   EXPECT_EQ(between(a, "/// Another.\nattr a : U8;\n"), "documentation: E.a");
   EXPECT_EQ(between("// A comment.\n" + a, a + "\n\n"), "");
}

class DiffRun : public testing::Test {
protected:
   void SetUp() override {
      auto const* info = testing::UnitTest::GetInstance()->current_test_info();
      root_ = fs::path(testing::TempDir()) / (std::string("kivc_diff_") + info->name());
      fs::remove_all(root_);
   }
   void TearDown() override { fs::remove_all(root_); }

   std::string write(std::string const& name, std::string const& text) const {
      auto const path = root_ / name;
      fs::create_directories(path.parent_path());
      std::ofstream(path, std::ios::binary) << text;
      return path.string();
   }
   std::string path(std::string const& name) const { return (root_ / name).string(); }
   static std::string module(std::string const& hash, std::string const& members) {
      return "module Demo " + hash + ";\n/// E.\nentity E {\n" + members + "}\n";
   }

   /// Compares; returns "STATUS output errors".
   std::string run(std::string const& before, std::string const& after) const {
      std::ostringstream out;
      std::ostringstream errors;
      auto const status = diff({before, after, {}}, out, errors);
      return std::to_string(static_cast<int>(status)) + "\n" + out.str() + errors.str();
   }
   std::string run(std::string const& oldText, std::string const& newText, int) const {
      return run(write("old/Demo.kiv", oldText), write("new/Demo.kiv", newText));
   }

private:
   fs::path root_;
};

TEST_F(DiffRun, SucceedsSilentlyIfNothingDiffers) {
   EXPECT_EQ(run(module("0x1", a), module("0x1", a), 0), "0\n");
}

TEST_F(DiffRun, SucceedsForCompatibleChangesWithAnotherHash) {
   EXPECT_EQ(run(module("0x1", a), module("0x2", a + b), 0),
             "0\nmodule Demo: hash 0x1 is now 0x2\n"
             "   compatible: E.b: added at the end with id 259\n");
}

TEST_F(DiffRun, DemandsAnotherHashForMoreThanDocumentation) {
   EXPECT_EQ(run(module("0x1", a), module("0x1", a + b), 0),
             "4\nmodule Demo: hash 0x1\n"
             "   compatible: E.b: added at the end with id 259\n"
             "   hash: must change, since more than the documentation has changed\n");
}

TEST_F(DiffRun, NeedsNoOtherHashForDocumentation) {
   EXPECT_EQ(run(module("0x1", a), module("0x1", "/// Better.\nattr a : U8;\n"), 0),
             "0\nmodule Demo: hash 0x1\n   documentation: E.a\n");
   EXPECT_EQ(run(module("0x1", a), module("0x2", a), 0),
             "0\nmodule Demo: hash 0x1 is now 0x2\n"
             "   hash: need not change, since nothing but the documentation has\n");
}

TEST_F(DiffRun, ReportsIncompatibleChangesFirst) {
   EXPECT_EQ(run(module("0x1", a + b), module("0x1", b), 0),
             "3\nmodule Demo: hash 0x1\n"
             "   incompatible: E.a: id 258 is now b\n"
             "   incompatible: E.b: id 259 is now 258\n"
             "   hash: must change, since more than the documentation has changed\n");
}

TEST_F(DiffRun, ComparesAllModulesOfTwoDirectories) {
   write("old/A/Demo.kiv", module("0x1", a));
   write("old/Gone.kiv", "module Gone 0x3;\n/// E.\nentity G {}\n");
   write("new/B/Demo.kiv", module("0x1", a));
   write("new/B/Fresh.kiv", "module Fresh 0x4;\nuse Demo;\n/// E.\nentity F {}\n");
   EXPECT_EQ(run(path("old"), path("new")),
             "3\nmodule Fresh: hash 0x4\n   compatible: the module: added\n"
             "module Gone: hash 0x3\n   incompatible: the module: removed\n");
}

TEST_F(DiffRun, RefusesWhatCannotBeCompared) {
   auto const demo = write("old/Demo.kiv", module("0x1", a));
   write("old/Other.kiv", "module Other 0x1;\n");
   EXPECT_EQ(run(demo, path("old")),
             "2\nkivc: compare two files or two directories; see 'kivc diff --help'\n");
   EXPECT_EQ(run(demo, path("old/Other.kiv")),
             "2\nkivc: the files declare different modules, 'Demo' and 'Other'; see 'kivc diff "
             "--help'\n");
   EXPECT_EQ(run(demo, path("none.kiv")), "1\nerror: cannot read '" + path("none.kiv") + "'\n");
   EXPECT_EQ(run(demo, write("bad/Demo.kiv", "module Demo 0x1;\nentity {")).substr(0, 2), "1\n");
}

TEST_F(DiffRun, PrintsEachKindOfDifference) {
   auto const data = fs::path(PTPLIB_SOURCE_DIR) / "Kivc/testdata/diff";
   auto const said = run((data / "old/Board.kiv").string(), (data / "new/Board.kiv").string());
   char const* update = std::getenv("KIVC_UPDATE");  // NOLINT(concurrency-mt-unsafe): one thread
   if (update != nullptr && std::string(update) == "1") {
      std::ofstream(data / "Board.txt", std::ios::binary) << said;
   }
   std::ifstream stream(data / "Board.txt", std::ios::binary);
   EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stream), {}), said);
}

TEST_F(DiffRun, OfThisProjectWithItselfIsEmpty) {
   EXPECT_EQ(run(PTPLIB_SOURCE_DIR, PTPLIB_SOURCE_DIR), "0\n");
}

}  // namespace
}  // namespace Kivc
