#include "Fleet/Names.h"

#include <gtest/gtest.h>

namespace Fleet {

namespace {

std::string token(std::string_view text) {
   std::string made;
   appendToken(made, text);
   return made;
}

}  // namespace

TEST(FleetNames, TokensEscapeAllButLettersDigitsHyphenAndUnderscore) {
   EXPECT_EQ(token("Ethernet1_a-B"), "Ethernet1_a-B");
   EXPECT_EQ(token("Ethernet1,100"), "Ethernet1%2C100");
   EXPECT_EQ(token("a.b *>%\x01\xff"), "a%2Eb%20%2A%3E%25%01%FF");
   EXPECT_EQ(token(""), "%");
}

TEST(FleetNames, EveryByteComesBack) {
   for (int i = 0; i != 256; ++i) {
      std::string const text = {'x', static_cast<char>(i)};
      EXPECT_EQ(tokenText(token(text)), text);
   }
   EXPECT_EQ(tokenText("%"), "");
}

TEST(FleetNames, WhatNobodyWritesIsNoToken) {
   for (char const* const text : {"", "a%", "a%2", "%2c", "%41", "a b", "*", "%%", "a%2Gb"}) {
      EXPECT_EQ(tokenText(text), std::nullopt) << text;
   }
}

TEST(FleetNames, RootsAreNamedWithoutTheUsualPrefix) {
   EXPECT_EQ(rootToken("ptp/status"), "status");
   EXPECT_EQ(rootToken("status"), "%2Fstatus");
   EXPECT_EQ(rootToken("ptp/meta"), "%2Fptp%2Fmeta");
   EXPECT_EQ(rootToken(""), "%2F");
   for (char const* const name : {"ptp/status", "status", "/status", "ptp/", "ptp//x", "/x", "x",
                                  "ptp/meta", "meta", "", "ptp/a.b", "ptp/ptp/x"}) {
      EXPECT_EQ(rootName(rootToken(name)), name);
   }
   EXPECT_EQ(rootName("%2Fptp%2Fstatus"), std::nullopt);
   EXPECT_EQ(rootName("meta"), std::nullopt);
   EXPECT_EQ(rootName("%"), std::nullopt);
}

TEST(FleetNames, TokensOfASubject) {
   EXPECT_EQ(tokensOf("a.b..c"), (std::vector<std::string_view>{"a", "b", "", "c"}));
   EXPECT_EQ(tokensOf(""), (std::vector<std::string_view>{""}));
}

}  // namespace Fleet
