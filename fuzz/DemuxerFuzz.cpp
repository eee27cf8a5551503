#include <cstdio>
#include <cstdlib>

#include "Kiv/Map/Hash.h"
#include "KivTest/PeerScript.h"

// A peer that sends arbitrary bytes: the input is a script for `KivTest::PeerScript`.

namespace {

[[maybe_unused]] bool const sameHashes = [] {
   Kiv::HashHelper::hashSeed32Is(1);
   return true;
}();

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(U8 const* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(U8 const* data, std::size_t size) {
   KivTest::PeerScript peer({data, data + size});
   if (std::string const problem = peer.check(); !problem.empty()) {
      std::fprintf(stderr, "%s\n", problem.c_str());
      std::abort();
   }
   return 0;
}
