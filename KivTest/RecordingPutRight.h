#pragma once

#include <vector>

#include "Sarn/Types.h"

namespace KivTest {

/// Turns arbitrary bytes into a recording in blocks of 1 KiB with correct checksums, lengths and
/// positions: each frame gets the checksum that it should have, which depends on the frame before
/// it. So the reader gets past a changed byte.
void recordingPutRight(std::vector<U8>& bytes);

}  // namespace KivTest
