// What has changed between two versions of a module, and what that means for peers and stored
// states of the other version.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Kivc/Model.h"

namespace Kivc {

/// What a difference means.
enum class Effect : std::uint8_t {
   /// Something of the old version is read as something else, refused, or gone.
   incompatible,
   /// Both versions understand what they have in common.
   compatible,
   /// Only people notice it.
   documentation,
};

/// "incompatible", ...
std::string_view name(Effect effect);

struct Difference {
   Effect effect = Effect::compatible;
   /// "Demo::Lamp.level", "Demo::Lamp", or empty for the module itself.
   std::string what;
   /// "id 260 is now 261"; may be empty for documentation.
   std::string text;
};

/// The differences between two checked versions of a module: incompatible ones first, otherwise in
/// the order of the declarations, what was removed before what was added. The order in which types
/// are declared is no difference.
std::vector<Difference> differences(Module const& before, Module const& after);

}  // namespace Kivc
