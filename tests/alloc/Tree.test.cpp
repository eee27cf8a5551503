// Trees, collections and observers when memory runs out.
#include <cstdlib>

#include "Kiv/AttrOps.h"
#include "Kiv/Types.h"
#include "Sarn/Slab.h"
#include "tests/alloc/Twins.h"

using namespace AllocTesting;

namespace {

TEST(OutOfMemory, OfATree) {
   everyPoint(10, [](Findings& findings) {
      Sarn::Ptr<Stem> made;
      attempt([&] { made = KivTest::stemFactory(longText(0)); });
      Twins twins(findings);
      auto const change = [&](auto... a) { twins.change(a...); };
      changeEverything(change);
      removeEverything(change);
      twins.change("leafIs", [](Stem& r) { r.leafIs(1, true, KivTest::Opaque(1)); });
      twins.change(
            "leafIs with twigs",
            [](Stem& r) {
               for (auto const level : {KivTest::Level::low, KivTest::Level::high}) {
                  r.leafIs(2, true, KivTest::Opaque(1))->twigIs(level);
               }
            },
            Change::byParts);
      twins.change(
            "leafDelAll", [](Stem& r) { r.leafDelAll(); }, Change::byParts);
   });
}

constexpr int many = 40;

/// Fills a collection and removes all of it.
template <class Is, class Del, class DelAll>
void growAndShrink(Findings& findings, Is is, Del del, DelAll delAll) {
   Twins twins(findings);
   for (int i = 0; i != many; ++i) {
      twins.change("growing", [=](Stem& r) { is(r, i); });
   }
   for (int i = 0; i != many; ++i) {
      twins.change("shrinking", [=](Stem& r) { del(r, i); });
   }
   for (int i = 0; i != 5; ++i) {
      twins.change("growing again", [=](Stem& r) { is(r, i); });
   }
   twins.change(
         "emptying", [=](Stem& r) { delAll(r); }, Change::byParts);
}

TEST(OutOfMemory, OfAMapOfTexts) {
   everyPoint(many, [](Findings& findings) {
      growAndShrink(
            findings, [](Stem& r, int i) { r.byNumberIs(static_cast<U32>(i), longText(i)); },
            [](Stem& r, int i) { r.byNumberDel(static_cast<U32>(i)); },
            [](Stem& r) { r.byNumberDelAll(); });
   });
}

TEST(OutOfMemory, OfAMapByText) {
   everyPoint(many, [](Findings& findings) {
      growAndShrink(
            findings, [](Stem& r, int i) { r.byTextIs(longText(i), static_cast<U64>(i)); },
            [](Stem& r, int i) { r.byTextDel(longText(i)); }, [](Stem& r) { r.byTextDelAll(); });
   });
}

TEST(OutOfMemory, OfAMapByValue) {
   everyPoint(4, [](Findings& findings) {
      growAndShrink(
            findings,
            [](Stem& r, int i) {
               r.byPairIs(KivTest::Pair(static_cast<U32>(i), 1), KivTest::Pair(1, 1));
            },
            [](Stem& r, int i) { r.byPairDel(KivTest::Pair(static_cast<U32>(i), 1)); },
            [](Stem& r) { r.byPairDelAll(); });
   });
}

TEST(OutOfMemory, OfAMapWithItsKeysInside) {
   everyPoint(many, [](Findings& findings) {
      growAndShrink(
            findings,
            [](Stem& r, int i) {
               r.recordIs(KivTest::Record(static_cast<U32>(i), KivTest::Pair(1, 1), {}, longText(i),
                                          KivTest::Colour::red, 9));
            },
            [](Stem& r, int i) { r.recordDel(static_cast<U32>(i)); },
            [](Stem& r) { r.recordDelAll(); });
   });
}

TEST(OutOfMemory, OfAnOrderedMap) {
   everyPoint(many, [](Findings& findings) {
      growAndShrink(
            findings, [](Stem& r, int i) { r.sortedTextIs(longText(i), KivTest::Colour::red); },
            [](Stem& r, int i) { r.sortedTextDel(longText(i)); },
            [](Stem& r) { r.sortedTextDelAll(); });
   });
}

TEST(OutOfMemory, OfChildren) {
   // Slabs retain the memory of children and of small arrays.
   everyPoint(Sarn::slabPassesThrough ? 4 : 1, [](Findings& findings) {
      growAndShrink(
            findings,
            [](Stem& r, int i) { r.leafIs(static_cast<U32>(i), true, KivTest::Opaque(1)); },
            [](Stem& r, int i) { r.leafDel(static_cast<U32>(i)); },
            [](Stem& r) { r.leafDelAll(); });
   });
}

/// Iterators at a removed element keep its key.
TEST(OutOfMemory, OfIteratorsOverWhatIsRemoved) {
   everyPoint(10, [](Findings& findings) {
      Kiv::HashMap2018<Sarn::String, int> map;
      for (int i = 0; i != 20; ++i) {
         map.insert(longText(i), i);
      }
      auto const first = map.iterator();
      auto second = map.iterator();
      auto third = second;
      std::size_t steps = 0;
      for (U32 left = 20; left > 10; left = map.size()) {
         Sarn::String const key = second.key();
         bool const done = attempt([&] { map.erase(key); });
         if (map.has(key) == second.markedForDeletion() || second.key() != key ||
             map.size() != left - (done ? 1 : 0)) {
            findings.bad("an iterator has moved");
            return;
         }
         if (done) {
            ++second;
            third = second;
         } else if (++steps > 100) {
            map.erase(key);
            ++second;
            ++third;
         }
      }
      if (first.key().empty()) {
         findings.bad("a key is lost");
      }
      attempt([&] { map.clear(); });
      int left = 0;
      for (; second; ++second) {
         ++left;
      }
      if (left > 1 || !map.empty()) {
         findings.bad("an iterator continues past the end");
      }
   });
}

struct Silent final : Kiv::Observer {
   void onChange(Kiv::Change const&) override { ++heard; }
   int heard = 0;
};

TEST(OutOfMemory, OfObservers) {
   everyPoint(5, [](Findings& findings) {
      Sarn::Ptr<Stem> const root = KivTest::stemFactory("test");
      Sarn::Ptr<KivTest::Leaf> const leaf = root->leafIs(1, true, KivTest::Opaque(1));
      std::array<Silent, 12> observers;
      std::array<bool, 12> added{};
      for (std::size_t i = 0; i != observers.size(); ++i) {
         auto const scope = i % 2 == 0 ? Kiv::Scope::entity : Kiv::Scope::subtree;
         Kiv::Entity& entity = i % 3 == 0 ? static_cast<Kiv::Entity&>(*leaf) : *root;
         added[i] = attempt([&] { entity.observerAdd(observers[i], scope); });
         if (entity.hasObserver(observers[i], scope) != added[i]) {
            findings.bad("an observer is partly added");
         }
         leaf->ticksInc(1);
         for (std::size_t j = 0; j <= i; ++j) {
            bool const hears = added[j] && (j % 3 == 0 || j % 2 == 1);
            if (std::exchange(observers[j].heard, 0) != (hears ? 1 : 0)) {
               findings.bad("an observer is notified too often or not at all");
            }
         }
      }
      for (std::size_t i = 0; i != observers.size(); ++i) {
         auto const scope = i % 2 == 0 ? Kiv::Scope::entity : Kiv::Scope::subtree;
         Kiv::Entity& entity = i % 3 == 0 ? static_cast<Kiv::Entity&>(*leaf) : *root;
         attempt([&] { entity.observerDel(observers[i], scope); });
      }
      if (root->watched() || leaf->watched()) {
         findings.bad("an observer is left");
      }
   });
}

/// A failing observer does not keep others from being notified.
TEST(OutOfMemory, OfAnObserver) {
   everyPoint(10, [](Findings& findings) {
      struct Hungry final : Kiv::Observer {
         void onChange(Kiv::Change const&) override { text = longText(1) + longText(2); }
         std::string text;
      };
      Twins twins(findings);
      Hungry first;
      Hungry second;
      twins.root->observerAdd(first);
      twins.root->observerAdd(second, Kiv::Scope::subtree);
      Heard last(*twins.root);
      changeEverything([&](auto... a) { twins.change(a...); });
      twins.root->observerDel(first);
      twins.root->observerDel(second, Kiv::Scope::subtree);
   });
}

TEST(OutOfMemory, OfTheGenericInterface) {
   everyPoint(10, [](Findings& findings) {
      Twins twins(findings);
      changeEverything([&](char const*, auto make) {
         make(*twins.root);
         make(*twins.twin);
      });
      Kiv::TypeImpl const& type = twins.root->kivType();
      // Prints every value and parses the text again.
      Kiv::forEachField(type, [&](Kiv::FieldDescriptor const& field) {
         if (field.kind != Kiv::MemberKind::single) {
            return;
         }
         twins.change(field.name, [&](Stem& r) {
            Kiv::AnyValue value(*field.type);
            r.kivType().genericIfAttributeOp(value.room(), &static_cast<Kiv::Entity&>(r), &field, 0,
                                             nullptr, nullptr);
            value.constructed();
            Sarn::String const text = field.type->genericIfStrRep(value.get());
            Kiv::AnyValue parsed(*field.type);
            Kiv::CharRange range(text);
            field.type->genericIfStrepToValue(parsed.room(), range);
            parsed.constructed();
            if (field.ops->write != nullptr) {
               field.ops->write(&static_cast<Kiv::Entity&>(r), parsed.get());
            }
         });
      });
      Kiv::forEachField(type, [&](Kiv::FieldDescriptor const& field) {
         if (field.ops != nullptr && field.ops->collection != nullptr) {
            twins.change(field.name, [&](Stem& r) {
               Kiv::IteratorStorage storage;
               Kiv::CollectionIterator* const at = field.ops->collection->iterator(r, storage);
               struct End {
                  Kiv::CollectionIterator* at;
                  ~End() { at->~CollectionIterator(); }
               } const end{at};
               for (; at->valid(); at->next()) {
                  field.ops->collection->del(r, at->key());
               }
            });
         }
      });
   });
}

TEST(OutOfMemory, OfAVisitLeavesNoIteratorBehind) {
   Sarn::Ptr<Stem> const root = KivTest::stemFactory("test");
   for (U32 i = 0; i != 10; ++i) {
      root->leafIs(i, true, KivTest::Opaque(1));
   }
   EXPECT_THROW(
         Kiv::forEachChild(*root,
                           [](Kiv::Entity& child, Kiv::FieldDescriptor const&, void const*) {
                              if (child.kivType().name == std::string_view("KivTest::Leaf")) {
                                 throw std::bad_alloc();
                              }
                           }),
         std::bad_alloc);
   // If an iterator were still in the map, the map would notify it, on a stack that is gone.
   for (U32 i = 0; i != 100; ++i) {
      root->leafIs(i, true, KivTest::Opaque(1));
   }
   root->leafDelAll();
   EXPECT_EQ(root->leafCount(), 0u);
}

TEST(OutOfMemoryDeathTest, OfAQueueEndsTheProcess) {
   Sarn::RQueue<double> queue;
   for (int i = 0; i != 4; ++i) {
      queue.enq(i);  // the first chunk
   }
   EXPECT_EXIT(
         {
            std::set_terminate([] { _Exit(7); });
            failuresAre(Failures::allFrom, 1);
            attempt([&] { queue.enq(4); });
            _Exit(0);
         },
         testing::ExitedWithCode(7), "");
}

}  // namespace
