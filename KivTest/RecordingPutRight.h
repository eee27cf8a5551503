#pragma once

#include <vector>

#include "Sarn/Types.h"

namespace KivTest {

/// Makes whatever bytes a recording in blocks of 1 KiB as far as checksums, lengths and places go:
/// each frame gets the checksum that it would have, from the one before it on. So what follows a
/// changed byte is reached.
void recordingPutRight(std::vector<U8>& bytes);

}  // namespace KivTest
