// Reads documents from JSON. Errors are collected, so that all of them can be reported at once.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "Holt/Failure.h"
#include "Holt/File.h"
#include "Holt/State/Doc.h"
#include "Holt/State/Key.h"
#include "Holt/State/Walk.h"
#include "Kiv/Module.h"
#include "Kiv/Printable.h"

namespace Holt {

using Kiv::AnyValue;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;
using Kiv::TypeImpl;

namespace {

class Reader {
public:
   explicit Reader(DocErrors& errors) : errors_(errors) {}

   std::unique_ptr<DocEntity> entity(Json const& json, TypeImpl const& type,
                                     Sarn::String const& path);
   std::unique_ptr<DocMember> member(Json const& json, FieldDescriptor const& field,
                                     Sarn::String const& path);
   std::unique_ptr<AnyValue> value(Json const& json, TypeImpl const& type,
                                   Sarn::String const& path);

   void error(Sarn::String const& path, Sarn::String const& what) {
      errors_.push_back(Kiv::printable(path + ": " + what));
   }

private:
   void member(Json const& json, DocMember& member, Sarn::String const& path);
   void queue(Json const& json, DocMember& member, Sarn::String const& path);
   void elements(Json const& json, DocMember& member, Sarn::String const& path);
   std::unique_ptr<AnyValue> key(std::string const& text, TypeImpl const& type,
                                 Sarn::String const& path);

