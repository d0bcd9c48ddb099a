// PRIVATE: the line printed and the call made for each channel, and what is narrowed on the way.
#include "mainwork/private_zone.h"

#include "tests/support/room_test.h"
#include "tests/support/screens.h"

namespace {

class PrivateZone : public RoomTest {
  protected:
    void SetUp() override {
        RoomTest::SetUp();
        open_codec();
    }
};

TEST_F(PrivateZone, SetsOneZone) {
    EXPECT_EQ(escaped("app_private_zone() : 0, 1, (0,0) (256,256)\n"),
              typed(app_private_zone, {"PRIVATE", "0", "1", "0", "0", "256", "256"}));
    EXPECT_EQ(1, result);
    EXPECT_EQ(calls({{"GetVideoEncoder", "SetPrivateZone 0 0 1 0 0 0 256 256"}}), journal());
}

TEST_F(PrivateZone, KeepsTheRectangleInItsOrder) {
    EXPECT_EQ(escaped("app_private_zone() : 15, 1, (11,22) (33,44)\n"),
              typed(app_private_zone, {"PRIVATE", "15", "1", "11", "22", "33", "44"}));
    EXPECT_EQ(calls({{"GetVideoEncoder", "SetPrivateZone 0 15 1 0 11 22 33 44"}}), journal());
}

TEST_F(PrivateZone, ClearsEveryChannelWithChannelSixteen) {
    EXPECT_EQ(escaped(one_a_row(each_channel({"app_private_zone() : @, 0, (0,0) (0,0)"}))),
              typed(app_private_zone, {"PRIVATE", "16", "0", "0", "0", "0", "0"}));
    EXPECT_EQ(1, result);
    EXPECT_EQ(calls({{"GetVideoEncoder"}, each_channel({"SetPrivateZone 0 @ 0 0 0 0 0 0"})}),
              journal());
}

TEST_F(PrivateZone, NarrowsTheChannelBeforeItComparesIt) {
    EXPECT_EQ(escaped(one_a_row(each_channel({"app_private_zone() : @, 1, (0,0) (10,10)"}))),
              typed(app_private_zone, {"PRIVATE", "272", "1", "0", "0", "10", "10"}));
    EXPECT_EQ(calls({{"GetVideoEncoder"}, each_channel({"SetPrivateZone 0 @ 1 0 0 0 10 10"})}),
              journal());
}

TEST_F(PrivateZone, NarrowsEveryArgument) {
    EXPECT_EQ(escaped("app_private_zone() : 255, 0, (5,65535) (0,4464)\n"),
              typed(app_private_zone, {"PRIVATE", "-1", "256", "65541", "-1", "65536", "70000"}));
    EXPECT_EQ(calls({{"GetVideoEncoder", "SetPrivateZone 0 255 0 0 5 65535 0 4464"}}), journal());
}

TEST_F(PrivateZone, PassesAChannelOutOfRangeOn) {
    EXPECT_EQ(escaped("app_private_zone() : 17, 2, (0,0) (65535,65535)\n"),
              typed(app_private_zone, {"PRIVATE", "17", "2", "0", "0", "65535", "65535"}));
    EXPECT_EQ(1, result);
    EXPECT_EQ(calls({{"GetVideoEncoder", "SetPrivateZone 0 17 2 0 0 0 65535 65535"}}), journal());
}

TEST_F(PrivateZone, PrintsItsHelpBoxForFiveOrFewerArguments) {
    std::vector<std::string> words = {"PRIVATE"};
    for (int arguments = 0; arguments <= 5; ++arguments) {
        EXPECT_EQ(escaped(PRIVATE_HELP), typed(app_private_zone, words)) << arguments;
        EXPECT_EQ(0, result) << arguments;
        EXPECT_EQ("", journal()) << arguments;
        words.push_back("1");
    }
}

TEST_F(PrivateZone, IgnoresASeventhArgument) {
    EXPECT_EQ(escaped("app_private_zone() : 1, 1, (2,3) (4,5)\n"),
              typed(app_private_zone, {"PRIVATE", "1", "1", "2", "3", "4", "5", "6", "7"}));
    EXPECT_EQ(calls({{"GetVideoEncoder", "SetPrivateZone 0 1 1 0 2 3 4 5"}}), journal());
}

TEST_F(PrivateZone, ReadsWordsThatAreNoNumbersAsZero) {
    EXPECT_EQ(escaped("app_private_zone() : 0, 0, (0,0) (0,0)\n"),
              typed(app_private_zone, {"PRIVATE", "A", "ON", "X", "Y", "W", "H"}));
    EXPECT_EQ(calls({{"GetVideoEncoder", "SetPrivateZone 0 0 0 0 0 0 0 0"}}), journal());
}

TEST_F(PrivateZone, IsSilentWithoutAnEncoder) {
    fake().encoder_is_null = true;
    EXPECT_EQ("", typed(app_private_zone, {"PRIVATE", "0", "1", "0", "0", "256", "256"}));
    EXPECT_EQ(0, result);
    EXPECT_EQ(calls({{"GetVideoEncoder"}}), journal());
}

}  // namespace
