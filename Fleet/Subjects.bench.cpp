// What a subject per entity costs, and what one per attribute would: a second of an agent with 64
// ports, published and acknowledged.
#include <benchmark/benchmark.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <set>

#include "Fleet/Names.h"
#include "Fleet/NatsServer.test.h"
#include "Fleet/Publisher.h"
#include "Holt/Client.h"
#include "Holt/State/Json.h"
#include "Holt/State/Values.h"
#include "tools/demoAgent/Agent.h"

namespace Fleet::Test {

namespace {

constexpr U32 ports = 64;

struct Switch64 {
   Sarn::Ptr<Ptp::Status> status{
         static_cast<Ptp::Status*>(&*Holt::newRoot("Ptp::Status", "ptp/status"))};
   DemoAgent::Agent agent{status, ports, 1};
};

/// Kilobytes of memory, and milliseconds of processor time so far.
double memoryOf(pid_t pid) {
   std::ifstream file("/proc/" + std::to_string(pid) + "/status");
   for (std::string word; file >> word;) {
      if (word == "VmRSS:") {
         double kilobytes = 0;
         file >> kilobytes;
         return kilobytes;
      }
   }
   return 0;
}

double timeOf(pid_t pid) {
   std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
   std::string word;
   for (int i = 0; i != 13; ++i) {
      file >> word;
   }
   double user = 0;
   double system = 0;
   file >> user >> system;
   return (user + system) * 1000 / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

/// Publishes each attribute under a subject of its own: "...portDS.Ethernet1.portState".
class AttributePublisher final : Kiv::Observer {
public:
   AttributePublisher(Connection& connection, Kiv::NamedEntity& root)
         : connection_(connection), root_(root) {
      all(root);
      root_.observerAdd(*this, Kiv::Scope::subtree);
   }
   ~AttributePublisher() { root_.observerDel(*this, Kiv::Scope::subtree); }

   void send() {
      while (!dirty_.empty() && inFlight_ < 1024) {
         auto const [entity, id] = *dirty_.begin();
         dirty_.erase(dirty_.begin());
         Kiv::FieldDescriptor const& field = *entity->kivType().field(id);
         std::string const& place = places_[entity].second;
         Kiv::AnyValue value(*field.type);
         value.read(entity, field);
         std::string message = R"({"session":"18ea827a304f19ef845bb17997a40f64","sequence":)" +
                               std::to_string(++messages) + R"(,"root":"Ptp::Status","value":)" +
                               Holt::jsonLine(Holt::jsonOf(value.ref())) + "}";
         bytes += message.size();
         ++inFlight_;
         connection_.ask("ptp.edge." + place + "." + field.name, std::move(message), 5'000'000'000,
                         [this](Arrived const*) { --inFlight_; });
      }
   }
   bool done() const { return dirty_.empty() && inFlight_ == 0; }

   U64 messages = 0;
   U64 bytes = 0;

private:
   void onChange(Kiv::Change const& change) override {
      add(Kiv::entityOf(change), *Kiv::entityOf(change).kivType().field(change.attributeId));
   }
   void add(Kiv::Entity const& entity, Kiv::FieldDescriptor const& field) {
      if (field.kind == Kiv::MemberKind::single && field.has(Kiv::FieldDescriptor::streamed)) {
         dirty_.insert({&entity, field.fieldId});
      } else if (field.kind == Kiv::MemberKind::children) {
         Kiv::forEachChild(entity, [this](Kiv::Entity& child, auto const&, auto const*) {
            if (!places_.contains(&child)) {
               all(child);
            }
         });
      }
   }
   void all(Kiv::Entity& entity) {
      places_[&entity] = {Sarn::Ptr<Kiv::Entity>(&entity), placeOf(entity)};
      Kiv::forEachField(entity.kivType(), [&](auto const& field) {
         if (field.kind == Kiv::MemberKind::single) {
            add(entity, field);
         }
      });
      Kiv::forEachChild(entity,
                        [this](Kiv::Entity& child, auto const&, auto const*) { all(child); });
   }

   Connection& connection_;
   Kiv::NamedEntity& root_;
   /// Held, so that what is deleted is there until it is forgotten.
   std::map<Kiv::Entity const*, std::pair<Sarn::Ptr<Kiv::Entity>, std::string>> places_;
   std::set<std::pair<Kiv::Entity const*, U16>> dirty_;
   std::size_t inFlight_ = 0;
};

template <class Done>
void until(Holt::Loop& loop, Done const& done) {
   while (!done()) {
      loop.turn(-1, std::chrono::milliseconds(100));
   }
}

/// Reports what a second costs: `count()` gives messages and bytes so far.
template <class Send, class Done, class Count>
void measure(benchmark::State& state, NatsServer const& server, Switch64& its, Holt::Loop& loop,
             Send const& send, Done const& done, Count const& count) {
   auto const all = [&] { return send(), done(); };
   until(loop, all);
   std::pair<double, double> const first = count();
   double const memory = memoryOf(server.pid());
   double const time = timeOf(server.pid());
   for (auto _ : state) {
      its.agent.tick();
      until(loop, all);
   }
   std::pair<double, double> const last = count();
   auto const seconds = static_cast<double>(state.iterations());
   state.counters["allMessages"] = first.first;
   state.counters["allKB"] = first.second / 1000;
   state.counters["messages"] = (last.first - first.first) / seconds;
   state.counters["KB"] = (last.second - first.second) / 1000 / seconds;
   state.counters["serverMB"] = memory / 1000;
   state.counters["serverMs"] = (timeOf(server.pid()) - time) / seconds;
}

/// The work of a subject per entity.
void publishSecond(benchmark::State& state) {
   if (!NatsServer::isInstalled()) {
      state.SkipWithError("nats-server is not installed");
      return;
   }
   NatsServer const server;
   Switch64 its;
   its.agent.fill();
   Connection connection({.urls = {server.url()}});
   Publisher publisher(connection, {.switchName = "edge", .heartbeat = 3600'000'000'000});
   publisher.rootAdd(its.status);
   publisher.sourceIs(true, 1, "");
   Holt::Loop loop;
   loop.add(connection);
   loop.add(publisher);
   measure(
         state, server, its, loop, [] {},
         [&] {
            Publisher::Status const status = publisher.status();
            return status.publishing && status.pending == 0 && status.inFlight == 0;
         },
         [&] {
            return std::pair(static_cast<double>(publisher.status().messages),
                             static_cast<double>(publisher.status().bytes));
         });
}

/// The same by attribute.
void publishSecondBaseline(benchmark::State& state) {
   if (!NatsServer::isInstalled()) {
      state.SkipWithError("nats-server is not installed");
      return;
   }
   NatsServer const server;
   Switch64 its;
   its.agent.fill();
   Connection connection({.urls = {server.url()}});
   Holt::Loop loop;
   loop.add(connection);
   bool made = false;
   until(loop, [&] { return connection.status().connected; });
   connection.ask("$JS.API.STREAM.CREATE.PTP",
                  R"({"name":"PTP","subjects":["ptp.>"],"storage":"file","num_replicas":1,)"
                  R"("max_msgs_per_subject":1,"discard":"old","retention":"limits"})",
                  5'000'000'000, [&](Arrived const*) { made = true; });
   until(loop, [&] { return made; });
   AttributePublisher publisher(connection, *its.status);
   measure(
         state, server, its, loop, [&] { publisher.send(); }, [&] { return publisher.done(); },
         [&] {
            return std::pair(static_cast<double>(publisher.messages),
                             static_cast<double>(publisher.bytes));
         });
}

BENCHMARK(publishSecond)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(publishSecondBaseline)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

}  // namespace Fleet::Test
