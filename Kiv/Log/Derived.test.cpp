// Derived entities in the attribute log: made, changed and read through either of their types.
#include "KivTest/Stream.test.h"

using namespace StreamTesting;
using KivTest::attributeText;
using KivTest::attributeTextIs;
using KivTest::Hedge;
using KivTest::Leaf;
using KivTest::Level;
using KivTest::Opaque;
using KivTest::WideLeaf;
using KivTest::Witness;

namespace {

class StreamDerived : public StreamTesting::StreamOf<Hedge> {
protected:
   StreamDerived() : StreamOf(KivTest::hedgeFactory, "hedge") {}

   void carry() {
      StreamOf::carry();
      ASSERT_EQ(mirror.session->closeReason(), "");
      ASSERT_EQ(source.session->closeReason(), "");
   }

   Sarn::Ptr<Hedge> const hedge = root;
};

TEST_F(StreamDerived, ArrivesInACollectionOfItsOwnTypeWithAllConstructorArguments) {
   mount();
   hedge->wideLeafIs(3, true)->widthIs(70);
   carry();
   Sarn::Ptr<WideLeaf> const arrived = copy->wideLeaf(3);
   ASSERT_NE(arrived, nullptr);
   EXPECT_EQ(&arrived->kivType(), &WideLeaf::kivTypeImpl);
   EXPECT_EQ(arrived->parent(), copy.get());
   EXPECT_EQ(arrived->number(), 3u);
   EXPECT_TRUE(arrived->lit());
   EXPECT_EQ(arrived->origin(), Opaque(2.5)) << "an argument that the derived type gives its base";
   EXPECT_EQ(arrived->width(), 70u);
}

TEST_F(StreamDerived, ChangedThroughAPointerToItsBaseIsChangedInTheMirror) {
   mount();
   Sarn::Ptr<Leaf> const base = hedge->wideLeafIs(3, true);
   base->litIs(false);
   base->ticksInc(5);
   base->twigIs(Level::high)->weightIs(1.5);
   carry();
   Sarn::Ptr<Leaf> const arrived = copy->wideLeaf(3);
   EXPECT_FALSE(arrived->lit());
   EXPECT_EQ(arrived->ticks(), 5);
   ASSERT_NE(arrived->twig(Level::high), nullptr) << "a collection that is inherited";
   EXPECT_EQ(arrived->twig(Level::high)->weight(), 1.5);
   base->twigDel(Level::high);
   carry();
   EXPECT_EQ(arrived->twigCount(), 0u);
}

TEST_F(StreamDerived, InheritedIdsTravelAsTheBasesAndOwnOnesFrom386) {
   mount();
   Sarn::Ptr<WideLeaf> const leaf = hedge->wideLeafIs(3, true);
   carry();
   leaf->ticksIs(2);
   leaf->widthIs(258);
   std::string const sent = source.sent();
   EXPECT_NE(sent.find(".261 0002"), std::string::npos) << sent;
   EXPECT_NE(sent.find(".386 00000102"), std::string::npos) << sent;
}

TEST_F(StreamDerived, AnObserverOfTheMirrorSeesTheDerivedType) {
   mount();
   Witness published(*copy, Kiv::Scope::subtree);
   Sarn::Ptr<WideLeaf> const leaf = hedge->wideLeafIs(3, true);
   carry();
   EXPECT_EQ(published.changes(), "wideLeaf[3] was nothing");
   leaf->litIs(false);
   leaf->widthIs(9);
   carry();
   EXPECT_EQ(published.changes(), "KivTest::WideLeaf.lit was true; KivTest::WideLeaf.width was 1");
   hedge->wideLeafDel(3);
   carry();
   EXPECT_EQ(published.changes(), "wideLeaf[3] was KivTest::WideLeaf");
}

TEST_F(StreamDerived, AMirrorThatComesLateIsToldOfBothLevels) {
   Sarn::Ptr<WideLeaf> const leaf = hedge->wideLeafIs(3, false);
   leaf->ticksIs(7);
   leaf->widthIs(9);
   leaf->twigIs(Level::low);
   mount();
   EXPECT_EQ(KivTest::firstDifference(*hedge, *copy), "");
   EXPECT_EQ(copy->wideLeaf(3)->ticks(), 7);
   EXPECT_EQ(copy->wideLeaf(3)->width(), 9u);
   EXPECT_NE(copy->wideLeaf(3)->twig(Level::low), nullptr);
}

TEST_F(StreamDerived, AMirrorThatComesLateIsToldInTheOrderOfTheIds) {
   hedge->wideLeafIs(3, false)->widthIs(9);
   mirror.session->mountIs(copy);
   source.take();
   source.receive(mirror.take());
   std::string told;
   for (std::string const& message : lines(source.take())) {
      if (message.find(" 01000001.") != std::string::npos) {
         told += message.substr(0, message.find(' ')) + message.substr(message.find('.')) + "; ";
      }
   }
   EXPECT_EQ(told, "set.259 00; set.261 0000; erase.262; set.386 00000009; ");
}

TEST_F(StreamDerived, TheGenericInterfaceAnswersInheritedIdsAtBothEnds) {
   mount(MountMode::writer);
   Sarn::Ptr<WideLeaf> const leaf = hedge->wideLeafIs(3, true);
   carry();
   Sarn::Ptr<WideLeaf> const arrived = copy->wideLeaf(3);
   // From the source to the mirror.
   EXPECT_EQ(attributeTextIs(*leaf, 259, "false"), Kiv::statusOk);
   EXPECT_EQ(attributeTextIs(*leaf, 386, "4"), Kiv::statusOk);
   carry();
   EXPECT_EQ(attributeText(*arrived, 259), "false");
   EXPECT_EQ(attributeText(*arrived, 386), "4");
   // And back again.
   EXPECT_EQ(attributeTextIs(*arrived, 261, "12"), Kiv::statusOk);
   EXPECT_EQ(attributeTextIs(*arrived, 386, "5"), Kiv::statusOk);
   EXPECT_EQ(attributeTextIs(*arrived, 258, "4"), Kiv::statusRefused);
   EXPECT_EQ(attributeTextIs(*arrived, 387, "\"round\""), Kiv::statusRefused);
   carry();
   EXPECT_EQ(attributeText(*leaf, 261), "12");
   EXPECT_EQ(attributeText(*leaf, 386), "5");
}

TEST_F(StreamDerived, WrittenAsItsBaseByAProgramThatKnowsNoMoreItIsChangedInTheMirror) {
   mount();
   Sarn::Ptr<Kiv::Entity> const leaf = hedge->wideLeafIs(3, true);
   bool const lit = false;
   EXPECT_EQ(Leaf::kivTypeImpl.genericIfAttributeOp(nullptr, leaf.get(),
                                                    Leaf::kivTypeImpl.field(259), 1, nullptr, &lit),
             Kiv::statusOk);
   carry();
   bool read = true;
   EXPECT_EQ(
         Leaf::kivTypeImpl.genericIfAttributeOp(&read, copy->wideLeaf(3).get(),
                                                Leaf::kivTypeImpl.field(259), 0, nullptr, nullptr),
         Kiv::statusOk);
   EXPECT_FALSE(read);
}

TEST_F(StreamDerived, AWriterMakesOneInTheSource) {
   mount(MountMode::writer);
   Witness published(*hedge, Kiv::Scope::subtree);
   copy->wideLeafIs(8, false)->widthIs(2);
   carry();
   EXPECT_EQ(published.changes(), "wideLeaf[8] was nothing; KivTest::WideLeaf.width was 1");
   EXPECT_EQ(&hedge->wideLeaf(8)->kivType(), &WideLeaf::kivTypeImpl);
}

}  // namespace
