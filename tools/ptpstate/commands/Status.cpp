// status
#include <iostream>
#include <nlohmann/json.hpp>

#include "Holt/State/Json.h"
#include "Holt/Times.h"
#include "Kiv/Printable.h"
#include "tools/ptpstate/Commands.h"
#include "tools/shared/Progress.h"

namespace Ptpstate {

using namespace Holt;

namespace {

using Kiv::NboAttrLog::ServedRoot;
using Kiv::NboAttrLog::SessionStatus;

struct StatusOptions : ClientOptions {
   bool json = false;
};

char const* modeText(MountMode mode) {
   switch (mode) {
      case MountMode::reader:
         return "reader";
      case MountMode::writer:
         return "writer";
      case MountMode::owner:
         return "owner";
      case MountMode::candidate:
         return "candidate";
   }
   return "?";
}

/// Whether what the peer changes there is applied, and nobody else may change it.
bool leads(ServedRoot const& served) {
   return served.leads || served.mode == MountMode::owner;
}

Sarn::String counted(U64 count, char const* one, char const* many) {
   return std::to_string(count) + " " + (count == 1 ? one : many);
}

void print(std::ostream& out, SessionStatus const& session) {
   auto const row = [&out](char const* name, Sarn::String const& text) {
      out << "   " << name << Sarn::String(11 - std::char_traits<char>::length(name), ' ')
          << Kiv::printable(text) << '\n';
   };
   out << "connection " << session.number << ": " << Kiv::printable(peerText(session.peer))
       << (session.asking ? " (this command)" : "") << '\n';
   row("connected", durationText(session.age));
   for (ServedRoot const& served : session.roots) {
      row("mirrors", served.root.name + " (" + served.root.type + ") as " + modeText(served.mode) +
                           (served.leads ? ", leads" : "") +
                           (served.complete ? ", complete" : ", not complete yet"));
   }
   row("received", counted(session.stats.messagesIn, "message, ", "messages, ") +
                         counted(session.stats.bytesIn, "byte", "bytes"));
   row("sent", counted(session.stats.messagesOut, "message, ", "messages, ") +
                     counted(session.stats.bytesOut, "byte", "bytes"));
   row("coalesced",
       std::to_string(session.stats.changesCoalesced) + " of " +
             counted(session.stats.changesDeferred, "deferred change", "deferred changes"));
   row("untold", counted(session.dirtyAttributes, "attribute and ", "attributes and ") +
                       counted(session.dirtyKeys, "key of ", "keys of ") +
                       counted(session.dirtyEntities, "entity", "entities"));
   U64 const percent = session.capacity != 0 ? session.waiting * 100 / session.capacity : 0;
   row("buffer", std::to_string(session.waiting) + " of " +
                       counted(session.capacity, "byte", "bytes") + " (" + std::to_string(percent) +
                       " %)");
   row("behind", session.behind != 0 ? "for " + durationText(session.behind) : "no");
   if (session.stats.valuesLeftOut != 0) {
      row("left out", counted(session.stats.valuesLeftOut, "value", "values"));
   }
   for (Sarn::String const& what : session.leftOut) {
      row("", what);
   }
   if (session.lackingCount != 0) {
      row("lacks", counted(session.lackingCount, "attribute or type", "attributes or types"));
   }
   for (Sarn::String const& what : session.lacking) {
      row("", what);
   }
}

Json sessionJson(SessionStatus const& session) {
   Json peer;
   if (session.peer.pid != 0) {
      peer = {{"pid", session.peer.pid},
              {"uid", session.peer.uid},
              {"gid", session.peer.gid},
              {"program", session.peer.program}};
   }
   Json roots = Json::array();
   for (ServedRoot const& served : session.roots) {
      roots.push_back({{"type", served.root.type},
                       {"name", served.root.name},
                       {"mode", modeText(served.mode)},
                       {"leads", leads(served)},
                       {"complete", served.complete}});
   }
   return {{"connection", session.number},
           {"thisCommand", session.asking},
           {"peer", std::move(peer)},
           {"connectedNs", session.age},
           {"roots", std::move(roots)},
           {"messagesReceived", session.stats.messagesIn},
           {"bytesReceived", session.stats.bytesIn},
           {"messagesSent", session.stats.messagesOut},
           {"bytesSent", session.stats.bytesOut},
           {"changesDeferred", session.stats.changesDeferred},
           {"changesCoalesced", session.stats.changesCoalesced},
           {"dirtyEntities", session.dirtyEntities},
           {"dirtyAttributes", session.dirtyAttributes},
           {"dirtyKeys", session.dirtyKeys},
           {"bufferedBytes", session.waiting},
           {"bufferBytes", session.capacity},
           {"behindNs", session.behind},
           {"valuesLeftOut", session.stats.valuesLeftOut},
           {"leftOut", session.leftOut},
           {"lackingCount", session.lackingCount},
           {"lacking", session.lacking}};
}

Exit status(StatusOptions const& options) {
   Client client(options.socket, options.patience());
   Tools::showWaiting(client);
   std::vector<SessionStatus> const& sessions = client.sessions();
   if (options.json) {
      Json all = Json::array();
      for (SessionStatus const& session : sessions) {
         all.push_back(sessionJson(session));
      }
      std::cout << jsonLine(all, 3) << '\n';
      return Exit::ok;
   }
   for (OfferedRoot const& root : client.roots()) {
      if (root.stale) {
         std::cout << "root " << Kiv::printable(root.name + " (" + root.type + ")") << ": "
                   << staleText(root.staleSince, wallNow()) << '\n';
      }
   }
   for (SessionStatus const& session : sessions) {
      print(std::cout, session);
   }
   U32 const all = client.sessionsTotal();
   if (all > sessions.size()) {
      std::cout << "and " << all - sessions.size() << " more\n";
   }
   return Exit::ok;
}

}  // namespace

void addStatus(Command const& program, Run& run) {
   auto const options = std::make_shared<StatusOptions>();
   Command const command = program.command(
         "status",
         "Shows who is connected to a server and how well each connection keeps up, oldest "
         "first. Everybody who may connect may ask.\n"
         "\n"
         "\"coalesced\" counts deferred changes that the peer will never see, because a "
         "later change replaced them; changes of a transaction are deferred to its end. \"untold\" "
         "counts what is yet to be written to the "
         "buffer. \"behind\" is the time since the peer last had everything. \"lacks\" is what "
         "the peer's version of a module does not have, so that it is not sent.\n"
         "\n"
         "A root whose writer had claimed it and is gone comes first, as \"stale since\": it shows "
         "what its writer left.");
   command.footerIs(
         "Examples:\n"
         "  $ ptpstate status --socket /tmp/ptp\n"
         "  $ ptpstate status --socket /tmp/ptp --json");
   addClientOptions(command, *options);
   command.flag("--json", options->json, "Print JSON: an array of objects, times in nanoseconds");
   command.onChosen([options, &run] { run = [options] { return status(*options); }; });
}

}  // namespace Ptpstate
