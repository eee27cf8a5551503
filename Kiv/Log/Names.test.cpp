#include "KivTest/SessionParts.test.h"

namespace {

using namespace PartsTesting;

constexpr U32 theirs = 0x01000007;
constexpr U32 theirOther = 0x01000008;

class NamesTest : public testing::Test, protected Parts {};

TEST_F(NamesTest, NobodyIsKnownAtFirst) {
   EXPECT_FALSE(names.introduced(root->streamHandle()));
   EXPECT_FALSE(names.known(*root));
   EXPECT_EQ(names.theirs(theirs), nullptr);
   EXPECT_EQ(names.theirHandle(*root), nullptr);
}

TEST_F(NamesTest, WhatWeIntroduceIsKnownByOurHandle) {
   names.introducedIs(root->streamHandle(), true);
   EXPECT_TRUE(names.known(*root));
   EXPECT_TRUE(names.peerHas(*root));
   names.introducedIs(root->streamHandle(), false);
   EXPECT_FALSE(names.known(*root));
   names.introducedIs(0x010fffff, false);  // needs no memory
   EXPECT_FALSE(names.introduced(0x010fffff));
}

TEST_F(NamesTest, WhatThePeerIntroducesIsFoundByItsHandleAlone) {
   names.map(theirs, root.get(), true);
   ASSERT_NE(names.theirs(theirs), nullptr);
   EXPECT_EQ(names.theirs(theirs)->entity.get(), root.get());
   EXPECT_EQ(names.theirs(0x02000007), nullptr) << "another turn";
   ASSERT_NE(names.theirHandle(*root), nullptr);
   EXPECT_EQ(*names.theirHandle(*root), theirs);
   EXPECT_TRUE(names.known(*root));
}

TEST_F(NamesTest, WhatThePeerMadeItIsToldOfAgainByWhoServesTheRoot) {
   names.map(theirs, root.get(), true);
   EXPECT_TRUE(names.peerHas(*root));
   mounts.served().push_back({nullptr, root.get(), 1, MountMode::writer});
   EXPECT_FALSE(names.peerHas(*root));
}

TEST_F(NamesTest, AnEntityGoesByThePeersLastHandle) {
   names.introducedIs(root->streamHandle(), true);
   names.map(theirs, root.get(), true);
   names.map(theirOther, root.get(), true);
   EXPECT_EQ(*names.theirHandle(*root), theirOther);
   EXPECT_FALSE(names.introduced(root->streamHandle())) << "it took another for that one";
}

TEST_F(NamesTest, WhoServesARootKeepsItsOwnHandleWhenThePeersChanges) {
   serve();
   names.map(theirs, root.get(), true);
   names.map(theirOther, root.get(), true);
   EXPECT_TRUE(names.introduced(root->streamHandle()));
}

TEST_F(NamesTest, AHandleThatGoesToAnotherLeavesTheFormerOneUnknown) {
   auto const core = root->coreIs();
   names.map(theirs, core.get(), true);
   names.map(theirs, root.get(), true);
   EXPECT_EQ(names.theirHandle(*core), nullptr);
   EXPECT_EQ(*names.theirHandle(*root), theirs);
}

TEST_F(NamesTest, WhatIsUnmappedIsNobodyUnderItsHandle) {
   auto const core = root->coreIs();
   names.map(theirs, root.get(), true);
   names.map(theirOther, core.get(), true);
   names.unmapTree(*root);
   ASSERT_NE(names.theirs(theirOther), nullptr);
   EXPECT_EQ(names.theirs(theirOther)->entity, nullptr);
   EXPECT_FALSE(names.known(*core));
}

TEST_F(NamesTest, TheExpectedChildIsMappedWhenItIsMade) {
   auto const core = root->coreIs();
   names.childIsMade(*core);
   EXPECT_EQ(names.theirHandle(*core), nullptr) << "none was expected";
   names.expectChild(theirs);
   names.childIsMade(*core);
   EXPECT_EQ(*names.theirHandle(*core), theirs);
   names.childIsMade(*root);
   EXPECT_EQ(names.theirHandle(*root), nullptr) << "one was expected only";
}

TEST_F(NamesTest, FreshEntitiesAreFoundByWhoeverAsksLater) {
   auto const core = root->coreIs();
   names.mapRoot(theirs, *root);
   names.map(theirOther, core.get(), true, true);
   EXPECT_EQ(names.theirs(theirOther)->entity.get(), core.get());
   EXPECT_EQ(*names.theirHandle(*core), theirOther) << "the map is made for this";
   EXPECT_EQ(*names.theirHandle(*root), theirs);
   names.map(theirOther, nullptr, true);
   EXPECT_EQ(names.theirHandle(*core), nullptr);
   names.map(theirOther + 1, core.get(), true, true);
   EXPECT_EQ(*names.theirHandle(*core), theirOther + 1) << "and kept up to date";
}

TEST_F(NamesTest, AFreshEntityIsUnmappedBeforeAnybodyHasAsked) {
   auto const core = root->coreIs();
   names.mapRoot(theirs, *root);
   names.map(theirOther, core.get(), true, true);
   names.unmapTree(*core);
   EXPECT_EQ(names.theirs(theirOther)->entity, nullptr);
   EXPECT_EQ(names.theirs(theirs)->entity.get(), root.get());
}

TEST_F(NamesTest, ARootThatIsMountedTwiceGoesByTheLastHandle) {
   names.introducedIs(root->streamHandle(), true);
   names.mapRoot(theirs, *root);
   names.mapRoot(theirOther, *root);
   EXPECT_EQ(*names.theirHandle(*root), theirOther);
   EXPECT_FALSE(names.introduced(root->streamHandle()));
}

TEST_F(NamesTest, AHandleThatGoesOnFromAFreshEntityLeavesItUnknown) {
   auto const core = root->coreIs();
   names.map(theirs, core.get(), true, true);
   names.map(theirs, root.get(), true, true);
   EXPECT_EQ(names.theirHandle(*core), nullptr);
   EXPECT_EQ(*names.theirHandle(*root), theirs);
}

TEST_F(NamesTest, AHandleThatThePeerMustNotUseIsAFault) {
   In const in(nullptr, nullptr);
   names.checkHandle(theirs, in);
   EXPECT_THROW(names.checkHandle(7, in), FaultException) << "turns begin at 1";
   EXPECT_THROW(names.checkHandle(U32(1) << 24 | limits.entities, in), FaultException);
}

}  // namespace
