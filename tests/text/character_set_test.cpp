// The shared sets and the results of inverted() are frozen ICU sets inside, and ICU ignores
// changes to a frozen set: a change to a copy of one must reach a changeable copy of its own.
#include <gtest/gtest.h>

#include "zentrel/text/character_set.h"

namespace {

TEST(CharacterSetCopies, ACopyOfASharedSetChangesAloneAndKeepsItsElements) {
  ZTCharacterSet spaces = ZTCharacterSet::whitespace();
  spaces.addRange(U'x', U'z');
  EXPECT_TRUE(spaces.contains(U'y'));
  EXPECT_TRUE(spaces.contains(U' '));
  EXPECT_TRUE(spaces.contains(U'\u00A0'));
  EXPECT_FALSE(ZTCharacterSet::whitespace().contains(U'y'));

  ZTCharacterSet emoji = zt::emojiCharacterSet();
  emoji.addCharactersInString("#");
  EXPECT_TRUE(emoji.contains(U'#'));
  EXPECT_EQ(emoji.count(), zt::emojiCharacterSet().count() + 1);
  EXPECT_FALSE(zt::emojiCharacterSet().contains(U'#'));
}

TEST(CharacterSetCopies, AnInvertedSetCanBeChangedFurther) {
  ZTCharacterSet notLetters = ZTCharacterSet::withRange(U'a', 26).inverted();
  const std::size_t before = notLetters.count();
  notLetters.addCharactersInString("q");
  notLetters.formUnion(ZTCharacterSet::withRange(U'r', 1));
  EXPECT_TRUE(notLetters.contains(U'q'));
  EXPECT_TRUE(notLetters.contains(U'r'));
  EXPECT_FALSE(notLetters.contains(U's'));
  EXPECT_EQ(notLetters.count(), before + 2);
  EXPECT_FALSE(notLetters == ZTCharacterSet::withRange(U'a', 26).inverted());
}

}  // namespace
