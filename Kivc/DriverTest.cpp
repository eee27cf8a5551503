#include "Kivc/Driver.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

namespace kivc {
namespace {

namespace fs = std::filesystem;

class Driver : public testing::Test {
protected:
   void SetUp() override {
      auto const* info = testing::UnitTest::GetInstance()->current_test_info();
      root_ = fs::path(testing::TempDir()) / (std::string("kivc_driver_") + info->name());
      fs::remove_all(root_);
      fs::create_directories(root_);
   }
   void TearDown() override { fs::remove_all(root_); }

   std::string path(std::string const& name) const { return (root_ / name).string(); }

   void write(std::string const& name, std::string const& text) const {
      fs::create_directories((root_ / name).parent_path());
      std::ofstream(path(name), std::ios::binary) << text;
   }
   std::string read(std::string const& name) const {
      std::ifstream stream(path(name), std::ios::binary);
      return {std::istreambuf_iterator<char>(stream), {}};
   }

   Options compileDemo() const {
      write("Lib/Demo.kiv",
            "module Demo 0x1f;\nuse Other;\nnamespace D;\n\n/// Doc.\nentity Port {\n"
            "   /// Doc.\n   attr mode : O::Mode;\n}\n");
      write("Base/Other.kiv",
            "module Other 0x2;\nnamespace O;\n\n/// Doc.\nenum Mode {\n   /// Doc.\n   on;\n"
            "   default on;\n}\n");
      Options options;
      options.input = path("Lib/Demo.kiv");
      options.roots = {root_.string()};
      return options;
   }

   /// Runs and expects success.
   void succeed(Options const& options) const {
      std::ostringstream errors;
      EXPECT_EQ(run(options, errors), 0);
      EXPECT_EQ(errors.str(), "");
   }

private:
   fs::path root_;
};

TEST_F(Driver, FindsUsedModulesOneDirectoryBelowTheRoots) {
   auto options = compileDemo();
   options.manifest = path("out/ids.txt");
   succeed(options);
   EXPECT_EQ(read("out/ids.txt"), "Demo D::Port mode 258 attr 0xdc00\n");
}

TEST_F(Driver, LeavesFilesWithTheRightContentAlone) {
   auto options = compileDemo();
   options.manifest = path("ids.txt");
   options.reference = path("Demo.md");
   succeed(options);
   auto const old = fs::file_time_type::clock::now() - std::chrono::hours(1);
   fs::last_write_time(path("ids.txt"), old);
   write("Demo.md", "something else");
   succeed(options);
   EXPECT_EQ(fs::last_write_time(path("ids.txt")), old);
   EXPECT_NE(read("Demo.md"), "something else");
}

TEST_F(Driver, OutputDoesNotNameTheMachinesDirectories) {
   auto options = compileDemo();
   options.manifest = path("gen/ids.txt");
   options.reference = path("gen/Demo.md");
   options.out = path("gen");
   succeed(options);
   std::size_t files = 0;
   for (auto const& entry : fs::recursive_directory_iterator(path("gen"))) {
      if (entry.is_regular_file()) {
         ++files;
         auto const text = read(fs::relative(entry.path(), path("")).string());
         EXPECT_EQ(text.find(path("")), std::string::npos) << entry.path();
         EXPECT_NE(entry.path().extension(), ".tmp");
      }
   }
   EXPECT_GE(files, 2U);
}

TEST_F(Driver, DepfileListsEveryFileRead) {
   auto options = compileDemo();
   options.depfile = path("demo.stamp.d");
   succeed(options);
   EXPECT_EQ(read("demo.stamp.d"), path("demo.stamp") + ": \\\n  " + path("Lib/Demo.kiv") +
                                         " \\\n  " + path("Base/Other.kiv") + "\n");
}

TEST_F(Driver, MissingInputIsAnError) {
   Options options;
   options.input = path("None.kiv");
   std::ostringstream errors;
   EXPECT_EQ(run(options, errors), 1);
   EXPECT_EQ(errors.str(), "error: cannot read '" + path("None.kiv") + "'\n");
}

TEST_F(Driver, OutputThatCannotBeWrittenIsAnError) {
   auto options = compileDemo();
   write("file", "in the way");
   options.manifest = path("file/ids.txt");
   std::ostringstream errors;
   EXPECT_EQ(run(options, errors), 1);
   EXPECT_EQ(errors.str(), "error: cannot write '" + path("file/ids.txt") + "'\n");
}

}  // namespace
}  // namespace kivc
