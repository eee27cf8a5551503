#include "tools/ptpsnmp/Agent.h"

// Its headers must come in this order. They have a name that is ours, unless told not to.
// clang-format off
#define NETSNMP_REMOVE_U64
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/library/large_fd_set.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/agent/agent_callbacks.h>
// clang-format on

#include <syslog.h>

#include <algorithm>
#include <cstdlib>
#include <exception>

#include "Holt/Failure.h"
#include "Holt/Times.h"

namespace Ptpsnmp {

namespace {

constexpr char programName[] = "ptpsnmp";
/// Seconds: of the attempts to reach the agent, and of the question whether it is still there.
constexpr int interval = 2;
/// Seconds for an answer of the agent.
constexpr int patience = 1;

}  // namespace

struct Agent::Impl {
   Impl(std::string const& path, Mib const& theMib, Holt::LogOutput& theLog)
         : socket(path), mib(theMib), log(theLog) {
      netsnmp_large_fd_set_init(&ready, FD_SETSIZE);
   }
   ~Impl() { netsnmp_large_fd_set_cleanup(&ready); }
   Impl(Impl const&) = delete;
   Impl& operator=(Impl const&) = delete;

   void say(Sarn::String const& what) {
      log.line(Holt::timeText(Holt::wallNow()) + " agent " + socket + ": " + what);
   }
   void libraryIsSaying(char const* text);
   void answer(int mode, netsnmp_agent_request_info* about, netsnmp_request_info* request);

   std::string socket;
   Mib const& mib;
   Holt::LogOutput& log;
   netsnmp_large_fd_set ready{};
   /// What net-snmp said last: it repeats itself at every attempt.
   Sarn::String said;
};

namespace {

using Impl = Agent::Impl;

/// As much as the MIB can tell apart: what is longer lies behind.
class Asked {
public:
   explicit Asked(netsnmp_variable_list const& variable)
         : size_(std::min(variable.name_length, std::size_t{MAX_OID_LEN})) {
      for (std::size_t i = 0; i != size_; ++i) {
         parts_[i] = static_cast<U32>(variable.name[i]);
      }
   }
   OidView view() const { return {parts_, size_}; }

private:
   std::size_t size_;
   U32 parts_[MAX_OID_LEN];
};

struct NetSnmpOid {
   explicit NetSnmpOid(Oid const& from) : size(from.size()) {
      std::ranges::copy(from.view(), parts);
   }
   std::size_t size;
   oid parts[Oid::longest];
};

void set(netsnmp_variable_list* variable, u_char type, void const* bytes, std::size_t size) {
   snmp_set_var_typed_value(variable, type, bytes, size);
}

void setValue(netsnmp_variable_list* variable, Syntax syntax, Value const& value) {
   if (auto const* const octets = std::get_if<std::string>(&value)) {
      set(variable, ASN_OCTET_STR, octets->data(), octets->size());
      return;
   }
   if (auto const* const id = std::get_if<Oid>(&value)) {
      NetSnmpOid const theirs(*id);
      set(variable, ASN_OBJECT_ID, theirs.parts, theirs.size * sizeof(oid));
      return;
   }
   U64 const number = std::get<U64>(value);
   if (syntax == Syntax::counter64) {
      counter64 theirs{};
      theirs.high = number >> 32;
      theirs.low = number & 0xFFFFFFFF;
      set(variable, ASN_COUNTER64, &theirs, sizeof theirs);
      return;
   }
   u_char const type = syntax == Syntax::integer32   ? ASN_INTEGER
                       : syntax == Syntax::counter32 ? ASN_COUNTER
                                                     : ASN_GAUGE;  // that of Unsigned32, too
   long const theirs = static_cast<long>(number);
   set(variable, type, &theirs, sizeof theirs);
}

int onRequests(netsnmp_mib_handler*, netsnmp_handler_registration* registration,
               netsnmp_agent_request_info* about, netsnmp_request_info* requests) {
   auto& impl = *static_cast<Impl*>(registration->my_reg_void);
   for (netsnmp_request_info* request = requests; request != nullptr; request = request->next) {
      if (request->processed != 0) {
         continue;
      }
      try {
         impl.answer(about->mode, about, request);
      } catch (std::exception const&) {  // no memory: nothing may pass through net-snmp
         netsnmp_set_request_error(about, request, SNMP_ERR_GENERR);
      }
   }
   return SNMP_ERR_NOERROR;
}

int onLog(int, int, void* message, void* impl) noexcept {
   auto const* const said = static_cast<snmp_log_message const*>(message);
   if (said->priority <= LOG_WARNING) {
      static_cast<Impl*>(impl)->libraryIsSaying(said->msg);
   }
   return 0;
}

int onRegistered(int, int, void*, void* impl) noexcept {
   static_cast<Impl*>(impl)->said.clear();
   static_cast<Impl*>(impl)->say("registered");
   return 0;
}

int onLost(int, int, void*, void* impl) noexcept {
   static_cast<Impl*>(impl)->say("lost");
   return 0;
}

}  // namespace

void Agent::Impl::libraryIsSaying(char const* text) {
   Sarn::String line(text);
   while (!line.empty() && line.back() == '\n') {
      line.pop_back();
   }
   if (!line.empty() && line != said) {
      said = line;
      say(line);
   }
}

void Agent::Impl::answer(int mode, netsnmp_agent_request_info* about,
                         netsnmp_request_info* request) {
   Asked const asked(*request->requestvb);
   if (mode == MODE_GET) {
      Mib::Got const got = mib.get(asked.view());
      if (got.found == Mib::Found::value) {
         setValue(request->requestvb, got.syntax, got.value);
      } else {
         netsnmp_set_request_error(
               about, request,
               got.found == Mib::Found::noSuchObject ? SNMP_NOSUCHOBJECT : SNMP_NOSUCHINSTANCE);
      }
   } else if (mode == MODE_GETNEXT) {
      // Without a value, net-snmp goes on behind the MIB.
      if (auto const found = mib.next(asked.view())) {
         NetSnmpOid const theirs(found->oid);
         snmp_set_var_objid(request->requestvb, theirs.parts, theirs.size);
         setValue(request->requestvb, found->syntax, found->value);
      }
   } else {
      netsnmp_set_request_error(about, request, SNMP_ERR_NOTWRITABLE);
   }
}

Agent::Agent(std::string const& socket, Mib const& mib, Holt::LogOutput& log)
      : impl_(std::make_unique<Impl>(socket, mib, log)) {
   snmp_disable_log();
   snmp_enable_calllog();
   snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, &onLog, impl_.get());
   ::setenv("MIBS", "", 1);  // values are sent by number; no texts of MIBs are needed
   auto const library = [](int which) { netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, which, 1); };
   library(NETSNMP_DS_LIB_DONT_READ_CONFIGS);
   library(NETSNMP_DS_LIB_DONT_PERSIST_STATE);
   library(NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD);
   library(NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE);
   library(NETSNMP_DS_LIB_ALARM_DONT_USE_SIG);
   auto const agent = [](int which, int value) {
      netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, which, value);
   };
   char nowhere[] = "/dev/null";
   set_persistent_directory(nowhere);
   netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, 1);
   netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, socket.c_str());
   if (init_agent(programName) != 0) {
      throw Holt::Failure("net-snmp cannot be started");
   }
   // It has set its own by now.
   agent(NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL, interval);
   agent(NETSNMP_DS_AGENT_AGENTX_TIMEOUT, patience * ONE_SEC);
   agent(NETSNMP_DS_AGENT_AGENTX_RETRIES, 0);
   snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START, &onRegistered,
                          impl_.get());
   snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP, &onLost,
                          impl_.get());
   NetSnmpOid const root(mibObjects);
   netsnmp_handler_registration* const registration = netsnmp_create_handler_registration(
         programName, &onRequests, root.parts, root.size, HANDLER_CAN_RONLY);
   if (registration == nullptr) {
      throw Holt::Failure("net-snmp has no memory for the registration of the MIB");
   }
   registration->my_reg_void = impl_.get();
   if (netsnmp_register_handler(registration) != MIB_REGISTERED_OK) {
      throw Holt::Failure("net-snmp does not register the MIB");
   }
   init_snmp(programName);  // connects
}

