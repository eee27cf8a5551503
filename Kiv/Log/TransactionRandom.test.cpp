// Random transactions of a source and two writers, over connections with little room that stop,
// break and come back. Whatever a mirror shows between two calls is whole, or it says that it is
// not. PTPLIB_TEST_SEEDS: how many seeds, from PTPLIB_TEST_FIRST_SEED on.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "Kiv/NboAttrLogSession.h"
#include "Kiv/NboAttrLogTransaction.h"
#include "KivTest/SimulationChange.h"
#include "KivTest/SimulationTree.h"
#include "KivTest/TestTypes.h"

using Kiv::NboAttrLog::Hub;
using Kiv::NboAttrLog::Limits;
using Kiv::NboAttrLog::Mount;
using Kiv::NboAttrLog::MountMode;
using Kiv::NboAttrLog::Session;
using Kiv::NboAttrLog::SessionListener;
using Kiv::NboAttrLog::Transaction;
using KivTest::Chance;
using KivTest::Stem;

namespace {

/// Every transaction sets some attributes, an element, and the ticks of leaf 0 to one number; of
/// each leaf that it changes, the ticks and an element of the same number. Empty if all agree. All
/// of these numbers are new: a setter with the value that is there already changes nothing, so it
/// is no part of a transaction. `leaves`: how many leaves are looked at; all but leaf 0 may be
/// deleted and made again.
std::string disagreement(Stem const& root, U32 leaves) {
   std::string const all = std::to_string(root.u32());
   std::string text = "u32 " + all + ", ";
   bool same = root.s64() == root.u32() && root.text() == all;
   text += "s64 " + std::to_string(root.s64()) + ", text " + root.text();
   if (root.byNumberHas(7)) {
      same = same && root.byNumber(7) == all;
      text += ", element " + root.byNumber(7);
   }
   for (U32 key = 0; key != leaves; ++key) {
      if (auto const leaf = root.leaf(key)) {
         U16 const ticks = leaf->ticks();
         std::string const element = root.byNumber(10 + key);
         same = same && element == std::to_string(ticks);
         same = same && (key != 0 || ticks == static_cast<U16>(root.u32()));
         text += ", leaf " + std::to_string(key) + ": " + std::to_string(ticks) + " and " + element;
      }
   }
   return same ? "" : text;
}

class RandomTransactions {
public:
   RandomTransactions(U64 seed, std::size_t batch) : chance_(seed) {
      limits_.outputBuffer = 250 + chance_.below(2000);
      limits_.longestMessage = 200;
      limits_.longestValue = 1000;
      limits_.transactionBytes = batch;
      limits_.dirtyKeys = 1 + chance_.below(8);
      for (int i = 0; i != 5; ++i) {
         sites_.push_back(std::make_unique<Site>(limits_));
      }
      Site& source = *sites_[0];
      source.hub.rootIs(source.root);
      set(*source.root);
      // Two readers, two writers; and a mirror of the first reader's mirror.
      links_.push_back({&source, sites_[1].get(), MountMode::reader});
      links_.push_back({&source, sites_[2].get(), MountMode::writer});
      links_.push_back({&source, sites_[3].get(), MountMode::writer});
      sites_[1]->hub.rootIs(sites_[1]->root);
      links_.push_back({sites_[1].get(), sites_[4].get(), MountMode::reader});
      rest();
   }
   ~RandomTransactions() {
      for (Link& link : links_) {
         link.drop();
      }
   }

