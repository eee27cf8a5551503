#include "tools/ptp4lAgent/Lab.test.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace Ptp4lAgent {

std::string outputOf(std::string const& command, int* status) {
   FILE* const pipe = ::popen((command + " 2>&1").c_str(), "r");
   if (pipe == nullptr) {
      throw std::runtime_error("cannot run " + command);
   }
   std::string all;
   std::array<char, 4096> buffer;
   for (std::size_t n; (n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
      all.append(buffer.data(), n);
   }
   int const result = ::pclose(pipe);
   if (status != nullptr) {
      *status = WEXITSTATUS(result);
   }
   return all;
}

namespace {

void must(std::string const& command) {
   int status = 0;
   std::string const output = outputOf(command, &status);
   if (status != 0) {
      throw std::runtime_error(command + ": " + output);
   }
}

std::string reason() {
   if (::geteuid() != 0) {
      return "network namespaces need root";
   }
   for (std::string const program : {"ptp4l", "pmc", "ip"}) {
      if (std::system(("command -v " + program + " >/dev/null 2>&1").c_str()) != 0) {
         return program + " is not installed";
      }
   }
   std::string const name = "ptpTry" + std::to_string(::getpid());
   int status = 0;
   std::string const said = outputOf(
         "ip netns add " + name + " && ip -n " + name +
               " link add name va type veth peer name vb; s=$?; ip netns del " + name + "; exit $s",
         &status);
   return status == 0 ? "" : "network namespaces are not permitted: " + said;
}

}  // namespace

std::string const& Lab::whyNot() {
   static std::string const why = reason();
   return why;
}

Lab::Lab() : prefix_("ptp" + std::to_string(::getpid())) {
   std::string pattern = (std::filesystem::temp_directory_path() / "ptpLab.XXXXXX").string();
   directory_ = ::mkdtemp(pattern.data());
}

Lab::~Lab() {
   while (!processes_.empty()) {
      end(processes_.back(), SIGKILL);
   }
   for (std::string const& space : spaces_) {
      outputOf("ip netns del " + space);
   }
   std::filesystem::remove_all(directory_);
}

void Lab::space(std::string const& name) {
   must("ip netns add " + spaceOf(name));
   spaces_.push_back(spaceOf(name));
   must("ip -n " + spaceOf(name) + " link set lo up");
}

void Lab::connect(std::string const& space, std::string const& device, std::string const& address,
                  std::string const& otherSpace, std::string const& otherDevice,
                  std::string const& otherAddress) {
   std::string const a = spaceOf(space);
   std::string const b = spaceOf(otherSpace);
   must("ip link add " + device + " netns " + a + " type veth peer name " + otherDevice +
        " netns " + b);
   must("ip -n " + a + " addr add " + address + "/24 dev " + device);
   must("ip -n " + b + " addr add " + otherAddress + "/24 dev " + otherDevice);
   link(space, device, true);
   link(otherSpace, otherDevice, true);
}

void Lab::link(std::string const& space, std::string const& device, bool up) {
   must("ip -n " + spaceOf(space) + " link set " + device + (up ? " up" : " down"));
}

pid_t Lab::start(std::string const& space, std::string const& name,
                 std::vector<std::string> const& args) {
   std::vector<std::string> all{"ip", "netns", "exec", spaceOf(space)};
   all.insert(all.end(), args.begin(), args.end());
   std::vector<char*> pointers;
   for (std::string& one : all) {
      pointers.push_back(one.data());
   }
   pointers.push_back(nullptr);
   std::string const log = file(name + ".log");
   pid_t const pid = ::fork();
   if (pid == 0) {
      int const fd = ::open(log.c_str(), O_CREAT | O_WRONLY | O_APPEND, 0600);
      ::dup2(fd, STDOUT_FILENO);
      ::dup2(fd, STDERR_FILENO);
      ::execvp(pointers[0], pointers.data());
      ::_exit(127);
   }
   processes_.push_back(pid);
   return pid;
}

pid_t Lab::ptp4l(std::string const& space, std::string const& name,
                 std::vector<std::string> const& more) {
   std::vector<std::string> args{
         "ptp4l", "-S", "-m", "-q", "--uds_address", file(name), "--logAnnounceInterval", "-2",
         "--logSyncInterval", "-3", "--logMinDelayReqInterval", "-2", "--logMinPdelayReqInterval",
         "-2", "--fault_reset_interval", "0", "--kernel_leap", "0",
         // The machine's clock stays where it is.
         "--max_frequency", "1", "--first_step_threshold", "0", "--step_threshold", "0",
         "--pi_proportional_const", "0.1", "--pi_integral_const", "0.03"};
   args.insert(args.end(), more.begin(), more.end());
   return start(space, name, args);
}

void Lab::end(pid_t pid, int signal) {
   ::kill(pid, signal);
   ::waitpid(pid, nullptr, 0);
   std::erase(processes_, pid);
}

std::vector<Lab::Fields> Lab::pmc(std::string const& name, std::string const& id, int domain,
                                  int transportSpecific) const {
   std::istringstream lines(outputOf("timeout 5 pmc -u -b 0 -d " + std::to_string(domain) + " -t " +
                                     std::to_string(transportSpecific) + " -i " + file("pmc") +
                                     " -s " + file(name) + " 'GET " + id + "'"));
   std::vector<Fields> answers;
   for (std::string line; std::getline(lines, line);) {
      if (line.find(" RESPONSE MANAGEMENT " + id) != std::string::npos) {
         answers.emplace_back();
         continue;
      }
      std::istringstream words(line);
      std::string field;
      std::string value;
      if (!answers.empty() && words >> field >> value) {
         answers.back()[field] = value;
      }
   }
   return answers;
}

std::string Lab::read(std::string const& name) const {
   std::ostringstream all;
   all << std::ifstream(file(name)).rdbuf();
   return all.str();
}

}  // namespace Ptp4lAgent
