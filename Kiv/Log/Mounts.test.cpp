#include "Kiv/Log/Mounts.h"

#include <gtest/gtest.h>

#include "KivTest/TestTypes.h"

namespace {

using namespace Kiv::NboAttrLog;

class MountsTest : public testing::Test {
protected:
   Sarn::Ptr<KivTest::Stem> const root = KivTest::stemFactory("test");
   Sarn::Ptr<KivTest::Core> const core = root->coreIs();
   Sarn::Ptr<KivTest::Stem> const other = KivTest::stemFactory("other");
   Mounts mounts;
};

TEST_F(MountsTest, AServedRootServesAllBelowIt) {
   EXPECT_FALSE(mounts.any());
   EXPECT_FALSE(mounts.serves(*core));
   mounts.served().push_back({nullptr, root.get(), 1, MountMode::reader});
   EXPECT_TRUE(mounts.any());
   EXPECT_TRUE(mounts.serves(*core));
   EXPECT_FALSE(mounts.serves(*other));
   EXPECT_FALSE(mounts.peerWrites());
   EXPECT_FALSE(mounts.isWrittenByPeer(*core));
   mounts.served().push_back({nullptr, other.get(), 2, MountMode::owner});
   EXPECT_TRUE(mounts.peerWrites());
   EXPECT_FALSE(mounts.isWrittenByPeer(*core));
   EXPECT_TRUE(mounts.isWrittenByPeer(*other));
}

TEST_F(MountsTest, AMirrorIsFollowedFromTheBeginningOfItsReplayOn) {
   Mount& mount = mounts.add(root, MountMode::writer);
   EXPECT_EQ(mounts.followed(*core), nullptr) << "the peer has not answered";
   for (auto const& [state, followed] :
        {std::pair{Mount::State::replaying, true}, std::pair{Mount::State::complete, true},
         std::pair{Mount::State::refused, false}, std::pair{Mount::State::gone, false},
         std::pair{Mount::State::lost, false}}) {
      Mounts::stateIs(mount, state);
      EXPECT_EQ(mounts.followed(*core), followed ? &mount : nullptr) << static_cast<int>(state);
      EXPECT_EQ(mounts.writes(*core), followed) << static_cast<int>(state);
   }
   EXPECT_EQ(mounts.followed(*other), nullptr);
}

TEST_F(MountsTest, AReaderDoesNotWrite) {
   Mounts::stateIs(mounts.add(root, MountMode::reader), Mount::State::complete);
   EXPECT_NE(mounts.followed(*core), nullptr);
   EXPECT_FALSE(mounts.writes(*core));
}

TEST_F(MountsTest, NumbersMountsFromOne) {
   EXPECT_EQ(mounts.mount(1), nullptr);
   Mount& first = mounts.add(root, MountMode::reader);
   Mount& second = mounts.add(other, MountMode::reader);
   EXPECT_EQ(mounts.mount(0), nullptr);
   EXPECT_EQ(mounts.mount(1), &first);
   EXPECT_EQ(mounts.mount(2), &second);
   EXPECT_EQ(Mounts::idOf(second), 2u);
   mounts.withdraw();
   EXPECT_EQ(mounts.mount(2), nullptr);
   EXPECT_EQ(mounts.own().size(), 1u);
}

}  // namespace