   std::string run(std::size_t steps) {
      for (std::size_t i = 0; i != steps && problem_.empty(); ++i) {
         step();
         if (chance_.oneIn(60) || i + 1 == steps) {
            rest();
            compare();
         }
      }
      return problem_;
   }
   std::size_t applied() const { return applied_; }
   std::size_t refused() const { return refused_; }
   std::size_t torn() const { return torn_; }

private:
   struct Site {
      explicit Site(Limits const& limits) : hub(limits) {}
      Sarn::Ptr<Stem> root = KivTest::stemFactory("test");
      Hub hub;
   };
   struct Link final : SessionListener {
      Link(Site* s, Site* m, MountMode how) : served(s), mirror(m), mode(how) {}
      void connect() {
         server = std::make_unique<Session>(served->hub);
         client = std::make_unique<Session>(mirror->hub, this);
         mount = &client->mountIs(mirror->root, mode);
      }
      void drop() {
         client.reset();
         server.reset();
         mount = nullptr;
         sent = decided = 0;
      }
      void onDecided(Session&, U32 transaction, Sarn::String const& reason) override {
         inOrder = transaction == ++decided && inOrder;
         ++(reason.empty() ? applied : refused);
      }

      Site* served;
      Site* mirror;
      MountMode mode;
      std::unique_ptr<Session> server;
      std::unique_ptr<Session> client;
      Mount* mount = nullptr;
      U32 sent = 0;
      U32 decided = 0;
      std::size_t applied = 0;
      std::size_t refused = 0;
      bool inOrder = true;
      bool stopped = false;
   };

   /// Sets all places to a new number, and sometimes makes or deletes a child.
   void set(Stem& root) {
      U32 const n = ++number_;
      if (chance_.oneIn(4)) {
         root.leafDel(static_cast<U32>(1 + chance_.below(3)));
      }
      root.u32Is(n);
      for (U32 key = 0; key != 4; ++key) {
         if (key == 0 || chance_.oneIn(3)) {
            root.leafIs(key, true, KivTest::Opaque(1))->ticksIs(static_cast<U16>(n));
            root.byNumberIs(10 + key, std::to_string(n));
         }
      }
      root.byNumberIs(7, std::to_string(n));
      root.s64Is(n);
      root.textIs(std::to_string(n));
   }
   /// Changes that belong to nothing.
   void other(Stem& root) {
      for (std::size_t left = chance_.below(30); left != 0; --left) {
         root.byTextIs(std::to_string(chance_.below(20)), chance_.below(1000));
         root.u8Is(static_cast<U8>(chance_.below(256)));
      }
   }
   void change() {
      std::size_t const who = chance_.below(4);
      if (chance_.oneIn(3)) {
         other(*sites_[who < 2 ? 0 : who]->root);
      } else if (who < 2) {
         Transaction const together(sites_[0]->hub);
         set(*sites_[0]->root);
      } else if (Link& link = links_[who - 1];
                 link.client != nullptr && link.mount->complete() && !link.mount->torn()) {
         try {
            Transaction const together(*link.client);
            set(*link.mirror->root);
            ++link.sent;
         } catch (Kiv::Exception const&) {  // the last one has not been sent
         }
      }
   }
   void step() {
      Link& link = links_[chance_.below(links_.size())];
      std::size_t const action = chance_.below(100);
      if (action < 40) {
         change();
      } else if (link.client == nullptr) {
         link.connect();
      } else if (action < 96) {
         if (!link.stopped) {
            carry(link, chance_.oneIn(2), 1 + chance_.below(chance_.oneIn(3) ? 3000 : 60));
         }
      } else if (action < 99) {
         link.stopped = !link.stopped;
      } else {
         link.drop();
      }
   }
   std::size_t carry(Link& link, bool forth, std::size_t most) {
      Session& from = forth ? *link.server : *link.client;
      Session& to = forth ? *link.client : *link.server;
      auto const piece = from.output();
      std::size_t const size = std::min(most, piece.size);
      if (size != 0) {
         std::vector<U8> const bytes(piece.begin, piece.begin + size);
         from.sent(size);
         to.received(bytes.data(), size);
      }
      look();
      return size;
   }
   /// Whatever can be seen now must be whole.
   void look() {
      for (std::size_t i = 0; i != sites_.size(); ++i) {
         bool excused = i == 4 && relayLags_;
         for (Link const& link : links_) {
            if (link.mirror == sites_[i].get()) {
               bool const torn = link.mount != nullptr && link.mount->torn();
               torn_ += torn ? 1 : 0;
               excused = excused || link.mount == nullptr || !link.mount->complete() || torn;
            }
         }
         if (i == 1) {  // its own mirror follows it through whatever it shows
            Session const* const on = links_[3].server.get();
            bool const follows = on != nullptr && on->upToDate() && on->output().size == 0;
            relayLags_ = excused || (relayLags_ && !follows);
         }
         // Where a writer has made a child anew, what the source says of the old one no longer
         // counts, so until they have heard of each other it mixes both.
         U32 const leaves = i == 2 || i == 3 ? 1 : 4;
         std::string const found = excused ? "" : disagreement(*sites_[i]->root, leaves);
         if (!found.empty() && problem_.empty()) {
            problem_ = "site " + std::to_string(i) + ": " + found;
         }
      }
   }
   void rest() {
      std::size_t carried = 1;
      while (carried != 0 && problem_.empty()) {
         carried = 0;
         for (Link& link : links_) {
            link.stopped = false;
            if (link.client == nullptr) {
               link.connect();
               carried = 1;
            }
            carried += carry(link, true, 1 + chance_.below(2000));
            carried += carry(link, false, 1 + chance_.below(2000));
         }
      }
   }
   void compare() {
      for (Link& link : links_) {
         std::string const difference =
               KivTest::firstDifference(*sites_[0]->root, *link.mirror->root);
         if (problem_.empty() && !difference.empty()) {
            problem_ = "at rest: " + difference;
         }
         if (problem_.empty() && (link.server->closed() || link.client->closed())) {
            problem_ = "closed: " + link.server->closeReason() + link.client->closeReason();
         }
         if (problem_.empty() && link.mount->torn()) {
            problem_ = "torn at rest";
         }
         if (problem_.empty() && (link.sent != link.decided || !link.inOrder)) {
            problem_ = std::to_string(link.decided) + " decided, " + std::to_string(link.sent) +
                       " sent" + (link.inOrder ? "" : ", out of order");
         }
         applied_ += std::exchange(link.applied, 0);
         refused_ += std::exchange(link.refused, 0);
      }
   }

