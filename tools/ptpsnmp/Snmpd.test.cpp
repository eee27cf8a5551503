// The program between a PTP agent and a real snmpd, as a manager sees it.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <deque>
#include <filesystem>
#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>

#include "Holt/Loop.h"
#include "Holt/Server.h"
#include "tools/ptpsnmp/Objects.h"
#include "tools/ptpsnmp/Process.test.h"

namespace Ptpsnmp {
namespace {

/// Serves a status from a thread of its own, which also makes all changes.
class PtpAgent final : Holt::Source {
public:
   PtpAgent(std::string const& socket, std::function<void(Ptp::Status&)> const& fill) {
      if (::pipe(pipe_) != 0) {
         throw std::runtime_error("no pipe");
      }
      Holt::Server::Options options;
      options.socket = socket;
      auto server = std::make_unique<Holt::Server>(std::move(options));  // listens from here on
      thread_ = std::thread([this, fill, server = std::move(server)]() mutable {
         status_ = Ptp::statusFactory("ptp/status");
         fill(*status_);
         server->rootIs(status_);
         Holt::Loop loop;
         loop.add(*server);
         loop.add(*this);
         while (!over_) {
            loop.turn(-1);
         }
         server.reset();
         status_.reset();
      });
   }
   ~PtpAgent() {
      change([this](Ptp::Status&) { over_ = true; });
      thread_.join();
      ::close(pipe_[0]);
      ::close(pipe_[1]);
   }
   PtpAgent(PtpAgent const&) = delete;
   PtpAgent& operator=(PtpAgent const&) = delete;

   /// Returns when the change has been made.
   void change(std::function<void(Ptp::Status&)> how) {
      std::promise<void> made;
      {
         std::lock_guard const lock(mutex_);
         changes_.emplace_back([&] {
            how(*status_);
            made.set_value();
         });
      }
      EXPECT_EQ(::write(pipe_[1], "x", 1), 1);
      made.get_future().wait();
   }

private:
   void appendTo(std::vector<pollfd>& polled) override { polled.push_back({pipe_[0], POLLIN, 0}); }
   void onTurn(std::span<pollfd const> polled) override {
      char byte = 0;
      if (polled[0].revents == 0 || ::read(pipe_[0], &byte, 1) != 1) {
         return;
      }
      std::function<void()> next;
      {
         std::lock_guard const lock(mutex_);
         next = std::move(changes_.front());
         changes_.pop_front();
      }
      next();
   }

   int pipe_[2];
   std::mutex mutex_;
   std::deque<std::function<void()>> changes_;
   Sarn::Ptr<Ptp::Status> status_;
   bool over_ = false;
   std::thread thread_;
};

U16 freePort() {
   int const fd = ::socket(AF_INET, SOCK_DGRAM, 0);
   sockaddr_in address{};
   address.sin_family = AF_INET;
   address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
   socklen_t size = sizeof address;
   ::bind(fd, reinterpret_cast<sockaddr*>(&address), size);
   ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
   ::close(fd);
   return ntohs(address.sin_port);
}

bool hasProgram(char const* name) {
   return std::system(
                (std::string("PATH=$PATH:/usr/sbin command -v ") + name + " >/dev/null").c_str()) ==
          0;
}

Ptp::PortDSKey keyOf(std::string const& intf) {
   return {Dorn::IntfId(intf), Bridging::VlanIdOrNone()};
}

void addPort(Ptp::Status& status, std::string const& intf, U16 number) {
   status.portDSIs(keyOf(intf), Ptp::PortIdentity(Ptp::ClockIdentity(U64{1}), number));
   status.ptpMibDataIs()->ptpMibPortDataIs(keyOf(intf));
}

void fillClock(Ptp::Status& status) {
   auto const clock = status.defaultDSIs();
   clock->ptpModeIs(Ptp::PtpMode::boundary);
   clock->domainNumberIs(24);
   addPort(status, "Ethernet1", 1);
   addPort(status, "Ethernet2", 2);
}

class Snmpd : public testing::Test {
protected:
   Snmpd() {
      std::string pattern = (std::filesystem::temp_directory_path() / "ptpsnmp.XXXXXX").string();
      directory = ::mkdtemp(pattern.data());
      std::filesystem::create_directory(file("mibs"));
      std::filesystem::create_directory(file("state"));
      std::ofstream(file("snmpd.conf")) << "rwcommunity public 127.0.0.1\n"
                                        << "master agentx\n"
                                        << "agentXSocket " << agentx() << "\n";
   }
   ~Snmpd() override {
      ptpsnmp.reset();
      snmpd.reset();
      std::filesystem::remove_all(directory);
   }
   void SetUp() override {
      if (!hasProgram("snmpd") || !hasProgram("snmpbulkwalk")) {
         GTEST_SKIP() << "Debian's snmpd and snmp are not installed";
      }
   }

