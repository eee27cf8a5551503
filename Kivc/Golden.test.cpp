// Compares what the compiler writes with checked-in files. KIVC_UPDATE=1 rewrites those.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "Kivc/Driver.h"

namespace Kivc {
namespace {

namespace fs = std::filesystem;

fs::path testdata() {
   return fs::path(PTPLIB_SOURCE_DIR) / "Kivc/testdata";
}

std::string contentOf(fs::path const& path) {
   std::ifstream stream(path, std::ios::binary);
   return {std::istreambuf_iterator<char>(stream), {}};
}

bool isUpdating() {
   char const* update = std::getenv("KIVC_UPDATE");  // NOLINT(concurrency-mt-unsafe): one thread
   return update != nullptr && std::string(update) == "1";
}

void expectGolden(fs::path const& golden, std::string const& text) {
   if (isUpdating()) {
      std::ofstream(golden, std::ios::binary) << text;
   }
   ASSERT_TRUE(fs::exists(golden)) << golden << " is missing; KIVC_UPDATE=1 writes it";
   EXPECT_EQ(contentOf(golden), text);
}

std::vector<std::string> stems(fs::path const& directory, std::string const& extension) {
   std::vector<std::string> result;
   for (auto const& entry : fs::directory_iterator(directory)) {
      if (entry.path().extension() == extension) {
         result.push_back(entry.path().stem().string());
      }
   }
   std::sort(result.begin(), result.end());
   return result;
}

/// Runs in the directory of the declarations, since messages print the path as given.
class ErrorGolden : public testing::TestWithParam<std::string> {
protected:
   void SetUp() override {
      before_ = fs::current_path();
      fs::current_path(testdata() / "errors");
   }
   void TearDown() override { fs::current_path(before_); }

private:
   fs::path before_;
};

TEST_P(ErrorGolden, PrintsItsMistakesAndWritesNothing) {
   auto const out = fs::path(testing::TempDir()) / ("kivc_" + GetParam());
   fs::remove_all(out);
   Options options;
   options.input = GetParam() + ".kiv";
   options.roots = {"."};
   options.out = out.string();
   options.manifest = (out / "ids.txt").string();
   options.depfile = (out / "stamp.d").string();
   std::ostringstream errors;
   EXPECT_EQ(run(options, errors), 1);
   EXPECT_FALSE(fs::exists(out));
   expectGolden(GetParam() + ".txt", errors.str());
}

INSTANTIATE_TEST_SUITE_P(Mistakes, ErrorGolden,
                         testing::ValuesIn(stems(testdata() / "errors", ".kiv")),
                         [](auto const& mistake) { return mistake.param; });

TEST(ErrorGoldens, EachHasItsDeclarations) {
   EXPECT_EQ(stems(testdata() / "errors", ".txt"), stems(testdata() / "errors", ".kiv"));
   EXPECT_GE(stems(testdata() / "errors", ".kiv").size(), 50U);
}

/// Files below a directory, by their relative paths.
std::vector<std::string> filesBelow(fs::path const& directory) {
   std::vector<std::string> result;
   for (auto const& entry : fs::recursive_directory_iterator(directory)) {
      if (entry.is_regular_file()) {
         result.push_back(fs::relative(entry.path(), directory).generic_string());
      }
   }
   std::sort(result.begin(), result.end());
   return result;
}

void generateSample(fs::path const& out) {
   fs::remove_all(out);
   auto const good = testdata() / "good";
   Options options;
   options.roots = {good.string()};
   options.input = (good / "Sample.kiv").string();
   options.out = out.string();
   options.manifest = (out / "Sample.ids").string();
   options.reference = (out / "Sample.md").string();
   std::ostringstream errors;
   EXPECT_EQ(run(options, errors), 0);
   EXPECT_EQ(errors.str(), "");
}

TEST(OutputGolden, SampleIsWrittenAsExpected) {
   auto const out = fs::path(testing::TempDir()) / "kivc_sample";
   generateSample(out);
   auto const expected = testdata() / "good" / "expected";
   auto names = filesBelow(out);
   for (auto& name : names) {
      fs::create_directories((expected / name).parent_path());
      expectGolden(expected / (name + ".txt"), contentOf(out / name));
      name += ".txt";
   }
   EXPECT_EQ(filesBelow(expected), names);
}

TEST(OutputGolden, TwoRunsAreAlikeToTheByte) {
   auto const first = fs::path(testing::TempDir()) / "kivc_first";
   auto const second = fs::path(testing::TempDir()) / "kivc_second";
   generateSample(first);
   generateSample(second);
   EXPECT_EQ(filesBelow(first), filesBelow(second));
   for (auto const& name : filesBelow(first)) {
      EXPECT_EQ(contentOf(first / name), contentOf(second / name)) << name;
   }
}

TEST(OutputGolden, LinesFitThePage) {
   auto const out = fs::path(testing::TempDir()) / "kivc_width";
   generateSample(out);
   for (auto const& name : filesBelow(out)) {
      if (name.ends_with(".h") || name.ends_with(".cpp")) {
         std::istringstream lines(contentOf(out / name));
         for (std::string line; std::getline(lines, line);) {
            EXPECT_LE(line.size(), 100U) << name << ": " << line;
            EXPECT_FALSE(line.ends_with(' ')) << name << ": " << line;
         }
      }
   }
}

}  // namespace
}  // namespace Kivc
