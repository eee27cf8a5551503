// Observers and printers for tests. They give what an entity publishes, and how its type describes
// itself, as text that a test compares with its expectation.
#pragma once

#include <string>
#include <vector>

#include "Kiv/Entity.h"

namespace KivTest {

/// During its lifetime, records what an entity, or everything below it, publishes.
///
///    Witness published(*dataSet);
///    dataSet->flagFieldIs(0x3f);
///    EXPECT_EQ(published.ids(), "261 260 259 264 262 263");
class Witness final : public Kiv::Observer {
public:
   explicit Witness(Kiv::Entity& entity, Kiv::Scope scope = Kiv::Scope::entity);
   ~Witness();
   Witness(Witness const&) = delete;
   Witness& operator=(Witness const&) = delete;

   /// The attribute ids published since the last call of one of these functions, separated by
   /// blanks.
   std::string ids();
   /// The same with names, keys and old values: "intfConfig[Ethernet1] was nothing". Below the
   /// root of a subtree, the type precedes the name: "Ptp::IntfConfig.enabled was false".
   std::string changes();
   /// Forgets what has been published so far.
   void clear() { published_.clear(); }

   void onChange(Kiv::Change const& change) override;

private:
   struct Published {
      Kiv::AttributeId id;
      std::string text;
   };

   Sarn::Ptr<Kiv::Entity> entity_;
   Kiv::Scope scope_;
   std::vector<Published> published_;
};

/// One line for each member of the entity's type, read through the generic interface:
/// "274 dc00 driftLimit : U32 = 500000000". The type is followed by the value as text or by the
/// kind of member in parentheses; then by `const` if a write is refused, `local` if the member is
/// not streamed, and the instantiation flags if any is set.
std::string attributeTable(Kiv::Entity& entity);

/// The value of an attribute as text, through the generic interface. Throws std::logic_error if it
/// cannot be read.
std::string attributeText(Kiv::Entity& entity, Kiv::AttributeId id);

/// Writes an attribute from text, through the generic interface; returns its status.
U8 attributeTextIs(Kiv::Entity& entity, Kiv::AttributeId id, std::string_view text);

}  // namespace KivTest
