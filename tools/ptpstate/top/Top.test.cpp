// `top`: its samples, its layout, and the program in a terminal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <limits>
#include <memory>
#include <sstream>

#include "Holt/Failure.h"
#include "KivTest/TestTypes/Stem.h"
#include "PtpLib/PtpStatusStatedbTypes/Status.h"
#include "tools/ptpstate/ProgramUnderTest.h"
#include "tools/ptpstate/top/Batch.h"
#include "tools/ptpstate/top/Preset.h"
#include "tools/ptpstate/top/View.h"

namespace Ptpstate {

using namespace Holt;

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

TopNumber counter(U64 value, unsigned bits) {
   return {static_cast<double>(value), value, bits};
}

template <class T>
std::optional<TopNumber> numberOf(T const& v) {
   Kiv::AnyValue value(Kiv::typeOf<T>());
   value.copy(&v);
   return topNumber(value);
}

/// "number exact bits", or "none".
template <class T>
std::string sampleOf(T const& v) {
   std::optional<TopNumber> const number = numberOf(v);
   return number ? std::to_string(number->value) + " " + std::to_string(number->exact) + " " +
                         std::to_string(number->bits)
                 : "none";
}

TEST(TopNumber, OfAnUnsignedIntegerIsExactAndHasItsWidth) {
   EXPECT_EQ(sampleOf(U8{200}), "200.000000 200 8");
   EXPECT_EQ(numberOf(~U64{0})->exact, ~U64{0});
   EXPECT_EQ(numberOf(~U64{0})->bits, 64U);
   EXPECT_EQ(sampleOf(S32{-7}), "-7.000000 0 0");
   EXPECT_EQ(sampleOf(2.5), "2.500000 0 0");
   EXPECT_EQ(sampleOf(0.5F), "0.500000 0 0");
}

TEST(TopNumber, IsNoneForWhatIsNotANumber) {
   EXPECT_EQ(sampleOf(std::numeric_limits<double>::infinity()), "none");
   EXPECT_EQ(sampleOf(std::numeric_limits<double>::quiet_NaN()), "none");
   EXPECT_EQ(sampleOf(true), "none");
   EXPECT_EQ(sampleOf(Sarn::String("42")), "none");
   EXPECT_EQ(sampleOf(KivTest::Level::low), "none");
}

TEST(TopRate, IsTheChangePerSecond) {
   EXPECT_EQ(ratePerSecond({1, 0, 0}, {4, 0, 0}, 2), 1.5);
   EXPECT_EQ(ratePerSecond({4, 0, 0}, {1, 0, 0}, 1), -3);
   EXPECT_EQ(ratePerSecond(counter(10, 32), counter(30, 32), 2), 10);
   EXPECT_EQ(ratePerSecond({1, 0, 0}, {4, 0, 0}, 0), std::nullopt);
}

TEST(TopRate, GoesOnOverTheWrapOfACounter) {
   EXPECT_EQ(ratePerSecond(counter(0xfffffffe, 32), counter(4, 32), 1), 6);
   EXPECT_EQ(ratePerSecond(counter(250, 8), counter(4, 8), 1), 10);
   U64 const last = std::numeric_limits<U64>::max();
   EXPECT_EQ(ratePerSecond(counter(last, 64), counter(9, 64), 1), 10);
}

TEST(TopRate, HasNoneWhereACounterBeganAnew) {
   EXPECT_EQ(ratePerSecond(counter(1000, 32), counter(0, 32), 1), std::nullopt);
}

TEST(TopHistory, StandsBetweenTheLeastAndTheGreatest) {
   EXPECT_EQ(historyLine({1, 2, 3, 4, 5, 6, 7, 8}, false), "▁▂▃▄▅▆▇█");
   EXPECT_EQ(historyLine({5, 5}, false), "▁▁");
   EXPECT_EQ(historyLine({}, false), "");
   EXPECT_EQ(historyLine({-1, 1}, true), "_^");
}

TEST(TopText, IsCutByCellsAndNotByBytes) {
   EXPECT_EQ(displayWidth("▁▂x"), 3U);
   EXPECT_EQ(cutTo("abcdef", 4), "abc+");
   EXPECT_EQ(cutTo("▁▂▃▄", 3), "▁▂+");
   EXPECT_EQ(cutTo("abc", 3), "abc");
   EXPECT_EQ(rateText(0), "0");
   EXPECT_EQ(rateText(1.25), "1.2");
   EXPECT_EQ(rateText(12345.6), "12346");
   EXPECT_EQ(rateText(-2.5e9), "-2.50e+09");
}

class TopTableTest : public testing::Test {
protected:
   void SetUp() override {
      for (U32 const number : {2U, 10U, 1U}) {
         root->leafIs(number, number == 10, KivTest::Opaque(0.5));
      }
   }
   void columnsAre(std::vector<std::string> const& names) {
      std::vector<TopColumn> columns;
      for (std::string const& name : names) {
         columns.push_back(topColumn(name));
      }
      table.columnsAre(std::move(columns));
   }
   /// Takes a sample `seconds` later.
   void sample(double seconds) {
      now += std::chrono::duration_cast<TopTable::Time::duration>(
            std::chrono::duration<double>(seconds));
      table.sample(topEntities(root, {{"KivTest::Stem", "root"}, parseSteps(".leaf")}), now);
   }
   /// "KEY: CELL, CELL" of each row.
   std::vector<std::string> rows() {
      std::vector<std::string> rows;
      for (TopRow const& row : table.rows()) {
         std::string line = row.key + ":";
         for (TopCell const& cell : row.cells) {
            line += (&cell == row.cells.data() ? " " : ", ") + cell.text;
         }
         rows.push_back(std::move(line));
      }
      return rows;
   }

