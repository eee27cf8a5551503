// The traversal of a state: what is visited, in which order, live and in a document.
#include "Holt/State/Walk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Holt/State/Doc.h"
#include "Holt/State/Key.h"
#include "KivTest/TestTypes/Stem.h"

namespace Holt {
namespace {

using Kiv::FieldDescriptor;
using testing::ElementsAre;

/// Writes each call down: "name = value", "name: child", "name [key=value key]".
template <class Node>
class Calls final : public StateVisitor<Node> {
public:
   std::vector<std::string> all;

   void value(FieldDescriptor const& field, Kiv::ValueRef value) override {
      all.push_back(std::string(field.name) + " = " + valueText(value));
   }
   void child(FieldDescriptor const& field, Node const* child) override {
      all.push_back(std::string(field.name) +
                    (child != nullptr ? ": " + std::string(typeOfNode(*child).name) : ": none"));
   }
   void collection(FieldDescriptor const& field,
                   std::vector<StateElement<Node>> const& elements) override {
      all.push_back(std::string(field.name) + list(elements));
   }
   void queue(FieldDescriptor const& field, std::vector<StateElement<Node>> const& elements,
              U32 next) override {
      all.push_back(std::string(field.name) + list(elements) + " next " + std::to_string(next));
   }

private:
   static std::string list(std::vector<StateElement<Node>> const& elements) {
      std::string text = " [";
      for (StateElement<Node> const& element : elements) {
         text += (text.size() > 2 ? " " : "") + element.keyText +
                 (element.child != nullptr ? "" : "=" + valueText(element.value));
         EXPECT_TRUE(element.key.type == nullptr || keyText(element.key) == element.keyText);
      }
      return text + "]";
   }
};

/// The calls for some of the members, live; the same members of a document must give the same.
std::vector<std::string> callsFor(KivTest::Stem const& root, StatePart part,
                                  std::vector<std::string> const& names) {
   Calls<Kiv::Entity> live;
   walkMembers(root, part, live);
   Calls<DocEntity> copied;
   walkMembers(*docOf(root), part, copied);
   EXPECT_EQ(live.all, copied.all);
   std::vector<std::string> some;
   for (std::string const& call : live.all) {
      for (std::string const& name : names) {
         if (call.starts_with(name + " ") || call.starts_with(name + ":")) {
            some.push_back(call);
         }
      }
   }
   return some;
}

TEST(StateWalk, VisitsEachMemberAsWhatItIsInTheOrderOfTheIds) {
   auto const root = KivTest::stemFactory("r");
   root->byTextIs("b", 2);
   root->samplesEnq(1.5);
   root->samplesEnq(2.5);
   root->samplesDeq();
   root->leafIs(3, true, KivTest::Opaque(1));
   EXPECT_THAT(callsFor(*root, StatePart::all,
                        {"samples", "leaf", "core", "flag", "byText", "medal", "total"}),
               ElementsAre("flag = false", "core: none", "medal: KivTest::Badge", "leaf [3]",
                           "byText [b=2]", "samples [2=2.5] next 3", "total = 0"));
}

TEST(StateWalk, VisitsValuesAndEntitiesApart) {
   auto const root = KivTest::stemFactory("r");
   std::vector<std::string> const names{"flag", "core", "leaf", "byText", "samples"};
   EXPECT_THAT(callsFor(*root, StatePart::values, names),
               ElementsAre("flag = false", "byText []", "samples [] next 1"));
   EXPECT_THAT(callsFor(*root, StatePart::entities, names), ElementsAre("core: none", "leaf []"));
}

TEST(StateWalk, SortsHashedCollectionsNaturallyAndKeepsTheOrderOfOthers) {
   auto const root = KivTest::stemFactory("r");
   for (char const* key : {"e10", "e9", "e1"}) {
      root->byTextIs(key, 1);
      root->sortedTextIs(key, KivTest::Colour::red);
   }
   for (U32 key : {10u, 9u, 1u}) {
      root->leafIs(key, true, KivTest::Opaque(1));
   }
   EXPECT_THAT(callsFor(*root, StatePart::all, {"byText", "sortedText", "leaf"}),
               ElementsAre("leaf [1 9 10]", "byText [e1=1 e9=1 e10=1]",
                           "sortedText [e1=red e10=red e9=red]"));
}

TEST(StateWalk, LeavesOutWhatOnlyTheOwnerKnows) {
   auto const root = KivTest::stemFactory("r");
   root->secretIs(7);
   EXPECT_FALSE(isInState(*KivTest::Stem::kivTypeImpl.field("secret")));
   EXPECT_TRUE(isInState(*KivTest::Stem::kivTypeImpl.field("minKnob")));
   EXPECT_THAT(callsFor(*root, StatePart::all, {"secret", "minKnob"}), ElementsAre("minKnob = -2"));
}

}  // namespace
}  // namespace Holt
