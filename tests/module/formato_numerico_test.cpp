// The thousands-separated display format of totals and the separators it
// takes from the locale.
#include "accounting/module/formato_numerico.h"

#include <gtest/gtest.h>

#include <clocale>

namespace kvc {
namespace {

TEST(FormataMilharTest, GroupsTheIntegerPartByThrees) {
  const SeparadoresNumericos s;
  EXPECT_EQ(FormataMilhar(0, s), "0.00");
  EXPECT_EQ(FormataMilhar(-0.0, s), "0.00");
  EXPECT_EQ(FormataMilhar(12.5, s), "12.50");
  EXPECT_EQ(FormataMilhar(999.994, s), "999.99");
  EXPECT_EQ(FormataMilhar(999.995, s), "1,000.00");
  EXPECT_EQ(FormataMilhar(123456.78, s), "123,456.78");
  EXPECT_EQ(FormataMilhar(1234567.5, s), "1,234,567.50");
  EXPECT_EQ(FormataMilhar(-1234567.5, s), "-1,234,567.50");
  EXPECT_EQ(FormataMilhar(1e9, s), "1,000,000,000.00");
}

TEST(FormataMilharTest, UsesTheSeparatorsGiven) {
  EXPECT_EQ(FormataMilhar(1234567.5, {",", "."}), "1.234.567,50");
  EXPECT_EQ(FormataMilhar(1234567.5, {",", "\u202f"}), "1\u202f234\u202f567,50");
}

TEST(SeparadoresDoLocaleTest, CLocaleGetsPointAndComma) {
  std::setlocale(LC_ALL, "C");
  EXPECT_EQ(SeparadoresDoLocale(), (SeparadoresNumericos{".", ","}));
}

TEST(SeparadoresDoLocaleTest, BrazilianLocaleGetsCommaAndPoint) {
  if (!std::setlocale(LC_ALL, "pt_BR.UTF-8")) GTEST_SKIP() << "pt_BR.UTF-8 not installed";
  const SeparadoresNumericos s = SeparadoresDoLocale();
  std::setlocale(LC_ALL, "C");
  EXPECT_EQ(s, (SeparadoresNumericos{",", "."}));
}

}  // namespace
}  // namespace kvc
