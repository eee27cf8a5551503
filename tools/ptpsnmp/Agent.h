// The way to the SNMP agent: an AgentX subagent (RFC 2741), by net-snmp.
#pragma once

#include <memory>
#include <string>

#include "Holt/LogOutput.h"
#include "Holt/Loop.h"
#include "tools/ptpsnmp/Mib.h"

namespace Ptpsnmp {

/// Registers the MIB with an SNMP agent and answers its questions. If the agent is not there, or
/// goes, it is tried again every two seconds. Whatever is to be set is refused as not writable.
///
/// A loop never waits for the agent longer than a second at a time: while the subagent registers,
/// and while it asks, every two seconds, whether the agent is still there. No files of net-snmp are
/// read or written.
///
/// REQUIRES: one object in a process, since net-snmp has one state.
/// Threads: belongs to the thread of its loop.
class Agent final : public Holt::Source {
public:
   /// `socket`: the agent's, as net-snmp writes it: "unix:/var/agentx/master",
   /// "tcp:localhost:705". `mib` and `log` must outlive this object. Throws `Holt::Failure` if
   /// net-snmp cannot be started.
   Agent(std::string const& socket, Mib const& mib, Holt::LogOutput& log);
   ~Agent();
   Agent(Agent const&) = delete;
   Agent& operator=(Agent const&) = delete;

   // `Source`:
   void appendTo(std::vector<pollfd>& polled) override;
   U64 deadline() const override { return deadline_; }
   void onTurn(std::span<pollfd const> polled) override;

   /// The names of the things of net-snmp stay in the source.
   struct Impl;

private:
   std::unique_ptr<Impl> impl_;
   U64 deadline_ = 0;
};

}  // namespace Ptpsnmp
