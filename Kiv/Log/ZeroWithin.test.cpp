// 0.0 and -0.0 inside other values: in value types, in elements of maps, in queues, and in played
// recordings.
#include <algorithm>
#include <cmath>

#include "KivTest/Recording.test.h"
#include "KivTest/Stream.test.h"

using namespace StreamTesting;
using KivTest::Hedge;
using KivTest::Opaque;
using KivTest::Weighing;

namespace {

/// The sign of each zero: "m+ g+ w- h- q+".
std::string signs(Hedge const& hedge) {
   auto const sign = [](double v) { return v != 0 ? "?" : std::signbit(v) ? "-" : "+"; };
   return std::string("m") + sign(hedge.measure().content()) + " g" +
          sign(hedge.growth(1).content()) + " w" + sign(hedge.weighing(1).weight()) + " h" +
          sign(static_cast<double>(hedge.height(1))) + " q" +
          sign(hedge.cuttings(hedge.cuttingsAll().frontSequence()).content());
}

void zerosAre(Hedge& hedge, double zero) {
   hedge.measureIs(Opaque(zero));
   hedge.growthIs(1, Opaque(zero));
   hedge.weighingIs(Weighing(1, zero));
   hedge.heightIs(1, static_cast<float>(zero));
   hedge.cuttingsEnq(Opaque(zero));
   while (hedge.cuttingsAll().size() != 1) {
      hedge.cuttingsDeq();
   }
}

/// Changes the zeros by way of another value, since setters treat both zeros as equal.
void zerosChangeTo(Hedge& hedge, double zero) {
   zerosAre(hedge, 1);
   zerosAre(hedge, zero);
}

class StreamZeroWithin : public StreamTesting::StreamOf<Hedge> {
protected:
   StreamZeroWithin() : StreamOf(KivTest::hedgeFactory, "hedge", StreamTesting::narrow()) {
      zerosAre(*root, 0.0);
   }

   void mount(MountMode mode = MountMode::reader) {
      StreamOf::mount(mode);
      ASSERT_EQ(mirror.session->closeReason(), "");
   }
   /// Fills an end's output, so that only the last values are sent.
   static void stop(End& end, Hedge& of) {
      for (U32 i = 0; end.session->upToDate(); ++i) {
         of.heightIs(2, static_cast<float>(i + 1));
      }
   }
};

TEST_F(StreamZeroWithin, IsTheSourcesAfterChangesThatTheMirrorHasMissed) {
   mount();
   ASSERT_EQ(signs(*copy), "m+ g+ w+ h+ q+");
   stop(source, *root);
   zerosChangeTo(*root, -0.0);
   KivTest::Witness published(*copy);
   carry();
   EXPECT_EQ(signs(*copy), "m- g- w- h- q-");
   EXPECT_EQ(difference(), "");
   std::string const changes = published.changes();
   EXPECT_NE(changes.find("measure was"), std::string::npos) << changes;
   EXPECT_NE(changes.find("growth[1] was"), std::string::npos) << changes;
   EXPECT_NE(changes.find("weighing[1] was"), std::string::npos) << changes;
   EXPECT_NE(changes.find("height[1] was"), std::string::npos) << changes;
}

TEST_F(StreamZeroWithin, IsTheSourcesAfterAReplayIntoAnOldMirror) {
   mount();
   for (double const zero : {-0.0, 0.0}) {
      source.connect();
      mirror.connect();
      zerosChangeTo(*root, zero);
      mount();
      EXPECT_EQ(signs(*copy), signs(*root));
      EXPECT_EQ(difference(), "");
   }
   source.connect();
   mirror.connect();
   KivTest::Witness published(*copy);
   mount();
   // The same zeros again change nothing, except that queues are sent again.
   std::string const changes = published.changes();
   for (char const* const name : {"measure", "growth", "weighing", "height"}) {
      EXPECT_EQ(changes.find(name), std::string::npos) << changes;
   }
}

TEST_F(StreamZeroWithin, OfAWriterComesToTheSource) {
   mount(MountMode::writer);
   stop(mirror, *copy);
   zerosChangeTo(*copy, -0.0);
   carry();
   EXPECT_EQ(signs(*root), "m- g- w- h- q-");
   EXPECT_EQ(difference(), "");
}

TEST_F(StreamZeroWithin, SettersStillTakeTheTwoForEqual) {
   KivTest::Witness published(*root);
   root->measureIs(Opaque(-0.0));
   root->growthIs(1, Opaque(-0.0));
   root->weighingIs(Weighing(1, -0.0));
   root->heightIs(1, -0.0f);
   EXPECT_EQ(published.changes(), "");
   EXPECT_EQ(signs(*root), "m+ g+ w+ h+ q+");
}

TEST_F(StreamZeroWithin, ARecordingPlaysBackTheSources) {
   RecordingTesting::Memory memory;
   RecordingTesting::RecorderOptions options;
   options.blockSize = 2048;
   Limits limits = StreamTesting::narrow(1900);
   limits.longestMessage = 1024;
   Hub hub(limits);
   auto const hedge = KivTest::hedgeFactory("recorded");
   zerosAre(*hedge, 0.0);
   hub.rootIs(hedge);
   RecordingTesting::LogRecorder recorder(hub, memory, options);
   auto turn = [&, now = U64(0)](bool snapshot) mutable {
      if (snapshot) {
         recorder.snapshotIs();
      }
      ++now;
      do {
         recorder.turn(RecordingTesting::moment(now));
      } while (recorder.waiting());
   };
   turn(false);
   // The recorder's buffer is full, so it misses these: only the last values are written.
   for (U32 i = 0; i != 1000; ++i) {
      hedge->heightIs(2, static_cast<float>(i + 1));
   }
   zerosChangeTo(*hedge, -0.0);
   turn(false);
   ASSERT_NE(recorder.stats().changesCoalesced, 0u);
   zerosChangeTo(*hedge, 0.0);
   turn(true);
   recorder.close(RecordingTesting::moment(100));
   ASSERT_EQ(recorder.reason(), "");

   RecordingTesting::Player player([](RecordingTesting::OfferedRoot const& offered) {
      return Sarn::Ptr<Kiv::NamedEntity>(KivTest::hedgeFactory(offered.name).get());
   });
   RecordingTesting::Source file(memory.files.at(0));
   RecordingTesting::RecordingReader reader(file);
   std::vector<std::string> seen;
   for (RecordingTesting::RecordingReader::Frame frame; reader.next(frame);) {
      ASSERT_TRUE(player.apply(frame)) << player.reason();
      if (player.complete()) {
         std::string const now = signs(static_cast<Hedge const&>(*player.roots().at(0)));
         if (seen.empty() || seen.back() != now) {
            seen.push_back(now);
         }
      }
   }
   ASSERT_GE(seen.size(), 3u);
   EXPECT_EQ(seen.front(), "m+ g+ w+ h+ q+");
   EXPECT_NE(std::find(seen.begin(), seen.end(), "m- g- w- h- q-"), seen.end());
   EXPECT_EQ(seen.back(), "m+ g+ w+ h+ q+");
   EXPECT_EQ(KivTest::firstDifference(*hedge, *player.roots().at(0)), "");
}

}  // namespace
