// A tree that is changed while allocations fail, and its twin, which is changed in the same way
// without failures.
#pragma once

#include <array>
#include <string>

#include "KivTest/SimulationTree.h"
#include "KivTest/TestTypes.h"
#include "tests/alloc/EveryPoint.h"

namespace AllocTesting {

using KivTest::Stem;

/// The changes that an observer of a whole tree has seen, stored without allocations.
class Heard final : public Kiv::Observer {
public:
   explicit Heard(Kiv::Entity& entity) : entity_(entity) {
      entity.observerAdd(*this, Kiv::Scope::subtree);
   }
   ~Heard() { entity_.observerDel(*this, Kiv::Scope::subtree); }
   Heard(Heard const&) = delete;
   Heard& operator=(Heard const&) = delete;

   void onChange(Kiv::Change const& change) override {
      if (count_ != ids_.size()) {
         ids_[count_++] = change.attributeId;
      }
   }
   /// The ids since the last call, separated by blanks.
   std::string ids() {
      std::string text;
      for (std::size_t i = 0; i != count_; ++i) {
         text += (i == 0 ? "" : " ") + std::to_string(ids_[i]);
      }
      count_ = 0;
      return text;
   }

private:
   Kiv::Entity& entity_;
   std::array<U16, 512> ids_{};
   std::size_t count_ = 0;
};

/// Checks that the parent of each entity below is its owner, that it has at most `most` users, and
/// that it has a number in the log only if its owner has one and `streamed`. Returns what is wrong
/// with the first one for which this does not hold. A child that could not be numbered ends the
/// sessions; the next session numbers it.
inline std::string badLink(Kiv::Entity& entity, bool streamed, U32 most = 1) {
   std::string bad;
   if (entity.streamHandle() != 0 && !streamed) {
      return std::string(entity.kivType().name) + " has a number";
   }
   Kiv::forEachChild(
         entity, [&](Kiv::Entity& child, Kiv::FieldDescriptor const& field, void const*) {
            if (!bad.empty()) {
               return;
            }
            std::string const name = std::string(entity.kivType().name) + "." + field.name;
            if (child.parent() != &entity) {
               bad = name + " has another parent";
            } else if (child.userCount() > most) {
               bad = name + " has " + std::to_string(child.userCount()) + " users";
            } else {
               bad = badLink(child, entity.streamHandle() != 0, most);
            }
         });
   return bad;
}

/// How much of a change may have been made after it has failed.
enum class Change : unsigned char {
   /// All or nothing.
   whole,
   /// All or nothing for each attribute.
   byParts,
};

class Twins {
public:
   explicit Twins(Findings& findings) : findings_(findings) {}

   /// Makes a change to the root with failing allocations, and to the twin. If the change fails,
   /// checks that the state is the old or the new one, that observers were notified of what was
   /// done, and that the change can be made again.
   template <class Make>
   void change(char const* name, Make&& make, Change how = Change::whole) {
      std::size_t const before = failed();
      bool const done = attempt([&] { make(*root); });
      if (failed() == before) {
         make(*twin);
         forget();
         return;
      }
      std::string const old = KivTest::firstDifference(*twin, *root);
      make(*twin);
      std::string const fresh = KivTest::firstDifference(*twin, *root);
      std::string const heard = heard_.ids();
      std::string const expected = twinHeard_.ids();
      if (done && !fresh.empty()) {
         findings_.bad(std::string(name) + " has succeeded, but " + fresh);
      } else if (!old.empty() && !fresh.empty() && how == Change::whole) {
         findings_.bad(std::string(name) + " is neither old nor new: " + fresh);
      } else if (fresh.empty() && !old.empty() && heard != expected) {
         findings_.bad(std::string(name) + " is done, but observers have heard '" + heard +
                       "', not '" + expected + "'");
      } else if (old.empty() && !fresh.empty() && !heard.empty()) {
         findings_.bad(std::string(name) + " is not done, but observers have heard " + heard);
      }
      findings_.badIf(name, badLink(*root, streamed, mostUsers));
      if (!fresh.empty()) {
         make(*root);
         findings_.badIf(std::string(name) + " again", KivTest::firstDifference(*twin, *root));
      }
      forget();
   }

   Sarn::Ptr<Stem> root = KivTest::stemFactory("test");
   Sarn::Ptr<Stem> twin = KivTest::stemFactory("test");
   /// Whether the root is in a hub, and how many users an entity below it may have.
   bool streamed = false;
   U32 mostUsers = 1;

private:
   void forget() {
      heard_.ids();
      twinHeard_.ids();
   }

