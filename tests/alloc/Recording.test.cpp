// Recording and playing when memory runs out: either what was recorded can be played, or the
// recording has ended with a reason.
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "Kiv/NboAttrLogPlayer.h"
#include "Kiv/NboAttrLogRecorder.h"
#include "tests/alloc/Twins.h"

using namespace AllocTesting;
using Kiv::NboAttrLog::Hub;
using Kiv::NboAttrLog::Limits;
using Kiv::NboAttrLog::Moment;
using Kiv::NboAttrLog::OfferedRoot;
using Kiv::NboAttrLog::Player;
using Kiv::NboAttrLog::RecordFiles;
using Kiv::NboAttrLog::RecordingReader;
using LogRecorder = Kiv::NboAttrLog::Recorder;

namespace {

/// A file in memory that needs no allocations.
class Memory final : public Kiv::NboAttrLog::RecordSink, public Kiv::NboAttrLog::RecordingSource {
public:
   U64 begin() override {
      size_ = 0;
      return ++number_;
   }
   bool write(U8 const* bytes, std::size_t count) override {
      if (size_ + count > bytes_.size()) {
         return false;
      }
      std::memcpy(bytes_.data() + size_, bytes, count);
      size_ += count;
      return true;
   }
   Sarn::String reason() const override { return "full"; }
   U64 size() override { return size_; }
   std::size_t readAt(U64 offset, U8* to, std::size_t count) override {
      std::size_t const at = static_cast<std::size_t>(std::min<U64>(offset, size_));
      std::size_t const there = std::min(count, size_ - at);
      std::memcpy(to, bytes_.data() + at, there);
      return there;
   }

private:
   std::array<U8, std::size_t(1) << 17> bytes_{};
   std::size_t size_ = 0;
   U64 number_ = 0;
};

Limits narrow() {
   Limits limits;
   limits.outputBuffer = 4096;
   limits.longestMessage = 1024;
   return limits;
}

Kiv::NboAttrLog::RecorderOptions options() {
   Kiv::NboAttrLog::RecorderOptions all;
   all.blockSize = 2048;
   all.snapshotEvery = 4096;
   return all;
}

Sarn::Ptr<Kiv::NamedEntity> make(OfferedRoot const& root) {
   return Sarn::Ptr<Kiv::NamedEntity>(KivTest::stemFactory(root.name).get());
}

/// Plays the source, with failures armed or not; returns why it cannot be played.
std::string play(Kiv::NboAttrLog::RecordingSource& source, Player& player) {
   RecordingReader reader(source);
   for (RecordingReader::Frame frame; reader.next(frame);) {
      if (!player.apply(frame)) {
         return player.reason();
      }
   }
   return reader.damage();
}

/// Records changes to everything; returns the recorder's reason if it has ended.
std::string record(Findings& findings, Kiv::NboAttrLog::RecordSink& sink, Twins& twins) {
   Hub hub(narrow());
   hub.rootIs(Sarn::Ptr<Kiv::NamedEntity>(twins.root.get()));
   twins.streamed = true;
   std::unique_ptr<LogRecorder> recorder;
   auto const makeIt = [&] { recorder = std::make_unique<LogRecorder>(hub, sink, options()); };
   if (!attempt(makeIt)) {
      makeIt();
   }
   U64 now = 0;
   auto const turn = [&] {
      ++now;
      for (int i = 0; i != 100 && (i == 0 || recorder->waiting()); ++i) {
         attempt([&] { recorder->turn({now, now}); });
      }
   };
   turn();
   auto const change = [&](auto... a) {
      twins.change(a...);
      turn();
   };
   changeEverything(change);
   attempt([&] { recorder->sourceIs(false, {now, now}); });
   attempt([&] { recorder->sourceIs(true, {now, now}); });
   attempt([&] { recorder->snapshotIs(); });
   removeEverything(change);
   ++now;
   attempt([&] { recorder->close({now, now}); });
   recorder->close({now, now});
   std::string reason = recorder->reason();
   if (recorder->failed() && reason.empty()) {
      findings.bad("the recording has failed without a reason");
   }
   return reason;
}

TEST(OutOfMemory, OfRecording) {
   everyPoint(50, [](Findings& findings) {
      Memory memory;
      Twins twins(findings);
      std::string const reason = record(findings, memory, twins);
      if (!reason.empty()) {
         return;
      }
      Player player(&make, narrow());
      findings.badIf("played", play(memory, player));
      if (player.roots().empty()) {
         findings.bad("nothing is recorded");
      } else {
         findings.badIf("played", KivTest::firstDifference(*twins.root, *player.roots().front()));
      }
   });
}

TEST(OutOfMemory, OfRecordingIntoFiles) {
   std::string const directory = testing::TempDir() + "alloc_test." + std::to_string(getpid());
   std::filesystem::create_directory(directory);
   everyPoint(50, [&](Findings& findings) {
      std::filesystem::remove_all(directory);
      std::filesystem::create_directory(directory);
      Twins twins(findings);
      std::unique_ptr<RecordFiles> files;
      auto const open = [&] { files = std::make_unique<RecordFiles>(directory + "/flight", 2u); };
      if (!attempt(open)) {
         open();
      }
      if (!record(findings, *files, twins).empty()) {
         return;
      }
      auto const written = Kiv::NboAttrLog::recordingFiles(directory + "/flight");
      if (written.empty()) {
         findings.bad("no file is written");
      }
      for (std::string const& path : written) {
         if (std::filesystem::file_size(path) == 0) {
            findings.bad("a file is empty");
         }
      }
   });
   std::filesystem::remove_all(directory);
}

TEST(OutOfMemory, OfPlaying) {
   // Recorded once for all points, since they all play the same.
   static Memory memory;
   Sarn::Ptr<Stem> const root = KivTest::stemFactory("test");
   {
      Hub hub(narrow());
      hub.rootIs(Sarn::Ptr<Kiv::NamedEntity>(root.get()));
      LogRecorder recorder(hub, memory, options());
      U64 now = 0;
      auto const change = [&](char const*, auto makeIt) {
         makeIt(*root);
         ++now;
         do {
            recorder.turn({now, now});
         } while (recorder.waiting());
      };
      changeEverything(change);
      removeEverything(change);
      changeEverything(change);
      recorder.close({now, now});
   }
   everyPoint(50, [&](Findings& findings) {
      std::unique_ptr<Player> player;
      auto const makeIt = [&] { player = std::make_unique<Player>(&make, narrow()); };
      if (!attempt(makeIt)) {
         makeIt();
      }
      RecordingReader reader(memory);
      for (RecordingReader::Frame frame; reader.next(frame);) {
         bool applied = false;
         if (!attempt([&] { applied = player->apply(frame); })) {
            if (frame.kind != Kiv::NboAttrLog::FrameKind::snapshot) {
               findings.bad("changes have thrown");
            }
            applied = player->apply(frame);
         }
         if (!applied) {
            break;
         }
      }
      if (player->failed()) {
         if (player->reason().empty()) {
            findings.bad("playing has failed without a reason");
         }
         return;
      }
      findings.badIf("played", reader.damage());
      findings.badIf("played", KivTest::firstDifference(*root, *player->roots().front()));
   });
}

}  // namespace
