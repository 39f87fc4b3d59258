#include "base/ByteReader.h"

#include "base/Checked.h"

#include <gtest/gtest.h>

#include <limits>

namespace lumenar::base {
namespace {

TEST(ByteReader, ReadsBothByteOrders)
{
    const std::uint8_t bytes[] = {0x01, 0x02, 0x03, 0x04, 0xFF, 0xFF, 0xFF, 0xFF};
    ByteReader in(bytes);
    EXPECT_EQ(in.ReadU16LE().value(), 0x0201);
    EXPECT_EQ(in.ReadU16BE().value(), 0x0304);
    EXPECT_EQ(in.ReadI32LE().value(), -1);
    EXPECT_TRUE(in.AtEnd());
}

TEST(ByteReader, FailedReadLeavesCursorAndSaysWhere)
{
    const std::uint8_t bytes[] = {1, 2, 3};
    ByteReader in(bytes);
    ASSERT_TRUE(in.Skip(1).ok());
    auto word = in.ReadU32LE();
    ASSERT_FALSE(word.ok());
    EXPECT_EQ(word.error().code, ErrorCode::Truncated);
    EXPECT_NE(word.error().message.find("offset 1"), std::string::npos) << word.error().message;
    EXPECT_EQ(in.Offset(), 1u);
    EXPECT_EQ(in.ReadU16LE().value(), 0x0302);
}

TEST(Checked, RefusesWrapAround)
{
    EXPECT_FALSE(CheckedMul<std::uint32_t>(65536, 65536).has_value());
    EXPECT_EQ(CheckedMul<std::uint32_t>(65535, 65537).value(), 0xFFFFFFFFu);
    EXPECT_FALSE(CheckedAdd<std::int32_t>(std::numeric_limits<std::int32_t>::max(), 1).has_value());
}

Result<int> Twice(Result<int> in)
{
    const int value = LUM_TRY(std::move(in));
    return value * 2;
}

TEST(Result, TryPropagatesTheFirstError)
{
    EXPECT_EQ(Twice(21).value(), 42);
    auto failed = Twice(Error{ErrorCode::BadData, "bad"});
    ASSERT_FALSE(failed.ok());
    EXPECT_EQ(failed.error().message, "bad");
}

} // namespace
} // namespace lumenar::base
