// A hub whose root is recorded in memory, for tests.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>

#include "Kiv/NboAttrLogPlayer.h"
#include "Kiv/NboAttrLogRecorder.h"
#include "KivTest/BytesSource.h"
#include "KivTest/SimulationChange.h"
#include "KivTest/SimulationTree.h"
#include "KivTest/TestTypes.h"
#include "KivTest/Witness.h"

namespace RecordingTesting {

using Kiv::NboAttrLog::FrameKind;
using Kiv::NboAttrLog::Hub;
using Kiv::NboAttrLog::Limits;
using Kiv::NboAttrLog::Moment;
using Kiv::NboAttrLog::OfferedRoot;
using Kiv::NboAttrLog::Player;
using Kiv::NboAttrLog::RecorderOptions;
using Kiv::NboAttrLog::RecordingReader;
using KivTest::Chance;
using KivTest::Stem;
using Bytes = std::vector<U8>;
using LogRecorder = Kiv::NboAttrLog::Recorder;

class Memory final : public Kiv::NboAttrLog::RecordSink {
public:
   U64 begin() override {
      files.emplace_back();
      return files.size();
   }
   bool write(U8 const* bytes, std::size_t size) override {
      if (left < size) {
         return false;
      }
      left -= size;
      files.back().insert(files.back().end(), bytes, bytes + size);
      return true;
   }
   Sarn::String reason() const override { return "the disk is full"; }

   std::vector<Bytes> files;
   std::size_t left = ~std::size_t(0);
};

using Source = KivTest::BytesSource;

inline Limits narrowOutput() {
   Limits limits;
   limits.outputBuffer = 4096;
   limits.longestMessage = 1024;
   return limits;
}

inline RecorderOptions smallBlocks() {
   RecorderOptions options;
   options.blockSize = 2048;
   return options;
}

inline Sarn::Ptr<Kiv::NamedEntity> make(OfferedRoot const& root) {
   EXPECT_EQ(root.type, "KivTest::Stem");
   return Sarn::Ptr<Kiv::NamedEntity>(KivTest::stemFactory(root.name).get());
}

/// The times of turn n.
inline Moment moment(U64 n) {
   return {n * 1000, 1'000'000 + n * 1000};
}

/// A hub with a recorded root.
class Recording : public testing::Test {
protected:
   Recording() : hub(narrowOutput()) { hub.rootIs(root); }

   void record(RecorderOptions const& options = smallBlocks()) {
      recorder = std::make_unique<LogRecorder>(hub, memory, options);
      turn();
   }
   /// Writes everything that is pending, with the next moment as its time.
   void turn() {
      ++now;
      do {
         recorder->turn(moment(now));
      } while (recorder->waiting());
   }
   Bytes const& closed() {
      recorder->close(moment(++now));
      EXPECT_EQ(recorder->reason(), "");
      return memory.files.back();
   }
   static std::string playAll(Bytes const& bytes, Player& player) {
      Source source(bytes);
      RecordingReader reader(source);
      for (RecordingReader::Frame frame; reader.next(frame);) {
         if (!player.apply(frame)) {
            return player.reason();
         }
      }
      return reader.damage();
   }
   static Stem& rootOf(Player const& player) { return static_cast<Stem&>(*player.roots().at(0)); }

   Sarn::Ptr<Stem> root = KivTest::stemFactory("test");
   Hub hub;
   Memory memory;
   std::unique_ptr<LogRecorder> recorder;
   U64 now = 0;
};

}  // namespace RecordingTesting
