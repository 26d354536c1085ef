// Value conversions and the date-time type.
#include <gtest/gtest.h>

#include "accounting/db/value.h"

namespace kvc::db {
namespace {

TEST(Value, NullReadsAsZeroEmptyAndNullDate) {
  Value v;
  EXPECT_TRUE(v.IsNull());
  EXPECT_EQ(v.AsInteger(), 0);
  EXPECT_EQ(v.AsFloat(), 0.0);
  EXPECT_EQ(v.AsString(), "");
  EXPECT_EQ(v.AsDateTime(), DateTime{});
}

TEST(Value, TextConvertsToNumbersWithAPoint) {
  EXPECT_EQ(Value("42").AsInteger(), 42);
  EXPECT_EQ(Value("3.0").AsInteger(), 3);
  EXPECT_DOUBLE_EQ(Value("105.5").AsFloat(), 105.5);
  EXPECT_THROW(Value("abc").AsInteger(), std::invalid_argument);
  EXPECT_THROW(Value("1,5").AsFloat(), std::invalid_argument);
}

TEST(Value, NumbersConvertToText) {
  EXPECT_EQ(Value(12).AsString(), "12");
  EXPECT_EQ(Value(1234.5).AsString(), "1234.5");
  EXPECT_EQ(Value(2.0).AsInteger(), 2);
}

TEST(DateTime, ParsesAndWritesIsoText) {
  auto dt = DateTime::ParseIso("2024-02-29 23:59:58.123");
  ASSERT_TRUE(dt.has_value());
  EXPECT_EQ(dt->millisecond, 123);
  EXPECT_EQ(dt->ToIso(), "2024-02-29 23:59:58.123");
  EXPECT_EQ(DateTime::ParseIso("2024-02-29")->ToIso(), "2024-02-29 00:00:00");
  EXPECT_FALSE(DateTime::ParseIso("2023-02-29").has_value());
  EXPECT_FALSE(DateTime::ParseIso("29/02/2024").has_value());
  EXPECT_EQ(Value("2024-01-31T10:00").AsDateTime().hour, 10);
}

}  // namespace
}  // namespace kvc::db
