#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "Kiv/NboAttrLogRecorder.h"
#include "Kiv/Record/Recording.h"

namespace Kiv::NboAttrLog {
namespace {

class RecordFilesTest : public testing::Test {
protected:
   RecordFilesTest() {
      char path[] = "/tmp/record-files-test-XXXXXX";
      directory = ::mkdtemp(path);
   }
   ~RecordFilesTest() override { std::filesystem::remove_all(directory); }

   std::string path(char const* name) const { return directory + "/" + name; }
   void put(char const* name) const { std::ofstream(path(name)) << "x"; }
   /// The names in the directory, sorted.
   std::string names() const {
      std::vector<std::string> all;
      for (auto const& at : std::filesystem::directory_iterator(directory)) {
         all.push_back(at.path().filename().string());
      }
      std::sort(all.begin(), all.end());
      std::string text;
      for (std::string const& name : all) {
         text += name + " ";
      }
      return text;
   }

   std::string directory;
};

TEST_F(RecordFilesTest, AFileThatIsThereIsOverwrittenOnlyWhenThatIsWanted) {
   put("one");
   RecordFiles refused(path("one"));
   EXPECT_EQ(refused.begin(), 0u);
   EXPECT_EQ(refused.reason(), path("one") + ": File exists");
   EXPECT_EQ(std::filesystem::file_size(path("one")), 1u);
   RecordFiles replacing(path("one"), RecordFiles::Existing::replace);
   EXPECT_EQ(replacing.begin(), 1u);
   U8 const bytes[] = {1, 2, 3};
   EXPECT_TRUE(replacing.write(bytes, 3));
   EXPECT_EQ(std::filesystem::file_size(path("one")), 3u);
}

TEST_F(RecordFilesTest, ARingKeepsTheNewestAndGoesOnBehindThem) {
   {
      RecordFiles ring(path("flight"), 3);
      for (U64 i = 1; i != 6; ++i) {
         EXPECT_EQ(ring.begin(), i);
      }
      EXPECT_EQ(ring.current(), path("flight.000005"));
   }
   EXPECT_EQ(names(), "flight.000003 flight.000004 flight.000005 ");
   put("flight");
   put("flight.6");
   put("flight.000001x");
   put("flightless.000009");
   RecordFiles again(path("flight"), 2);
   EXPECT_EQ(again.begin(), 6u);
   EXPECT_EQ(names(),
             "flight flight.000001x flight.000005 flight.000006 flight.6 flightless.000009 ")
         << "what has another name is somebody else's";
}

TEST_F(RecordFilesTest, AFileThatIsBeingWrittenIsLeftAlone) {
   U8 const bytes[] = {1, 2, 3};
   RecordFiles other(path("one"), RecordFiles::Existing::replace);
   {
      RecordFiles writing(path("one"));
      ASSERT_EQ(writing.begin(), 1u);
      ASSERT_TRUE(writing.write(bytes, 3));
      EXPECT_EQ(other.begin(), 0u);
      EXPECT_EQ(other.reason(), path("one") + ": another recorder is writing to it");
      EXPECT_EQ(std::filesystem::file_size(path("one")), 3u);
      ASSERT_TRUE(writing.write(bytes, 3));
   }
   EXPECT_EQ(std::filesystem::file_size(path("one")), 6u);
   EXPECT_EQ(other.begin(), 1u);
   EXPECT_EQ(std::filesystem::file_size(path("one")), 0u);
}

TEST_F(RecordFilesTest, ARingThatIsBeingWrittenIsLeftAlone) {
   RecordFiles writing(path("flight"), 2);
   ASSERT_EQ(writing.begin(), 1u);
   {
      RecordFiles second(path("flight"), 2);
      EXPECT_EQ(second.begin(), 0u);
      EXPECT_EQ(second.reason(), path("flight.000001") + ": another recorder is writing to it");
   }
   ASSERT_EQ(writing.begin(), 2u);
   RecordFiles third(path("flight"), 2);
   EXPECT_EQ(third.begin(), 0u);
   EXPECT_EQ(third.reason(), path("flight.000002") + ": another recorder is writing to it");
   EXPECT_EQ(names(), "flight.000001 flight.000002 ");
}

TEST_F(RecordFilesTest, FindsTheFilesOfARing) {
   put("flight.000009");
   put("flight.000010");
   put("flight.1000000");
   EXPECT_EQ(recordingFiles(path("flight")),
             (std::vector<Sarn::String>{path("flight.000009"), path("flight.000010"),
                                        path("flight.1000000")}));
   EXPECT_EQ(recordingFiles(path("flight.000010")),
             (std::vector<Sarn::String>{path("flight.000010")}));
   EXPECT_TRUE(recordingFiles(path("nothing")).empty());
}

TEST_F(RecordFilesTest, SaysInOneLineThatNoTerminalObeysWhatCannotBeOpened) {
   std::string const name = path("a\x1b[2J\nb/c");
   std::string const message = path("a\\x1b[2J\\nb/c") + ": No such file or directory";
   RecordFiles files(name);
   EXPECT_EQ(files.begin(), 0u);
   EXPECT_EQ(files.reason(), message);
   try {
      RecordingFile const file(name);
      FAIL() << "there is none";
   } catch (Exception const& error) {
      EXPECT_EQ(error.what(), message);
   }
}

TEST_F(RecordFilesTest, SaysWhatCannotBeWritten) {
   RecordFiles nowhere(path("no/such/file"));
   EXPECT_EQ(nowhere.begin(), 0u);
   EXPECT_EQ(nowhere.reason(), path("no/such/file") + ": No such file or directory");
   RecordFiles full("/dev/full", RecordFiles::Existing::replace);
   ASSERT_EQ(full.begin(), 1u);
   U8 const byte = 0;
   EXPECT_FALSE(full.write(&byte, 1));
   EXPECT_EQ(full.reason(), "/dev/full: No space left on device");
   EXPECT_THROW(RecordingFile{path("nothing")}, Exception);
   EXPECT_THROW(RecordingFile{directory}, Exception);
}

}  // namespace
}  // namespace Kiv::NboAttrLog