Agent::~Agent() {
   // What it says at the end goes nowhere, and not to standard error.
   netsnmp_register_loghandler(NETSNMP_LOGHANDLER_NONE, LOG_EMERG);
   snmp_disable_calllog();
   // net-snmp would free the argument of a callback that is left.
   snmp_unregister_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, &onLog, impl_.get(), 1);
   snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START, &onRegistered,
                            impl_.get(), 1);
   snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP, &onLost,
                            impl_.get(), 1);
   snmp_shutdown(programName);
   shutdown_agent();
}

void Agent::appendTo(std::vector<pollfd>& polled) {
   int count = 0;
   int forever = 1;
   timeval wait{};
   NETSNMP_LARGE_FD_ZERO(&impl_->ready);
   snmp_select_info2(&count, &impl_->ready, &wait, &forever);
   for (int fd = 0; fd < count; ++fd) {
      if (NETSNMP_LARGE_FD_ISSET(fd, &impl_->ready)) {
         polled.push_back({fd, POLLIN, 0});
      }
   }
   deadline_ = forever != 0 ? 0
                            : Holt::steadyNow() + static_cast<U64>(wait.tv_sec) * 1'000'000'000 +
                                    static_cast<U64>(wait.tv_usec) * 1000;
}

void Agent::onTurn(std::span<pollfd const> polled) {
   bool any = false;
   NETSNMP_LARGE_FD_ZERO(&impl_->ready);
   for (pollfd const& each : polled) {
      if (each.revents != 0) {
         NETSNMP_LARGE_FD_SET(each.fd, &impl_->ready);
         any = true;
      }
   }
   if (any) {
      snmp_read2(&impl_->ready);
   } else {
      snmp_timeout();
   }
   run_alarms();
   netsnmp_check_outstanding_agent_requests();
}

}  // namespace Ptpsnmp
