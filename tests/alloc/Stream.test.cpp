// The attribute log when memory runs out: each change arrives, or its session is closed with a
// reason.
#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "Kiv/Log/Opcode.h"
#include "Kiv/NboAttrLogSession.h"
#include "tests/alloc/Twins.h"

using namespace AllocTesting;
using Kiv::NboAttrLog::Hub;
using Kiv::NboAttrLog::Limits;
using Kiv::NboAttrLog::Mount;
using Kiv::NboAttrLog::MountMode;
using Kiv::NboAttrLog::Session;

namespace {

/// Closes a session for which a change could not be written, as a connection does.
void turn(Session& session) {
   if (session.closed()) {
      session.close(session.closeReason());
   }
}

/// Makes the greeting, if it is the next to be sent, that of another version of the module.
void changeHash(Session& session) {
   constexpr std::string_view name = "TestTypes";
   auto const piece = session.output();
   U8* const begin = const_cast<U8*>(piece.begin);
   if (piece.size != 0 && *begin == static_cast<U8>(Kiv::NboAttrLog::Opcode::hello)) {
      U8* const at = std::search(begin, begin + piece.size, name.begin(), name.end());
      if (at == begin + piece.size) {
         throw std::logic_error("no module TestTypes in the greeting");
      }
      at[name.size() + 3] = 0;
   }
}

/// Carries the bytes of one session to another until none are left, with failures armed or not.
bool carry(Session& from, Session& to, bool armed) {
   bool any = false;
   turn(from);
   while (from.output().size != 0) {
      any = true;
      auto const piece = from.output();
      auto const apply = [&] { to.received(piece.begin, piece.size); };
      auto const sent = [&] { from.sent(piece.size); };
      if (armed) {
         attempt(apply);
         attempt(sent);
      } else {
         apply();
         sent();
      }
   }
   return any;
}

/// A source, and a mirror in a separate hub.
class Link {
public:
   Link(Findings& findings, Hub& source, MountMode mode, Limits const& limits)
         : findings_(findings), source_(source), mode_(mode), hub_(limits) {}
   ~Link() { cut(); }
   Link(Link const&) = delete;
   Link& operator=(Link const&) = delete;

   void carry(bool armed) {
      if (ends_ == nullptr) {
         return;
      }
      for (bool any = true; any;) {
         if (otherVersions) {
            changeHash(*ends_->ours);
            changeHash(*ends_->theirs);
         }
         bool const forth = ::carry(*ends_->ours, *ends_->theirs, armed);
         bool const back = ::carry(*ends_->theirs, *ends_->ours, armed);
         any = forth || back;
      }
   }
   void connect(bool armed) {
      auto const make = [&] {
         ends_ = std::make_unique<Ends>(source_, hub_);
         ends_->theirs->mountIs(copy, mode_);
      };
      if (armed) {
         attempt(make);
      } else {
         cut();
         make();
      }
   }
   void cut() { ends_.reset(); }
   Session* theirs() const { return ends_ != nullptr ? ends_->theirs.get() : nullptr; }

   /// Checks, with memory available again, that the mirror equals the root, or that the session is
   /// closed with a reason and the mirror equals the root after a new session.
   void settle(Stem& root, char const* when) {
      carry(false);
      bool const mounted = ends_ != nullptr && !ends_->theirs->mounts().empty();
      bool const closed = mounted && (ends_->theirs->closed() || ends_->ours->closed());
      if (closed) {
         badReason(*ends_->ours, when);
         badReason(*ends_->theirs, when);
         // As a connection does when it finds the other end of the socket closed.
         ends_->theirs->close("the peer has closed the connection", false);
         ends_->ours->close("the peer has closed the connection", false);
      }
      if (mounted && !closed) {
         if (!ends_->theirs->mounts().front().complete() || !ends_->ours->upToDate()) {
            findings_.bad(std::string(when) + ": the mirror is stuck");
         }
         compare(root, when);
      }
      if (!mounted || closed) {
         connect(false);
         carry(false);
         if (!ends_->theirs->mounts().front().complete()) {
            findings_.bad(std::string(when) + ": a new session is not complete: " +
                          ends_->theirs->closeReason() + ends_->theirs->mounts().front().reason());
         }
         compare(root, "after a new session");
      }
   }

   Sarn::Ptr<Stem> copy = KivTest::stemFactory("test");
   /// Whether both ends take each other for another version of the module.
   bool otherVersions = false;

private:
   struct Ends {
      Ends(Hub& source, Hub& mirror)
            : ours(std::make_unique<Session>(source)), theirs(std::make_unique<Session>(mirror)) {}
      std::unique_ptr<Session> ours;
      std::unique_ptr<Session> theirs;
   };

