#include "tests/fleet/Reader.h"

#include <cmath>
#include <iostream>
#include <map>

#include "Fleet/Mirror.h"
#include "Holt/File.h"
#include "Kiv/Digest.h"
#include "PtpLib/PtpStatusStatedbTypes/CurrentDS.h"
#include "tests/fleet/Commands.h"

namespace FleetLoad {

namespace {

/// Counts delays in classes of about 4.4 %: class n begins at 2^(n/16) microseconds.
class Delays {
public:
   void add(U64 nanoseconds) {
      double const us = std::max(1.0, static_cast<double>(nanoseconds) / 1000);
      ++classes_[static_cast<int>(16 * std::log2(us))];
      longest_ = std::max(longest_, nanoseconds);
   }
   /// Writes them, and forgets them.
   void write(std::ostream& out) {
      out << "\"longest\":" << longest_ << ",\"delays\":{";
      char const* separator = "";
      for (auto const& [number, count] : classes_) {
         out << separator << '"' << number << "\":" << count;
         separator = ",";
      }
      out << '}';
      classes_.clear();
      longest_ = 0;
   }

private:
   std::map<int, U64> classes_;
   U64 longest_ = 0;
};

/// Sees all changes of all switches.
class Watch final : public Fleet::Mirror::Listener, Kiv::Observer {
public:
   explicit Watch(Fleet::Mirror& mirror) : mirror_(mirror) { mirror_.listenerAdd(*this); }
   ~Watch() {
      mirror_.listenerDel(*this);
      for (auto const& [name, its] : mirror_.switches()) {
         for (Kiv::NamedEntity* const root : its->roots()) {
            root->observerDel(*this, Kiv::Scope::subtree);
         }
      }
   }
   Watch(Watch const&) = delete;
   Watch& operator=(Watch const&) = delete;

   void onRoot(Fleet::Switch&, Sarn::Ptr<Kiv::NamedEntity> const& root) override {
      root->observerAdd(*this, Kiv::Scope::subtree);
   }
   void onRootGone(Fleet::Switch&, Kiv::NamedEntity& root) override {
      root.observerDel(*this, Kiv::Scope::subtree);
   }
   void onChange(Kiv::Change const& change) override {
      ++changes_;
      Kiv::Entity const& entity = Kiv::entityOf(change);
      if (change.attributeId == time_->fieldId && &entity.kivType() == type_ &&
          mirror_.status().current) {
         U64 const now = Holt::steadyNow();
         U64 const then = static_cast<Ptp::CurrentDS const&>(entity).lastSyncLocalTime();
         if (then != 0 && then <= now) {
            delays_.add(now - then);
         }
      }
   }

   U64 changes() const noexcept { return changes_; }
   Delays& delays() noexcept { return delays_; }

private:
   Fleet::Mirror& mirror_;
   Kiv::TypeImpl const* type_ = &Ptp::CurrentDS::kivTypeImpl;
   Kiv::FieldDescriptor const* time_ = type_->field("lastSyncLocalTime");
   U64 changes_ = 0;
   Delays delays_;
};

void writeDigests(Fleet::Mirror const& mirror, std::string const& path) {
   Holt::writeWholeFile(path, [&](std::ostream& out) {
      for (auto const& [name, its] : mirror.switches()) {
         for (Kiv::NamedEntity const* const root : its->roots()) {
            out << name << ' ' << root->nameString() << ' ' << Kiv::treeDigest(*root).text()
                << '\n';
         }
      }
   });
}

void writeStatus(Fleet::Mirror const& mirror, Fleet::Connection const& connection, Watch& watch) {
   U64 complete = 0;
   U64 current = 0;
   U64 entities = 0;
   U64 differences = 0;
   U64 refused = 0;
   for (auto const& [name, its] : mirror.switches()) {
      complete += its->status().complete ? 1 : 0;
      current += its->status().current ? 1 : 0;
      entities += its->entities();
      differences += its->status().differences;
      refused += its->status().refused + its->status().unknown;
   }
   Fleet::Mirror::Status const& status = mirror.status();
   std::cout << "{\"time\":" << Holt::steadyNow() << ",\"switches\":" << mirror.switches().size()
             << ",\"connections\":" << connection.status().connections
             << ",\"fleet\":" << (status.current ? "true" : "false") << ",\"complete\":" << complete
             << ",\"current\":" << current << ",\"entities\":" << entities
             << ",\"messages\":" << status.messages << ",\"malformed\":" << status.malformed
             << ",\"refused\":" << refused << ",\"differences\":" << differences
             << ",\"repairs\":" << status.repairs << ",\"changes\":" << watch.changes() << ',';
   watch.delays().write(std::cout);
   std::cout << '}' << std::endl;
}

}  // namespace

void runReader(ReaderOptions const& options) {
   constexpr U64 second = 1'000'000'000;
   Fleet::Connection connection(Tools::connectionOptions(options.nats, "reader"));
   Fleet::Mirror mirror(connection, {.switches = options.switches});
   Watch watch(mirror);
   Commands commands([&](std::string const& line) {
      constexpr std::string_view digests = "digests ";
      if (line.starts_with(digests)) {
         writeDigests(mirror, line.substr(digests.size()));
      }
   });
   Every tell(second, [&] { writeStatus(mirror, connection, watch); });
   Holt::Loop loop;
   loop.add(connection);
   loop.add(mirror);
   loop.add(commands);
   loop.add(tell);
   while (!commands.ended()) {
      loop.turn(-1);
   }
}

}  // namespace FleetLoad
