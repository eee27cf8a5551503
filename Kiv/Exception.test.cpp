#include "Kiv/Exception.h"

#include <gtest/gtest.h>

#include <functional>

namespace Kiv {
namespace {

std::string messageOf(std::function<void()> const& doIt) {
   try {
      doIt();
   } catch (Exception const& error) {
      return error.what();
   }
   return "";
}

std::string const evil = "a\x1b[2J\nb";
std::string const shown = "a\\x1b[2J\\nb";

TEST(Exception, IsOneLineThatNoTerminalObeys) {
   EXPECT_EQ(messageOf([] { throwRangeException(evil); }), shown);
   EXPECT_EQ(messageOf([] { throwParseException(evil, 3); }), "at position 3: " + shown);
   EXPECT_EQ(messageOf([] { throwNewEntityArgsException("Lamp", evil); }),
             "Lamp: constructor arguments of the wrong kind or number: " + shown);
   EXPECT_EQ(messageOf([] { rethrowFromDeserializeAttr(RangeException(evil), "name"); }),
             "name: " + shown);
}

}  // namespace
}  // namespace Kiv
