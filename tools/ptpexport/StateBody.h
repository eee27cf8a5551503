#pragma once

#include <map>
#include <string>
#include <vector>

#include "Holt/State/Place.h"
#include "Holt/State/Walk.h"
#include "tools/ptpexport/Http/Body.h"

namespace Ptpexport {

/// Places in a live state as JSON, byte for byte what `jsonText(jsonOf(StateDoc))` gives, written
/// while the client reads it. It never holds more than one entity's text, and the keys of the
/// collections that it is in.
///
/// The answer is not a picture of one moment: each entity is as it was when its turn came. An
/// entity that is removed before its turn is left out; one that is added to a collection after that
/// collection was begun, too.
class StateBody final : public Body {
public:
   struct At {
      Holt::Path path;
      Holt::Place place;
   };

   /// REQUIRES: each place exists.
   explicit StateBody(std::vector<At> places);
   ~StateBody() override;

   std::size_t read(std::span<char> into) override;
   bool ended() const override { return ended_ && sent_ == text_.size(); }

private:
   class Members;
   /// An object that is begun: an entity, or a collection of entities.
   struct Frame {
      Sarn::Ptr<Kiv::Entity> entity;
      std::vector<std::pair<std::string, Sarn::Ptr<Kiv::Entity>>> children;
      /// The index of the next member or child.
      std::size_t next = 0;
      /// Of the line in which it begins.
      std::size_t depth = 0;
      /// Whether the object has a member already.
      bool any = false;
   };

   using Elements = std::vector<Holt::StateElement<Kiv::Entity>>;

   void step();
   void beginPlace(At const& at);
   void stepEntity();
   void stepCollection();
   void member(std::string const& key);
   void open(Kiv::Entity const& entity, std::size_t depth);
   void open(Elements const& elements, std::size_t depth);
   void close();
   std::vector<Kiv::FieldDescriptor const*> const& fieldsOf(Kiv::TypeImpl const& type);

   std::vector<At> places_;
   std::size_t place_ = 0;
   std::vector<Frame> frames_;
   std::map<Kiv::TypeImpl const*, std::vector<Kiv::FieldDescriptor const*>> fields_;
   /// What is rendered, and how much of that has been read.
   std::string text_;
   std::size_t sent_ = 0;
   bool ended_ = false;
};

}  // namespace Ptpexport