   Findings& findings_;
   Heard heard_{*root};
   Heard twinHeard_{*twin};
};

inline std::string longText(int i) {
   return "a text that is longer than what a string holds itself, " + std::to_string(i);
}

/// Changes to every kind of member except queues, whose allocations must not fail.
template <class Change_>
void changeEverything(Change_&& change) {
   change("u32Is", [](Stem& r) { r.u32Is(7); });
   change("textIs", [](Stem& r) { r.textIs(longText(1)); });
   change("textIs again", [](Stem& r) { r.textIs(longText(22222)); });
   change("pairIs", [](Stem& r) { r.pairIs(KivTest::Pair(8, 9)); });
   change("markIs", [](Stem& r) { r.markIs(static_cast<U8>(3)); });
   change("intfIs", [](Stem& r) { r.intfIs(Dorn::IntfId("Ethernet1")); });
   change("coreIs", [](Stem& r) { r.coreIs(); });
   change("labelIs", [](Stem& r) { r.coreIs()->labelIs(longText(2)); });
   change("badgeIs", [](Stem& r) { r.badgeIs(longText(3)); });
   change("badgeIs of another name", [](Stem& r) { r.badgeIs(longText(4)); });
   change("brightnessIs", [](Stem& r) { r.badgeIs(longText(4))->brightnessIs(77); });
   change("medalIs of another name", [](Stem& r) { r.medalIs(longText(5)); });
   change("leafIs", [](Stem& r) { r.leafIs(1, true, KivTest::Opaque(1)); });
   change("twigIs",
          [](Stem& r) { r.leafIs(1, true, KivTest::Opaque(1))->twigIs(KivTest::Level::high); });
   change("weightIs", [](Stem& r) {
      r.leafIs(1, true, KivTest::Opaque(1))->twigIs(KivTest::Level::high)->weightIs(2.5);
   });
   change("recordIs", [](Stem& r) {
      r.recordIs(KivTest::Record(1, KivTest::Pair(1, 1), {}, longText(6), KivTest::Colour::red, 9));
   });
   change("recordIs again", [](Stem& r) {
      r.recordIs(KivTest::Record(1, KivTest::Pair(2, 2), static_cast<U8>(1), longText(77777),
                                 KivTest::Colour::blue, 9));
   });
   change("byNumberIs", [](Stem& r) { r.byNumberIs(1, longText(8)); });
   change("byNumberIs again", [](Stem& r) { r.byNumberIs(1, longText(99999)); });
   change("byTextIs", [](Stem& r) { r.byTextIs(longText(10), 1); });
   change("byTextIs again", [](Stem& r) { r.byTextIs(longText(10), 2); });
   change("byPairIs", [](Stem& r) { r.byPairIs(KivTest::Pair(1, 2), KivTest::Pair(3, 4)); });
   change("byLevelIs", [](Stem& r) { r.byLevelIs(KivTest::Level::high, true); });
   change("sortedIs", [](Stem& r) { r.sortedIs(1, longText(11)); });
   change("sortedIs again", [](Stem& r) { r.sortedIs(1, longText(12222)); });
   change("sortedTextIs", [](Stem& r) { r.sortedTextIs(longText(13), KivTest::Colour::red); });
   change("sortedTextIs again",
          [](Stem& r) { r.sortedTextIs(longText(13), KivTest::Colour::blue); });
}

/// Undoes these changes.
template <class Change_>
void removeEverything(Change_&& change) {
   change("recordDel", [](Stem& r) { r.recordDel(1); });
   change("byNumberDel", [](Stem& r) { r.byNumberDel(1); });
   change("byTextDel", [](Stem& r) { r.byTextDel(longText(10)); });
   change("byPairDel", [](Stem& r) { r.byPairDel(KivTest::Pair(1, 2)); });
   change("byLevelDel", [](Stem& r) { r.byLevelDel(KivTest::Level::high); });
   change("sortedDel", [](Stem& r) { r.sortedDel(1); });
   change("sortedTextDel", [](Stem& r) { r.sortedTextDel(longText(13)); });
   change("leafDel", [](Stem& r) { r.leafDel(1); });
   change("badgeDel", [](Stem& r) { r.badgeDel(); });
   change("coreDel", [](Stem& r) { r.coreDel(); });
   change("markIs", [](Stem& r) { r.markIs({}); });
}

}  // namespace AllocTesting
