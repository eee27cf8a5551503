#include "KivTest/Simulation.h"

#include <algorithm>

#include "Kiv/Map/Hash.h"
#include "Kiv/Module.h"
#include "Kiv/NboAttrLogPlayer.h"
#include "Kiv/NboAttrLogRecorder.h"
#include "Kiv/Types.h"
#include "KivTest/SimulationTree.h"

namespace KivTest {

using Kiv::NboAttrLog::Hub;
using Kiv::NboAttrLog::Mount;
using Kiv::NboAttrLog::MountMode;
using Kiv::NboAttrLog::Session;

Sarn::Ptr<Kiv::NamedEntity> rootOf(std::string_view type, std::string_view name) {
   Kiv::TypeImpl const* const found = Kiv::typeByName(type);
   if (found == nullptr || !found->named) {
      throw Kiv::Exception("no root type is named " + std::string(type));
   }
   Sarn::String const text(name);
   std::array<Kiv::ValueRef, 1> const arguments{&text};
   Sarn::Ptr<Kiv::Entity> const made = found->entity->genericIfConstructFromCtorArgs(arguments);
   return Sarn::Ptr<Kiv::NamedEntity>(static_cast<Kiv::NamedEntity*>(made.get()));
}

/// Makes another change when notified of one, until its budget is used up.
class Simulation::Meddler final : public Kiv::Observer {
public:
   Meddler(Kiv::NamedEntity& root, Chance& chance) : root_(root), chance_(chance) {}

   void onChange(Kiv::Change const&) override {
      if (budget_ != 0 && chance_.oneIn(3)) {
         --budget_;
         changeAtRandom(root_, chance_);
      }
   }
   void budgetIs(std::size_t budget) { budget_ = budget; }

   /// Observes the root, or a random child of it, where it is notified before observers further up.
   void watch() {
      Kiv::Entity* watched = &root_;
      for (Kiv::Entity* const child : childrenInOrder(root_)) {
         watched = chance_.oneIn(3) ? child : watched;
      }
      if (!watched->hasObserver(*this, Kiv::Scope::entity)) {
         watched->observerAdd(*this);
      }
   }

private:
   Kiv::NamedEntity& root_;
   Chance& chance_;
   std::size_t budget_ = 0;
};

struct Simulation::Site {
   Site(SimulationPlan const& plan, Kiv::NboAttrLog::Limits const& limits, Chance& chance)
         : roots{rootOf(plan.type, "sim")}, meddler(*roots[0], chance), hub(limits) {
      if (!plan.otherType.empty()) {
         roots.push_back(rootOf(plan.otherType, "other"));
      }
   }

   // An observer must not be destroyed before what it observes.
   struct Release {
      std::vector<Sarn::Ptr<Kiv::NamedEntity>>& roots;
      ~Release() { roots.clear(); }
   };

   std::vector<Sarn::Ptr<Kiv::NamedEntity>> roots;
   Meddler meddler;
   Release release{roots};
   Hub hub;
};

struct Simulation::Link : Kiv::NboAttrLog::SessionListener {
   Link(Site& from, Site& to, MountMode how) : served(from), mirror(to), mode(how) {}

   Site& served;
   Site& mirror;
   MountMode mode;
   std::unique_ptr<Session> server;
   std::unique_ptr<Session> client;
   std::vector<Mount*> mounts;
   bool stopped = false;
   /// What a comparison has found, although nothing differs.
   std::string found;
   std::size_t compared = 0;

   void onCompared(Session&, Mount&, Kiv::NboAttrLog::Compared const& result) override {
      ++compared;
      if (result.differing != 0) {
         found = "a comparison has found " + result.paths[0] + " different";
      }
   }
   void connect() {
      server = std::make_unique<Session>(served.hub);
      client = std::make_unique<Session>(mirror.hub, this);
      for (auto const& root : mirror.roots) {
         mounts.push_back(&client->mountIs(root, mode));
      }
   }
   void drop() {
      server.reset();
      client.reset();
      mounts.clear();
   }
   /// Mounts roots again that were missing or have gone. Returns whether there were any.
   bool mountAgain() {
      bool any = false;
      for (std::size_t i = 0; i != mounts.size() && !client->closed(); ++i) {
         Mount::State const state = mounts[i]->state();
         if (state == Mount::State::gone || state == Mount::State::refused) {
            mounts[i] = &client->mountIs(mirror.roots[i], mode);
            any = true;
         }
      }
      return any;
   }
};

/// A recording of the source's roots, which is played back at the end.
struct Simulation::Recording final : Kiv::NboAttrLog::RecordSink, Kiv::NboAttrLog::RecordingSource {
   explicit Recording(Hub& hub) : recorder(hub, *this, {.blockSize = U32(1) << 15}) {}

