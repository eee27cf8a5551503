#include "Holt/Ptp4l/Conf.h"

#include <gtest/gtest.h>

#include <limits>
#include <system_error>

namespace Holt {
namespace {

using Kind = Ptp4lSection::Kind;

std::string errorsOf(Ptp4lConf const& conf) {
   std::string all;
   for (auto const& error : conf.errors) {
      all += remarkText(conf.file, error) + "\n";
   }
   return all;
}

TEST(Ptp4lConf, SettingsKeepTheirLineAndSection) {
   auto const conf = parsePtp4lConf(
         "# a comment\n"
         "[global]\n"
         "priority1\t\t128\n"
         "\n"
         "   clockAccuracy 0xFE  \n"
         "[eth0]\n"
         "network_transport L2\n",
         "a.conf");
   ASSERT_EQ(errorsOf(conf), "");
   ASSERT_EQ(conf.sections.size(), 2u);
   EXPECT_EQ(conf.sections[0].kind, Kind::global);
   EXPECT_EQ(conf.sections[0].line, 2u);
   ASSERT_EQ(conf.sections[0].settings.size(), 2u);
   EXPECT_EQ(conf.sections[0].settings[0].key, "priority1");
   EXPECT_EQ(conf.sections[0].settings[0].value, "128");
   EXPECT_EQ(conf.sections[0].settings[1].value, "0xFE");
   EXPECT_EQ(conf.sections[0].settings[1].line, 5u);
   EXPECT_EQ(conf.sections[1].kind, Kind::port);
   EXPECT_EQ(conf.sections[1].name, "eth0");
}

TEST(Ptp4lConf, ValueKeepsBlanksAndHashesInside) {
   auto const conf = parsePtp4lConf("[global]\nuserDescription a  b # c\n", "a.conf");
   ASSERT_EQ(conf.sections[0].settings.size(), 1u);
   EXPECT_EQ(conf.sections[0].settings[0].value, "a  b # c");
}

TEST(Ptp4lConf, FixedSectionsAreKnownInAnyCaseAndWithBlanks) {
   auto const conf =
         parsePtp4lConf("[GLOBAL]\n[ Unicast_Master_Table ]\n[ eth0 ]\n[Eth0]\n", "a.conf");
   ASSERT_EQ(errorsOf(conf), "");
   ASSERT_EQ(conf.sections.size(), 4u);
   EXPECT_EQ(conf.sections[0].kind, Kind::global);
   EXPECT_EQ(conf.sections[1].kind, Kind::unicastMasterTable);
   EXPECT_EQ(conf.sections[2].name, "eth0");
   EXPECT_EQ(conf.sections[3].name, "Eth0");
}

TEST(Ptp4lConf, LastSettingOfAKeyCounts) {
   auto const conf = parsePtp4lConf("[global]\npriority1 1\npriority1 2\n", "a.conf");
   ASSERT_NE(conf.sections[0].find("priority1"), nullptr);
   EXPECT_EQ(conf.sections[0].find("priority1")->value, "2");
   EXPECT_EQ(conf.sections[0].find("priority2"), nullptr);
}

TEST(Ptp4lConf, EveryLineThatIsNoSettingIsReported) {
   auto const conf = parsePtp4lConf(
         "priority1 3\n"
         "[global\n"
         "[global] x\n"
         "[]\n"
         "[a b]\n"
         "[global]\n"
         "priority2\n",
         "a.conf");
   EXPECT_EQ(errorsOf(conf),
             "a.conf:1: priority1: comes before the first section\n"
             "a.conf:2: the section's header has no ']'\n"
             "a.conf:3: text after the section's header\n"
             "a.conf:4: the section has no name\n"
             "a.conf:5: the section's name contains a blank\n"
             "a.conf:7: priority2: has no value\n");
}

TEST(Ptp4lConf, LinesMayEndInCarriageReturnAndTheLastWithoutNewline) {
   auto const conf = parsePtp4lConf("[global]\r\npriority1 7\r\npriority2 8", "a.conf");
   ASSERT_EQ(errorsOf(conf), "");
   EXPECT_EQ(conf.sections[0].find("priority1")->value, "7");
   EXPECT_EQ(conf.sections[0].find("priority2")->value, "8");
}

TEST(Ptp4lConf, EmptyFileHasNoSections) {
   auto const conf = parsePtp4lConf("", "a.conf");
   EXPECT_TRUE(conf.sections.empty());
   EXPECT_TRUE(conf.errors.empty());
}

TEST(Ptp4lConf, FileThatCannotBeReadIsASystemErrorThatNamesIt) {
   try {
      readPtp4lConf("/nonexistent/ptp4l.conf");
      FAIL() << "read";
   } catch (std::system_error const& error) {
      EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
      EXPECT_NE(std::string(error.what()).find("/nonexistent/ptp4l.conf"), std::string::npos);
   }
}

TEST(Ptp4lConf, RemarkIsOneLineThatNoTerminalObeys) {
   EXPECT_EQ(remarkText("a\x1b.conf", {7, "k\n", "\"\xc2\x9b\" is not a whole number"}),
             "a\\x1b.conf:7: k\\n: \"\\xc2\\x9b\" is not a whole number");
}

TEST(Ptp4lConf, DirectoryIsASystemError) {
   EXPECT_THROW(readPtp4lConf("/"), std::system_error);
}

TEST(Ptp4lNumber, TakesDecimalHexadecimalAndOctal) {
   struct Row {
      char const* text;
      S64 number;
   };
   constexpr Row rows[] = {
         {"0", 0},
         {"128", 128},
         {"-7", -7},
         {"+7", 7},
         {"0xFE", 254},
         {"0Xff", 255},
         {"-0x10", -16},
         {"010", 8},
         {"9223372036854775807", std::numeric_limits<S64>::max()},
         {"-9223372036854775808", std::numeric_limits<S64>::min()},
   };
   for (auto const& row : rows) {
      S64 number = 1;
      EXPECT_TRUE(parsePtp4lNumber(row.text, number)) << row.text;
      EXPECT_EQ(number, row.number) << row.text;
   }
}

TEST(Ptp4lNumber, RefusesWhatIsNoNumber) {
   for (auto const* text : {"", "-", "+", "0x", "x", "1a", "08", "1.5", "--1", "- 1", "0x-1",
                            "9223372036854775808", "-9223372036854775809"}) {
      S64 number = 1;
      EXPECT_FALSE(parsePtp4lNumber(text, number)) << text;
   }
}

}  // namespace
}  // namespace Holt
