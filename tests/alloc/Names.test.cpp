// The way from an entity to the peer's handle when memory runs out before it can be made.
#include "KivTest/SessionParts.test.h"
#include "tests/alloc/EveryPoint.h"

using namespace AllocTesting;

namespace {

struct LargeMirror : PartsTesting::Parts {
   static constexpr U32 handleOfRoot = 0x01000001;
   static constexpr U32 count = 1000;

   LargeMirror() {
      names.mapRoot(handleOfRoot, *root);
      for (U32 i = 0; i != count; ++i) {
         names.map(handleOf(i), leaf(i).get(), true, true);
      }
   }
   Sarn::Ptr<KivTest::Leaf> leaf(U32 i) { return root->leafIs(i, true, KivTest::Opaque(1)); }
   static U32 handleOf(U32 i) { return handleOfRoot + 1 + i; }
};

TEST(OutOfMemory, OfTheFirstRemovalAtALargeMirror) {
   everyPoint(1, [](Findings& findings) {
      LargeMirror mirror;
      attempt([&] { mirror.names.unmapTree(*mirror.leaf(7)); });
      for (U32 i = 0; i != LargeMirror::count; ++i) {
         bool const there = mirror.names.theirs(LargeMirror::handleOf(i))->entity.get() != nullptr;
         if (there == (i == 7)) {
            findings.bad("leaf " + std::to_string(i) + (there ? " is" : " is not") + " mapped");
         }
      }
      U32 const* const handle = mirror.names.theirHandle(*mirror.leaf(8));
      if (handle == nullptr || *handle != LargeMirror::handleOf(8)) {
         findings.bad("leaf 8 is not found");
      }
   });
}

}  // namespace
