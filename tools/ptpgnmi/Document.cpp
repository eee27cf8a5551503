#include "tools/ptpgnmi/Document.h"

#include <nlohmann/json.hpp>

#include "Holt/State/Json.h"
#include "tools/ptpgnmi/Codec.h"

namespace Ptpgnmi {

struct Document::Impl {
   Model const& model;
   Encoding encoding;
   Holt::Json json;

   std::string nameOf(Elem const& elem, bool top) const {
      return encoding == Encoding::jsonIetf ? model.qualified(elem.name, top) : elem.name;
   }
   /// The entry of a list with these keys.
   static Holt::Json& entryOf(Holt::Json& list, Elem const& elem) {
      auto const fits = [&elem](Holt::Json const& entry) {
         for (auto const& [name, value] : elem.keys) {
            Holt::Json const& has = entry[name];
            if ((has.is_string() ? has.get<std::string>() : has.dump()) != value) {
               return false;
            }
         }
         return true;
      };
      if (list.empty() || !fits(list.back())) {  // walks meet all of an entry together
         Holt::Json entry = Holt::Json::object();
         for (auto const& [name, value] : elem.keys) {
            entry[name] = value;
         }
         list.push_back(std::move(entry));
      }
      return list.back();
   }
};

Document::Document(Model const& model, Encoding encoding)
      : impl_(std::make_unique<Impl>(Impl{model, encoding, {}})) {}
Document::~Document() = default;
Document::Document(Document&&) noexcept = default;

void Document::add(Elems const& path, std::size_t named, Value const& value) {
   Holt::Json* at = &impl_->json;
   bool entry = false;
   for (std::size_t i = named; i != path.size(); ++i) {
      at = &(*at)[impl_->nameOf(path[i], i == named)];
      entry = !path[i].keys.empty();
      if (entry) {
         at = &Impl::entryOf(*at, path[i]);
      }
   }
   if (entry) {
      at = &(*at)["value"];
   }
   *at = Holt::Json::parse(jsonText(value, impl_->encoding));
}

std::string Document::text() const {
   return Holt::jsonLine(impl_->json);
}

}  // namespace Ptpgnmi
