// How far each seed of the fuzz targets leads. If a change of the format makes a seed stale, the
// seed ends at its first header, and the fuzzer must find again what it was made for.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "Kiv/NboAttrLogPlayer.h"
#include "KivTest/PeerScript.h"
#include "KivTest/Recording.test.h"
#include "KivTest/RecordingPutRight.h"

using namespace RecordingTesting;

namespace {

/// The seeds of a target by name.
std::map<std::string, Bytes> seedsOf(char const* target) {
   std::map<std::string, Bytes> seeds;
   std::filesystem::path const directory =
         std::filesystem::path(PTPLIB_SOURCE_DIR) / "fuzz/seeds" / target;
   for (auto const& entry : std::filesystem::directory_iterator(directory)) {
      std::ifstream file(entry.path(), std::ios::binary);
      std::vector<char> const bytes{std::istreambuf_iterator<char>(file), {}};
      seeds[entry.path().filename().string()] = Bytes(bytes.begin(), bytes.end());
   }
   return seeds;
}

/// A line for each seed: its name and the result of `saysOf(bytes)`.
template <class Says>
std::string table(char const* target, Says&& saysOf) {
   std::string all = "\n";
   for (auto const& [name, bytes] : seedsOf(target)) {
      all += name + ": " + saysOf(bytes) + "\n";
   }
   return all;
}

TEST(FuzzSeeds, OfThePeerAreTakenAsFarAsTheyShould) {
   auto const saysOf = [](Bytes const& script) {
      KivTest::PeerScript peer(script);
      EXPECT_EQ(peer.check(), "");
      std::string const reason = peer.closeReason();
      return std::to_string(peer.messages()) + " messages" + (reason.empty() ? "" : ", ") + reason;
   };
   EXPECT_EQ(table("DemuxerFuzz", saysOf), R"(
bye: 3 messages, closed by the peer: enough
mirror-children: 9 messages
mirror-digests: 3 messages, message 27 for entity 0, attribute 257: nobody has asked for digests at offset 0
mirror-greeting: 3 messages
mirror-http: 0 messages, the peer does not begin with the attribute log's greeting
mirror-maps: 7 messages
mirror-named: 5 messages
mirror-no-module: 1 messages, message 1 for entity 0, attribute 0: the peer has none of the modules that are loaded here at offset 16
mirror-other-hash: 1 messages
mirror-parts: 9 messages, r.flag (KivTest::Stem, 258): a message of kind 8 comes between the parts of another at offset 0
mirror-parts-bound: 3 messages, r.text (KivTest::Stem, 270): a message of 2049 bytes in parts exceeds the bound of 2048 at offset 1
mirror-parts-order: 4 messages, r.text (KivTest::Stem, 270): a part begins at 5, where 3 bytes have come at offset 5
mirror-queue: 6 messages
mirror-range: 3 messages, r.dial (KivTest::Stem, 275): KivTest::Stem::dial < KivTest::TestLimits::minDial or > KivTest::TestLimits::maxDial not allowed
mirror-replay: 11 messages
mirror-sessions: 3 messages, message 23 for entity 0, attribute 257: nobody has asked for the sessions at offset 0
mirror-types: 6 messages
mirror-types-conflict: 2 messages, module TestTypes has hash 1 at the peer, 7e57ab1e here: KivTest::Stem.u8 (259) is flag at the peer, u8 here
mirror-types-order: 2 messages, message 25 for entity 0, attribute 0: enumerator 0 follows 0 at offset 57
mirror-unknown-module: 1 messages, message 1 for entity 0, attribute 0: the peer has none of the modules that are loaded here at offset 45
mirror-values: 8 messages
reader-changes: 2 messages
script-120: 3 messages, message 3 for entity 16777223, attribute 279: there is no mount mode 220 at offset 4
script-3: 2 messages
script-300: 2 messages, message 29 for entity 16777217, attribute 290: the beginning of a batch has 6 bytes instead of 4
script-40: 2 messages, message 107 for entity 3353149924, attribute 34933: a message of 3209486 bytes exceeds the bound of 1024
source-sessions: 5 messages, message 23 for entity 0, attribute 257: nobody has asked for the sessions at offset 0
stopped-changes: 2 messages
writer-bind-all: 8 messages
writer-children: 7 messages
writer-digests: 6 messages, message 28 for entity 0, attribute 257: the message names 2 entities, not 1 to 1 at offset 0
writer-greeting: 6 messages
writer-parts: 7 messages, closed by the peer: end
writer-queue: 8 messages
writer-requests: 8 messages
writer-types: 4 messages
writer-values: 6 messages
)");
}

TEST(FuzzSeeds, OfRecordingsAreReadAsFarAsTheyShould) {
   auto const saysOf = [](Bytes const& seed) {
      if (seed.empty()) {
         return std::string("nothing");
      }
      Bytes bytes(seed.begin() + 1, seed.end());
      if ((seed[0] & 1) != 0) {
         KivTest::recordingPutRight(bytes);
      }
      Source source(bytes);
      RecordingReader reader(source);
      Player player(make, narrowOutput());
      std::size_t frames = 0;
      for (RecordingReader::Frame frame; reader.next(frame); ++frames) {
         if (!player.failed()) {
            player.apply(frame);
         }
      }
      std::string text = std::to_string(frames) + " frames, " + std::to_string(player.messages()) +
                         " messages" + (player.complete() ? ", complete" : "") +
                         (reader.ended() ? ", closed" : "");
      text += player.failed() ? "; not played: " + player.reason() : "";
      text += reader.damaged() ? "; at " + std::to_string(reader.offset()) + ": " + reader.damage()
                               : std::string();
      return text;
   };
   EXPECT_EQ(table("RecordingFuzz", saysOf), R"(
block-place: 6 frames, 77 messages, complete; at 2048: block 1 stands in the place of block 2
block-size: 2 frames, 41 messages, complete; at 1024: the header of a block is damaged
cut: 11 frames, 114 messages, complete; at 3132: it ends within a frame
damaged: 11 frames, 114 messages, complete; at 3132: the checksum of a frame does not fit
damaged-put-right: 24 frames, 115 messages, complete, closed; not played: r.s64 (KivTest::Stem, 266): there is no message of this kind at offset 0
empty: 0 frames, 0 messages; at 0: it does not begin as a recording of version 2
foreign-block: 6 frames, 77 messages, complete; at 2048: a block of file 2 stands in file 1
forged-snapshot: 6 frames, 77 messages, complete; at 2048: the header of a block has the last snapshot at byte 61, where none begins
growing: 23 frames, 281 messages, complete
hole: 3 frames, 46 messages, complete; at 1215: there are zeros where a frame should begin
long-frame: 11 frames, 114 messages, complete; at 3132: a frame of 4278190621 bytes exceeds its block
lost: 16 frames, 108 messages, complete, closed
lost-put-right: 16 frames, 108 messages, complete, closed
parts: 13 frames, 92 messages, complete, closed
parts-put-right: 13 frames, 92 messages, complete, closed
short: 3 frames, 41 messages, complete, closed
short-put-right: 3 frames, 41 messages, complete, closed
snapshots: 24 frames, 281 messages, complete, closed
snapshots-put-right: 24 frames, 281 messages, complete, closed
version-1: 0 frames, 0 messages; at 0: it does not begin as a recording of version 2
zeros: 0 frames, 0 messages; at 0: it does not begin as a recording of version 2
zeros-put-right: 0 frames, 0 messages; at 2108: padding ends before its block
)");
}

}  // namespace
