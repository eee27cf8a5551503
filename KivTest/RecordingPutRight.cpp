#include "KivTest/RecordingPutRight.h"

#include <algorithm>

#include "Kiv/NboAttrLog.h"
#include "Kiv/Record/Recording.h"

namespace KivTest {

using Kiv::NboAttrLog::blockHeaderSize;
using Kiv::NboAttrLog::frameHeaderSize;
using Kiv::NboAttrLog::Out;

void recordingPutRight(std::vector<U8>& bytes) {
   constexpr U32 blockSize = 1024;
   for (std::size_t block = 0; block + blockHeaderSize <= bytes.size(); block += blockSize) {
      U8* const header = bytes.data() + block;
      std::copy_n(Kiv::NboAttrLog::recordingMagic, 8, header);
      Out out(header + 8, 16);
      out.writeU32(Kiv::NboAttrLog::recordingVersion);
      out.writeU32(blockSize);
      out.writeU64(block / blockSize);
      Out(header + blockHeaderSize - 4, 4)
            .writeU32(Kiv::NboAttrLog::crc32c(header, blockHeaderSize - 4));
      std::size_t const end = std::min<std::size_t>(block + blockSize, bytes.size());
      for (std::size_t at = block + blockHeaderSize; at + frameHeaderSize <= end;) {
         std::size_t const left = end - at - frameHeaderSize;
         std::size_t size = Kiv::NboAttrLog::In(bytes.data() + at, bytes.data() + end).nextU32();
         bool const padding = size == 0 && bytes[at + 8] == 0;
         size = padding ? left : size <= left ? size : size % (left + 1);
         U8* const frame = bytes.data() + at;
         Out(frame, 4).writeU32(static_cast<U32>(size));
         Out(frame + 4, 4).writeU32(Kiv::NboAttrLog::crc32c(frame + 8, frameHeaderSize - 8 + size));
         at += frameHeaderSize + size;
      }
   }
}

}  // namespace KivTest
