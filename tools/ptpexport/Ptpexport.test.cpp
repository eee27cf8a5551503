// The program itself: its options, TLS, and its end.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

extern char** environ;

namespace {

std::string fileText(std::string const& path) {
   std::ostringstream text;
   text << std::ifstream(path).rdbuf();
   return text.str();
}

class Ptpexport : public testing::Test {
protected:
   Ptpexport() {
      std::string pattern = (std::filesystem::temp_directory_path() / "ptpexport.XXXXXX").string();
      directory = ::mkdtemp(pattern.data());
   }
   ~Ptpexport() override {
      for (pid_t const pid : children_) {
         ::kill(pid, SIGTERM);
         ::waitpid(pid, nullptr, 0);
      }
      std::filesystem::remove_all(directory);
   }

   std::string file(std::string const& name) const { return directory + "/" + name; }
   std::string socket() const { return file("socket"); }
   static std::string program(std::string const& name) { return PTPLIB_BIN_DIR "/" + name; }
   /// Runs a shell command to its end; returns its exit status and output.
   std::string shell(std::string const& command) const {
      std::string const out = file("out");
      int const status =
            std::system(("timeout 20 sh -c '" + command + "' >" + out + " 2>&1").c_str());
      return std::to_string(WEXITSTATUS(status)) + " " + fileText(out);
   }
   std::string ptpexport(std::string const& arguments) const {
      return shell(program("ptpexport") + " --socket " + socket() + " " + arguments);
   }
   static bool has(std::string const& name) {
      return std::system(("command -v " + name + " >/dev/null 2>&1").c_str()) == 0;
   }
   /// Starts a program, which is told to end when the test ends.
   pid_t start(std::vector<std::string> arguments, std::string const& out) {
      posix_spawn_file_actions_t actions;
      posix_spawn_file_actions_init(&actions);
      posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                       0600);
      posix_spawn_file_actions_adddup2(&actions, 1, 2);
      std::vector<char*> pointers;
      for (std::string& argument : arguments) {
         pointers.push_back(argument.data());
      }
      pointers.push_back(nullptr);
      pid_t pid = -1;
      EXPECT_EQ(::posix_spawn(&pid, pointers[0], &actions, nullptr, pointers.data(), environ), 0);
      posix_spawn_file_actions_destroy(&actions);
      children_.push_back(pid);
      return pid;
   }
   /// Waits until a file has a text; returns what the file has.
   static std::string waitFor(std::string const& path, std::string const& text) {
      for (int i = 0; i != 500; ++i) {
         if (std::string const all = fileText(path); all.find(text) != std::string::npos) {
            return all;
         }
         std::this_thread::sleep_for(std::chrono::milliseconds(20));
      }
      ADD_FAILURE() << "no '" << text << "' in: " << fileText(path);
      return {};
   }
   void serve() {
      start({program("ptpstate"), "serve", "--socket", socket(), "--root",
             "Ptp::Config=ptp/config"},
            file("serve.out"));
      for (int i = 0; i != 500 && !std::filesystem::exists(socket()); ++i) {
         std::this_thread::sleep_for(std::chrono::milliseconds(20));
      }
   }
   /// Starts the program, and returns its address.
   std::string startExport(std::vector<std::string> const& more) {
      std::vector<std::string> arguments = {program("ptpexport"), "--socket", socket()};
      arguments.insert(arguments.end(), more.begin(), more.end());
      start(arguments, file("export.out"));
      std::string const said = waitFor(file("export.out"), "listening at ");
      std::size_t const at = said.find("http");
      return said.substr(at, said.find('\n', at) - at);
   }

   std::string directory;
   std::vector<pid_t> children_;
};

TEST_F(Ptpexport, SaysWhatIsWrongWithItsCommandLine) {
   EXPECT_EQ(ptpexport("--listen 9979"),
             "2 ptpexport: --listen 9979: expected ADDRESS:PORT, such as 127.0.0.1:9979 or "
             "[::1]:9979\n");
   EXPECT_EQ(ptpexport("--tls-cert a"), "2 ptpexport: TLS needs both --tls-cert and --tls-key\n");
   EXPECT_EQ(ptpexport("--listen 127.0.0.1:0 --tls-cert " + file("none") + " --tls-key x"),
             "1 ptpexport: --tls-cert " + file("none") + ": cannot be read, or is empty\n");
   std::ofstream(file("bad")) << "no certificate\n";
   std::string const bad =
         ptpexport("--listen 127.0.0.1:0 --tls-cert " + file("bad") + " --tls-key " + file("bad"));
   EXPECT_TRUE(bad.starts_with("1 ptpexport: cannot serve TLS with this certificate and key: "))
         << bad;
}

TEST_F(Ptpexport, ShowsWhatPtpstateDumps) {
   if (!has("curl")) {
      GTEST_SKIP() << "curl is not installed";
   }
   serve();
   std::string const url = startExport({"--listen", "127.0.0.1:0"});
   EXPECT_TRUE(url.starts_with("http://127.0.0.1:")) << url;
   EXPECT_TRUE(shell("curl -s --retry 5 --retry-all-errors --retry-delay 1 -f " + url + "healthz")
                     .starts_with("0 {\"connected\":true"));
   EXPECT_EQ(shell("curl -s " + url + "state/"),
             shell(program("ptpstate") + " dump --json --socket " + socket()));
   EXPECT_EQ(shell("curl -sg \"" + url + "state/ptp/config.clockQuality\""),
             shell(program("ptpstate") + " dump --json --socket " + socket() +
                   " ptp/config.clockQuality"));
   ::kill(children_.back(), SIGTERM);
   int status = -1;
   EXPECT_EQ(::waitpid(children_.back(), &status, 0), children_.back());
   EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
   children_.pop_back();
}

TEST_F(Ptpexport, SpeaksTlsWithAGivenCertificate) {
   if (!has("curl") || !has("openssl")) {
      GTEST_SKIP() << "curl or openssl is not installed";
   }
   std::string const key = file("key.pem");
   std::string const certificate = file("cert.pem");
   std::string const made =
         shell("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 "
               "-subj /CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1 -keyout " +
               key + " -out " + certificate);
   if (!made.starts_with("0 ")) {
      GTEST_SKIP() << "openssl cannot make a certificate: " << made;
   }
   serve();
   std::string const url =
         startExport({"--listen", "127.0.0.1:0", "--tls-cert", certificate, "--tls-key", key});
   EXPECT_TRUE(url.starts_with("https://127.0.0.1:")) << url;
   std::string const curl = "curl -s --cacert " + certificate + " ";
   EXPECT_TRUE(shell(curl + "--retry 5 --retry-all-errors --retry-delay 1 -f " + url + "healthz")
                     .starts_with("0 {\"connected\":true"));
   EXPECT_EQ(shell(curl + url + "state/"),
             shell(program("ptpstate") + " dump --json --socket " + socket()));
   EXPECT_TRUE(shell("curl -s " + url + "healthz").starts_with("60 "));  // not trusted
   std::string const plain = "http" + url.substr(5);
   EXPECT_FALSE(shell("curl -s " + plain + "healthz").starts_with("0 "));
   std::string const events = shell(curl + "-N -m 1 " + url + "events");
   EXPECT_EQ(events, "28 retry: 2000\n\n");
}

}  // namespace
