#include "KivTest/Simulation.h"

#include <algorithm>

#include "Kiv/Module.h"
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
      throw Kiv::Exception("there is no type of roots named " + std::string(type));
   }
   Sarn::String const text(name);
   std::array<Kiv::ValueRef, 1> const arguments{&text};
   Sarn::Ptr<Kiv::Entity> const made = found->entity->genericIfConstructFromCtorArgs(arguments);
   return Sarn::Ptr<Kiv::NamedEntity>(static_cast<Kiv::NamedEntity*>(made.get()));
}

/// Changes the tree again when told of a change, as long as it has not done so too often.
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

   /// Watches the root, or a random child of it before those who watch from above.
   void watch() {
      Kiv::Entity* watched = &root_;
      Kiv::forEachChild(root_, [&](Kiv::Entity& child, Kiv::FieldDescriptor const&, void const*) {
         watched = chance_.oneIn(3) ? &child : watched;
      });
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
   Site(std::string const& type, Kiv::NboAttrLog::Limits const& limits, Chance& chance)
         : root(rootOf(type, "sim")), meddler(*root, chance), hub(limits) {}

   // An observer must not die before what it observes.
   struct Release {
      Sarn::Ptr<Kiv::NamedEntity>& root;
      ~Release() { root.reset(); }
   };

   Sarn::Ptr<Kiv::NamedEntity> root;
   Meddler meddler;
   Release release{root};
   Hub hub;
};

struct Simulation::Link {
   Hub& serverHub;
   Hub& clientHub;
   Sarn::Ptr<Kiv::NamedEntity> root;
   MountMode mode;
   std::unique_ptr<Session> server;
   std::unique_ptr<Session> client;
   Mount* mount = nullptr;
   bool stopped = false;

   void connect() {
      server = std::make_unique<Session>(serverHub);
      client = std::make_unique<Session>(clientHub);
      mount = &client->mountIs(root, mode);
   }
   void drop() {
      server.reset();
      client.reset();
      mount = nullptr;
   }
};

Simulation::Simulation(SimulationPlan const& plan, U64 seed) : plan_(plan), chance_(seed) {
   static constexpr std::size_t buffers[] = {900, 1200, 3000, 100000};
   limits_.outputBuffer = buffers[chance_.below(std::size(buffers))];
   limits_.entities = 4096;
   static constexpr std::size_t keys[] = {1, 3, 1024};
   limits_.dirtyKeys = keys[seed % std::size(keys)];
   std::size_t const mirrors = plan.readers + plan.writers + (plan.relay ? 1 : 0);
   for (std::size_t i = 0; i != 1 + mirrors; ++i) {
      sites_.push_back(std::make_unique<Site>(plan.type, limits_, chance_));
   }
   // The source comes first, then those that write; all of these may be changed from outside.
   writable_ = 1 + plan.writers;
   sites_[0]->hub.rootIs(sites_[0]->root);
   for (std::size_t i = 1; i != 1 + plan.readers + plan.writers; ++i) {
      linkIs(0, i, i < writable_ ? MountMode::writer : MountMode::reader);
   }
   if (plan.relay) {
      sites_[writable_]->hub.rootIs(sites_[writable_]->root);
      linkIs(writable_, sites_.size() - 1, MountMode::reader);
   }
   if (chance_.oneIn(2)) {  // a mirror need not be empty when it begins
      for (auto const& site : sites_) {
         for (std::size_t left = chance_.below(60); left != 0; --left) {
            changeAtRandom(*site->root, chance_);
         }
      }
   }
   if (plan.witness != nullptr) {
      sites_.back()->root->observerAdd(*plan.witness, Kiv::Scope::subtree);
   }
}

Simulation::~Simulation() {
   for (auto const& link : links_) {
      link->drop();
   }
   if (plan_.witness != nullptr) {
      sites_.back()->root->observerDel(*plan_.witness, Kiv::Scope::subtree);
   }
}

void Simulation::linkIs(std::size_t server, std::size_t client, MountMode mode) {
   Site& mirror = *sites_[client];
   links_.push_back(std::make_unique<Link>(
         Link{sites_[server]->hub, mirror.hub, mirror.root, mode, nullptr, nullptr}));
}

std::size_t Simulation::carry(Session& from, Session& to, std::size_t most) {
   auto const piece = from.output();
   std::size_t const size = std::min(most, piece.size);
   if (size != 0) {
      // In memory of exactly this size, so that reading past its end is noticed.
      std::unique_ptr<U8[]> const bytes(new U8[size]);
      std::copy(piece.begin, piece.begin + size, bytes.get());
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
      Site& site = *sites_[chance_.oneIn(2) ? 0 : chance_.below(writable_)];
      if (plan_.meddlers) {
         site.meddler.watch();
         site.meddler.budgetIs(3);
      }
      changeAtRandom(*site.root, chance_);
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
   } else {
      link.drop();
   }
}

/// Carries all bytes there are, in random pieces, until there are none.
std::string Simulation::rest() {
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
      if (carried == 0) {
         return {};
      }
   }
   return "the connections do not come to rest";
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
            return who + "something is left to be told";
         }
      }
      if (!link.mount->complete()) {
         return who + "the mount is not complete";
      }
   }
   for (std::size_t i = 1; i != sites_.size(); ++i) {
      std::string const difference = firstDifference(*sites_[0]->root, *sites_[i]->root);
      if (!difference.empty()) {
         return "mirror " + std::to_string(i) + ": " + difference;
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
   return {};
}

}  // namespace KivTest
