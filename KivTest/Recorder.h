// Observers and printers for tests: what an entity publishes, and what its type says of itself, as
// text that a test compares with what it expects.
#pragma once

#include <string>
#include <vector>

#include "Kiv/Entity.h"

namespace KivTest {

/// Records what an entity, or all below it, publishes, as long as it lives.
///
///    Recorder published(*dataSet);
///    dataSet->flagFieldIs(0x3f);
///    EXPECT_EQ(published.ids(), "261 260 259 264 262 263");
class Recorder final : public Kiv::Observer {
public:
   explicit Recorder(Kiv::Entity& entity, Kiv::Scope scope = Kiv::Scope::entity);
   ~Recorder();
   Recorder(Recorder const&) = delete;
   Recorder& operator=(Recorder const&) = delete;

   /// The attribute ids published since the last call of any of these, with blanks between them.
   std::string ids();
   /// The same with names, keys and old values: "intfConfig[Ethernet1] was nothing". Below the
   /// root of a subtree the type stands before the name: "Ptp::IntfConfig.enabled was false".
   std::string changes();
   /// Forgets what was published so far.
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

/// A line for each member of the entity's type, read through the generic interface:
/// "274 dc00 driftLimit : U32 = 500000000". Behind the type stand the value as text or, in
/// parentheses, what else it is; then `const` where a write is refused, `local` where the member
/// is not streamed, and the instantiation flags where one is set.
std::string attributeTable(Kiv::Entity& entity);

/// The value of an attribute as text, through the generic interface. Throws std::logic_error if it
/// cannot be read.
std::string attributeText(Kiv::Entity& entity, Kiv::AttributeId id);

/// Writes an attribute from text, through the generic interface; returns its status.
U8 attributeTextIs(Kiv::Entity& entity, Kiv::AttributeId id, std::string_view text);

}  // namespace KivTest
