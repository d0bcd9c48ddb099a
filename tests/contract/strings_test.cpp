// What every implementation of the number and string helpers does.
#include <climits>
#include <string>

#include <gtest/gtest.h>

#include "shell/qm_string.h"

namespace {

std::string upper(std::string text) {
    qm_strupr(text.data());
    return text;
}

TEST(Atoi, ReadsDecimalDigits) {
    EXPECT_EQ(qm_atoi("0"), 0);
    EXPECT_EQ(qm_atoi("7"), 7);
    EXPECT_EQ(qm_atoi("2048000"), 2048000);
}

TEST(Atoi, ReadsDigitsAfterAZeroAsDecimal) { EXPECT_EQ(qm_atoi("010"), 10); }

TEST(Atoi, SkipsLeadingBlanks) {
    EXPECT_EQ(qm_atoi("   12"), 12);
    EXPECT_EQ(qm_atoi(" \t12"), 12);
}

TEST(Atoi, TakesOneSign) {
    EXPECT_EQ(qm_atoi("-5"), -5);
    EXPECT_EQ(qm_atoi("+5"), 5);
    EXPECT_EQ(qm_atoi("--5"), 0);
    EXPECT_EQ(qm_atoi("+-5"), 0);
}

TEST(Atoi, TakesABlankAfterTheSignForTheEnd) { EXPECT_EQ(qm_atoi("- 5"), 0); }

TEST(Atoi, StopsAtTheFirstOtherCharacter) {
    EXPECT_EQ(qm_atoi("12abc"), 12);
    EXPECT_EQ(qm_atoi("12 34"), 12);
    EXPECT_EQ(qm_atoi("1,2"), 1);
    EXPECT_EQ(qm_atoi("0x10"), 0);
}

TEST(Atoi, GivesZeroWithoutDigits) {
    EXPECT_EQ(qm_atoi(""), 0);
    EXPECT_EQ(qm_atoi("   "), 0);
    EXPECT_EQ(qm_atoi("-"), 0);
    EXPECT_EQ(qm_atoi("abc"), 0);
    EXPECT_EQ(qm_atoi("\xff"), 0);
}

TEST(Atoi, ReadsTheLimits) {
    EXPECT_EQ(qm_atoi("2147483647"), INT_MAX);
    EXPECT_EQ(qm_atoi("-2147483648"), INT_MIN);
}

TEST(Atoi, SaturatesAtTheLimits) {
    EXPECT_EQ(qm_atoi("2147483648"), INT_MAX);
    EXPECT_EQ(qm_atoi("-2147483649"), INT_MIN);
    EXPECT_EQ(qm_atoi("4294967296"), INT_MAX);
    EXPECT_EQ(qm_atoi("99999999999999999999999999999999999999"), INT_MAX);
    EXPECT_EQ(qm_atoi("-99999999999999999999999999999999999999"), INT_MIN);
}

TEST(Atoh, ReadsDigitsOfEitherCase) {
    EXPECT_EQ(qm_atoh("f"), 15u);
    EXPECT_EQ(qm_atoh("F"), 15u);
    EXPECT_EQ(qm_atoh("00aBcDeF"), 0x00abcdefu);
    EXPECT_EQ(qm_atoh("10"), 16u);
}

TEST(Atoh, TakesAPrefixOfEitherCase) {
    EXPECT_EQ(qm_atoh("0xf"), 15u);
    EXPECT_EQ(qm_atoh("0XF"), 15u);
    EXPECT_EQ(qm_atoh("0Xf"), 15u);
}

TEST(Atoh, TakesOnePrefixOnly) { EXPECT_EQ(qm_atoh("0x0xf"), 0u); }

TEST(Atoh, SkipsLeadingBlanks) {
    EXPECT_EQ(qm_atoh("  \t0x1f"), 31u);
    EXPECT_EQ(qm_atoh("  1f"), 31u);
}

TEST(Atoh, TakesNoSign) {
    EXPECT_EQ(qm_atoh("-1"), 0u);
    EXPECT_EQ(qm_atoh("+1"), 0u);
}

TEST(Atoh, StopsAtTheFirstOtherCharacter) {
    EXPECT_EQ(qm_atoh("1fg2"), 31u);
    EXPECT_EQ(qm_atoh("1 2"), 1u);
}

TEST(Atoh, GivesZeroWithoutDigits) {
    EXPECT_EQ(qm_atoh(""), 0u);
    EXPECT_EQ(qm_atoh("0x"), 0u);
    EXPECT_EQ(qm_atoh("x1"), 0u);
    EXPECT_EQ(qm_atoh("g"), 0u);
}

TEST(Atoh, KeepsTheLow32Bits) {
    EXPECT_EQ(qm_atoh("ffffffff"), 0xffffffffu);
    EXPECT_EQ(qm_atoh("0x123456789"), 0x23456789u);
    EXPECT_EQ(qm_atoh("fffffffffffffffffffffff1"), 0xfffffff1u);
}

TEST(Strupr, RaisesLettersAndNothingElse) {
    EXPECT_EQ(upper("abcxyz"), "ABCXYZ");
    EXPECT_EQ(upper("aZ09-_/.?`{@["), "AZ09-_/.?`{@[");
    EXPECT_EQ(upper(""), "");
}

TEST(Strupr, LeavesBytesAbove127Alone) { EXPECT_EQ(upper("\xe4\xff"), "\xe4\xff"); }

}  // namespace
