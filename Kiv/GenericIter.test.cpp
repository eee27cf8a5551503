// The generic interface over collections: iterators, their keys, objects and deletion.
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "Kiv/GenericIfImpl.h"
#include "KivTest/Observer.test.h"
#include "KivTest/TestTypes.h"
#include "KivTest/Witness.h"

namespace {

using namespace KivTest;
namespace Impl = Kiv::GenericIfImpl;
using Kiv::IteratorOp;

class GenericIter : public testing::Test {
protected:
   /// Iterates over a collection with the type's own function; `visit` may delete.
   void walk(Kiv::AttributeId id,
             std::function<void(Kiv::FieldDescriptor const&, Kiv::IteratorStorage&)> visit) {
      Kiv::FieldDescriptor const& field = *root->kivType().field(id);
      auto* const iterator = root->kivType().entity->genericIfIterator;
      ASSERT_NE(iterator, nullptr);
      Kiv::IteratorStorage storage;
      bool there = iterator(*root, storage, field, IteratorOp::begin);
      while (there) {
         EXPECT_TRUE(iterator(*root, storage, field, IteratorOp::valid));
         visit(field, storage);
         there = iterator(*root, storage, field, IteratorOp::next);
      }
      EXPECT_FALSE(iterator(*root, storage, field, IteratorOp::valid));
      EXPECT_FALSE(iterator(*root, storage, field, IteratorOp::destroy));
   }
   /// "key=value" for each element, ordered by the keys' texts.
   std::string contents(Kiv::AttributeId id) {
      std::map<std::string, std::string> all;
      walk(id, [&](Kiv::FieldDescriptor const& field, Kiv::IteratorStorage& at) {
         std::string const key = field.keyType->genericIfStrRep(Impl::iterKey(field, at));
         EXPECT_FALSE(all.contains(key)) << key;
         all[key] =
               field.kind == Kiv::MemberKind::children
                     ? static_cast<Kiv::Entity const*>(Impl::iterObj(field, at))->kivType().name
                     : field.type->genericIfStrRep(Impl::iterObj(field, at));
      });
      std::string text;
      for (auto const& [key, value] : all) {
         text += (text.empty() ? "" : " ") + key + "=" + value;
      }
      return text;
   }

