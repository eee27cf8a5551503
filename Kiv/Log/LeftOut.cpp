#include "Kiv/Log/LeftOut.h"

#include <algorithm>
#include <utility>

#include "Kiv/Path.h"

namespace Kiv::NboAttrLog {
namespace {

/// The most left-out values that a status names, and the most characters of a path or key in a
/// name.
constexpr std::size_t mostNames = 16;
constexpr std::size_t longestText = 200;

Sarn::String shortened(Sarn::String text) {
   if (text.size() > longestText) {
      text.resize(longestText - 3);
      text += "...";
   }
   return text;
}

}  // namespace

void LeftOut::note(std::size_t bodySize, std::size_t bound, Entity const& entity,
                   FieldDescriptor const* field, void const* key) {
   Sarn::String what = shortened(entityPath(entity));
   if (field != nullptr) {
      what += Sarn::String(".") + field->name;
      if (key != nullptr) {
         what += "[" + shortened(keyText({*field->keyType, key})) + "]";
      }
      what += " (" + std::to_string(field->fieldId) + ")";
   }
   what += ": " + std::to_string(bodySize) + " bytes exceed the bound of " + std::to_string(bound);
   anyChild_ = anyChild_ || field == nullptr;
   add(std::move(what));
}

void LeftOut::note(Entity const& entity, FieldDescriptor const& field, Sarn::String const& why) {
   add(shortened(entityPath(entity)) + "." + field.name + " (" + std::to_string(field.fieldId) +
       "): " + why);
}

void LeftOut::add(Sarn::String what) {
   ++count_;
   if (std::find(names_.begin(), names_.end(), what) != names_.end()) {
      return;
   }
   if (names_.size() == mostNames) {
      names_.erase(names_.begin());
   }
   names_.push_back(std::move(what));
   untold_ = std::min(untold_ + 1, names_.size());
}

}  // namespace Kiv::NboAttrLog
