// A publisher and a mirror with a real server between them.
#pragma once

#include <gmock/gmock.h>

#include <cstdlib>
#include <optional>

#include "Fleet/Fixture.test.h"
#include "Fleet/Mirror.h"
#include "Fleet/Names.h"
#include "Fleet/Publisher.h"
#include "Holt/Client.h"
#include "Holt/State/Diff.h"
#include "Holt/State/Doc.h"
#include "Kiv/Digest.h"
#include "KivTest/TestTypes/Hedge.h"
#include "KivTest/TestTypes/Stem.h"

namespace Fleet::Test {

using KivTest::Stem;

constexpr U64 millisecond = 1'000'000;

inline Sarn::Ptr<Stem> newStem(char const* name) {
   return Sarn::Ptr<Stem>(static_cast<Stem*>(&*Holt::newRoot("KivTest::Stem", name)));
}

/// What distinguishes two roots, value by value.
inline std::string differences(Kiv::NamedEntity* a, Kiv::NamedEntity* b) {
   if (a == nullptr || b == nullptr) {
      return "a root is missing";
   }
   std::string text;
   Holt::StateDoc const first = Holt::docOf(std::vector<Kiv::NamedEntity*>{a});
   Holt::StateDoc const second = Holt::docOf(std::vector<Kiv::NamedEntity*>{b});
   Holt::compareLines(Holt::linesOf(first), Holt::linesOf(second),
                      [&](Holt::StateLine const* x, Holt::StateLine const* y) {
                         text += (x != nullptr ? x->path + "=" + x->text : "nothing") + " <> " +
                                 (y != nullptr ? y->path + "=" + y->text : "nothing") + "\n";
                      });
   return text;
}

inline Publisher::Options quick(char const* name) {
   return {.switchName = name, .heartbeat = 200 * millisecond, .patience = 1000 * millisecond};
}

inline Connection::Options to(NatsServer const& server) {
   return {.urls = {server.url()},
           .pause = 50 * millisecond,
           .longestPause = 200 * millisecond,
           .patience = 1000 * millisecond,
           .probe = 500 * millisecond};
}

/// A publisher with its connection and a source.
struct Source {
   Source(Holt::Loop& its, NatsServer const& server, char const* name,
          Sarn::Ptr<Kiv::NamedEntity> const& root)
         : loop(its), connection(to(server)), publisher(connection, quick(name)) {
      loop.add(connection);
      loop.add(publisher);
      publisher.rootAdd(root);
      publisher.sourceIs(true, Holt::wallNow(), "");
   }
   ~Source() {
      loop.remove(connection);
      loop.remove(publisher);
   }
   bool done() const {
      Publisher::Status const status = publisher.status();
      return status.publishing && status.pending == 0 && status.inFlight == 0;
   }

   Holt::Loop& loop;
   Connection connection;
   Publisher publisher;
};

/// A mirror with its connection.
struct Sink {
   Sink(Holt::Loop& its, NatsServer const& server, char const* switches = "*")
         : loop(its), connection(to(server)), mirror(connection, {.switches = switches}) {
      loop.add(connection);
      loop.add(mirror);
   }
   ~Sink() {
      loop.remove(connection);
      loop.remove(mirror);
   }
   bool current(char const* name) const {
      Switch const* const its = mirror.find(name);
      return its != nullptr && its->status().current;
   }
   /// What is known of a switch, for a message.
   std::string about(char const* name) const {
      std::string text = "mirror: " + mirror.status().reason + " " + mirror.status().lastMalformed;
      if (Switch const* const its = mirror.find(name)) {
         text += "; switch: " + its->status().reason + " " + its->status().lastRefused + " " +
                 std::to_string(its->entities()) + " entities";
      }
      return text;
   }
   Kiv::NamedEntity* root(char const* name, char const* root) const {
      Switch const* const its = mirror.find(name);
      return its != nullptr && its->root(root) != nullptr ? &*its->root(root) : nullptr;
   }

   Holt::Loop& loop;
   Connection connection;
   Mirror mirror;
};

inline void fill(Stem& stem) {
   stem.u8Is(7);
   stem.textIs("caf\xc3\xa9 \"quoted\" \n \xff");
   stem.u64Is(18446744073709551615U);
   stem.preciseIs(1e300);
   stem.markIs(9);
   stem.leafIs(1, true, KivTest::Opaque(2.5))->ticksIs(5);
   stem.leafIs(2, false, KivTest::Opaque(-1))->twigIs(KivTest::Level::high)->weightIs(0.1);
   stem.badgeIs("a badge")->brightnessIs(77);
   stem.byNumberIs(4, "four");
   stem.byTextIs("", 1);
   stem.byTextIs("a.b *>\x01", 2);
   stem.samplesEnq(1.5);
   stem.samplesEnq(2.5);
   stem.samplesDeq();
   stem.samplesEnq(3.5);
}

/// A stem on its way to a mirror that is up to date.
class FleetPair : public FleetTest {
protected:
   void SetUp() override {
      FleetTest::SetUp();
      if (IsSkipped()) {
         return;
      }
      server.emplace();
      fill(*stem);
      source.emplace(loop, *server, "edge-7", stem);
      sink.emplace(loop, *server);
      ASSERT_TRUE(untilEqual());
   }

   bool equal() const {
      Kiv::NamedEntity* const mirrored = sink->root("edge-7", "ptp/stem");
      return sink->current("edge-7") && mirrored != nullptr &&
             rootDigest(*mirrored) == rootDigest(*stem) &&
             Kiv::treeDigest(*mirrored) == Kiv::treeDigest(*stem) &&
             differences(mirrored, &*stem).empty();
   }
   testing::AssertionResult untilEqual(double seconds = 20) {
      if (until([this] { return source->done() && equal(); }, seconds)) {
         return testing::AssertionSuccess();
      }
      return testing::AssertionFailure()
             << sink->about("edge-7") << "; publisher: " << source->publisher.status().reason
             << "\n"
             << differences(&*stem, sink->root("edge-7", "ptp/stem"));
   }
   U64 messages() const { return source->publisher.status().messages; }

   std::optional<NatsServer> server;
   Sarn::Ptr<Stem> stem = newStem("ptp/stem");
   std::optional<Source> source;
   std::optional<Sink> sink;
};

struct Counter final : Kiv::Observer {
   void onChange(Kiv::Change const& change) override { ids.push_back(change.attributeId); }
   std::vector<U16> ids;
};

}  // namespace Fleet::Test
