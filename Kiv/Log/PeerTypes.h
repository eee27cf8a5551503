#pragma once

#include <span>
#include <vector>

#include "Kiv/Log/LeftOut.h"
#include "Kiv/Log/Outbox.h"
#include "Kiv/Log/Schema.h"
#include "Kiv/Module.h"
#include "Kiv/NboAttrLogFlow.h"

namespace Kiv::NboAttrLog {

/// The types of a peer that has another version of one of our modules: what it lacks of ours, and
/// what it does not accept. A session whose peer has the same versions has no such object.
///
///     hello, other hash ----> our types of that module ----> the peer compares
///                             its types, one a message ----> compareSchema ---- conflict: the end
///                                                                 '---- lacking_, narrower_
///     a change ---- the peer lacks the attribute, or refuses the value? ---- yes: not sent
///
/// Invariants:
/// - nothing is replayed before all types of the peer's have come, so each change can be checked;
/// - each end sends only what the other end has: whatever else comes is a fault, as ever;
/// - what it holds is bounded by our own types.
class PeerTypes {
public:
   /// The peer has our module with another hash. No effect if that is known.
   void moduleDiffers(KivModule const& ours, U32 theirHash);

   /// Writes our types of these modules. False if there is no space now.
   bool write(Outbox& outbox);
   /// Whether types of the peer's have still to come.
   bool waiting() const noexcept { return complete_ != modules_.size(); }
   /// The first module whose types have still to come, and its hashes. REQUIRES: waiting().
   Sarn::String missing() const;
   /// Takes one type of the peer's. Returns why the two versions do not fit together; empty if they
   /// do. Throws `FaultException` if the message breaks a rule.
   Sarn::String take(In& in);

   /// Whether the peer has no such attribute.
   bool lacks(FieldDescriptor const& field) const noexcept;
   /// Whether the entity, or one above it, is a child that the peer has no attribute for.
   bool lacksEntity(Entity const& entity) const;
   /// Whether the peer refuses the attribute's value, which is then noted.
   bool refuses(Entity const& entity, FieldDescriptor const& field, LeftOut& leftOut) const;
   /// The same for a child, because of a value that its constructor takes.
   bool refusesChild(Entity const& child, LeftOut& leftOut) const;
   /// Drops what the peer lacks.
   void strip(FlowOut& flow) const;

   /// What the peer lacks, in the order of modules, types and ids: "Ptp::Config.driftLimit", or
   /// "Ptp::Config" for a whole type. Complete when nothing is `waiting`.
   std::span<Sarn::String const> lacking() const noexcept { return names_; }

private:
   struct Differing {
      KivModule const* ours;
      U32 theirHash;
      /// How many of our types have been written.
      U32 written = 0;
      /// How many of our types precede the peer's last, or are it.
      U32 passed = 0;
      /// How many messages of the module are to come; unknown before the first.
      U32 left = unknown;
      /// The name of the last type that came.
      Sarn::String last = {};
   };
   static constexpr U32 unknown = ~U32(0);

   static bool writeOne(Outbox& outbox, Differing& module);
   void passTo(Differing& module, std::string_view name);
   static Sarn::String hashes(Differing const& module);
   void add(TypeImpl const& type, SchemaDifference&& difference);
   NumberRange const* narrower(FieldDescriptor const& field) const noexcept;

   std::vector<Differing> modules_;
   std::size_t complete_ = 0;
   /// In the order of their addresses.
   std::vector<FieldDescriptor const*> lacking_;
   std::vector<SchemaDifference::Narrower> narrower_;
   std::vector<Sarn::String> names_;
};

}  // namespace Kiv::NboAttrLog
