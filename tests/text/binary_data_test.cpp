#include "zentrel/text/binary_data.h"

#include <gtest/gtest.h>

#include "zentrel/platform/exceptions.h"

namespace {

using namespace zt;

TEST(BinaryReading, IntegersInBothByteOrders) {
  const Bytes data{0x01, 0x02, 0x03, 0x04, 0xFF};
  EXPECT_EQ(byteAt(data, 4), 0xFF);
  EXPECT_EQ(wordLEAt(data, 0), 0x0201);
  EXPECT_EQ(wordBEAt(data, 0), 0x0102);
  EXPECT_EQ(wordLEAt(data, 3), 0xFF04);
  EXPECT_EQ(uint32LEAt(data, 1), 0xFF040302u);
  EXPECT_THROW(uint32LEAt(data, 2), ZTRangeException);
  EXPECT_THROW(byteAt(data, -1), ZTRangeException);
  EXPECT_THROW(byteAt(Bytes{}, 0), ZTRangeException);
  EXPECT_FALSE(boolValue(Bytes{}));
  EXPECT_TRUE(boolValue(Bytes{2}));
  EXPECT_EQ(dataWithBoolValue(true), Bytes{1});
  EXPECT_EQ(dataWithBoolValue(false), Bytes{0});
}

TEST(BinaryWriting, WrittenValuesReadBack) {
  Bytes data;
  appendByte(data, 0xAB);
  appendWordLE(data, 0x1234);
  appendWordBE(data, 0x1234);
  appendUInt32LE(data, 0xDEADBEEF);
  appendUInt32BE(data, 0xDEADBEEF);
  appendUInt64LE(data, 0x0102030405060708ULL);
  const Bytes expected{0xAB, 0x34, 0x12, 0x12, 0x34, 0xEF, 0xBE, 0xAD, 0xDE, 0xDE, 0xAD,
                       0xBE, 0xEF, 0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01};
  EXPECT_EQ(data, expected);
  EXPECT_EQ(uint32LEAt(data, 5), 0xDEADBEEFu);
  EXPECT_EQ(wordBEAt(data, 3), 0x1234);
}

TEST(BinaryWriting, CStringsCountUtf16UnitsNotBytes) {
  Bytes ascii;
  appendCStringNT(ascii, "ab");
  EXPECT_EQ(ascii, (Bytes{'a', 'b', 0}));
  // "hé": two UTF-16 units, three UTF-8 bytes: only two bytes are written.
  Bytes accented;
  appendCString(accented, "h\u00E9");
  EXPECT_EQ(accented, (Bytes{'h', 0xC3}));
  Bytes accentedNT;
  appendCStringNT(accentedNT, "h\u00E9");
  EXPECT_EQ(accentedNT, (Bytes{'h', 0xC3, 0xA9}));
  // An emoji is two UTF-16 units and four bytes.
  Bytes emoji;
  appendCString(emoji, "😀");
  EXPECT_EQ(emoji.size(), 2u);
  Bytes empty;
  appendCStringNT(empty, "");
  EXPECT_EQ(empty, Bytes{0});
}

TEST(BinaryWriting, Utf16LittleEndianStrings) {
  Bytes data;
  appendUStringNT(data, "ab");
  EXPECT_EQ(data, (Bytes{0x61, 0x00, 0x62, 0x00, 0x00, 0x00}));
  Bytes pair;
  appendUString(pair, "😀");  // U+1F600 = D83D DE00
  EXPECT_EQ(pair, (Bytes{0x3D, 0xD8, 0x00, 0xDE}));
  Bytes invalid;
  appendUString(invalid, "\xFF");
  EXPECT_EQ(invalid, (Bytes{0xFD, 0xFF}));
}

TEST(BinaryPadding, RoundsUpToMultiples) {
  EXPECT_EQ(pad(5, 4), 8);
  EXPECT_EQ(pad(8, 4), 8);
  EXPECT_EQ(pad(0, 4), 0);
  EXPECT_EQ(pad(-5, 4), 0);  // remainder -1 takes the value's sign
  EXPECT_EQ(pad(INT32_MIN, -1), INT32_MIN);
  EXPECT_THROW(pad(1, 0), ZTInternalInconsistencyException);
  EXPECT_THROW(pad(INT32_MAX, 4), ZTRangeException);

  Bytes five(5, 0xEE);
  padTo4From(five, 2);
  EXPECT_EQ(five.size(), 6u);
  Bytes aligned(4, 0xEE);
  padTo4From(aligned, 0);
  EXPECT_EQ(aligned.size(), 4u);
  Bytes odd(3, 0xEE);
  padTo2From(odd, 0);
  EXPECT_EQ(odd, (Bytes{0xEE, 0xEE, 0xEE, 0x00}));
  Bytes negativeOffset(1, 0xEE);
  padTo4From(negativeOffset, -2);
  EXPECT_EQ(negativeOffset.size(), 2u);
}

TEST(BinaryPatching, OverwritesInPlaceWithoutGrowing) {
  Bytes data;
  appendUInt32LE(data, 0);  // a size to be filled in
  appendCString(data, "payload");
  setUInt32LE(data, static_cast<std::uint32_t>(data.size()), 0);
  EXPECT_EQ(uint32LEAt(data, 0), 11u);
  setWordLE(data, 0xBEEF, 9);
  EXPECT_EQ(data.size(), 11u);
  EXPECT_EQ(wordLEAt(data, 9), 0xBEEF);
  EXPECT_THROW(setWordLE(data, 1, 10), ZTRangeException);
  EXPECT_THROW(setUInt32LE(data, 1, -4), ZTRangeException);
  EXPECT_EQ(uint32LEAt(data, 0), 11u);
}

TEST(HexText, UpperCaseWithoutSeparators) {
  EXPECT_EQ(hexString(Bytes{0x00, 0x0f, 0xab, 0xff}), "000FABFF");
  EXPECT_EQ(hexString(Bytes{}), "");
}

}  // namespace