   std::string file(std::string const& name) const { return directory + "/" + name; }
   std::string socket() const { return file("socket"); }
   std::string agentx() const { return "unix:" + file("agentx"); }
   std::string logText() const { return contentOf(file("log")); }

   /// A configuration, files and an address of its own, never the system's.
   void startSnmpd() {
      snmpd = std::make_unique<Process>(
            std::vector<std::string>{"/usr/sbin/snmpd", "-f", "-C", "-c", file("snmpd.conf"), "-Le",
                                     "-I", "-smux", "udp:127.0.0.1:" + std::to_string(port)},
            file("snmpd.log"), environment());
   }
   void start(std::vector<std::string> more = {}) {
      std::vector<std::string> arguments{PTPLIB_BIN_DIR "/ptpsnmp", "--socket", socket(),
                                         "--agentx", agentx()};
      arguments.insert(arguments.end(), more.begin(), more.end());
      ptpsnmp = std::make_unique<Process>(arguments, file("log"));
   }
   std::vector<std::string> environment() const {
      return {"SNMP_PERSISTENT_DIR=" + file("state"), "SNMPCONFPATH=" + file("mibs"), "MIBS="};
   }

   /// What a command of the manager prints, without MIBs unless `mibs` names some.
   std::string manager(std::string const& program, std::string const& arguments,
                       std::string const& mibs = "") const {
      std::string const out = file("out");
      std::string const command = "SNMP_PERSISTENT_DIR=" + file("state") +
                                  " SNMPCONFPATH=" + file("mibs") + " MIBS='" + mibs +
                                  "' MIBDIRS=" + file("mibs") + " " + program +
                                  " -v2c -c public -t 3 -r 2 127.0.0.1:" + std::to_string(port) +
                                  " " + arguments + " >" + out + " 2>&1";
      EXPECT_NE(std::system(command.c_str()), -1);
      return contentOf(out);
   }
   std::string get(std::string const& oid) const { return manager("snmpget -Onq", oid); }
   /// Values by identifier.
   std::map<std::string, std::string> walk(std::string const& program) const {
      std::map<std::string, std::string> all;
      std::istringstream lines(manager(program + " -Onq", ".1.3.6.1.2.1.241"));
      for (std::string line; std::getline(lines, line);) {
         auto const space = line.find(' ');
         all[line.substr(0, space)] = space == std::string::npos ? "" : line.substr(space + 1);
      }
      return all;
   }
   /// Waits until the manager sees this.
   void expect(std::string const& oid, std::string const& value) const {
      std::string last;
      EXPECT_TRUE(eventually([&] {
         last = get(oid);
         return last == oid + " " + value + "\n";
      })) << last
          << logText();
   }