   Sarn::Ptr<KivTest::Stem> root = KivTest::stemFactory("root");
   TopTable table;
   TopTable::Time now;
};

TEST_F(TopTableTest, ShowsEveryEntityOfACollection) {
   columnsAre({"lit", "origin", "origin.content", "ticks"});
   sample(0);
   EXPECT_THAT(rows(), ElementsAre("1: false, 0.5, 0.5, 0", "2: false, 0.5, 0.5, 0",
                                   "10: true, 0.5, 0.5, 0"));
   root->leafDel(2);
   root->leafIs(3, true, KivTest::Opaque(1));
   sample(1);
   EXPECT_THAT(rows(),
               ElementsAre("1: false, 0.5, 0.5, 0", "3: true, 1, 1, 0", "10: true, 0.5, 0.5, 0"));
}

TEST_F(TopTableTest, CountsRatesBetweenSamples) {
   columnsAre({"ticks/s"});
   sample(0);
   EXPECT_THAT(rows(), ElementsAre("1: -", "2: -", "10: -"));
   root->leaf(1)->ticksInc(30);
   sample(2);
   EXPECT_THAT(rows(), ElementsAre("1: 15.0", "2: 0", "10: 0"));
   root->leaf(1)->ticksInc(65530);  // wraps
   sample(1);
   EXPECT_THAT(rows(), ElementsAre("1: -", "2: 0", "10: 0")) << "more than half of all at once";
   root->leaf(1)->ticksInc(5);
   sample(1);
   EXPECT_THAT(rows(), ElementsAre("1: 5.0", "2: 0", "10: 0"));
}

TEST_F(TopTableTest, KeepsTheLastSamplesOfAHistory) {
   columnsAre({"ticks~"});
   for (int i = 0; i != 20; ++i) {
      root->leaf(1)->ticksInc(1);
      sample(1);
   }
   std::string const line = table.rows()[0].cells[0].text;
   EXPECT_EQ(displayWidth(line), TopTable::historyLength);
   EXPECT_THAT(line, StartsWith("▁▁"));
   EXPECT_TRUE(line.ends_with("██")) << line;
   columnsAre({"lit", "ticks~"});
   sample(1);
   EXPECT_EQ(displayWidth(table.rows()[0].cells[1].text), TopTable::historyLength)
         << "a column that stays keeps its history";
}

TEST_F(TopTableTest, SortsByAnyColumnBothWays) {
   columnsAre({"lit", "ticks"});
   root->leaf(2)->ticksInc(100);
   root->leaf(10)->ticksInc(9);
   sample(0);
   table.sortIs(1);
   EXPECT_THAT(rows(), ElementsAre("1: false, 0", "10: true, 9", "2: false, 100"));
   table.sortIs(1);
   EXPECT_THAT(rows(), ElementsAre("2: false, 100", "10: true, 9", "1: false, 0"));
   table.sortIs(0);
   EXPECT_THAT(rows(), ElementsAre("1: false, 0", "2: false, 100", "10: true, 9"));
   columnsAre({"ticks"});
   EXPECT_EQ(table.sortedBy(), -1) << "its column is gone";
}

TEST_F(TopTableTest, ShowsOnlyRowsThatContainTheFilter) {
   columnsAre({"lit", "ticks"});
   sample(0);
   table.filterIs("TRUE");
   EXPECT_THAT(rows(), ElementsAre("10: true, 0"));
   table.filterIs("1");
   EXPECT_THAT(rows(), ElementsAre("1: false, 0", "10: true, 0")) << "the key counts, too";
   table.filterIs("");
   EXPECT_EQ(rows().size(), 3U);
}

TEST_F(TopTableTest, RepeatsASampleOfWhatHasNotChanged) {
   columnsAre({"ticks", "ticks/s", "ticks~"});
   EXPECT_FALSE(table.repeat(now)) << "there is none";
   root->leaf(1)->ticksInc(7);
   sample(1);
   root->leaf(1)->ticksInc(7);
   sample(1);
   EXPECT_THAT(rows()[0], StartsWith("1: 14, 7.0, "));
   EXPECT_TRUE(table.repeat(now + std::chrono::seconds(1)));
   EXPECT_EQ(rows()[0], "1: 14, 0, ▁██");
   columnsAre({"ticks"});
   U64 const version = table.version();
   EXPECT_FALSE(table.repeat(now)) << "after other columns, the rows must be sampled";
   sample(1);
   EXPECT_TRUE(table.repeat(now));
   EXPECT_NE(table.version(), version);
   U64 const settled = table.version();
   EXPECT_TRUE(table.repeat(now));
   EXPECT_EQ(table.version(), settled) << "nothing is drawn anew";
}

TEST_F(TopTableTest, IsWrittenAsJsonAndAsCommaSeparatedValues) {
   columnsAre({"lit", "ticks/s", "origin"});
   sample(0);
   table.filterIs("10");
   std::ostringstream json;
   writeJsonSample(json, table, {{"priority1", {"128", true, 128}}});
   EXPECT_THAT(json.str(), StartsWith("{\"time\":\""));
   EXPECT_THAT(json.str(),
               HasSubstr("\"head\":{\"priority1\":128},\"rows\":[{\"key\":\"10\",\"lit\":"
                         "true,\"ticks/s\":null,\"origin\":\"0.5\"}]}\n"));
   std::ostringstream csv;
   writeCsvSample(csv, table, true);
   EXPECT_THAT(csv.str(), StartsWith("time,key,lit,ticks/s,origin\n"));
   EXPECT_THAT(csv.str(), HasSubstr(",10,true,,0.5\n"));
}

TEST_F(TopTableTest, OfOneEntityIsAList) {
   columnsAre({"lit", "ticks"});
   table.sample(topEntities(root, {{"KivTest::Stem", "root"}, parseSteps(".leaf[10]")}), now);
   TopView view(table, {});
   view.listIs(true);
   EXPECT_THAT(view.text(), ElementsAre("lit    true", "ticks  0"));
   auto const lines = view.lines("title", {}, 40, 5);
   EXPECT_EQ(lines[1][0].text + lines[1][1].text, "lit    true");
}

TEST_F(TopTableTest, TakesAFilterFromTheKeys) {
   columnsAre({"lit"});
   sample(0);
   TopView view(table, {});
   for (char const key : std::string("/trq\b")) {
      EXPECT_TRUE(view.press(key));
   }
   EXPECT_EQ(view.lines("title", {}, 40, 5)[0][0].text, "title  /tr_");
   EXPECT_THAT(rows(), ElementsAre("10: true"));
   view.press('\n');
   EXPECT_EQ(view.lines("title", {}, 40, 5)[0][0].text, "title  /tr");
   view.press('/');
   view.press('\x1b');
   EXPECT_EQ(rows().size(), 3U);
}

TEST(TopPorts, ShowWhatMattersFirstAndMarkWhatIsFaultyOrPassive) {
   auto const status = Ptp::statusFactory("ptp");
   auto const port = [&status](char const* name, U16 number, Ptp::PortState state) {
      Ptp::PortDSKey const key{Dorn::IntfId(name), Bridging::VlanIdOrNone()};
      status->intfStatusIs(key);
      auto const made = status->portDSIs(key, Ptp::PortIdentity(Ptp::ClockIdentity(1), number));
      made->portStateIs(state);
      return key;
   };
   auto const followed = port("Ethernet1", 1, Ptp::PortState::slave);
   port("Ethernet2", 2, Ptp::PortState::faulty);
   port("Ethernet3", 3, Ptp::PortState::passive);
   status->currentDSIs()->lastUpdatePortKeyIs(followed);
   status->currentDS()->offsetFromMasterIs(-3);
   status->currentDS()->meanPathDelayIs(212);
   TopTable table;
   table.columnsAre(firstColumns(Ptp::PortDS::kivTypeImpl));
   table.sample(topEntities(status, {{"Ptp::Status", "ptp"}, parseSteps(".portDS")}), {});
   std::vector<std::string> cells;
   for (TopCell const& cell : table.rows()[0].cells) {
      cells.push_back(cell.text);
   }
   EXPECT_THAT(cells, ElementsAre("slave", "dynamic", "-3", "212", "0", "-", "0"));
   EXPECT_FALSE(table.rows()[1].cells[2].exists) << "only the port that is followed has an offset";
   TopView view(table, choiceOf(Ptp::PortDS::kivTypeImpl));
   auto const lines = view.lines("", {}, 120, 8);
   EXPECT_EQ(lines[2][0].look, TopSpan::plain);
   EXPECT_EQ(lines[3][0].look, TopSpan::bad);
   EXPECT_EQ(lines[4][0].look, TopSpan::passive);
   EXPECT_THROW(columnOf(Ptp::PortDS::kivTypeImpl, "nothing"), Failure);
}

TEST_F(TopTableTest, RefusesWhatIsNoEntity) {
   auto const entities = [this](char const* steps) {
      return topEntities(root, {{"KivTest::Stem", "root"}, parseSteps(steps)});
   };
   EXPECT_THROW(entities(".u8"), Failure);
   EXPECT_THROW(entities(".byNumber"), Failure);
   EXPECT_EQ(entities("").size(), 1U);
   EXPECT_EQ(entities(".badge").size(), 0U) << "there may be one later";
   EXPECT_EQ(entities(".leaf[7].twig").size(), 0U);
   EXPECT_EQ(entities(".leaf[1]").size(), 1U);
}

TEST_F(TopTableTest, TellsOfOtherColumnsWhicheverKeyEndsTheirChoice) {
   for (int const key : {int('c'), int('q'), int('\n'), int('\x1b')}) {
      columnsAre({"lit", "ticks"});
      sample(0);
      TopView view(table, attributeColumns(KivTest::Leaf::kivTypeImpl));
      int told = 0;
      view.onColumns = [&told] { ++told; };
      for (int const press : {int('c'), key}) {
         view.press(press);
      }
      EXPECT_EQ(told, 0) << "nothing was chosen";
      for (int const press : {int('c'), int(' '), key}) {
         view.press(press);
      }
      EXPECT_EQ(told, 1) << key;
   }
}

TEST_F(TopTableTest, IsLaidOutOnTheScreen) {
   columnsAre({"lit", "ticks", "origin"});
   sample(0);
   TopView view(table, attributeColumns(KivTest::Leaf::kivTypeImpl));
   auto const screen = [&](std::size_t width, std::size_t height) {
      std::vector<std::string> texts;
      for (TopLine const& line : view.lines("title", {"one 1", "two 2"}, width, height)) {
         std::string text;
         for (TopSpan const& span : line) {
            text += span.text;
         }
         text.erase(text.find_last_not_of(' ') + 1);
         texts.push_back(text);
      }
      return texts;
   };
   EXPECT_THAT(screen(40, 8), ElementsAre("title", "one 1   two 2", "^key  lit    ticks  origin",
                                          "1     false      0  0.5", "2     false      0  0.5",
                                          "10    true       0  0.5", "",
                                          "q: end  arrows: go  s: sort  k: by key +"));
   EXPECT_EQ(screen(19, 8)[2], "^key  lit    ticks") << "what has no room is left out";
   for (int i = 0; i != 3; ++i) {
      view.press(TopView::keyRight);
   }
   EXPECT_EQ(screen(19, 8)[2], "^key  ticks  origin") << "until it is chosen";
   view.press('s');
   view.press('s');
   EXPECT_EQ(screen(40, 8)[0], "title  origin");
   EXPECT_THAT(screen(40, 8)[2], HasSubstr("vorigin"));
   EXPECT_THAT(screen(40, 6)[3], StartsWith("10 "));
   view.press(TopView::keyEnd);
   EXPECT_THAT(screen(40, 6)[3], StartsWith("2 "));
   EXPECT_THAT(screen(40, 6)[4], StartsWith("1 ")) << "the last of the rows";
   view.press('c');
   EXPECT_THAT(screen(40, 8)[3], StartsWith("value"));
   view.press(' ');
   view.press('h');
   EXPECT_THAT(screen(40, 8)[3], HasSubstr("history  lit"));
   EXPECT_TRUE(view.press('q'));
   EXPECT_FALSE(view.press('q'));
}

/// The program in a terminal of its own, by tmux.
class TopTerminal : public testing::TestWithParam<std::pair<int, int>> {
protected:
   void SetUp() override {
      if (std::system("command -v tmux >/dev/null") != 0) {
         GTEST_SKIP() << "tmux is not installed";
      }
      server = std::make_unique<Program>(std::vector<std::string>{"serve", "--socket", socket});
      ASSERT_TRUE(server->says("serving "));
      for (int i = 1; i <= ports; ++i) {
         change({"add", "ptp/config.intfConfig[Ethernet" + std::to_string(i) + "]", "true",
                 i % 2 != 0 ? "true" : "false"});
      }
   }
   void TearDown() override { tmux("kill-server"); }
   void change(std::vector<std::string> args) {
      args.insert(args.begin() + 1, {"--socket", socket});
      ASSERT_EQ(run(args).err, "");
   }
   /// Runs tmux with its own server, and returns its output.
   std::string tmux(std::string const& command) {
      std::string const whole = "tmux -S '" + scratch.file("tmux") + "' " + command + " 2>&1";
      std::unique_ptr<FILE, int (*)(FILE*)> const pipe(::popen(whole.c_str(), "r"), ::pclose);
      std::string said;
      for (char text[4096]; std::fgets(text, sizeof text, pipe.get()) != nullptr;) {
         said += text;
      }
      return said;
   }
   void start(std::string const& options) {
      tmux("-f /dev/null new-session -d -x " + std::to_string(GetParam().first) + " -y " +
           std::to_string(GetParam().second) + " \"env XDG_CONFIG_HOME='" + scratch.path() +
           "' LC_ALL=C.UTF-8 '" PTPLIB_BIN_DIR "/ptpstate' top --socket '" + socket +
           "' --interval 0.1 " + options + "\"");
   }
   void press(std::string const& keys) { tmux("send-keys " + keys); }
   /// Waits until the screen shows a text, and returns the screen.
   std::string shows(std::string const& text) {
      std::string screen;
      for (int i = 0; i != 100; ++i) {
         screen = tmux("capture-pane -p");
         if (screen.find(text) != std::string::npos) {
            return screen;
         }
         ::usleep(50000);
      }
      ADD_FAILURE() << "'" << text << "' is not on the screen:\n" << screen;
      return screen;
   }

