#include "Fleet/EntityText.h"

#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>
#include <set>

#include "Holt/Failure.h"
#include "Holt/State/Json.h"
#include "Holt/State/Key.h"
#include "Holt/State/Values.h"
#include "Holt/State/Walk.h"
#include "Kiv/Printable.h"
#include "Kiv/Visit.h"

namespace Fleet {

using Kiv::AnyValue;
using Kiv::Entity;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;

namespace {

constexpr std::string_view nameMember = "@name";

template <class Number>
void appendNumber(std::string& out, Number v) {
   char text[40];
   auto const end = std::to_chars(text, text + sizeof text, v).ptr;
   out.append(text, end);
}

void appendJson(std::string& out, Holt::Json const& json) {
   out += json.dump(-1, ' ', true, Holt::Json::error_handler_t::replace);
}

/// Whether a string stands for itself between the quotes of JSON.
bool isPlainText(std::string_view text) {
   for (char const c : text) {
      if (c < 0x20 || c == 0x7f || c == '"' || c == '\\') {  // and what is not ASCII
         return false;
      }
   }
   return true;
}

void appendQuoted(std::string& out, std::string_view text) {
   if (isPlainText(text)) {
      out += '"';
      out += text;
      out += '"';
   } else {
      appendJson(out, Holt::Json(text));
   }
}

/// Appends a value: common kinds at once, the others by way of a document.
struct ValueWriter {
   std::string& out;
   Kiv::ValueRef whole;

   static constexpr U64 exact = U64{1} << 53;

   void operator()(bool v) const { out += v ? "true" : "false"; }
   void operator()(U64 v) const { v <= exact ? appendNumber(out, v) : other(); }
   void operator()(S64 v) const {
      v <= static_cast<S64>(exact) && v >= -static_cast<S64>(exact) ? appendNumber(out, v)
                                                                    : other();
   }
   void operator()(double v) const { std::isfinite(v) ? appendNumber(out, v) : other(); }
   void operator()(float v) const { std::isfinite(v) ? appendNumber(out, v) : other(); }
   void operator()(Sarn::String const& v) const { isPlainText(v) ? appendQuoted(out, v) : other(); }
   void operator()(Kiv::EnumRef v) const {
      char const* const name = v.name();
      name != nullptr ? appendQuoted(out, name) : appendNumber(out, unsigned{v.value});
   }
   void operator()(Kiv::OptionalRef v) const;
   void operator()(auto const&) const { other(); }

   void other() const { appendJson(out, Holt::jsonOf(whole)); }
};

void appendValue(std::string& out, Kiv::ValueRef value) {
   Kiv::visitValue(value, ValueWriter{out, value});
}

void ValueWriter::operator()(Kiv::OptionalRef v) const {
   if (v.held.address != nullptr) {
      appendValue(out, v.held);
   } else {
      out += "null";
   }
}

/// Appends what a member holds.
class MemberWriter final : public Holt::StateVisitor<Entity> {
public:
   explicit MemberWriter(std::string& out) : out_(out) {}