   Chance chance_;
   Limits limits_;
   std::vector<std::unique_ptr<Site>> sites_;
   std::deque<Link> links_;
   std::string problem_;
   bool relayLags_ = true;
   U32 number_ = 0;
   std::size_t applied_ = 0;
   std::size_t refused_ = 0;
   std::size_t torn_ = 0;
};

U64 fromEnvironment(char const* name, U64 otherwise) {
   char const* const text = std::getenv(name);
   return text != nullptr ? std::strtoull(text, nullptr, 10) : otherwise;
}

void runSeeds(std::size_t batch, bool tears) {
   U64 const first = fromEnvironment("PTPLIB_TEST_FIRST_SEED", 1);
   U64 const count = fromEnvironment("PTPLIB_TEST_SEEDS", 150);
   std::size_t applied = 0;
   std::size_t refused = 0;
   std::size_t torn = 0;
   for (U64 seed = first; seed != first + count; ++seed) {
      RandomTransactions random(seed, batch);
      ASSERT_EQ(random.run(400), "") << "seed " << seed;
      applied += random.applied();
      refused += random.refused();
      torn += random.torn();
   }
   std::printf("   %zu applied, %zu refused, torn at %zu looks\n", applied, refused, torn);
   EXPECT_GT(applied, count);
   EXPECT_GT(refused, count / 10);
   EXPECT_EQ(torn != 0, tears);
}

TEST(TransactionRandom, NoMirrorEverShowsHalfOfOne) {
   runSeeds(std::size_t(1) << 20, false);
}

TEST(TransactionRandom, WithLittleRoomAMirrorSaysWhenItShowsHalfOfOne) {
   runSeeds(700, true);
}

}  // namespace
