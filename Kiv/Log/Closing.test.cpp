#include "Kiv/Log/Closing.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using Kiv::NboAttrLog::Closing;
using Kiv::NboAttrLog::Ending;

TEST(Closing, IsOpenAtFirst) {
   Closing const closing;
   EXPECT_FALSE(closing.closed());
   EXPECT_EQ(closing.ending(), Ending::open);
   EXPECT_EQ(closing.reason(), "");
}

TEST(Closing, TheFirstReasonStays) {
   Closing closing;
   closing.fail("bye", Ending::peer);
   closing.fail("later");
   EXPECT_TRUE(closing.closed());
   EXPECT_EQ(closing.ending(), Ending::peer);
   EXPECT_EQ(closing.reason(), "bye");
}

TEST(Closing, ClosesForWhatItsWorkThrows) {
   struct Case {
      char const* reason;
      void (*work)();
   };
   for (Case const& test :
        {Case{"", [] {}}, Case{"what it says", [] { throw std::logic_error("what it says"); }},
         Case{"out of memory", [] { throw std::bad_alloc(); }}, Case{"unknown", [] { throw 1; }}}) {
      Closing closing;
      closing.orFail(test.work);
      EXPECT_EQ(closing.reason(), test.reason);
      EXPECT_EQ(closing.closed(), *test.reason != 0) << test.reason;
   }
}

}  // namespace
