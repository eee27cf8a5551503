#pragma once

#include "Kiv/Entity.h"

namespace Kiv::NboAttrLog {

/// How a message names an entity that the peer knows: U8 whose handle it is, U32 handle.
struct EntityRef {
   static constexpr std::size_t size = 5;
   /// The most entities in one message.
   static constexpr std::size_t most = 256;

   U32 handle = 0;
   /// Whether it is the sender's handle; otherwise it is the receiver's.
   bool sendersOwn = false;
};

/// What is known of an entity, one byte before its digest in `digests`. A combination of flags.
struct DigestState {
   /// A digest follows. Without it: the entity is gone, or unknown to the peer.
   static constexpr U8 present = 1;
   /// It has a value that is not sent because of its length.
   static constexpr U8 valueLeftOut = 2;
   /// It has a child that was not sent, so that the digest does not include it.
   static constexpr U8 childLeftOut = 4;
   /// The tree is too large for one digest.
   static constexpr U8 tooLarge = 8;
   static constexpr U8 all = 15;

   /// The bytes of one entity's digest in a message, and of what precedes the first.
   static constexpr std::size_t size = 1 + 16;
   static constexpr std::size_t before = 4;
};

/// What a `digestAsk` asks for, its first byte.
enum class DigestDepth : U8 {
   /// The digests of some entities, each with the identities of its children.
   nodes = 0,
   /// The digest of one entity with everything below it.
   tree = 1,
};

}  // namespace Kiv::NboAttrLog
