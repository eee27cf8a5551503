#pragma once

#include "Fleet/Names.h"
#include "Fleet/Publisher.h"

namespace Fleet {

/// A root that is published, and the sums of its entities.
struct Publisher::Root final : Kiv::Observer {
   Root(Publisher& owner, Sarn::Ptr<Kiv::NamedEntity> const& its)
         : publisher(owner), root(its), token(rootToken(its->nameString())) {
      root->observerAdd(*this, Kiv::Scope::subtree);
   }
   ~Root() { root->observerDel(*this, Kiv::Scope::subtree); }
   Root(Root const&) = delete;
   Root& operator=(Root const&) = delete;

   void onChange(Kiv::Change const& change) override { publisher.changed(*this, change); }

   Publisher& publisher;
   Sarn::Ptr<Kiv::NamedEntity> root;
   std::string token;
   /// Of what the stream has.
   U64 entities = 0;
   U64 digest = 0;
};

}  // namespace Fleet