   std::string directory;
   U16 port = freePort();
   std::unique_ptr<Process> snmpd;
   std::unique_ptr<Process> ptpsnmp;
};

constexpr char noInstance[] = "No Such Instance currently exists at this OID";
/// What snmpd says of all that no subagent has registered.
constexpr char noObject[] = "No Such Object available on this agent at this OID";
std::string const nameOf1 = ".1.3.6.1.2.1.241.1.2.8.1.5.24.2.1.1";
std::string const nameOf2 = ".1.3.6.1.2.1.241.1.2.8.1.5.24.2.1.2";

std::string hexOf(std::string const& identity) {
   std::string hex = "\"";
   for (char const c : identity) {
      hex += c == ':' ? ' ' : static_cast<char>(std::toupper(c));
   }
   return hex + " \"";
}

std::string interval(nlohmann::json const& nanoseconds) {
   return '"' + timeInterval(nanoseconds.get<S64>()) + '"';
}

TEST_F(Snmpd, GivesWhatPtpportsGives) {
   Process const agent({PTPLIB_BIN_DIR "/demoAgent", "--socket", socket(), "--ports", "64",
                        "--instant", "--seconds", "120"},
                       file("agent.log"));
   startSnmpd();
   start();
   ASSERT_TRUE(eventually([&] {
      return contentOf(file("agent.log")).find(" played seconds") != std::string::npos;
   })) << logText();
   expect(".1.3.6.1.2.1.241.1.1.1.1.3.24.1", "64");
   std::string const json = file("json");
   ASSERT_EQ(std::system(
                   (PTPLIB_BIN_DIR "/ptpports --json --socket " + socket() + " >" + json).c_str()),
             0);
   auto const told = nlohmann::json::parse(contentOf(json));
   auto const all = walk("snmpbulkwalk");
   EXPECT_EQ(walk("snmpwalk"), all);
   auto const at = [&all](std::string const& tableAndColumn, std::string const& index) {
      auto const found = all.find(".1.3.6.1.2.1.241.1." + tableAndColumn + "." + index);
      return found == all.end() ? "nothing" : found->second;
   };

   std::string const clock = std::to_string(told["clock"]["domainNumber"].get<int>()) + ".2.1";
   EXPECT_EQ(at("2.3.1.5", clock), hexOf(told["clock"]["clockIdentity"]));
   auto const& follows = told["follows"];
   EXPECT_EQ(at("2.2.1.8", clock), hexOf(follows["grandmasterIdentity"]));
   EXPECT_EQ(at("2.2.1.11", clock), follows["clockClass"].dump());
   EXPECT_EQ(at("2.1.1.4", clock), follows["stepsRemoved"].dump());
   EXPECT_EQ(at("2.1.1.5", clock), interval(follows["offsetFromMaster"]));
   EXPECT_EQ(at("2.1.1.6", clock), interval(follows["meanPathDelay"]));

   std::map<std::string, std::string> indexes;
   for (auto const& [oid, value] : all) {
      if (std::string const prefix = ".1.3.6.1.2.1.241.1.2.9.1.5."; oid.starts_with(prefix)) {
         indexes[value] = oid.substr(prefix.size());
      }
   }
   std::map<std::string, std::string> const states{
         {"initializing", "1"}, {"faulty", "2"},       {"disabled", "3"},
         {"listening", "4"},    {"preMaster", "5"},    {"master", "6"},
         {"passive", "7"},      {"uncalibrated", "8"}, {"slave", "9"}};
   EXPECT_EQ(indexes.size(), 64u);
   ASSERT_EQ(told["ports"].size(), 64u);
   int measured = 0;
   for (auto const& row : told["ports"]) {
      std::string name = '"' + row["port"].get<std::string>();
      if (!row["vlan"].is_null()) {
         name += "." + row["vlan"].dump();
      }
      name += '"';
      ASSERT_TRUE(indexes.contains(name)) << name;
      std::string const index = indexes[name];
      EXPECT_EQ(at("2.9.1.6", index), states.at(row["portState"]));
      EXPECT_EQ(at("2.9.1.10", index),
                row["vlan"].is_null() ? ".1.3.6.1.2.1.241.1.2.13.1" : ".1.3.6.1.2.1.241.1.2.13.2");
      if (!row["meanPathDelay"].is_null() && row["offsetFromMaster"].is_null()) {
         EXPECT_EQ(at("2.8.1.13", index), interval(row["meanPathDelay"]));
         ++measured;
      }
   }
   EXPECT_GT(measured, 10);
}

/// A module of the table's columns, made of our own description of it.
std::string moduleOf(Table const& table) {
   std::string text =
         "OUR-MIB DEFINITIONS ::= BEGIN\nours OBJECT IDENTIFIER ::= { iso 3 6 1 2 1 "
         "241 1 " +
         std::to_string(table.group) + " }\n";
   auto const object = [&text](std::string const& name, std::string const& syntax,
                               std::string const& rest) {
      text += name + " OBJECT-TYPE\n   SYNTAX " + syntax +
              "\n   MAX-ACCESS read-only\n   STATUS current\n   DESCRIPTION \"\"\n   " + rest +
              "\n";
   };
   object(table.name, "SEQUENCE OF OurEntry", "::= { ours " + std::to_string(table.number) + " }");
   std::string index;
   std::string sequence;
   for (Column const& column : table.columns) {
      if (column.isIndex()) {
         index += (index.empty() ? "" : ", ") + std::string(column.name);
      }
      sequence += (sequence.empty() ? "" : ", ") + std::string(column.name) + " INTEGER";
   }
   object("ourEntry", "OurEntry", "INDEX { " + index + " }\n   ::= { " + table.name + " 1 }");
   text += "OurEntry ::= SEQUENCE { " + sequence + " }\n";
   int number = 0;
   for (Column const& column : table.columns) {
      object(column.name,
             column.syntax == Syntax::octetString ? "OCTET STRING"
             : column.syntax == Syntax::objectId  ? "OBJECT IDENTIFIER"
             : column.syntax == Syntax::counter64 ? "Counter64"
                                                  : "INTEGER",
             "::= { ourEntry " + std::to_string(++number) + " }");
   }
   return text + "END\n";
}

TEST_F(Snmpd, SnmptableShowsARowForEachPort) {
   PtpAgent agent(socket(), [](Ptp::Status& status) {
      fillClock(status);
      status.portDS(keyOf("Ethernet2"))->portStateIs(Ptp::PortState::faulty);
      status.portDS(keyOf("Ethernet2"))->transportModeIs(Ptp::TransportMode::ipv6);
      status.ptpMibData()->ptpMibPortData(keyOf("Ethernet1"))->totalPacketsSentIs(1ull << 40);
   });
   startSnmpd();
   start();
   expect(nameOf2, "\"Ethernet2\"");
   for (Table const& table : tables()) {
      if (std::string(table.name) == "ptpbaseClockPortRunningTable") {
         std::ofstream(file("mibs/OUR-MIB.txt")) << moduleOf(table);
      }
   }
   std::string const said =
         manager("snmptable -Cf , -CH", "OUR-MIB::ptpbaseClockPortRunningTable", "OUR-MIB");
   EXPECT_EQ(said,
             "?,?,?,?,\"Ethernet1\",1,1,0,OUR-MIB::ours.12.3,OUR-MIB::ours.13.1,1,1,0,"
             "1099511627776\n"
             "?,?,?,?,\"Ethernet2\",2,1,0,OUR-MIB::ours.12.2,OUR-MIB::ours.13.1,1,1,0,0\n");
}

TEST_F(Snmpd, RefusesToSetAndTellsWhatIsNotThere) {
   PtpAgent agent(socket(), fillClock);
   startSnmpd();
   start();
   expect(nameOf1, "\"Ethernet1\"");
   std::string const said = manager("snmpset", nameOf1 + " s other");
   EXPECT_NE(said.find("Reason: notWritable"), std::string::npos) << said;
   EXPECT_EQ(get(nameOf1), nameOf1 + " \"Ethernet1\"\n");
   for (char const* const oid : {".1.3.6.1.2.1.241.1.2.8.1.14.24.2.1.1",  // has no source
                                 ".1.3.6.1.2.1.241.1.2.8.1.5.24.2.1.3",   // no such port
                                 ".1.3.6.1.2.1.241.1.2.1.1.4.24.2.1"}) {  // no such data set
      EXPECT_EQ(get(oid), std::string(oid) + " " + noInstance + "\n");
   }
   std::string const index = ".1.3.6.1.2.1.241.1.2.8.1.4.24.2.1.1";
   EXPECT_EQ(get(index), index + " " + noObject + "\n");
}

TEST_F(Snmpd, FollowsPortsThatComeAndGo) {
   PtpAgent agent(socket(), fillClock);
   startSnmpd();
   start();
   expect(nameOf2, "\"Ethernet2\"");
   agent.change([](Ptp::Status& status) {
      status.portDSDel(keyOf("Ethernet2"));
      addPort(status, "Ethernet7", 3);
   });
   expect(nameOf2, noInstance);
   std::string const third = ".1.3.6.1.2.1.241.1.2.8.1.5.24.2.1.3";
   EXPECT_EQ(manager("snmpgetnext -Onq", nameOf1), third + " \"Ethernet7\"\n");
   agent.change([](Ptp::Status& status) { addPort(status, "Ethernet2", 2); });
   expect(nameOf2, "\"Ethernet2\"");
   EXPECT_EQ(manager("snmpgetnext -Onq", nameOf2), third + " \"Ethernet7\"\n");
}

TEST_F(Snmpd, WithoutTheSourceNothingIsThereUntilItReturns) {
   startSnmpd();
   start();
   expect(nameOf1, noInstance);
   auto agent = std::make_unique<PtpAgent>(socket(), fillClock);
   expect(nameOf1, "\"Ethernet1\"");
   agent.reset();
   expect(nameOf1, noInstance);
   EXPECT_EQ(walk("snmpbulkwalk").size(), 1u);  // says that there is nothing
   agent = std::make_unique<PtpAgent>(socket(), [](Ptp::Status& status) {
      fillClock(status);
      addPort(status, "Ethernet3", 3);
   });
   expect(".1.3.6.1.2.1.241.1.2.8.1.5.24.2.1.3", "\"Ethernet3\"");
   std::string const log = logText();
   EXPECT_NE(log.find("source " + socket() + ": not there: "), std::string::npos) << log;
   EXPECT_NE(log.find("source " + socket() + ": mirrors ptp/status\n"), std::string::npos) << log;
   EXPECT_NE(log.find("source " + socket() + ": lost: "), std::string::npos) << log;
}

TEST_F(Snmpd, RegistersAgainWhenSnmpdIsRestarted) {
   PtpAgent agent(socket(), fillClock);
   start();  // before snmpd
   ASSERT_TRUE(
         eventually([&] { return logText().find("Failed to connect") != std::string::npos; }));
   startSnmpd();
   expect(nameOf1, "\"Ethernet1\"");
   snmpd->signal(SIGTERM);
   EXPECT_EQ(snmpd->finish(), 0);
   ASSERT_TRUE(eventually([&] { return logText().find(": lost\n") != std::string::npos; }));
   startSnmpd();
   expect(nameOf1, "\"Ethernet1\"");
   snmpd->signal(SIGKILL);
   snmpd->finish();
   startSnmpd();
   expect(nameOf1, "\"Ethernet1\"");
}

TEST_F(Snmpd, MirrorsTheNamedStatusAlone) {
   PtpAgent agent(socket(), fillClock);
   startSnmpd();
   start({"--root", "other/status"});
   ASSERT_TRUE(eventually([&] {
      return logText().find("it offers no such status") != std::string::npos;
   })) << logText();
   expect(nameOf1, noInstance);
}

TEST_F(Snmpd, EndsWhenToldTo) {
   PtpAgent agent(socket(), fillClock);
   startSnmpd();
   start();
   expect(nameOf1, "\"Ethernet1\"");
   ptpsnmp->signal(SIGTERM);
   EXPECT_EQ(ptpsnmp->finish(), 0);
   EXPECT_EQ(get(nameOf1), nameOf1 + " " + noObject + "\n");
}

}  // namespace
}  // namespace Ptpsnmp
