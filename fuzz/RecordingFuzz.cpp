#include <cstdio>
#include <cstdlib>
#include <vector>

#include "Kiv/Module.h"
#include "Kiv/NboAttrLogPlayer.h"
#include "KivTest/BytesSource.h"
#include "KivTest/RecordingPutRight.h"
#include "KivTest/TestTypes.h"

// A file that claims to be a recording. Whatever it contains: reading it terminates, reported
// damage is inside the file, its frames are applied as far as possible, and searching for any
// moment in it terminates.
//
//     byte 0     bit 0: checksums and lengths are corrected first (KivTest/RecordingPutRight.h)
//     then       the file

namespace {

using Kiv::NboAttrLog::frameHeaderSize;
using Kiv::NboAttrLog::Limits;
using Kiv::NboAttrLog::Player;
using Kiv::NboAttrLog::RecordingReader;
using Bytes = std::vector<U8>;

void require(bool holds, char const* what) {
   if (!holds) {
      std::fprintf(stderr, "%s\n", what);
      std::abort();
   }
}

using Source = KivTest::BytesSource;

Sarn::Ptr<Kiv::NamedEntity> make(Kiv::NboAttrLog::OfferedRoot const& root) {
   return root.type == "KivTest::Stem" && root.name.size() < 16
                ? Sarn::Ptr<Kiv::NamedEntity>(KivTest::stemFactory(root.name).get())
                : Sarn::Ptr<Kiv::NamedEntity>();
}

Limits limits() {
   Limits all;
   all.outputBuffer = 8192;
   all.longestMessage = 1024;
   all.entities = 256;
   all.nesting = 8;
   return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(U8 const* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(U8 const* data, std::size_t size) {
   if (size == 0) {
      return 0;
   }
   Bytes bytes(data + 1, data + size);
   if ((data[0] & 1) != 0) {
      KivTest::recordingPutRight(bytes);
   }
   Source source(bytes);
   RecordingReader reader(source);
   std::vector<U64> walls;
   {
      Player player(make, limits());
      bool applies = true;
      U64 before = 0;
      for (RecordingReader::Frame frame; reader.next(frame);) {
         require(frame.offset >= before, "a frame begins before the previous one");
         before = frame.offset + 1;
         require(frame.offset + frameHeaderSize + frame.size <= bytes.size(),
                 "a frame extends past the end of the file");
         if (walls.size() < 16) {
            walls.push_back(frame.at.wall);
         }
         applies = applies && player.apply(frame);
         require(applies == player.reason().empty(), "a reason is missing or given for no failure");
      }
   }
   require(reader.offset() <= bytes.size(), "the reader is past the end of the file");
   for (U64 const wall : walls) {
      Player player(make, limits());
      if (reader.seek(wall)) {
         for (RecordingReader::Frame frame; reader.next(frame) && player.apply(frame);) {
         }
      }
   }
   return 0;
}
