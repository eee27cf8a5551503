#include "tools/ptpexport/Http/Target.h"

#include <gtest/gtest.h>

namespace Ptpexport {
namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

TEST(Target, TakesPathAndQueryApart) {
   Target target;
   EXPECT_EQ(parseTarget("/events?path=ptp%2Fa+b&path=%5B*%5d&x&=y&&z=1=2", target), "");
   EXPECT_EQ(target.path, "/events");
   EXPECT_EQ(target.query,
             (Pairs{{"path", "ptp/a b"}, {"path", "[*]"}, {"x", ""}, {"", "y"}, {"z", "1=2"}}));
   EXPECT_EQ(target.values("path"), (std::vector<std::string>{"ptp/a b", "[*]"}));
   EXPECT_EQ(target.values("nothing"), std::vector<std::string>());
}

TEST(Target, KeepsThePathAsItIs) {
   Target target;
   EXPECT_EQ(parseTarget("/state/../%2e%2E//a+b%3Fc", target), "");
   EXPECT_EQ(target.path, "/state/../..//a+b?c");
   EXPECT_EQ(target.query, Pairs());
}

TEST(Target, RefusesWhatIsNoTarget) {
   std::string const wrong = "a percent sign is followed by two hexadecimal digits, and not by 00";
   for (char const* const text : {"/%", "/%4", "/%4g", "/%g4", "/%00", "/a%0", "/%+1", "/% 1"}) {
      Target target;
      EXPECT_EQ(parseTarget(text, target), wrong) << text;
      EXPECT_EQ(parseTarget(std::string("/?a=") + (text + 1), target), "in the query, " + wrong);
      EXPECT_EQ(parseTarget(std::string("/?") + (text + 1) + "=a", target),
                "in the query, " + wrong);
   }
   for (char const* const text : {"", "*", "a", "http://host/", "?/"}) {
      Target target;
      EXPECT_EQ(parseTarget(text, target), "a path begins with a slash") << text;
   }
}

TEST(Target, WhatIsEncodedIsDecodedAgain) {
   std::string all;
   for (int byte = 1; byte != 256; ++byte) {
      all += static_cast<char>(byte);
   }
   EXPECT_EQ(percentDecoded(percentEncoded(all), false), all);
   EXPECT_EQ(percentDecoded(percentEncoded(all), true), all);
   EXPECT_EQ(percentEncoded("ptp/a.b[1 2]~%"), "ptp/a.b%5B1%202%5D~%25");
}

}  // namespace
}  // namespace Ptpexport