   Sarn::Ptr<Stem> root = stemFactory("test");
   static constexpr Kiv::AttributeId queueId = 298;
   Kiv::FieldDescriptor const* const operation = root->kivType().field(303);
};

TEST_F(GenericIter, FindsNothingInAnEmptyCollection) {
   for (int const id : {289, 290, 291, 292, 293, 294, 295, 296, 298}) {
      EXPECT_EQ(contents(static_cast<Kiv::AttributeId>(id)), "") << id;
   }
}

TEST_F(GenericIter, GivesKeyAndElementOfEveryKind) {
   root->leafIs(2, true, Opaque());
   root->leafIs(1, true, Opaque());
   root->byNumberIs(4, "four");
   root->byTextIs("t", 9);
   root->byPairIs(Pair(1, 1), Pair(2, 2));
   root->byLevelIs(Level::high, true);
   root->recordIs(Record(3, Pair(), std::nullopt, "", Colour::red, 0));
   root->sortedIs(-1, "minus");
   root->sortedIs(1, "plus");
   root->sortedTextIs("k", Colour::blue);
   EXPECT_EQ(contents(289), "1=KivTest::Leaf 2=KivTest::Leaf");
   EXPECT_EQ(contents(290), "4=\"four\"");
   EXPECT_EQ(contents(291), "\"t\"=9");
   EXPECT_EQ(contents(292), "KivTest::Pair(first=1, second=1)=KivTest::Pair(first=2, second=2)");
   EXPECT_EQ(contents(293), "high=true");
   EXPECT_EQ(contents(294),
             "3=KivTest::Record(key=3, pair=KivTest::Pair(first=0, second=-1), "
             "mark=none, note=\"\", colour=red, stamp=0)");
   EXPECT_EQ(contents(295), "-1=\"minus\" 1=\"plus\"");
   EXPECT_EQ(contents(296), "\"k\"=blue");
}

TEST_F(GenericIter, DeletesTheCurrentElementAndGoesOn) {
   for (U32 i = 0; i != 40; ++i) {
      root->leafIs(i, true, Opaque());
      root->byNumberIs(i, std::to_string(i));
      root->sortedIs(static_cast<S32>(i), std::to_string(i));
      root->recordIs(Record(i, Pair(), std::nullopt, "", Colour::red, 0));
   }
   for (int const id : {289, 290, 294, 295}) {
      Witness published(*root);
      int visited = 0;
      int removed = 0;
      walk(static_cast<Kiv::AttributeId>(id),
           [&](Kiv::FieldDescriptor const& field, Kiv::IteratorStorage& at) {
              if (++visited % 2 == 0) {
                 EXPECT_TRUE(Impl::iterDel(*root, field, at));
                 ++removed;
              }
           });
      EXPECT_EQ(visited, 40) << id;
      EXPECT_EQ(removed, 20) << id;
      EXPECT_FALSE(published.ids().empty());
   }
   EXPECT_EQ(root->leafCount(), 20u);
   EXPECT_EQ(root->byNumberCount(), 20u);
   EXPECT_EQ(root->recordCount(), 20u);
   EXPECT_EQ(root->sortedCount(), 20u);
}

TEST_F(GenericIter, SkipsWhatOthersDeleteAndVisitsTheRestOnce) {
   for (int const id : {289, 290, 295}) {
      for (U32 i = 0; i != 64; ++i) {
         root->leafIs(i, true, Opaque());
         root->byNumberIs(i, "x");
         root->sortedIs(static_cast<S32>(i), "x");
      }
      std::set<U32> seen;
      std::set<U32> gone;
      walk(static_cast<Kiv::AttributeId>(id),
           [&](Kiv::FieldDescriptor const& field, Kiv::IteratorStorage& at) {
              U32 const key = *static_cast<U32 const*>(Impl::iterKey(field, at));
              EXPECT_TRUE(seen.insert(key).second);
              EXPECT_FALSE(gone.contains(key));
              for (U32 const other : {key, key ^ 1, key ^ 17}) {
                 field.ops->collection->del(*root, &other);
                 gone.insert(other);
              }
           });
      for (U32 i = 0; i != 64; ++i) {
         EXPECT_TRUE(seen.contains(i) || gone.contains(i)) << i;
      }
   }
}

TEST_F(GenericIter, GoesThroughAQueueByItsSequenceNumbers) {
   EXPECT_EQ(contents(queueId), "");
   for (double const v : {1.5, 2.5, 3.5, 4.5, 5.5}) {
      root->samplesEnq(v);
   }
   root->samplesDeq();
   EXPECT_EQ(contents(queueId), "2=2.5 3=3.5 4=4.5 5=5.5");
   Kiv::FieldDescriptor const& field = *root->kivType().field(queueId);
   std::vector<U32> keys;
   for (Kiv::CollectionCursor at(*root, field); at->valid(); at->next()) {
      keys.push_back(*static_cast<U32 const*>(at->key()));
      EXPECT_EQ(*static_cast<double const*>(at->value()), root->samples(keys.back()));
      EXPECT_EQ(at->child(), nullptr);
   }
   EXPECT_EQ(keys, (std::vector<U32>{2, 3, 4, 5}));
}

TEST_F(GenericIter, DeletesTheFrontOfAQueueAndNoOther) {
   for (int i = 1; i <= 4; ++i) {
      root->samplesEnq(i);
   }
   std::string deleted;
   bool skip = false;
   walk(queueId, [&](Kiv::FieldDescriptor const& field, Kiv::IteratorStorage& at) {
      U32 const number = *static_cast<U32 const*>(Impl::iterKey(field, at));
      skip = skip || number == 3;  // so the fourth is not the front
      if (!skip || number == 4) {
         deleted += std::to_string(number) + (Impl::iterDel(*root, field, at) ? "+" : "-");
      }
   });
   EXPECT_EQ(deleted, "1+2+4-");
   EXPECT_EQ(contents(queueId), "3=3 4=4");
}

TEST_F(GenericIter, FollowsAQueueThatChangesMeanwhile) {
   for (int i = 1; i <= 3; ++i) {
      root->samplesEnq(i);
   }
   std::string met;
   walk(queueId, [&](Kiv::FieldDescriptor const& field, Kiv::IteratorStorage& at) {
      met += std::to_string(*static_cast<U32 const*>(Impl::iterKey(field, at))) + " ";
      if (met == "1 ") {
         root->samplesDeq();
         root->samplesDeq();
         root->samplesEnq(4);
      }
   });
   EXPECT_EQ(met, "1 3 4 ");
}

TEST_F(GenericIter, ThrowsForWhatIsNoCollection) {
   auto* const iterator = root->kivType().entity->genericIfIterator;
   Kiv::IteratorStorage storage;
   auto const fault = [&](Kiv::AttributeId id, IteratorOp op) {
      Kiv::FieldDescriptor wanted;
      wanted.fieldId = id;
      return thrown<Kiv::TypeException>([&] { iterator(*root, storage, wanted, op); });
   };
   for (IteratorOp const op :
        {IteratorOp::begin, IteratorOp::next, IteratorOp::valid, IteratorOp::destroy}) {
      EXPECT_EQ(fault(263, op), "KivTest::Stem.u32 is not a collection");
      EXPECT_EQ(fault(286, op), "KivTest::Stem.core is not a collection");
      EXPECT_EQ(fault(299, op), "KivTest::Stem.total is not a collection") << "derived";
      EXPECT_EQ(fault(303, op),
                "KivTest::Stem." + std::string(operation->name) + " is not a collection");
      EXPECT_EQ(fault(297, op), "KivTest::Stem.297 is not a collection") << "the queue's first id";
      EXPECT_EQ(fault(1000, op), "KivTest::Stem.1000 is not a collection");
   }
   EXPECT_THROW(Kiv::CollectionCursor(*root, *root->kivType().field("u32")), Kiv::TypeException);
   EXPECT_THROW(Impl::iterDel(*root, *root->kivType().field("u32"), storage), Kiv::TypeException);
}

TEST_F(GenericIter, IsNotThereForATypeWithoutCollection) {
   EXPECT_EQ(Core::kivTypeImpl.entity->genericIfIterator, nullptr);
   EXPECT_EQ(Twig::kivTypeImpl.entity->genericIfIterator, nullptr);
   EXPECT_NE(WideLeaf::kivTypeImpl.entity->genericIfIterator, nullptr) << "its base has one";
}

TEST_F(GenericIter, ElementsAreFoundSetAndDeletedByKey) {
   Kiv::CollectionOps const& ops = *root->kivType().field("byText")->ops->collection;
   Sarn::String const key = "k";
   U64 const value = 6;
   EXPECT_EQ(ops.find(*root, &key), nullptr);
   ops.is(*root, &key, &value);
   EXPECT_EQ(root->byText("k"), 6u);
   EXPECT_EQ(*static_cast<U64 const*>(ops.find(*root, &key)), 6u);
   EXPECT_EQ(ops.size(*root), 1u);
   EXPECT_TRUE(ops.del(*root, &key));
   EXPECT_FALSE(ops.del(*root, &key));
   ops.is(*root, &key, &value);
   ops.delAll(*root);
   EXPECT_EQ(ops.size(*root), 0u);
}

TEST_F(GenericIter, ChildrenAreMadeByKeyAndArguments) {
   Kiv::CollectionOps const& ops = *root->kivType().field("leaf")->ops->collection;
   U32 const key = 5;
   bool const lit = true;
   Opaque const origin(1.5);
   Opaque const otherOrigin(2.5);
   std::array<Kiv::ValueRef, 3> const args{&key, &lit, &origin};
   std::array<Kiv::ValueRef, 3> const otherArgs{&key, &lit, &otherOrigin};
   std::array<Kiv::ValueRef, 3> const tooFew{&key, &lit, nullptr};
   Sarn::Ptr<Kiv::Entity> const made = ops.childIs(*root, args);
   EXPECT_EQ(made, root->leaf(5));
   EXPECT_EQ(ops.childIs(*root, args), made);
   EXPECT_EQ(ops.findChild(*root, &key), made.get());
   EXPECT_THROW(ops.childIs(*root, otherArgs), Kiv::MutatorReinstValException);
   EXPECT_EQ(thrown<Kiv::NewEntityArgsException>([&] { ops.childIs(*root, tooFew); }),
             "KivTest::Leaf: constructor arguments of the wrong kind or number: argument 3 is a "
             "KivTest::Opaque, not nothing");
   EXPECT_EQ(thrown<Kiv::NewEntityArgsException>(
                   [&] { ops.childIs(*root, Kiv::CtorArgs(args).first(2)); }),
             "KivTest::Leaf: constructor arguments of the wrong kind or number: takes 3, was given "
             "2");
   EXPECT_TRUE(ops.del(*root, &key));
   EXPECT_EQ(made->parent(), nullptr);
}

}  // namespace
