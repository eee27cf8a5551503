#include "KivTest/Exploration.h"

#include <algorithm>
#include <array>

#include "KivTest/Simulation.h"
#include "KivTest/SimulationTree.h"
#include "KivTest/TestTypes.h"

namespace KivTest {

using Kiv::NboAttrLog::headerSize;
using Kiv::NboAttrLog::Hub;
using Kiv::NboAttrLog::Mount;
using Kiv::NboAttrLog::MountMode;
using Kiv::NboAttrLog::Session;

namespace {

/// Room for a greeting, and for most of what an end may have to send.
constexpr std::size_t outputBuffer = 1000;

Kiv::NboAttrLog::Limits limits() {
   Kiv::NboAttrLog::Limits all;
   all.outputBuffer = outputBuffer;
   all.entities = 4096;
   return all;
}

}  // namespace

/// Two ends and the steps that they can take: a side makes a change, is blocked, or sends a
/// message.
class Exploration::World {
public:
   explicit World(ExplorationPlan const& plan) : plan_(plan) {
      for (unsigned const change : plan.common) {
         for (End& end : ends_) {
            make(*end.root, change, 0);
         }
         make(*alone_[0], change, 0);
         make(*alone_[1], change, 0);
      }
      for (unsigned const change : plan.ofTheMirror) {
         make(*ends_[1].root, change, 1);
      }
      // Each side offers a root that is only used to fill the side's output.
      for (unsigned side = 0; side != 2; ++side) {
         ends_[side].hub.rootIs(ends_[side].filler);
         ends_[1 - side].session->mountIs(stemFactory(name(side)));
      }
      carry();
      ends_[0].hub.rootIs(ends_[0].root);
      mount_ = &ends_[1].session->mountIs(ends_[1].root, MountMode::writer);
      if (plan.mounted) {
         carry();
      }
   }

   /// Appends the steps that may be taken next.
   void steps(std::vector<Step>& all) const {
      unsigned const changes = ends_[0].changes + ends_[1].changes;
      unsigned const stops = ends_[0].stops + ends_[1].stops;
      for (unsigned side = 0; side != 2; ++side) {
         End const& end = ends_[side];
         if (end.session->output().size != 0) {
            all.push_back(static_cast<Step>(side << 8 | delivery));
         }
         for (std::size_t i = 0; changes != plan_.mostChanges && i != plan_.changes.size(); ++i) {
            all.push_back(static_cast<Step>(side << 8 | i));
         }
         if (stops != plan_.mostStops && end.session->output().size == 0) {
            all.push_back(static_cast<Step>(side << 8 | stop));
         }
      }
   }
   /// False if there was nothing to do.
   bool take(Step step) {
      unsigned const side = step >> 8;
      unsigned const what = step & 0xff;
      End& end = ends_[side];
      if (what == delivery) {
         deliver(side);
      } else if (what == stop) {
         // The text of a message that fills the output except for the room that should be left.
         std::size_t const size = outputBuffer - 1 - headerSize - 4 - plan_.room;
         end.filler->textIs(std::string(size, static_cast<char>('a' + end.stops)));
         ++end.stops;
         end.history.add(what);
      } else {
         if (!plan_.changes[what].make(*end.root, side)) {
            return false;
         }
         plan_.changes[what].make(*alone_[side], side);
         ++end.changes;
         end.history.add(what);
      }
      return true;
   }
   bool quiet() const noexcept {
      return ends_[0].session->output().size == 0 && ends_[1].session->output().size == 0;
   }
   /// What is wrong now that nothing is in transit; empty if nothing is.
   std::string check() const {
      for (End const& end : ends_) {
         if (end.session->closed()) {
            return "closed: " + end.session->closeReason();
         }
         if (!end.session->upToDate() || end.session->dirtyEntities() != 0) {
            return "something has not been sent";
         }
      }
      if (!mount_->complete()) {
         return "the mount is not complete";
      }
      std::string problem = firstDifference(*ends_[0].root, *ends_[1].root);
      for (unsigned side = 0; side != 2 && problem.empty() && plan_.mounted; ++side) {
         // A source that is behind also sends a writer that writer's own changes, and late.
         if (ends_[1 - side].changes == 0 && (side == 0 || ends_[0].stops == 0)) {
            problem = firstDifference(*alone_[side], *ends_[0].root);
            problem += problem.empty() ? "" : ", although only one end made changes";
         }
      }
      return problem;
   }
   U64 fingerprint() const noexcept {
      History both;
      for (End const& end : ends_) {
         both.add(end.history.value());
         both.add(waiting(*end.session));
      }
      return both.value();
   }

