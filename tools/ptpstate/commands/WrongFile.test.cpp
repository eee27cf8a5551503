// Files and sockets of the wrong kind: the message says what is wrong with which, and what to do.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {
namespace {

/// A bound datagram socket, as ptp4l has.
class Datagram {
public:
   explicit Datagram(std::string const& path) : fd_(::socket(AF_UNIX, SOCK_DGRAM, 0)) {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
      EXPECT_EQ(::bind(fd_, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
   }
   ~Datagram() { ::close(fd_); }
   Datagram(Datagram const&) = delete;
   Datagram& operator=(Datagram const&) = delete;

private:
   int fd_;
};

class WrongFile : public WithServer {
protected:
   /// The message of a run that must fail with this status, without the program's name.
   std::string refused(std::vector<std::string> const& args, int status,
                       Surroundings const& in = {}) {
      Outcome const outcome = run(args, in);
      EXPECT_EQ(outcome.status, status) << outcome.out << outcome.err;
      std::string const begin = in.program + ": ";
      EXPECT_EQ(outcome.err.substr(0, begin.size()), begin);
      return outcome.err.substr(std::min(begin.size(), outcome.err.size()));
   }
};

TEST_F(WrongFile, ASocketOfPtp4lPointsToTheAgent) {
   Datagram const datagram(socket);
   std::string const hint =
         socket +
         ": is a datagram socket, not that of a server. If it is the management socket of "
         "ptp4l(8), start ptp4lAgent, which serves the state of that ptp4l: ptp4lAgent "
         "--ptp4l " +
         socket + "\n";
   EXPECT_EQ(refused({"get", "--socket", socket, "ptp/config"}, 3), hint);
   Surroundings ports;
   ports.program = "ptpports";
   EXPECT_EQ(refused({"--socket", socket}, 3, ports), hint);
   EXPECT_EQ(refused({"serve", "--socket", socket}, 3),
             socket +
                   ": another process has a datagram socket here; choose another socket. If it "
                   "is the management socket of ptp4l(8), leave it alone: ptp4lAgent serves the "
                   "state of that ptp4l\n");
   EXPECT_TRUE(std::filesystem::is_socket(socket));
}

TEST_F(WrongFile, ASocketOfPtp4lThatMayNotBeUsedStillPointsToTheAgent) {
   constexpr uid_t nobody = 65534;
   if (::geteuid() != 0 || run({"--help"}, nobody).status != 0) {
      GTEST_SKIP() << "needs root, and another user that can run the program";
   }
   Datagram const datagram(socket);
   std::filesystem::permissions(scratch.path(), std::filesystem::perms(0755));
   std::filesystem::permissions(socket, std::filesystem::perms(0600));
   EXPECT_NE(refused({"get", "--socket", socket, "ptp/config"}, 3, {nobody}).find("ptp4lAgent --"),
             std::string::npos);
}

TEST_F(WrongFile, ADirectoryAsSocketIsNotReplacedAndASocketInItIsProposed) {
   std::string const says = scratch.path() +
                            ": is a directory, not a socket; name the socket in it, such as " +
                            scratch.path() + "/ptpstate.sock\n";
   EXPECT_EQ(refused({"get", "--socket", scratch.path(), "ptp/config"}, 3), says);
   EXPECT_EQ(refused({"serve", "--socket", scratch.path()}, 3), says);
   std::string const file = scratch.file("file");
   std::ofstream(file) << "text";
   EXPECT_EQ(refused({"get", "--socket", file, "ptp/config"}, 3),
             file + ": is not a socket; name the socket of a server\n");
}

TEST_F(WrongFile, ADumpThatCannotBeWrittenIsFoundAtTheStart) {
   EXPECT_EQ(refused({"serve", "--socket", socket, "--dump", scratch.path()}, 1),
             scratch.path() + ": is a directory; give the name of a file in it\n");
   std::string const nowhere = scratch.file("no/dump");
   EXPECT_EQ(refused({"serve", "--socket", socket, "--dump", nowhere}, 1),
             nowhere +
                   ": cannot be written: No such file or directory; create its directory "
                   "first\n");
   EXPECT_NE(refused({"watch", "--socket", socket, "--dump", nowhere}, 1).find("cannot be written"),
             std::string::npos);
   EXPECT_NE(refused({"replay", "--dump", nowhere, "none.rec"}, 1).find(nowhere),
             std::string::npos);
   EXPECT_EQ(::access(socket.c_str(), F_OK), -1) << "nothing was served";
}

TEST_F(WrongFile, ADumpThatMayNotBeWrittenIsFoundAtTheStart) {
   constexpr uid_t nobody = 65534;
   if (::geteuid() == 0 && run({"--help"}, nobody).status != 0) {
      GTEST_SKIP() << "another user cannot run the program here";
   }
   std::string const file = scratch.file("dump");
   std::ofstream(file) << "precious";
   std::filesystem::permissions(scratch.path(), std::filesystem::perms(0755));
   std::filesystem::permissions(file, std::filesystem::perms(0444));
   EXPECT_EQ(refused({"serve", "--socket", "/tmp/unused", "--dump", file}, 1, {nobody}),
             file + ": cannot be written: Permission denied; choose a file that you may write "
                    "to\n");
   EXPECT_EQ(readFile(file), "precious");
}

TEST_F(WrongFile, LoadSaysWhatItWasGivenInsteadOfADump) {
   serve();
   EXPECT_EQ(refused({"load", "--socket", socket, scratch.path()}, 1),
             scratch.path() + ": is a directory; give the name of a file in it\n");
   std::string const missing = scratch.file("missing");
   EXPECT_EQ(refused({"load", "--socket", socket, missing}, 1),
             missing + ": cannot be read: No such file or directory\n");
   EXPECT_EQ(refused({"load", "--socket", socket, socket}, 1),
             socket + ": is a socket, not a file; name a server's socket with --socket\n");
   std::string const file = scratch.file("file");
   std::ofstream(file) << client({"dump"}).out;
   EXPECT_EQ(refused({"load", "--socket", socket, file}, 1),
             file + ": is a dump as text, which nothing reads; make one with 'ptpstate dump "
                    "--json'\n");
   std::ofstream(file) << "[global]\npriority1 7\n";
   EXPECT_EQ(refused({"diff", file, file}, 2),
             file + ": is not a dump; a configuration file of ptp4l is loaded by 'ptpstate serve "
                    "--ptp4l-conf'\n");
   std::ofstream(file) << "\n";
   EXPECT_EQ(refused({"load", "--socket", socket, file}, 1),
             file + ": is empty; 'ptpstate dump --json' writes the expected format\n");
}

TEST_F(WrongFile, AConfigurationFileThatIsADirectorySaysSo) {
   EXPECT_EQ(refused({"serve", "--socket", socket, "--ptp4l-conf", scratch.path()}, 1),
             scratch.path() + ": Is a directory; give the name of a file of ptp4l(8)\n");
}

}  // namespace
}  // namespace Ptpstate
