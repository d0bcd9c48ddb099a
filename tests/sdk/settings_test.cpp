// QM_BOARD: what it sets, and what it says of mistakes.
#include "sdk/runtime/settings.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// Applies `text` to `settings` and returns what was said on standard error.
std::string complaints_of(sim::Settings& settings, const char* text) {
    testing::internal::CaptureStderr();
    sim::apply_settings(settings, text);
    return testing::internal::GetCapturedStderr();
}

TEST(Settings, AreNeutralByDefault) {
    sim::Settings s;
    EXPECT_EQ(s.seed, 1u);
    EXPECT_EQ(s.speed, 1);
    EXPECT_EQ(s.drop_percent, 0);
    EXPECT_EQ(s.slow_disk_ms, 0);
    EXPECT_FALSE(s.fail_create.strikes());
    EXPECT_FALSE(s.fail_mask.strikes());
    EXPECT_FALSE(s.fail_init.strikes());
    EXPECT_FALSE(s.fail_open.strikes());
}

TEST(Settings, TakeEveryName) {
    sim::Settings s;
    EXPECT_EQ(complaints_of(s,
                            " seed=7  speed=10\tdrop=5 slow_disk_ms=20 fail.create=1 "
                            "fail.mask=1 fail.init=1 fail.open=1 "),
              "");
    EXPECT_EQ(s.seed, 7u);
    EXPECT_EQ(s.speed, 10);
    EXPECT_EQ(s.drop_percent, 5);
    EXPECT_EQ(s.slow_disk_ms, 20);
    EXPECT_TRUE(s.fail_create.strikes());
    EXPECT_TRUE(s.fail_mask.strikes());
    EXPECT_TRUE(s.fail_init.strikes());
    EXPECT_TRUE(s.fail_open.strikes());
}

TEST(Settings, ChooseWhatIsSeen) {
    sim::Settings s;
    EXPECT_EQ(s.pattern, -1);
    EXPECT_EQ(s.text, 2);
    EXPECT_EQ(s.view(), "");
    EXPECT_EQ(complaints_of(s, "pattern=zone_plate text=counters view=/a/b.h264 view_channel=16"),
              "");
    EXPECT_EQ(s.pattern, 4);  // sim::Pattern::zone_plate
    EXPECT_EQ(s.text, 1);     // sim::Text::counters
    EXPECT_EQ(s.view(), "/a/b.h264");
    EXPECT_TRUE(s.view_wanted);
    EXPECT_EQ(s.view_channel, 16);
    EXPECT_EQ(complaints_of(s, "pattern=mixed text=off view=nowhere view_channel=0"), "");
    EXPECT_EQ(s.pattern, -1);
    EXPECT_EQ(s.text, 0);
    EXPECT_FALSE(s.view_wanted);
    EXPECT_EQ(complaints_of(s, "pattern=stripes"),
              "qm7105 board: QM_BOARD: 'pattern=stripes' is ignored: bad value\n");
    EXPECT_EQ(complaints_of(s, "view=/a/b.mov"),
              "qm7105 board: QM_BOARD: 'view=/a/b.mov' is ignored: bad value\n");
    EXPECT_EQ(complaints_of(s, "view_channel=17"),
              "qm7105 board: QM_BOARD: 'view_channel=17' is ignored: bad value\n");
}

TEST(Settings, FailAsOftenAsTold) {
    sim::Settings s;
    sim::apply_settings(s, "fail.open=2");
    EXPECT_TRUE(s.fail_open.strikes());
    EXPECT_TRUE(s.fail_open.strikes());
    EXPECT_FALSE(s.fail_open.strikes());
    sim::apply_settings(s, "fail.open=all");
    for (int i = 0; i < 100; ++i) EXPECT_TRUE(s.fail_open.strikes());
    sim::apply_settings(s, "fail.open=0");
    EXPECT_FALSE(s.fail_open.strikes());
}

TEST(Settings, SayOneLineOfAnUnknownNameAndGoOn) {
    sim::Settings s;
    EXPECT_EQ(complaints_of(s, "colour=red seed=3"),
              "qm7105 board: QM_BOARD: 'colour=red' is ignored: unknown name\n");
    EXPECT_EQ(s.seed, 3u);
}

TEST(Settings, SayOneLineOfABadValueAndKeepTheOldOne) {
    for (const char* word : {"speed=0", "speed=1001", "speed=", "speed=-1", "speed=2x", "drop=101",
                             "seed=99999999999999999999", "fail.open=some", "fail.open=-1"}) {
        sim::Settings s;
        EXPECT_EQ(complaints_of(s, word),
                  "qm7105 board: QM_BOARD: '" + std::string(word) + "' is ignored: bad value\n");
        EXPECT_EQ(s.speed, 1);
        EXPECT_EQ(s.seed, 1u);
        EXPECT_EQ(s.drop_percent, 0);
        EXPECT_FALSE(s.fail_open.strikes());
    }
}

TEST(Complaint, IsOneLineThatSteersNoTerminal) {
    testing::internal::CaptureStderr();
    sim::complain("file '%s'", "a\nb\x1b[2Jc\x7f");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "qm7105 board: file 'a?b?[2Jc?'\n");
}

TEST(Settings, SayOneLineOfAWordWithoutAValue) {
    sim::Settings s;
    EXPECT_EQ(complaints_of(s, "seed"),
              "qm7105 board: QM_BOARD: 'seed' is ignored: not of the form name=value\n");
}

}  // namespace