   DocErrors& errors_;
};

std::unique_ptr<AnyValue> Reader::value(Json const& json, TypeImpl const& type,
                                        Sarn::String const& path) {
   auto value = std::make_unique<AnyValue>(type);
   try {
      readJson(json, *value);
      return value;
   } catch (Failure const& failure) {
      error(path, failure.what());
      return nullptr;
   }
}

std::unique_ptr<AnyValue> Reader::key(std::string const& text, TypeImpl const& type,
                                      Sarn::String const& path) {
   auto key = std::make_unique<AnyValue>(type);
   try {
      parseKey(text, *key);
      return key;
   } catch (Failure const& failure) {
      error(path + "[" + text + "]", failure.what());
      return nullptr;
   }
}

std::unique_ptr<DocEntity> Reader::entity(Json const& json, TypeImpl const& type,
                                          Sarn::String const& path) {
   if (!json.is_object()) {
      error(path, Sarn::String(type.name) + " is an entity; expected an object");
      return nullptr;
   }
   auto doc = std::make_unique<DocEntity>();
   doc->type = &type;
   for (auto const& [name, inner] : json.items()) {
      std::optional<Sarn::String> const given =
            name == "@name" && type.named ? stringOf(inner) : std::nullopt;
      if (given) {
         doc->name = *given;
         continue;
      }
      FieldDescriptor const* const field = type.field(std::string_view(name));
      if (field == nullptr) {
         error(path, unknownMember(type, name));
      } else if (!isInState(*field)) {
         error(path + "." + name, "is not streamed, and does not belong in a dump");
      } else if (auto read = member(inner, *field, path + "." + name)) {
         doc->members.push_back(std::move(*read));
      }
   }
   std::sort(doc->members.begin(), doc->members.end(),
             [](auto const& a, auto const& b) { return a.field->fieldId < b.field->fieldId; });
   return doc;
}

std::unique_ptr<DocMember> Reader::member(Json const& json, FieldDescriptor const& field,
                                          Sarn::String const& path) {
   auto read = std::make_unique<DocMember>();
   read->field = &field;
   std::size_t const before = errors_.size();
   member(json, *read, path);
   // If any part of a collection cannot be read, drop all of it: what is missing would be removed.
   return errors_.size() == before ? std::move(read) : nullptr;
}

void Reader::member(Json const& json, DocMember& member, Sarn::String const& path) {
   FieldDescriptor const& field = *member.field;
   switch (field.kind) {
      case MemberKind::single:
         member.value = value(json, *field.type, path);
         break;
      case MemberKind::child:
         if (!json.is_null()) {
            member.elements.push_back({nullptr, nullptr, entity(json, *field.type, path)});
         }
         break;
      case MemberKind::queue:
         queue(json, member, path);
         break;
      default:
         elements(json, member, path);
         break;
   }
}

void Reader::queue(Json const& json, DocMember& member, Sarn::String const& path) {
   if (!json.is_object() || json.size() != 2 || !json.contains("next") ||
       !json.contains("elements") || !json["next"].is_number_unsigned() ||
       json["next"].get<U64>() > 0xffffffff || !json["elements"].is_array()) {
      error(path, R"(a queue is {"next": NUMBER, "elements": [VALUE, ...]})");
      return;
   }
   member.next = json["next"].get<U32>();
   U32 sequence = member.next - static_cast<U32>(json["elements"].size());
   for (Json const& element : json["elements"]) {
      member.elements.push_back(
            {nullptr,
             value(element, *member.field->type, path + "[" + std::to_string(sequence++) + "]"),
             nullptr});
   }
}

void Reader::elements(Json const& json, DocMember& member, Sarn::String const& path) {
   FieldDescriptor const& field = *member.field;
   if (!json.is_object()) {
      error(path, "is a collection; expected an object with its keys");
      return;
   }
   std::vector<std::pair<Sarn::String, DocElement>> all;
   std::set<Sarn::String> seen;
   for (auto const& [text, inner] : json.items()) {
      auto read = key(text, *field.keyType, path);
      if (read == nullptr) {
         continue;
      }
      Sarn::String const name = keyText(read->ref());
      Sarn::String const there = path + "[" + name + "]";
      if (!seen.insert(name).second) {
         error(there, "occurs twice");
         continue;
      }
      DocElement element{std::move(read), nullptr, nullptr};
      if (field.kind == MemberKind::children) {
         element.child = entity(inner, *field.type, there);
      } else {
         element.value = value(inner, *field.type, there);
      }
      all.emplace_back(name, std::move(element));
   }
   if (field.kind != MemberKind::ordered) {
      std::sort(all.begin(), all.end(),
                [](auto const& a, auto const& b) { return naturallyLess(a.first, b.first); });
   }
   for (auto& [name, element] : all) {
      member.elements.push_back(std::move(element));
   }
}

/// Reads one of the document's places; whatever cannot be read is added to the errors.
void readPlace(Json const& json, Reader& reader, DocPlace& place) {
   TypeImpl const* const type = Kiv::typeByName(place.path.root.type);
   if (type == nullptr) {
      throw Failure("there is no type '" + place.path.root.type + "'");
   }
   Destination const to = destinationOf(*type, place.path);
   place.text = to.path;
   if (to.field == nullptr || (to.field->kind == MemberKind::children && to.keyed) ||
       to.field->kind == MemberKind::child) {
      place.entity = reader.entity(json, *to.type, to.path);
   } else if (to.field->keyType != nullptr && !to.keyed) {
      place.member = reader.member(json, *to.field, to.path);
   } else {
      place.value = reader.value(json, *to.type, to.path);
   }
}

Sarn::String textAt(Json const& json, char const* name) {
   auto const at = json.is_object() ? json.find(name) : json.end();
   return json.is_object() && at != json.end() ? stringOf(*at).value_or("") : "";
}

/// Throws a message with a hint if the text is clearly something else.
void requireDump(std::string const& text, std::string const& source) {
   std::size_t const begin = text.find_first_not_of(" \t\r\n");
   if (begin == std::string::npos) {
      throw Failure(source + ": is empty; 'ptpstate dump --json' writes the expected format");
   }
   std::string const line = text.substr(begin, text.find('\n', begin) - begin);
   if (line[0] == '{') {
      return;
   }
   if (line.find(" : ") != std::string::npos || line.find(" = ") != std::string::npos) {
      throw Failure(source +
                    ": is a dump as text, which nothing reads; make one with 'ptpstate dump "
                    "--json'");
   }
   if (line[0] == '[' && line.ends_with(']')) {
      throw Failure(source +
                    ": is not a dump; a configuration file of ptp4l is loaded by 'ptpstate serve "
                    "--ptp4l-conf'");
   }
}

}  // namespace

StateDoc readStateDoc(Json const& json, std::string const& source, DocErrors& errors) {
   bool const isDump = textAt(json, "format") == "ptpstate dump 1" && json.contains("places") &&
                       json["places"].is_array();
   if (!isDump) {
      throw Failure(source +
                    ": not a dump that this program can read; make one with 'ptpstate dump "
                    "--json'");
   }
   StateDoc doc;
   Reader reader(errors);
   for (Json const& from : json["places"]) {
      Sarn::String const path = textAt(from, "path");
      if (path.empty() || !from.contains("root") || !from.contains("state")) {
         errors.push_back(Kiv::printable(source) +
                          R"(: a place without "root", "path" or "state")");
         continue;
      }
      OfferedRoot const root{textAt(from["root"], "type"), textAt(from["root"], "name")};
      try {
         DocPlace place;
         place.path = parsePath(path, {root});
         readPlace(from["state"], reader, place);
         doc.places.push_back(std::move(place));
      } catch (Failure const& failure) {
         errors.emplace_back(failure.what());
      }
   }
   return doc;
}

DocPlace readStateAt(Json const& json, Path const& path, DocErrors& errors) {
   DocPlace place;
   place.path = path;
   Reader reader(errors);
   readPlace(json, reader, place);
   return place;
}

StateDoc readStateFile(std::string const& file, DocErrors& errors) {
   std::string const source = file == "-" ? "standard input" : file;
   std::string const text = readWholeFile(file);
   requireDump(text, source);
   return readStateDoc(parseJson(text, source), source, errors);
}

}  // namespace Holt
