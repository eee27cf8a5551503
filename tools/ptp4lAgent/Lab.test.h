// Real daemons in network namespaces of their own. This takes root, ptp4l, pmc and ip; elsewhere,
// tests with a lab are skipped.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace Ptp4lAgent {

/// Namespaces that are connected by pairs of virtual Ethernet devices, and processes in them. At
/// the end, everything is gone.
///
/// No clock of the machine is stepped, and none is steered by more than 1 ppb: all daemons in a lab
/// are started so.
class Lab {
public:
   Lab();
   ~Lab();
   Lab(Lab const&) = delete;
   Lab& operator=(Lab const&) = delete;

   /// Why there can be no lab here; empty if there can.
   static std::string const& whyNot();

   std::string file(std::string const& name) const { return directory_ + "/" + name; }
   /// Makes a namespace; `name` is its name within the lab.
   void space(std::string const& name);
   /// Connects two namespaces by devices with these names and IPv4 addresses.
   void connect(std::string const& space, std::string const& device, std::string const& address,
                std::string const& otherSpace, std::string const& otherDevice,
                std::string const& otherAddress);
   void link(std::string const& space, std::string const& device, bool up);

   /// Starts a program in a namespace; its output goes to `file(name + ".log")`.
   pid_t start(std::string const& space, std::string const& name,
               std::vector<std::string> const& args);
   /// Starts a ptp4l whose socket is `file(name)`, with fast intervals and `more`.
   pid_t ptp4l(std::string const& space, std::string const& name,
               std::vector<std::string> const& more);
   /// Ends a process that was started here.
   void end(pid_t pid, int signal);

   /// What `pmc` reads: the fields of each answer, by name, in the order of the answers.
   using Fields = std::map<std::string, std::string>;
   std::vector<Fields> pmc(std::string const& name, std::string const& id, int domain = 0,
                           int transportSpecific = 0) const;

   std::string read(std::string const& name) const;

private:
   std::string spaceOf(std::string const& name) const { return prefix_ + name; }

   std::string directory_;
   std::string prefix_;
   std::vector<std::string> spaces_;
   std::vector<pid_t> processes_;
};

/// Runs a command in a shell. Returns its output; `status`, if not null, gets its exit status.
std::string outputOf(std::string const& command, int* status = nullptr);

}  // namespace Ptp4lAgent
