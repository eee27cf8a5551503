#include <gtest/gtest.h>

#include <deque>
#include <vector>

#include "Fleet/Pace.h"

namespace Fleet {

namespace {

constexpr U64 millisecond = 1'000'000;
constexpr U64 second = 1000 * millisecond;

/// Publishers that share a cluster, which stores one message after the other.
struct Cluster {
   struct Message {
      std::size_t publisher;
      U64 sent;
   };

   Cluster(std::size_t publishers, U64 each)
         : paces(publishers, Pace(1024, 5 * second)), inFlight(publishers), perMessage(each) {}

   void run(U64 duration) {
      for (U64 const end = now + duration; now < end; now += perMessage) {
         for (std::size_t i = 0; i != paces.size(); ++i) {
            for (; inFlight[i] < paces[i].window(); ++inFlight[i]) {
               queue.push_back({i, now});
            }
         }
         Message const message = queue.front();
         queue.pop_front();
         longest = std::max(longest, now - message.sent);
         --inFlight[message.publisher];
         paces[message.publisher].acknowledged(now - message.sent, now);
      }
   }

   std::vector<Pace> paces;
   std::vector<U32> inFlight;
   U64 perMessage;
   std::deque<Message> queue;
   U64 now = second;
   U64 longest = 0;
};

}  // namespace

TEST(Pace, OpensTheWholeWindowWhileAcknowledgementsComePromptly) {
   Pace pace(1024, 5 * second);
   EXPECT_EQ(pace.window(), 4u);
   for (int i = 0; i != 1020; ++i) {
      pace.acknowledged(2 * millisecond, 0);
   }
   EXPECT_EQ(pace.window(), 1024u);
   pace.acknowledged(2 * millisecond, 0);
   EXPECT_EQ(pace.window(), 1024u);
}

TEST(Pace, TakesADistantClusterAsPrompt) {
   Pace pace(64, 5 * second);
   for (int i = 0; i != 100; ++i) {
      pace.acknowledged(400 * millisecond, U64(i) * second);
   }
   EXPECT_EQ(pace.window(), 64u);
}

TEST(Pace, HalvesTheWindowOncePerDelay) {
   Pace pace(64, 5 * second);
   for (int i = 0; i != 60; ++i) {
      pace.acknowledged(millisecond, 0);
   }
   pace.acknowledged(500 * millisecond, second);
   EXPECT_EQ(pace.window(), 32u);
   pace.acknowledged(500 * millisecond, second + 400 * millisecond);
   EXPECT_EQ(pace.window(), 32u);
   pace.acknowledged(500 * millisecond, second + 500 * millisecond);
   EXPECT_EQ(pace.window(), 16u);
}

TEST(Pace, SendsOneAfterAFailureAndWaitsLongerEachTime) {
   Pace pace(64, 5 * second);
   pace.failed();
   EXPECT_EQ(pace.window(), 1u);
   EXPECT_EQ(pace.patience(), 10 * second);
   for (int i = 0; i != 10; ++i) {
      pace.failed();
   }
   EXPECT_EQ(pace.patience(), 60 * second);
   // A late acknowledgement says how long the next one may take.
   pace.acknowledged(20 * second, 0);
   EXPECT_EQ(pace.patience(), 40 * second);
   pace.acknowledged(millisecond, 0);
   EXPECT_EQ(pace.patience(), 5 * second);
}

TEST(Pace, AHundredPublishersDoNotKeepAClusterFromAnsweringInTime) {
   Cluster cluster(100, 5 * millisecond);
   cluster.run(30 * second);
   cluster.longest = 0;
   cluster.run(30 * second);
   // Each has one or two messages there, and no less: the cluster is busy all the time.
   EXPECT_LT(cluster.longest, 2 * second);
   EXPECT_GE(cluster.queue.size(), 98u);
}

}  // namespace Fleet