   static constexpr unsigned delivery = 0xff;
   static constexpr unsigned stop = 0xfe;

private:
   /// What one end did and received, as one number.
   class History {
   public:
      void add(U64 word) noexcept {
         // Two multiplications with xor-shifts between: one bit of a word changes half of the
         // result bits.
         state_ = (state_ ^ word) * 0x9e3779b97f4a7c15;
         state_ = (state_ ^ state_ >> 29) * 0xbf58476d1ce4e5b9;
         state_ ^= state_ >> 32;
      }
      void add(U8 const* bytes, std::size_t size) noexcept {
         add(size);
         for (std::size_t i = 0; i != size; ++i) {
            add(bytes[i]);
         }
      }
      U64 value() const noexcept { return state_; }

   private:
      U64 state_ = 1;
   };

   struct End {
      End(ExplorationPlan const& plan, unsigned side)
            : root(rootOf(plan.type, "r")), filler(stemFactory(name(side))) {}

      Hub hub{limits()};
      Sarn::Ptr<Kiv::NamedEntity> root;
      Sarn::Ptr<Stem> filler;
      std::unique_ptr<Session> session = std::make_unique<Session>(hub);
      unsigned changes = 0;
      unsigned stops = 0;
      History history;
   };

   static char const* name(unsigned side) { return side == 0 ? "filler 0" : "filler 1"; }

   void make(Kiv::NamedEntity& root, unsigned change, unsigned side) const {
      plan_.changes[change].make(root, side);
   }
   static std::size_t waiting(Session const& session) noexcept {
      return session.output().size + session.outputBehind().size;
   }
   void deliver(unsigned side) {
      Session& from = *ends_[side].session;
      auto const piece = from.output();
      std::size_t const size = headerSize + Kiv::NboAttrLog::readHeader(piece.begin).bodySize;
      std::unique_ptr<U8[]> const bytes(new U8[size]);
      std::copy_n(piece.begin, size, bytes.get());
      std::size_t const before = waiting(from);
      from.sent(size);
      if (waiting(from) != before - size) {
         ends_[side].history.add(
               delivery);  // otherwise, having less to send does not change the end's state
      }
      ends_[1 - side].history.add(bytes.get(), size);
      ends_[1 - side].session->received(bytes.get(), size);
   }
   void carry() {
      while (!quiet()) {
         for (unsigned side = 0; side != 2; ++side) {
            while (ends_[side].session->output().size != 0) {
               deliver(side);
            }
         }
      }
   }

   ExplorationPlan const& plan_;
   /// What each end would have if it were alone.
   std::array<Sarn::Ptr<Kiv::NamedEntity>, 2> alone_{rootOf(plan_.type, "r"),
                                                     rootOf(plan_.type, "r")};
   std::array<End, 2> ends_{End(plan_, 0), End(plan_, 1)};
   Mount const* mount_ = nullptr;
};

Exploration::Exploration(ExplorationPlan plan) : plan_(std::move(plan)) {}

Exploration::~Exploration() = default;

std::unique_ptr<Exploration::World> Exploration::replayed() {
   ++runs_;
   auto world = std::make_unique<World>(plan_);
   for (Step const step : path_) {
      world->take(step);
   }
   return world;
}

/// Explores everything that can follow from `world`, which is in the state to which `path_` leads,
/// and consumes it. False as soon as something is wrong.
bool Exploration::follow(std::unique_ptr<World>& world) {
   if (world->quiet()) {
      ++compared_;
      problem_ = world->check();
      if (!problem_.empty()) {
         return false;
      }
   }
   std::vector<Step> steps;
   world->steps(steps);
   for (Step const step : steps) {
      if (world == nullptr) {
         world = replayed();
      }
      if (!world->take(step)) {
         continue;  // the world is unchanged
      }
      path_.push_back(step);
      bool const good = !visited_.insert(world->fingerprint()).second || follow(world);
      world.reset();
      if (!good) {
         return false;
      }
      path_.pop_back();
   }
   return true;
}

std::string Exploration::run() {
   std::unique_ptr<World> world = replayed();
   visited_.insert(world->fingerprint());
   return follow(world) ? std::string() : described(problem_);
}

std::string Exploration::described(std::string const& problem) const {
   static constexpr char const* sides[] = {"source", "writer"};
   std::string text = problem + " after";
   for (Step const step : path_) {
      unsigned const what = step & 0xff;
      text += "\n   " + std::string(sides[step >> 8]) + ": ";
      text += what == World::delivery ? "delivers"
              : what == World::stop   ? "is blocked"
                                      : plan_.changes[what].name;
   }
   return text;
}

}  // namespace KivTest
