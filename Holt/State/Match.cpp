#include "Holt/State/Match.h"

#include "Holt/Failure.h"
#include "Holt/State/Key.h"
#include "Holt/State/Walk.h"

namespace Holt {

using Kiv::Entity;
using Kiv::FieldDescriptor;

namespace {

/// The keys in a collection that fit a pattern, as texts.
class FittingKeys final : public StateVisitor<Entity> {
public:
   explicit FittingKeys(std::string_view pattern) : pattern_(pattern) {}

   std::vector<Sarn::String> keys;

   void value(FieldDescriptor const&, Kiv::ValueRef) override {}
   void child(FieldDescriptor const&, Entity const*) override {}
   void collection(FieldDescriptor const&, Elements const& elements) override {
      for (auto const& element : elements) {
         if (keyFits(pattern_, element.keyText)) {
            keys.push_back(element.keyText);
         }
      }
   }
   void queue(FieldDescriptor const& field, Elements const& elements, U32) override {
      collection(field, elements);
   }

private:
   std::string_view pattern_;
};

class Matches {
public:
   Matches(Sarn::Ptr<Entity> const& root, Path const& path) : root_(root), path_(path) {}

   std::vector<Path> all() {
      from(0, {});
      return std::move(found_);
   }

private:
   /// Follows the steps from the one with this index; `before` are those that lead there.
   void from(std::size_t index, std::vector<PathStep> before) {
      for (; index != path_.steps.size(); ++index) {
         PathStep const& step = path_.steps[index];
         before.push_back(step);
         if (step.key && hasWildcard(*step.key)) {
            Sarn::String const pattern = *step.key;
            before.back().key.reset();
            for (Sarn::String const& key : keysOf(before, pattern)) {
               before.back().key = key;
               from(index + 1, before);
            }
            return;
         }
      }
      if (ownerExists(before)) {
         found_.push_back({path_.root, std::move(before)});
      }
   }

   std::vector<Sarn::String> keysOf(std::vector<PathStep> const& collection,
                                    std::string_view pattern) const {
      if (!ownerExists(collection)) {
         return {};
      }
      Place const place(root_, path_.root.name, collection);
      FittingKeys fitting(pattern);
      walkMember(place.owner(), *place.field(), fitting);
      return std::move(fitting.keys);
   }

   /// Whether all entities before the last step exist.
   bool ownerExists(std::vector<PathStep> const& steps) const {
      std::vector<PathStep> before;
      for (std::size_t i = 0; i + 1 < steps.size(); ++i) {
         before.push_back(steps[i]);
         Place const place(root_, path_.root.name, before);
         if (place.leadsToEntity() && place.entity() == nullptr) {
            return false;
         }
      }
      return true;
   }

   Sarn::Ptr<Entity> const& root_;
   Path const& path_;
   std::vector<Path> found_;
};

/// The end of a key with its brackets, or npos if there is no whole key at `at`.
std::size_t endOfKey(std::string_view text, std::size_t at) {
   try {
      return text[at] == '[' ? closingBracket(text, at) + 1 : std::string_view::npos;
   } catch (Failure const&) {
      return std::string_view::npos;  // the bracket belongs to the name of a root
   }
}

}  // namespace

bool isPattern(Path const& path) {
   for (PathStep const& step : path.steps) {
      if (step.key && hasWildcard(*step.key)) {
         return true;
      }
   }
   return false;
}

bool keyFits(std::string_view pattern, std::string_view key) {
   std::size_t p = 0;
   std::size_t k = 0;
   std::size_t star = std::string_view::npos;
   std::size_t resume = 0;
   while (k != key.size()) {
      if (p != pattern.size() && findWildcard(pattern, p) == p) {
         star = p++;
         resume = k;
      } else if (p != pattern.size() && pattern[p] == key[k]) {
         ++p;
         ++k;
      } else if (star != std::string_view::npos) {
         p = star + 1;
         k = ++resume;
      } else {
         return false;
      }
   }
   while (p != pattern.size() && findWildcard(pattern, p) == p) {
      ++p;
   }
   return p == pattern.size();
}

std::vector<Path> matchesOf(Sarn::Ptr<Entity> const& root, Path const& path) {
   if (!isPattern(path)) {
      return {path};
   }
   Destination const to = destinationOf(root->kivType(), path);
   std::vector<Path> found = Matches(root, path).all();
   if (found.empty()) {
      throw Failure(to.path + ": nothing fits");
   }
   return found;
}

bool concerns(std::string_view changed, std::string_view watched) {
   std::size_t c = 0;
   std::size_t w = 0;
   while (c != changed.size() && w != watched.size()) {
      std::size_t const changedEnd = endOfKey(changed, c);
      std::size_t const watchedEnd = endOfKey(watched, w);
      if (changedEnd != std::string_view::npos && watchedEnd != std::string_view::npos) {
         std::string_view const key = changed.substr(c + 1, changedEnd - c - 2);
         std::string_view const pattern = watched.substr(w + 1, watchedEnd - w - 2);
         if (key != pattern && !(hasWildcard(pattern) && keyFits(pattern, key))) {
            return false;
         }
         c = changedEnd;
         w = watchedEnd;
      } else if (changed[c++] != watched[w++]) {
         return false;
      }
   }
   return w == watched.size() ? c == changed.size() || changed[c] == '.' || changed[c] == '['
                              : watched[w] == '.';
}

}  // namespace Holt