   static constexpr int ports = 30;
   Scratch scratch;
   std::string socket = scratch.file("socket");
   std::unique_ptr<Program> server;
};

TEST_P(TopTerminal, FillsTheScreenAndFollowsChangesAndKeys) {
   start("ptp/config.intfConfig --columns enabled,mpassEnabled,ttl,ttl/s,ttl~ "
         "--head ptp/config.priority1");
   std::string const first = shows("\nq: end  arrows: go");  // the last line: all are drawn
   auto const [width, height] = GetParam();
   EXPECT_EQ(std::count(first.begin(), first.end(), '\n'), height);
   EXPECT_THAT(first, HasSubstr("ptp/config.intfConfig: 30 rows\npriority1 128\n"));
   EXPECT_THAT(first, HasSubstr("\nEthernet2 "));
   EXPECT_EQ(first.find("Ethernet30 ") != std::string::npos, height > 40);

   change({"set", "ptp/config.priority1", "7"});
   change({"set", "ptp/config.intfConfig[Ethernet2].ttl", "9"});
   shows("priority1 7");
   shows("█");

   press("End");
   shows("Ethernet30 ");
   press("Home Right Right s s");
   std::string const sorted = shows("vmpassEnabled");
   EXPECT_LT(sorted.find("Ethernet29 "), sorted.find("Ethernet1 ")) << sorted;

   press("c");
   shows("blank: value   r: rate   h: history");
   press("Down Down Space q");
   for (int i = 0; i != 100 && readFile(scratch.file("ptpstate/top")).empty(); ++i) {
      ::usleep(20000);
   }
   EXPECT_THAT(readFile(scratch.file("ptpstate/top")),
               HasSubstr("\nPtp::IntfConfig enabled,mpassEnabled,ttl,ttl/s,ttl~,"));
   shows(width > 100 ? "logSyncInterval" : "key");
   press("p");
   shows("-- paused");
   press("p '?'");
   shows("Any key goes back.");

   press("x");
   server->signal(SIGKILL);
   server->finish();
   EXPECT_THAT(shows("-- connection lost: "), HasSubstr("Ethernet2"));
   server = std::make_unique<Program>(std::vector<std::string>{"serve", "--socket", socket});
   shows("ptp/config.intfConfig: 0 rows");
   change({"add", "ptp/config.intfConfig[Ethernet99]", "true", "true"});
   EXPECT_EQ(shows("Ethernet99 ").find("connection lost"), std::string::npos);
   press("q");
   for (int i = 0; i != 100 && tmux("ls").find("no server") == std::string::npos; ++i) {
      ::usleep(20000);
   }
   EXPECT_THAT(tmux("ls"), HasSubstr("no server"));
}

INSTANTIATE_TEST_SUITE_P(Sizes, TopTerminal, testing::Values(std::pair(80, 24), std::pair(200, 60)),
                         [](auto const& at) {
                            return std::to_string(at.param.first) + "x" +
                                   std::to_string(at.param.second);
                         });

}  // namespace
}  // namespace Ptpstate