   U64 begin() override { return 1; }
   bool write(U8 const* data, std::size_t count) override {
      bytes.insert(bytes.end(), data, data + count);
      return true;
   }
   Sarn::String reason() const override { return {}; }
   U64 size() override { return bytes.size(); }
   std::size_t readAt(U64 offset, U8* to, std::size_t count) override {
      std::size_t const at = static_cast<std::size_t>(std::min<U64>(offset, bytes.size()));
      count = std::min(count, bytes.size() - at);
      std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), count, to);
      return count;
   }

   void turn() {
      ++now;
      recorder.turn({now, now});
   }
   /// How the played-back trees differ from the roots; empty if they do not.
   std::string check(std::vector<Sarn::Ptr<Kiv::NamedEntity>> const& roots) {
      recorder.snapshotIs();
      do {
         turn();
      } while (recorder.waiting() && !recorder.failed());
      ++now;
      recorder.close({now, now});
      if (recorder.failed()) {
         return "the recording: " + recorder.reason();
      }
      Kiv::NboAttrLog::Player player(
            [](Kiv::NboAttrLog::OfferedRoot const& root) { return rootOf(root.type, root.name); });
      Kiv::NboAttrLog::RecordingReader reader(*this);
      for (Kiv::NboAttrLog::RecordingReader::Frame frame; reader.next(frame);) {
         if (!player.apply(frame)) {
            return "the recording cannot be played: " + player.reason();
         }
      }
      for (auto const& root : roots) {
         for (auto const& played : player.roots()) {
            if (&played->kivType() == &root->kivType()) {
               std::string const difference = firstDifference(*root, *played);
               if (!difference.empty()) {
                  return "the recording: " + difference;
               }
            }
         }
      }
      return player.roots().size() == roots.size() ? "" : "the recording lacks a root";
   }

   std::vector<U8> bytes;
   U64 now = 0;
   Kiv::NboAttrLog::Recorder recorder;
};

Simulation::Simulation(SimulationPlan const& plan, U64 seed) : plan_(plan), chance_(seed) {
   Kiv::HashHelper::hashSeed32Is(hashSeed);  // the orders of maps depend on the seed, too
   static constexpr std::size_t buffers[] = {900, 1200, 3000, 100000};
   std::size_t const chosen = buffers[chance_.below(std::size(buffers))];
   limits_.outputBuffer = plan.outputBuffer != 0 ? plan.outputBuffer : chosen;
   limits_.longestMessage = std::size_t(1) << 14;
   limits_.entities = U32(1) << 16;
   static constexpr std::size_t keys[] = {1, 3, 1024};
   limits_.dirtyKeys = keys[seed % std::size(keys)];
   static constexpr U64 work[] = {1, 5, 4096};
   limits_.digestWork = work[seed / 3 % std::size(work)];
   std::size_t const writers = plan.writers;
   std::size_t const mirrors = plan.readers + writers;
   auto const siteIs = [this]() -> Site& {
      sites_.push_back(std::make_unique<Site>(plan_, limits_, chance_));
      return *sites_.back();
   };
   // The source comes first, then the writers; all of these may be changed directly.
   Site& source = siteIs();
   offer(source);
   writable_.push_back(&source);
   for (std::size_t i = 0; i != mirrors; ++i) {
      Site& mirror = siteIs();
      linkIs(source, mirror, i < writers ? MountMode::writer : MountMode::reader);
      if (i < writers) {
         writable_.push_back(&mirror);
      }
   }
   if (plan.writerBehindWriter) {
      Site& before = *writable_.back();
      offer(before);
      Site& mirror = siteIs();
      linkIs(before, mirror, MountMode::writer);
      writable_.push_back(&mirror);
   }
   if (plan.relay) {
      Site& before = *sites_[std::min(1 + writers, mirrors)];
      if (before.hub.roots().empty()) {
         offer(before);
      }
      linkIs(before, siteIs(), MountMode::reader);
   }
   if (chance_.oneIn(2)) {  // a mirror need not be empty at the start
      for (auto const& site : sites_) {
         for (std::size_t left = chance_.below(60); left != 0; --left) {
            change(*site);
         }
      }
   }
   if (plan.witness != nullptr) {
      sites_.back()->roots[0]->observerAdd(*plan.witness, Kiv::Scope::subtree);
   }
   if (plan.recorder) {
      recording_ = std::make_unique<Recording>(source.hub);
   }
}

Simulation::~Simulation() {
   recording_.reset();
   for (auto const& link : links_) {
      link->drop();
   }
   if (plan_.witness != nullptr) {
      sites_.back()->roots[0]->observerDel(*plan_.witness, Kiv::Scope::subtree);
   }
}

void Simulation::linkIs(Site& server, Site& client, MountMode mode) {
   links_.push_back(std::make_unique<Link>(server, client, mode));
}

/// Offers those of the site's roots that are not offered yet.
void Simulation::offer(Site& site) {
   for (auto const& root : site.roots) {
      if (site.hub.root(root->kivType().name, root->nameString()) == nullptr) {
         site.hub.rootIs(root);
      }
   }
}