   void badReason(Session const& session, char const* when) {
      if (session.closed() && session.closeReason().find("out of memory") == std::string::npos) {
         findings_.bad(std::string(when) + ": closed with '" + session.closeReason() + "'");
      }
   }
   void compare(Stem& root, char const* when) {
      findings_.badIf(std::string(when) + ", the mirror", KivTest::firstDifference(root, *copy));
      findings_.badIf(std::string(when) + ", the mirror",
                      badLink(*copy, writesBack(mode_) && !ends_->theirs->closed(), 2));
   }

   Findings& findings_;
   Hub& source_;
   MountMode mode_;
   Hub hub_;
   std::unique_ptr<Ends> ends_;
};

Limits small() {
   Limits limits;
   limits.outputBuffer = 2048;
   limits.longestMessage = 512;
   return limits;
}

/// A source with twins, a reader and a writer.
class World {
public:
   explicit World(Findings& findings, Limits const& limits = {})
         : findings_(findings),
           twins(findings),
           hub(limits),
           reader(findings, hub, MountMode::reader, limits),
           writer(findings, hub, MountMode::writer, limits) {}

   void offer(bool armed) {
      auto const offerIt = [&] { hub.rootIs(Sarn::Ptr<Kiv::NamedEntity>(twins.root.get())); };
      if (!armed) {
         offerIt();
      } else if (!attempt(offerIt)) {
         findings_.badIf("rootIs", hub.roots().empty() ? badLink(*twins.root, false)
                                                       : std::string("the root is offered"));
         offerIt();
      }
      twins.streamed = true;
      twins.mostUsers = 2;  // a session holds the entities that its peer has created
      findings_.badIf("rootIs", badLink(*twins.root, true));
   }
   void connect(bool armed) {
      reader.connect(armed);
      writer.connect(armed);
   }
   void carry(bool armed) {
      for (int i = 0; i != 2; ++i) {  // the writer's changes also go to the reader
         writer.carry(armed);
         reader.carry(armed);
      }
   }
   void settle(char const* when) {
      for (int i = 0; i != 2; ++i) {
         writer.carry(false);
         reader.carry(false);
      }
      writer.settle(*twins.root, when);
      reader.settle(*twins.root, when);
      findings_.badIf(when, badLink(*twins.root, true, 2));
   }
   /// Checks that nothing is held once there are no sessions.
   void finish() {
      reader.cut();
      writer.cut();
      findings_.badIf("at the end", badLink(*twins.root, true));
      findings_.badIf("at the end, the reader", badLink(*reader.copy, false));
      findings_.badIf("at the end, the writer", badLink(*writer.copy, false));
   }
   /// Settles if anything has failed since the last time.
   void settleIfFailed(char const* when) {
      if (failed() != seen_) {
         seen_ = failed();
         settle(when);
      }
   }

private:
   Findings& findings_;
   std::size_t seen_ = 0;

public:
   Twins twins;
   Hub hub;
   Link reader;
   Link writer;
};

/// Fills every kind of member, with more than a few messages.
void fill(World& world) {
   auto const both = [&](char const*, auto make) {
      make(*world.twins.root);
      make(*world.twins.twin);
   };
   changeEverything(both);
   both("", [](Stem& r) {
      for (int i = 0; i != 12; ++i) {
         r.byNumberIs(static_cast<U32>(i), longText(i));
         r.byTextIs(longText(i), 5);
         r.leafIs(static_cast<U32>(i), true, KivTest::Opaque(1))->twigIs(KivTest::Level::low);
         r.sortedTextIs(longText(i), KivTest::Colour::red);
      }
   });
}

TEST(OutOfMemory, OfMounting) {
   everyPoint(20, [](Findings& findings) {
      World world(findings);
      fill(world);
      world.offer(true);
      world.connect(true);
      world.carry(true);
      world.settle("mounting");
      Session* const theirs = world.reader.theirs();
      attempt([&] { theirs->rootsAsk(); });
      attempt([&] { theirs->sessionsAsk(); });
      attempt([&] { theirs->syncIs(7); });
      world.carry(true);
      world.settle("questions");
      Sarn::Ptr<Kiv::NamedEntity> given;
      if (!attempt([&] { given = world.hub.rootDel("KivTest::Stem", "test"); })) {
         if (world.hub.roots().empty()) {
            findings.bad("rootDel has thrown, but the root is gone");
         }
         world.hub.rootDel("KivTest::Stem", "test");
      }
      world.carry(true);
      world.reader.cut();
      world.writer.cut();
      findings.badIf("rootDel", badLink(*world.twins.root, false));
   });
}

TEST(OutOfMemory, OfTwoVersionsOfAModule) {
   everyPoint(20, [](Findings& findings) {
      World world(findings);
      world.reader.otherVersions = world.writer.otherVersions = true;
      fill(world);
      world.offer(true);
      world.connect(true);
      world.carry(true);
      world.settle("mounting");
      auto const change = [&](char const* name, auto make) {
         world.twins.change(name, make);
         world.carry(true);
         world.settleIfFailed(name);
      };
      change("u32Is", [](Stem& r) { r.u32Is(7); });
      change("leafIs", [](Stem& r) { r.leafIs(99, true, KivTest::Opaque(1)); });
      world.finish();
   });
}

/// An existing mirror is brought up to date.
TEST(OutOfMemory, OfAReplay) {
   everyPoint(20, [](Findings& findings) {
      World world(findings, small());
      fill(world);
      world.offer(false);
      removeEverything([&](char const*, auto make) {
         changeEverything([&](char const*, auto change) { change(*world.reader.copy); });
         make(*world.writer.copy);
      });
      world.reader.copy->leafIs(77, true, KivTest::Opaque(2))->twigIs(KivTest::Level::high);
      world.connect(true);
      world.carry(true);
      world.settle("a replay");
      world.finish();
   });
}

/// A mirror that was changed behind the log's back is compared and repaired.
TEST(OutOfMemory, OfAComparison) {
   everyPoint(10, [](Findings& findings) {
      World world(findings, small());
      fill(world);
      world.offer(false);
      world.connect(false);
      world.carry(false);
      world.reader.copy->leafDel(3);
      world.reader.copy->leafIs(77, true, KivTest::Opaque(2))->twigIs(KivTest::Level::high);
      world.reader.copy->byNumberIs(2, longText(9));
      world.reader.copy->textIs(longText(3));
      Session* const theirs = world.reader.theirs();
      auto const ask = [&] { theirs->compareAsk(theirs->mounts().front()); };
      if (!attempt(ask)) {
         ask();
      }
      world.carry(true);
      world.settle("a comparison");
      world.finish();
   });
}

TEST(OutOfMemory, OfLiveChanges) {
   everyPoint(100, [](Findings& findings) {
      World world(findings);
      world.offer(false);
      world.connect(false);
      world.carry(false);
      auto const change = [&](char const* name, auto make) {
         world.twins.change(name, make);
         world.carry(true);
         world.settleIfFailed(name);
      };
      changeEverything(change);
      removeEverything(change);
      world.finish();
   });
}

TEST(OutOfMemory, OfAWriter) {
   everyPoint(100, [](Findings& findings) {
      World world(findings);
      world.offer(false);
      world.connect(false);
      world.carry(false);
      auto const change = [&](char const* name, auto make) {
         if (!attempt([&] { make(*world.writer.copy); })) {
            world.settle(name);  // before the change is made again
            make(*world.writer.copy);
         }
         world.carry(true);
         world.settleIfFailed(name);
      };
      changeEverything(change);
      removeEverything(change);
      world.finish();
   });
}

TEST(OutOfMemory, OfFallingBehindAndCatchingUp) {
   everyPoint(100, [](Findings& findings) {
      World world(findings, small());
      world.offer(false);
      world.connect(false);
      world.carry(false);
      auto const change = [&](char const* name, auto make) { world.twins.change(name, make); };
      auto const catchUp = [&](char const* when) {
         world.carry(true);
         world.settleIfFailed(when);
      };
      for (int round = 0; round != 2; ++round) {
         world.twins.change(
               "many",
               [round](Stem& r) {
                  for (int i = 0; i != 20; ++i) {
                     r.byNumberIs(static_cast<U32>(i), longText(i + 100 * round));
                  }
               },
               Change::byParts);
         changeEverything(change);
         catchUp("made");
         world.twins.change(
               "many",
               [round](Stem& r) {
                  for (int i = 0; i != 20; ++i) {
                     r.byTextIs(longText(i), static_cast<U64>(round));
                  }
               },
               Change::byParts);
         removeEverything(change);
         changeEverything(change);
         removeEverything(change);
         catchUp("removed");
      }
      world.finish();
   });
}

}  // namespace
