#include "tools/ptpexport/StateBody.h"

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>

#include "Holt/State/Doc.h"
#include "Holt/State/Walk.h"
#include "Kiv/Visit.h"

namespace Ptpexport {

using Holt::Json;
using Kiv::Entity;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;

namespace {

constexpr std::size_t indent = 3;
/// How deep a state is in its document.
constexpr std::size_t stateDepth = 3;

constexpr char emptyDocument[] = "{\n   \"format\": \"ptpstate dump 1\",\n   \"places\": []\n}\n";

std::string line(std::size_t depth) {
   return "\n" + std::string(depth * indent, ' ');
}

/// A value as it is written at a depth.
std::string indented(Json const& json, std::size_t depth) {
   std::string const text = Holt::jsonLine(json, indent);
   std::string result;
   result.reserve(text.size());
   for (char const c : text) {  // a line ends only between values: strings escape theirs
      if (c == '\n') {
         result += line(depth);
      } else {
         result += c;
      }
   }
   return result;
}

}  // namespace

/// Writes a member, as that of an entity or as a place of its own. Children are not written, but
/// become frames.
class StateBody::Members final : public Holt::StateVisitor<Entity> {
public:
   /// `depth`: that of the line which the member is in. `named`: whether its name comes first.
   Members(StateBody& body, std::size_t depth, bool named)
         : body_(body), depth_(depth), named_(named) {}

   void value(FieldDescriptor const& field, Kiv::ValueRef value) override {
      write(field, Holt::jsonOf(value));
   }
   void child(FieldDescriptor const& field, Entity const* child) override {
      if (child == nullptr) {
         write(field, Json());
         return;
      }
      name(field);
      body_.open(*child, depth_);
   }
   void collection(FieldDescriptor const& field, Elements const& elements) override {
      if (field.kind == MemberKind::children) {
         name(field);
         body_.open(elements, depth_);
         return;
      }
      Json json = Json::object();
      for (auto const& element : elements) {
         json[Holt::jsonKey(element.key)] = Holt::jsonOf(element.value);
      }
      write(field, json);
   }
   void queue(FieldDescriptor const& field, Elements const& elements, U32 next) override {
      Json json = Json::array();
      for (auto const& element : elements) {
         json.push_back(Holt::jsonOf(element.value));
      }
      write(field, Json{{"next", next}, {"elements", std::move(json)}});
   }

private:
   void name(FieldDescriptor const& field) {
      if (named_) {
         body_.member(field.name);
      }
   }
   void write(FieldDescriptor const& field, Json const& json) {
      name(field);
      body_.text_ += indented(json, depth_);
   }

   StateBody& body_;
   std::size_t depth_;
   bool named_;
};

StateBody::StateBody(std::vector<At> places) : places_(std::move(places)) {}

StateBody::~StateBody() = default;

std::size_t StateBody::read(std::span<char> into) {
   if (sent_ == text_.size()) {
      text_.clear();
      sent_ = 0;
      while (text_.size() < into.size() && !ended_) {
         step();
      }
   }
   std::size_t const size = std::min(into.size(), text_.size() - sent_);
   std::memcpy(into.data(), text_.data() + sent_, size);
   sent_ += size;
   return size;
}

void StateBody::step() {
   if (!frames_.empty()) {
      if (frames_.back().entity != nullptr) {
         stepEntity();
      } else {
         stepCollection();
      }
   } else if (place_ != places_.size()) {
      beginPlace(places_[place_++]);
   } else {
      text_ += place_ == 0 ? emptyDocument : line(1) + "]\n}\n";
      ended_ = true;
      return;
   }
   if (frames_.empty()) {
      text_ += line(2) + "}";
   }
}

void StateBody::beginPlace(At const& at) {
   text_ += place_ == 1 ? "{" + line(1) + "\"format\": \"ptpstate dump 1\"," + line(1) +
                                "\"places\": [" + line(2) + "{"
                        : "," + line(2) + "{";
   Json const head{
         {"root", {{"type", at.path.root.type}, {"name", Holt::jsonOf(at.path.root.name)}}},
         {"path", Holt::jsonOf(at.place.path())}};
   for (auto const& [name, json] : head.items()) {
      text_ += line(stateDepth) + "\"" + name + "\": " + indented(json, stateDepth) + ",";
   }
   text_ += line(stateDepth) + "\"state\": ";
   if (at.place.isCollection()) {
      Members members(*this, stateDepth, false);
      Holt::walkMember(at.place.owner(), *at.place.field(), members);
   } else if (Entity const* const entity = at.place.entity()) {
      open(*entity, stateDepth);
   } else if (at.place.exists()) {
      text_ += indented(Holt::jsonOf(at.place.value()->ref()), stateDepth);
   } else {
      text_ += "null";  // it was removed while the places before it were read
   }
}

void StateBody::member(std::string const& key) {
   Frame& frame = frames_.back();
   text_ += (frame.any ? "," : "") + line(frame.depth + 1) + Holt::jsonLine(Json(key)) + ": ";
   frame.any = true;
}

void StateBody::open(Entity const& entity, std::size_t depth) {
   Frame& frame = frames_.emplace_back();
   frame.entity = Sarn::Ptr<Entity>(const_cast<Entity*>(&entity));
   frame.depth = depth;
   text_ += '{';
   if (Sarn::String const* const name = Kiv::entityName(entity);
       name != nullptr && !name->empty() && entity.parent() != nullptr) {
      member("@name");
      text_ += indented(Holt::jsonOf(*name), depth + 1);
   }
}

void StateBody::open(Elements const& elements, std::size_t depth) {
   Frame& frame = frames_.emplace_back();
   frame.depth = depth;
   frame.children.reserve(elements.size());
   for (auto const& element : elements) {
      frame.children.emplace_back(Holt::jsonKey(element.key),
                                  Sarn::Ptr<Entity>(const_cast<Entity*>(element.child)));
   }
   text_ += '{';
}

void StateBody::close() {
   Frame const& frame = frames_.back();
   text_ += frame.any ? line(frame.depth) + "}" : "}";
   frames_.pop_back();
}

/// Writes the members of an entity up to the next that has entities below it.
void StateBody::stepEntity() {
   std::size_t const level = frames_.size();
   // Held, since a frame may move.
   Sarn::Ptr<Entity> const entity = frames_.back().entity;
   auto const& fields = fieldsOf(entity->kivType());
   Members members(*this, frames_.back().depth + 1, true);
   while (frames_.size() == level) {
      if (frames_.back().next == fields.size()) {
         close();
         return;
      }
      Holt::walkMember(*entity, *fields[frames_.back().next++], members);
   }
}

void StateBody::stepCollection() {
   Frame& frame = frames_.back();
   if (frame.next == frame.children.size()) {
      close();
      return;
   }
   auto const [key, child] = std::exchange(frame.children[frame.next++], {});
   if (child->parent() != nullptr) {
      std::size_t const depth = frame.depth + 1;
      member(key);
      open(*child, depth);
   }
}

std::vector<FieldDescriptor const*> const& StateBody::fieldsOf(Kiv::TypeImpl const& type) {
   auto const [at, isNew] = fields_.try_emplace(&type);
   if (isNew) {
      Kiv::forEachField(type, [&fields = at->second](FieldDescriptor const& field) {
         if (Holt::isInState(field)) {
            fields.push_back(&field);
         }
      });
   }
   return at->second;
}

}  // namespace Ptpexport
