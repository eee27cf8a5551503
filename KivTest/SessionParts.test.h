// The parts of a session, as far as they need neither hub nor peer.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kiv/Log/Backlog.h"
#include "Kiv/Log/Encoder.h"
#include "Kiv/Log/Mounts.h"
#include "Kiv/Log/OpenCollections.h"
#include "KivTest/Stream.test.h"

namespace PartsTesting {

using namespace Kiv::NboAttrLog;
using StreamTesting::Bytes;
using StreamTesting::Stem;

/// Keeps which handles were given up.
struct Gone final : Handles::Listener {
   void onGone(Kiv::Entity&, U32 handle) override { handles.push_back(handle); }
   std::vector<U32> handles;
};

/// All that tells a peer, but for the walk, which asks entities' types for their functions.
struct Parts {
   explicit Parts(Limits const& someLimits = {}) : limits(someLimits) {
      handles.registerTree(*root);
   }
   ~Parts() { handles.unregisterTree(*root); }

   /// The peer mirrors the root.
   void serve() {
      mounts.served().push_back({nullptr, root.get(), 1, MountMode::reader});
      names.introducedIs(root->streamHandle(), true);
   }
   /// Takes what waits to be sent, as one line of text.
   std::string sent() {
      Bytes bytes;
      while (outbox.first().size != 0) {
         CircularBuffer::Piece const piece = outbox.first();
         bytes.insert(bytes.end(), piece.begin, piece.begin + piece.size);
         outbox.consume(piece.size);
      }
      return StreamTesting::joined(StreamTesting::lines(bytes));
   }
   Kiv::FieldDescriptor const& field(std::string_view name) const {
      return *Stem::kivTypeImpl.field(name);
   }

   Limits limits;
   ByteBudget budget;
   Clock clock;
   Gone gone;
   Handles handles{limits.entities, gone};
   Closing closing;
   Mounts mounts;
   OpenCollections open{limits.nesting};
   Ring ring{budget, longestBody(limits)};
   Outbox outbox{limits, budget, clock, ring, closing};
   Crossing crossing;
   Names names{limits.entities, mounts, open};
   LeftOut leftOut;
   Encoder encoder{limits, handles, closing, outbox, names, crossing, leftOut};
   Backlog backlog{limits, handles, closing, outbox, names, mounts};
   Sarn::Ptr<Stem> root = KivTest::stemFactory("test");
};

}  // namespace PartsTesting
