#pragma once

#include <vector>

#include "Kiv/Log/Handles.h"
#include "Kiv/Log/Names.h"
#include "Kiv/Log/Parts.h"

namespace Kiv::NboAttrLog {

class Mounts;

/// Whether all changes of a writer's batch can be applied, found out without applying any.
///
/// Each change is applied to a specimen instead, a new entity of the same type that nobody sees: so
/// it is decoded and checked by the code that will apply it. Handles that the batch introduces
/// stand for specimens as well.
class BatchCheck {
public:
   BatchCheck(Names const& names, Mounts const& mounts, Handles const& handles,
              ByteBudget& budget) noexcept
         : names_(names), mounts_(mounts), handles_(handles), parts_(budget) {}

   /// Checks the messages between `begin` and `commit`, all of them complete. Throws `Exception`
   /// for what is wrong with the first that cannot be applied, and `last()` is its header.
   void run(U8 const* at, U8 const* end, std::size_t longestValue);
   Header const& last() const noexcept { return last_; }

private:
   /// What a handle of the peer's stands for inside the batch.
   struct Known {
      U32 handle;
      /// Null for a child that the batch creates.
      Entity* entity;
      /// Null for an entity that has been deleted here.
      TypeImpl const* type;
   };
   struct Open {
      U32 handle;
      AttributeId attribute;
   };

   void check(Header const& header, In& in);
   void checkChange(Known const& target, Header const& header, In& in);
   void checkCreate(Entity& owner, FieldDescriptor const& field, In& in);
   void checkQueue(Entity& owner, FieldDescriptor const& field, Header const& header, In& in);
   void checkMarker(Known const& target, Header const& header, In const& in);
   Known const* find(U32 handle) const noexcept;
   void know(Known const& known);
   Entity& specimen(TypeImpl const& type);

   Names const& names_;
   Mounts const& mounts_;
   Handles const& handles_;
   PartsIn parts_;
   Header last_{};
   std::vector<Known> known_;
   /// Collections whose replay began in the batch.
   std::vector<Open> open_;
   std::vector<Sarn::Ptr<Entity>> specimens_;
};

}  // namespace Kiv::NboAttrLog
