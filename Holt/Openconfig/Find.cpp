#include "Holt/Openconfig/Find.h"

#include <charconv>
#include <nlohmann/json.hpp>
#include <optional>

#include "Holt/Failure.h"
#include "Holt/Openconfig/Schema.h"
#include "Kiv/Printable.h"

namespace Holt::OpenconfigRows {

namespace {

std::string percentDecoded(std::string_view text) {
   std::string decoded;
   for (std::size_t i = 0; i != text.size(); ++i) {
      if (text[i] != '%') {
         decoded += text[i];
         continue;
      }
      U8 byte = 0;
      std::string_view const digits = text.substr(i + 1, 2);
      auto const read = std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
      if (digits.size() != 2 || read.ec != std::errc() ||
          read.ptr != digits.data() + digits.size()) {
         throw Failure(Sarn::String(text) + ": after a % must be two hexadecimal digits");
      }
      decoded += static_cast<char>(byte);
      i += 2;
   }
   return decoded;
}

/// A part of a path between slashes.
struct Segment {
   std::string name;
   std::optional<std::string> key;
};

Segment segmentOf(std::string_view text) {
   std::size_t const equals = text.find('=');
   Segment segment{percentDecoded(text.substr(0, equals)), std::nullopt};
   if (equals != std::string_view::npos) {
      segment.key = percentDecoded(text.substr(equals + 1));
   }
   return segment;
}

/// A value of a leaf as it is in a path.
std::string pathText(Json const& value) {
   return value.is_string() ? value.get<std::string>() : value.dump();
}

/// Follows a path through the model and, as long as there is anything, through the document.
class Finder {
public:
   explicit Finder(Json const& document) {
      auto const top = document.find(topName());
      at_ = top != document.end() ? &*top : nullptr;
   }

   static std::string topName() { return std::string(modelModule) + ":ptp"; }

   void top(Segment const& segment) {
      if (segment.name != topName() || segment.key) {
         throw Failure("'" + segment.name + "': a path begins with '" + topName() + "'");
      }
   }

   void step(Segment const& segment) {
      QualifiedName const name = qualifiedName(segment.name);
      bool const own = name.module == ownModule;
      if (node_->leaf != nullptr) {
         fail(segment, "'" + Sarn::String(node_->name) + "' is a leaf");
      }
      if (node_->isList() && !isEntry_) {
         fail(segment, "'" + Sarn::String(node_->name) + "' is a list: name an entry, '" +
                             Sarn::String(node_->name) + "=" + Sarn::String(node_->key) + "'");
      }
      Node const* const child = own || name.module.empty() || name.module == modelModule
                                      ? node_->child(name.name, own)
                                      : nullptr;
      if (child == nullptr) {
         fail(segment, "'" + Sarn::String(node_->name) + "' has no such member" +
                             node_->nearest(name.name, own));
      }
      if (segment.key && !child->isList()) {
         fail(segment, "is not a list, and has no key");
      }
      node_ = child;
      isEntry_ = segment.key.has_value();
      std::string const member =
            own ? std::string(ownModule) + ":" + std::string(name.name) : std::string(name.name);
      if (at_ != nullptr) {
         auto const found = at_->find(member);
         at_ = found != at_->end() ? &*found : nullptr;
      }
      if (at_ != nullptr && isEntry_) {
         entry(*segment.key);
      }
   }

   Json result() const {
      if (at_ == nullptr) {
         return nullptr;
      }
      std::string const name = std::string(node_->module()) + ":" + std::string(node_->name);
      return Json{{name, isEntry_ ? Json::array({*at_}) : *at_}};
   }

private:
   void entry(std::string const& key) {
      Json const* found = nullptr;
      for (Json const& one : *at_) {
         auto const value = one.find(node_->key);
         if (value != one.end() && pathText(*value) == key) {
            found = &one;
         }
      }
      at_ = found;
   }

   [[noreturn]] static void fail(Segment const& segment, Sarn::String const& what) {
      throw Failure("'" + segment.name + "': " + what);
   }

   Node const* node_ = &schema();
   /// Null if there is nothing.
   Json const* at_;
   bool isEntry_ = false;
};

}  // namespace

}  // namespace Holt::OpenconfigRows

namespace Holt {

Json openconfigAt(Json const& document, std::string_view path) {
   using namespace OpenconfigRows;
   while (path.starts_with('/')) {
      path.remove_prefix(1);
   }
   while (path.ends_with('/')) {
      path.remove_suffix(1);
   }
   if (path.empty()) {
      return document;
   }
   Finder finder(document);
   for (bool isFirst = true; !path.empty(); isFirst = false) {
      std::size_t const slash = path.find('/');
      Segment const segment = segmentOf(path.substr(0, slash));
      if (isFirst) {
         finder.top(segment);
      } else {
         finder.step(segment);
      }
      path = slash == std::string_view::npos ? "" : path.substr(slash + 1);
   }
   return finder.result();
}

}  // namespace Holt
