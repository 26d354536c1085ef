// The typed formatters of statement values, with awkward inputs and under a
// comma locale.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdint>
#include <random>

#include <fmt/format.h>

#include "accounting/db/sql_format.h"

namespace kvc::sql {
namespace {

// Switches the process to a locale whose decimal separator is a comma, when
// one is installed, for the lifetime of the object.
class CommaLocale {
 public:
  CommaLocale() {
    for (const char* name : {"pt_BR.UTF-8", "pt_BR.utf8", "de_DE.UTF-8", "fr_FR.UTF-8"})
      if (std::setlocale(LC_ALL, name)) {
        active_ = true;
        break;
      }
  }
  ~CommaLocale() { std::setlocale(LC_ALL, "C"); }
  bool Active() const { return active_; }

 private:
  bool active_ = false;
};

TEST(SqlFormat, QuotedDoublesEmbeddedQuotes) { EXPECT_EQ(Quoted("D'Avila"), "'D''Avila'"); }

TEST(SqlFormat, QuotedAsIsCopiesQuotesUnchanged) { EXPECT_EQ(QuotedAsIs("D'Avila"), "'D'Avila'"); }

TEST(SqlFormat, AmountHasTwoDecimalsAndNoThousandsSeparator) {
  EXPECT_EQ(Amount(1234.5), "1234.50");
  EXPECT_EQ(Amount(123.45), "123.45");
  EXPECT_EQ(Amount(0), "0.00");
  EXPECT_EQ(Amount(1e15), "1000000000000000.00");
  EXPECT_EQ(Amount(-2.5), "-2.50");
}

TEST(SqlFormat, AmountRoundsHalvesAwayFromZero) {
  EXPECT_EQ(Amount(0.125), "0.13");
  EXPECT_EQ(Amount(1.005), "1.01");
  EXPECT_EQ(Amount(-0.125), "-0.13");
}

// Every whole number of hundredths, from cents to the largest amounts a
// numeric(15,2) column and beyond hold, is written as two-decimal formatting
// writes it, and integers as their decimal digits.
TEST(SqlFormat, AmountAndIntegerWriteWhatDecimalFormattingWrites) {
  std::mt19937_64 rng(7);
  for (int i = 0; i < 200000; ++i) {
    const int64_t limit = int64_t{1} << (rng() % 47 + 1);
    const auto hundredths = static_cast<int64_t>(rng() % limit) * (rng() % 2 ? 1 : -1);
    const double value = static_cast<double>(hundredths) / 100.0;
    ASSERT_EQ(Amount(value), hundredths == 0 ? "0.00" : fmt::format("{:.2f}", value)) << hundredths;
    const auto integer = static_cast<int64_t>(rng());
    ASSERT_EQ(Integer(integer), fmt::format("{}", integer));
  }
  EXPECT_EQ(Amount(9999999999999.99), "9999999999999.99");
  EXPECT_EQ(Amount(-9999999999999.99), "-9999999999999.99");
  EXPECT_EQ(Amount(0.01), "0.01");
  EXPECT_EQ(Amount(-0.05), "-0.05");
  EXPECT_EQ(Integer(INT64_MIN), "-9223372036854775808");
}

TEST(SqlFormat, NegativeZeroAmountIsPlainZero) {
  EXPECT_EQ(Amount(-0.0), "0.00");
  EXPECT_EQ(Amount(-0.001), "0.00");
}

TEST(SqlFormat, AmountUsesPointUnderCommaLocale) {
  CommaLocale locale;
  if (!locale.Active()) GTEST_SKIP() << "no comma locale installed (pt_BR.UTF-8)";
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.2f", 1.5);
  ASSERT_STREQ(buf, "1,50") << "the locale really uses a comma";
  EXPECT_EQ(Amount(1234.5), "1234.50");
  EXPECT_EQ(DefaultDouble(1234.5), "1234.5");
  double d = 0;
  EXPECT_TRUE(ParseDouble("1234.5", d));
  EXPECT_EQ(d, 1234.5);
}

TEST(SqlFormat, DefaultDoubleIsShortestRoundTripText) {
  EXPECT_EQ(DefaultDouble(1234.5), "1234.5");
  EXPECT_EQ(DefaultDouble(0.1), "0.1");
  EXPECT_EQ(DefaultDouble(100), "100");
  EXPECT_EQ(DefaultDouble(-3.25), "-3.25");
  EXPECT_EQ(DefaultDouble(0.1 + 0.2), "0.3");
  EXPECT_EQ(DefaultDouble(-0.0), "0");
  EXPECT_EQ(DefaultDouble(123456789012345.0), "123456789012345");
}

TEST(SqlFormat, DefaultDoubleUsesExponentFromFifteenDigits) {
  EXPECT_EQ(DefaultDouble(1e15), "1E15");
  EXPECT_EQ(DefaultDouble(1.5e-7), "1.5E-7");
  EXPECT_EQ(DefaultDouble(0.00001), "0.00001");
}

TEST(SqlFormat, ParseIntegerIsStrict) {
  int64_t v = 0;
  EXPECT_TRUE(ParseInteger("42", v));
  EXPECT_EQ(v, 42);
  EXPECT_TRUE(ParseInteger(" -7 ", v));
  EXPECT_EQ(v, -7);
  EXPECT_FALSE(ParseInteger("4a", v));
  EXPECT_FALSE(ParseInteger("", v));
  EXPECT_FALSE(ParseInteger("1.5", v));
  EXPECT_FALSE(ParseInteger("99999999999999999999", v));
}

TEST(SqlFormat, IntegerListHasParentheses) {
  EXPECT_EQ(IntegerList({3, 7}), "(3,7)");
  EXPECT_EQ(IntegerList({}), "()");
}

}  // namespace
}  // namespace kvc::sql