void Simulation::change(Site& site) {
   changeAtRandom(*site.roots[chance_.below(site.roots.size())], chance_, plan_.bounds);
}

std::size_t Simulation::carry(Session& from, Session& to, std::size_t most) {
   auto const piece = from.output();
   std::size_t const size = std::min(most, piece.size);
   if (size != 0) {
      // In memory of exactly this size, so that reading past its end is detected.
      std::unique_ptr<U8[]> const bytes(new U8[size]);
      std::copy(piece.begin, piece.begin + size, bytes.get());
      trace_ = Kiv::NboAttrLog::crc32c(bytes.get(), size, trace_);
      to.received(bytes.get(), size);
      from.sent(size);
   }
   return size;
}

void Simulation::transport(Link& link, std::size_t most) {
   Session& from = chance_.oneIn(2) ? *link.server : *link.client;
   Session& to = &from == link.server.get() ? *link.client : *link.server;
   carry(from, to, most);
}

void Simulation::step() {
   Link& link = *links_[chance_.below(links_.size())];
   std::size_t const action = chance_.below(100);
   if (action < 55) {
      Site& site = *(chance_.oneIn(2) ? writable_[0] : writable_[chance_.below(writable_.size())]);
      if (plan_.meddlers) {
         site.meddler.watch();
         site.meddler.budgetIs(3);
      }
      for (std::size_t left = 1 + chance_.below(plan_.burst); left != 0; --left) {
         change(site);
      }
   } else if (link.server == nullptr) {
      if (chance_.oneIn(2)) {
         link.connect();
      }
   } else if (action < 93) {
      static constexpr std::size_t sizes[] = {1, 3, 30, 300, 5000};
      if (!link.stopped) {
         transport(link, chance_.below(sizes[chance_.below(std::size(sizes))] + 1));
      }
   } else if (action < 98) {
      link.stopped = !link.stopped;
   } else if (plan_.withdrawals && chance_.oneIn(2)) {
      Site& source = *sites_[0];
      if (chance_.oneIn(2)) {
         Kiv::NamedEntity const& root = *source.roots[chance_.below(source.roots.size())];
         source.hub.rootDel(root.kivType().name, root.nameString());
      } else {
         offer(source);
         link.mountAgain();
      }
   } else {
      link.drop();
   }
   if (plan_.comparisons && link.client != nullptr && chance_.oneIn(3)) {
      link.client->compareAsk(*link.mounts[chance_.below(link.mounts.size())]);
   }
   if (recording_ != nullptr && chance_.oneIn(8)) {
      recording_->turn();
   }
}

/// Carries all bytes, in random pieces, until there are none left.
std::string Simulation::rest() {
   offer(*sites_[0]);
   for (auto const& link : links_) {
      link->stopped = false;
      if (link->server == nullptr) {
         link->connect();
      }
   }
   for (int round = 0; round != 20000; ++round) {
      std::size_t carried = 0;
      for (auto const& link : links_) {
         std::size_t const most = 1 + chance_.below(2000);
         carried += carry(*link->server, *link->client, most);
         carried += carry(*link->client, *link->server, most);
      }
      bool again = false;
      for (auto const& link : links_) {
         again = link->mountAgain() || again;
      }
      if (carried == 0 && !again) {
         return {};
      }
   }
   return "the connections never finish sending";
}

std::string Simulation::check() {
   for (std::size_t i = 0; i != links_.size(); ++i) {
      Link const& link = *links_[i];
      std::string const who = "link " + std::to_string(i) + ": ";
      for (Session const* const session : {link.server.get(), link.client.get()}) {
         if (session->closed()) {
            return who + "closed: " + session->closeReason();
         }
         if (!session->upToDate() || session->dirtyEntities() != 0) {
            return who + "something has not been sent";
         }
      }
      if (!link.found.empty()) {
         return who + link.found;
      }
      for (Mount const* const mount : link.mounts) {
         if (!mount->complete()) {
            return who + "the mount is not complete";
         }
      }
   }
   for (std::size_t i = 1; i != sites_.size(); ++i) {
      for (std::size_t root = 0; root != sites_[0]->roots.size(); ++root) {
         std::string const difference =
               firstDifference(*sites_[0]->roots[root], *sites_[i]->roots[root]);
         if (!difference.empty()) {
            return "mirror " + std::to_string(i) + ": " + difference;
         }
      }
   }
   return {};
}

std::string Simulation::run() {
   for (std::size_t left = plan_.steps; left != 0; --left) {
      step();
      if (left == 1 || chance_.oneIn(50)) {
         for (auto const& site : sites_) {
            site->meddler.budgetIs(plan_.meddlers ? 2 : 0);
         }
         std::string problem = rest();
         problem = problem.empty() ? check() : problem;
         if (!problem.empty()) {
            return problem;
         }
      }
   }
   return recording_ != nullptr ? recording_->check(sites_[0]->roots) : std::string();
}

}  // namespace KivTest