   void value(FieldDescriptor const&, Kiv::ValueRef value) override { appendValue(out_, value); }
   void child(FieldDescriptor const&, Entity const*) override {}
   void collection(FieldDescriptor const&, Elements const& elements) override {
      char before = '{';
      for (auto const& element : elements) {
         out_ += before;
         before = ',';
         appendQuoted(out_, Holt::jsonKey(element.key));
         out_ += ':';
         appendValue(out_, element.value);
      }
      out_ += before == '{' ? "{}" : "}";
   }
   void queue(FieldDescriptor const&, Elements const& elements, U32 next) override {
      out_ += R"({"next":)";
      appendNumber(out_, next);
      out_ += R"(,"elements":[)";
      for (auto const& element : elements) {
         appendValue(out_, element.value);
         out_ += ',';
      }
      if (!elements.empty()) {
         out_.pop_back();
      }
      out_ += "]}";
   }

private:
   std::string& out_;
};

/// The end of a JSON string that begins at `at`; npos if it has none.
std::size_t endOfString(std::string_view text, std::size_t at) {
   for (++at; at < text.size(); ++at) {
      if (text[at] == '\\') {
         ++at;
      } else if (text[at] == '"') {
         return at + 1;
      }
   }
   return std::string_view::npos;
}

/// The end of a JSON value that begins at `at`, judged by brackets and quotes; npos if it has none.
std::size_t endOfValue(std::string_view text, std::size_t at) {
   std::size_t depth = 0;
   while (at < text.size()) {
      char const c = text[at];
      if (c == '"') {
         at = endOfString(text, at);
         if (at == std::string_view::npos) {
            return at;
         }
         continue;
      }
      if (c == '{' || c == '[') {
         ++depth;
      } else if (c == '}' || c == ']') {
         if (depth == 0) {
            return at;
         }
         --depth;
      } else if (c == ',' && depth == 0) {
         return at;
      }
      ++at;
   }
   return std::string_view::npos;
}

Holt::Json parsedValue(std::string_view json) {
   Holt::Json parsed = Holt::Json::parse(json, nullptr, false);
   if (parsed.is_discarded()) {
      throw Holt::Failure("invalid JSON");
   }
   return parsed;
}

std::unique_ptr<AnyValue> readValue(Holt::Json const& json, Kiv::TypeImpl const& type) {
   auto value = std::make_unique<AnyValue>(type);
   Holt::readJson(json, *value);
   return value;
}

bool isEqual(Kiv::ValueRef a, Kiv::ValueRef b) {
   return a.type->support->isEq(a.address, b.address) ||
          Holt::valueText(a) == Holt::valueText(b);  // a nan, too
}

void applySingle(Entity& entity, FieldDescriptor const& field, Holt::Json const& json) {
   if (field.ops->write == nullptr) {
      return;  // an argument of the constructor
   }
   auto const value = readValue(json, *field.type);
   AnyValue now(*field.type);
   now.read(&entity, field);
   if (!isEqual(value->ref(), now.ref())) {
      field.ops->write(&entity, value->get());
   }
}

void applyMap(Entity& entity, FieldDescriptor const& field, Holt::Json const& json,
              ApplyProblems& problems) {
   if (!json.is_object()) {
      throw Holt::Failure("is a collection; expected an object with its keys");
   }
   struct Element {
      std::unique_ptr<AnyValue> key;
      std::unique_ptr<AnyValue> value;
   };
   // All of it is read before anything is changed: what cannot be read must not be removed.
   std::vector<Element> elements;
   std::set<Sarn::String> named;
   for (auto const& [text, inner] : json.items()) {
      Element element{std::make_unique<AnyValue>(*field.keyType), readValue(inner, *field.type)};
      Holt::parseKey(text, *element.key);
      named.insert(Kiv::keyText(element.key->ref()));
      elements.push_back(std::move(element));
   }
   std::vector<std::unique_ptr<AnyValue>> others;
   for (Kiv::CollectionCursor at(entity, field); at->valid(); at->next()) {
      if (!named.contains(Kiv::keyText({*field.keyType, at->key()}))) {
         others.push_back(std::make_unique<AnyValue>(*field.keyType));
         others.back()->copy(at->key());
      }
   }
   Kiv::CollectionOps const& ops = *field.ops->collection;
   for (auto const& key : others) {
      ops.del(entity, key->get());
   }
   for (Element const& element : elements) {
      try {
         void const* const there = ops.find(entity, element.key->get());
         if (there == nullptr || !isEqual(element.value->ref(), {*field.type, there})) {
            ops.is(entity, element.key->get(), element.value->get());
         }
      } catch (Kiv::Exception const& refused) {
         problems.add(std::string(field.name) + "[" + Kiv::keyText(element.key->ref()) + "]",
                      refused.what());
      }
   }
}

/// Elements keep their numbers: a queue that continues what is there only loses its front and gets
/// new elements; any other replaces it.
void applyQueue(Entity& entity, FieldDescriptor const& field, Holt::Json const& json) {
   if (!json.is_object() || json.size() != 2 || !json.contains("next") ||
       !json.contains("elements") || !json["next"].is_number_unsigned() ||
       json["next"].get<U64>() > 0xffffffff || !json["elements"].is_array()) {
      throw Holt::Failure(R"(a queue is {"next": NUMBER, "elements": [VALUE, ...]})");
   }
   std::vector<std::unique_ptr<AnyValue>> elements;
   for (Holt::Json const& element : json["elements"]) {
      elements.push_back(readValue(element, *field.type));
   }
   Kiv::QueueOps const& ops = *field.ops->queue;
   auto const size = static_cast<U32>(elements.size());
   U32 const end = json["next"].get<U32>();
   U32 const first = end - size;
   U32 const front = ops.frontSequence(entity);
   U32 const next = ops.nextSequence(entity);
   bool continues = static_cast<S32>(first - front) >= 0 && static_cast<S32>(next - first) >= 0 &&
                    static_cast<S32>(end - next) >= 0;
   for (U32 at = first; continues && at != next; ++at) {
      continues = isEqual(elements[at - first]->ref(), {*field.type, ops.at(entity, at)});
   }
   if (!continues) {
      ops.applyFront(entity, next);
   }
   ops.applyFront(entity, first);
   for (U32 at = continues ? next : first; at != end; ++at) {
      ops.enq(entity, elements[at - first]->get());
   }
}

}  // namespace

void ApplyProblems::add(std::string_view member, std::string_view what) {
   constexpr std::size_t most = 10;
   if (++count <= most) {
      texts.push_back(Kiv::printable(Sarn::String(member) + ": " + Sarn::String(what)));
   }
}

EntityMembers::EntityMembers(Kiv::TypeImpl const& type) {
   Kiv::forEachField(type, [&](FieldDescriptor const& field) {
      bool const isValue = field.kind == MemberKind::single || field.kind == MemberKind::map ||
                           field.kind == MemberKind::ordered || field.kind == MemberKind::queue;
      if (isValue && field.ops != nullptr &&
          (field.has(FieldDescriptor::streamed) || type.isCtorArg(field.fieldId))) {
         all_.push_back(&field);
         byName_.emplace(field.name, &field);
      }
   });
}

FieldDescriptor const* EntityMembers::find(std::string_view name) const {
   auto const at = byName_.find(name);
   return at != byName_.end() ? at->second : nullptr;
}

std::string_view splitEntityText(std::string_view text, std::vector<TextMember>& members) {
   members.clear();
   if (text.size() < 2 || text.front() != '{') {
      return "is not an object";
   }
   if (text == "{}") {
      return {};
   }
   for (std::size_t at = 1;;) {
      if (at >= text.size() || text[at] != '"') {
         return "a member has no name";
      }
      std::size_t const endOfName = endOfString(text, at);
      if (endOfName == std::string_view::npos || endOfName >= text.size() ||
          text[endOfName] != ':') {
         return "a name has no value";
      }
      std::size_t const begin = endOfName + 1;
      std::size_t const end = endOfValue(text, begin);
      if (end == std::string_view::npos || end == begin || text[end] == ']') {
         return "a value has no end";
      }
      members.push_back({text.substr(at + 1, endOfName - at - 2), text.substr(begin, end - begin)});
      if (text[end] == '}') {
         return end + 1 == text.size() ? std::string_view() : "something follows the object";
      }
      at = end + 1;
   }
}

EntityMembers const& EntityText::membersOf(Kiv::TypeImpl const& type) {
   auto& members = types_[&type];
   if (members == nullptr) {
      members = std::make_unique<EntityMembers>(type);
   }
   return *members;
}

void EntityText::writeMember(Entity const& entity, FieldDescriptor const& field, std::string& out) {
   if (field.kind == MemberKind::single) {
      AnyValue value(*field.type);
      value.read(&entity, field);
      appendValue(out, value.ref());
   } else {
      MemberWriter writer(out);
      Holt::walkMember(entity, field, writer);
   }
}

void EntityText::write(Entity const& entity, std::string& out) {
   char before = '{';
   if (Sarn::String const* const name = entityName(entity);
       name != nullptr && entity.parent() != nullptr) {
      out += before;
      before = ',';
      appendQuoted(out, nameMember);
      out += ':';
      appendValue(out, Kiv::ValueRef(name));
   }
   for (FieldDescriptor const* const field : membersOf(entity.kivType()).all()) {
      out += before;
      before = ',';
      out += '"';
      out += field->name;
      out += "\":";
      writeMember(entity, *field, out);
   }
   out += before == '{' ? "{}" : "}";
}

bool EntityText::apply(Entity& entity, std::string_view text, ApplyProblems& problems) {
   // An observer of the entity may come back here.
   std::vector<TextMember> split = std::exchange(split_, {});
   std::string_view const wrong = splitEntityText(text, split);
   if (!wrong.empty()) {
      problems.add("value", wrong);
      return false;
   }
   EntityMembers const& members = membersOf(entity.kivType());
   for (TextMember const& member : split) {
      FieldDescriptor const* const field = members.find(member.name);
      if (field != nullptr) {
         applyMember(entity, *field, member.json, problems);
      } else if (member.name != nameMember) {
         ++problems.unknown;
      }
   }
   split_ = std::move(split);
   return true;
}

void EntityText::applyMember(Entity& entity, FieldDescriptor const& field, std::string_view json,
                             ApplyProblems& problems) {
   // Most members are as they were: then nothing is parsed.
   now_.clear();
   writeMember(entity, field, now_);
   if (now_ == json) {
      return;
   }
   try {
      Holt::Json const parsed = parsedValue(json);
      if (field.kind == MemberKind::single) {
         applySingle(entity, field, parsed);
      } else if (field.kind == MemberKind::queue) {
         applyQueue(entity, field, parsed);
      } else {
         applyMap(entity, field, parsed, problems);
      }
   } catch (Kiv::Exception const& refused) {
      problems.add(field.name, refused.what());
   } catch (Holt::Failure const& failure) {
      problems.add(field.name, failure.what());
   }
}

Sarn::Ptr<Entity> EntityText::makeChild(Entity& parent, FieldDescriptor const& field,
                                        Kiv::ValueRef key, std::string_view text,
                                        ApplyProblems& problems) {
   std::vector<TextMember> split;
   if (std::string_view const wrong = splitEntityText(text, split); !wrong.empty()) {
      problems.add("value", wrong);
      return {};
   }
   try {
      std::vector<std::unique_ptr<AnyValue>> values;
      std::vector<Kiv::ValueRef> args{key};
      Kiv::forEachGivenMember(*field.type, [&](FieldDescriptor const& member) {
         for (TextMember const& given : split) {
            if (given.name == member.name) {
               values.push_back(readValue(parsedValue(given.json), *member.type));
               args.push_back(values.back()->ref());
               return;
            }
         }
         throw Holt::Failure(Sarn::String("cannot be created: '") + member.name + "' is missing");
      });
      return field.ops->collection->childIs(parent, args);
   } catch (Kiv::Exception const& refused) {
      problems.add(field.name, refused.what());
   } catch (Holt::Failure const& failure) {
      problems.add(field.name, failure.what());
   }
   return {};
}

bool EntityText::wasMadeOtherwise(Entity const& child, std::string_view text) {
   bool otherwise = false;
   std::vector<TextMember> split;
   if (!splitEntityText(text, split).empty()) {
      return false;
   }
   Kiv::forEachGivenMember(child.kivType(), [&](FieldDescriptor const& field) {
      if (!field.has(FieldDescriptor::constant)) {
         return;
      }
      for (TextMember const& given : split) {
         if (given.name == field.name) {
            now_.clear();
            writeMember(child, field, now_);
            otherwise = otherwise || now_ != given.json;
         }
      }
   });
   return otherwise;
}

std::string EntityText::nameIn(std::string_view text) {
   std::vector<TextMember> split;
   if (splitEntityText(text, split).empty() && !split.empty() && split[0].name == nameMember) {
      Holt::Json const name = Holt::Json::parse(split[0].json, nullptr, false);
      return Holt::stringOf(name).value_or("");
   }
   return {};
}

}  // namespace Fleet
