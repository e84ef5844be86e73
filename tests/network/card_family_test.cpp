// The families of cellular cards.

#include <rkutils/interface.h>

#include <map>
#include <string>

#include <gmock/gmock.h>

namespace {

// By the two or three letters that tell most of them.
const std::map<std::string, int> kByTwo = {{"mc", 0x20002},   {"em", 0x40004},   {"me", 0x80004},
                                           {"mu", 0x80004},   {"fn", 0x2000080}, {"le", 0x2000080},
                                           {"lm", 0x2000080}, {"ln", 0x2000080}};
const std::map<std::string, int> kByThree = {
    {"gtm", 0x10001}, {"mpn", 0x200008}, {"mpl", 0x200008}, {"trm", 0x400010}, {"sim", 0x800020}};

int expected_family(const std::string& card) {
  if (const auto two = kByTwo.find(card.substr(0, 2)); two != kByTwo.end()) return two->second;
  const auto three = kByThree.find(card.substr(0, 3));
  return three == kByThree.end() ? 0 : three->second;
}

TEST(Card2Family, KnowsThesePrefixes) {
  EXPECT_EQ(card2family("gtm382"), 0x10001);
  EXPECT_EQ(card2family("mc7304"), 0x20002);
  EXPECT_EQ(card2family("em7455"), 0x40004);
  EXPECT_EQ(card2family("me909"), 0x80004);
  EXPECT_EQ(card2family("mu709"), 0x80004);
  EXPECT_EQ(card2family("mpn200"), 0x200008);
  EXPECT_EQ(card2family("mpls200"), 0x200008);
  EXPECT_EQ(card2family("trm5"), 0x400010);
  EXPECT_EQ(card2family("sim7600"), 0x800020);
  EXPECT_EQ(card2family("tobyl210"), 0x1000040);
  EXPECT_EQ(card2family("laral6004"), 0x4000040);
  EXPECT_EQ(card2family("fn980"), 0x2000080);
  EXPECT_EQ(card2family("le910"), 0x2000080);
  EXPECT_EQ(card2family("lm940"), 0x2000080);
  EXPECT_EQ(card2family("ln920"), 0x2000080);
}

TEST(Card2Family, APrefixAloneIsEnough) {
  for (const auto* families : {&kByTwo, &kByThree}) {
    for (const auto& [prefix, family] : *families) {
      EXPECT_EQ(card2family(prefix.c_str()), family) << prefix;
    }
  }
  EXPECT_EQ(card2family("tobyl2"), 0x1000040);
  EXPECT_EQ(card2family("laral6"), 0x4000040);
}

TEST(Card2Family, TheFirstPrefixCounts) {
  EXPECT_EQ(card2family("mc509"), 0x20002);
  EXPECT_EQ(card2family("mc5090"), 0x20002);
}

TEST(Card2Family, KnowsNoOthersOfThreeLetters) {
  std::string card = "aaa";
  for (card[0] = 'a'; card[0] <= 'z'; ++card[0]) {
    for (card[1] = 'a'; card[1] <= 'z'; ++card[1]) {
      for (card[2] = 'a'; card[2] <= 'z'; ++card[2]) {
        ASSERT_EQ(card2family(card.c_str()), expected_family(card)) << card;
      }
    }
  }
}

TEST(Card2Family, KnowsNoNearMisses) {
  for (const char* card : {"",       "g",       "gt",    "m",     "e",      "s",      "si", "tobyl",
                           "tobyl1", "tobyr2",  "toby2", "laral", "laral5", "larar6", "mp", "mpx",
                           "MC7304", "Sim7600", "FN980", " mc",   "xmc",    "\xEDmc"}) {
    EXPECT_EQ(card2family(card), 0) << card;
  }
}

TEST(Card2Family, NullIsNoCard) { EXPECT_EQ(card2family(nullptr), 0); }

}  // namespace
