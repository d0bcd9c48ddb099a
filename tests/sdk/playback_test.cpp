// The playback thread on an in-memory database.
#include <gtest/gtest.h>

#include <memory>

#include "sdk/db/stream_db.h"
#include "tests/support/sim_session.h"

namespace {

// Records the main stream, and plays it back.
class Playback : public SimSession {
  protected:
    void SetUp() override {
        SimSession::SetUp();
        db = open_memory_db("main.ini");
        recorder = std::make_unique<qm_thread_encode>();
        start(*recorder, db);
    }
    void TearDown() override {
        player.DestroyThread();
        recorder->DestroyThread();
        SimSession::TearDown();
    }

    void record_seconds(int64_t seconds) {
        step_seconds(seconds);
        finish_recording();
    }
    void finish_recording() {
        for (int ch = 0; ch < 16; ++ch) encoder->SetChannelEnable(0, ch, 0);
        for (int ch = 0; ch < 16; ++ch) audio->SetAudioChannelEnable(ch, 0);
        recorder->DestroyThread();
    }
    void start_player(unsigned long channels = 0xFFFF, unsigned long chips = 15) {
        start(player, db);
        player.SetPBChannelEnableMask(channels, chips);
        sim::step_clock(0);
    }
    void ask(PB_STATE state) {
        player.SetPBState(state);
        sim::step_clock(0);
    }
    int total(int ch) { return player.GetCalculData(CALCUL_TOTAL_FRAMES, ch); }
    int state() { return sim::playback_report(player).state; }

    iqm_db* db = nullptr;
    std::unique_ptr<qm_thread_encode> recorder;
    qm_thread_decode player;
};

TEST_F(Playback, StartsPausedOnTheFirstFrame) {
    switch_on(0, 0, 10, 5);
    record_seconds(2);
    start_player();
    step_seconds(5);
    EXPECT_EQ(total(0), 0);
    EXPECT_EQ(state(), PB_STATE_PAUSE);
    EXPECT_EQ(player.current_time.Seconds(), 0);
}

TEST_F(Playback, PlaysInTheRecordedTimeAndStopsAtTheEnd) {
    switch_on(0, 0, 10, 5);
    switch_on(0, 1, 5, 5);
    record_seconds(4);
    start_player();
    ask(PB_STATE_FORWARD);
    EXPECT_EQ(total(0), 1);
    sim::step_clock(950'000);
    EXPECT_EQ(total(0), 10);
    EXPECT_EQ(total(1), 5);
    EXPECT_EQ(state(), PB_STATE_FORWARD);
    step_seconds(10);
    EXPECT_EQ(total(0), 40);
    EXPECT_EQ(total(1), 20);
    EXPECT_EQ(state(), PB_STATE_PAUSE);
    EXPECT_EQ(sim::playback_report(player).damaged, 0u);
}

TEST_F(Playback, StartsFromTheBeginningWhenForwardIsAskedForAtTheEnd) {
    switch_on(0, 0, 10, 5);
    record_seconds(2);
    start_player();
    ask(PB_STATE_FORWARD);
    step_seconds(3);
    ASSERT_EQ(total(0), 20);
    const int64_t end = player.current_time.Seconds();
    ask(PB_STATE_FORWARD);
    EXPECT_EQ(total(0), 21);
    EXPECT_LT(player.current_time.Seconds(), end);
    step_seconds(3);
    EXPECT_EQ(total(0), 40);
}

TEST_F(Playback, GoesOnWithWhatArrivesAtTheEndOfALiveRecording) {
    switch_on(0, 0, 10, 5);
    step_seconds(2);
    start_player();
    ask(PB_STATE_FORWARD);
    player.SpeedControl(1, 1);  // twice as fast: catches up after 2 seconds
    step_seconds(10);
    EXPECT_EQ(total(0), recorder->stat[0].total_frames[0]);
    EXPECT_EQ(state(), PB_STATE_FORWARD);
    step_seconds(1);
    EXPECT_EQ(total(0), recorder->stat[0].total_frames[0]);
    finish_recording();
    step_seconds(1);
    EXPECT_EQ(state(), PB_STATE_PAUSE);
}

TEST_F(Playback, PausesAndGoesOnWhereItWas) {
    switch_on(0, 0, 10, 5);
    record_seconds(4);
    start_player();
    ask(PB_STATE_FORWARD);
    sim::step_clock(1'000'000);
    const int before = total(0);
    ask(PB_STATE_PAUSE);
    step_seconds(10);
    EXPECT_EQ(total(0), before);
    ask(PB_STATE_FORWARD);
    EXPECT_EQ(total(0), before);
    sim::step_clock(100'000);
    EXPECT_EQ(total(0), before + 1);
    step_seconds(10);
    EXPECT_EQ(total(0), 40);
}

TEST_F(Playback, KeepsItsPlaceInTimeWhateverIsAskedMeanwhile) {
    switch_on(0, 0, 1, 0);
    record_seconds(30);
    start_player();
    ask(PB_STATE_FORWARD);
    EXPECT_EQ(total(0), 1);
    for (int i = 0; i < 20; ++i) {
        player.EnablePBAudio(i % 2);
        sim::step_clock(0);
        player.SetPBChannelEnableMask(i % 2 ? 0xFFFF : 0x0001, 15);
        sim::step_clock(0);
        player.SpeedControl(1, 1);
        sim::step_clock(0);
        player.SpeedControl(0, 1);
        sim::step_clock(0);
        ask(PB_STATE_PAUSE);
        ask(PB_STATE_FORWARD);
    }
    EXPECT_EQ(total(0), 1);
    sim::step_clock(500'000);
    player.SpeedControl(1, 1);  // half of the second has passed, the other half takes a quarter
    sim::step_clock(240'000);
    EXPECT_EQ(total(0), 1);
    sim::step_clock(20'000);
    EXPECT_EQ(total(0), 2);
}

TEST_F(Playback, GoesOnBehindTheStepsOfNextFrame) {
    switch_on(0, 0, 30, 10);
    switch_on(0, 1, 30, 10);
    audio->SetAudioChannelEnable(0, 1);
    record_seconds(4);
    start_player(0b01);
    player.EnablePBAudio(1);
    for (int i = 0; i < 60; ++i) ask(PB_STATE_NEXT_FRAME);
    EXPECT_EQ(total(0), 60);
    player.SetPBChannelEnableMask(0b11, 15);
    const int64_t reached = player.current_time.Seconds();
    ask(PB_STATE_NEXT_FRAME);
    EXPECT_EQ(total(1), 1);
    EXPECT_GE(player.current_time.Seconds(), reached);
    ask(PB_STATE_FORWARD);
    step_seconds(5);
    EXPECT_EQ(total(0), 120);
    EXPECT_EQ(total(1), 60);                                    // from the key frame 60 on
    EXPECT_LE(sim::playback_report(player).audio_frames, 51u);  // none of the first 2 seconds
}

TEST_F(Playback, GoesOnInRecordedTimeAfterNextFrameOfChannelsOfUnlikeRates) {
    switch_on(0, 0, 30, 10);
    switch_on(0, 1, 1, 0);
    record_seconds(20);
    start_player();
    for (int i = 0; i < 10; ++i) ask(PB_STATE_NEXT_FRAME);
    EXPECT_EQ(total(0), 10);
    EXPECT_EQ(total(1), 10);
    ask(PB_STATE_FORWARD);
    EXPECT_LE(total(0), 11);
    step_seconds(1);
    EXPECT_NEAR(total(0), 40, 1);
}

TEST_F(Playback, TakesTheTimeOfFramesThatItPassesOver) {
    switch_on(0, 0, 10, 5);
    record_seconds(60);
    start_player();
    ask(PB_STATE_FORWARD);
    step_seconds(5);
    player.SetPBChannelEnableMask(0, 15);
    step_seconds(3);
    EXPECT_EQ(state(), PB_STATE_FORWARD);
    const int before = total(0);
    player.SetPBChannelEnableMask(1, 15);
    step_seconds(2);
    EXPECT_NEAR(total(0), before + 18, 3);  // from a key frame after 8 seconds to 10 seconds
    player.SetPBChannelEnableMask(0, 15);
    step_seconds(60);
    EXPECT_EQ(state(), PB_STATE_PAUSE);  // the end was reached all the same
}

TEST_F(Playback, ComesBackToAChannelWhileAnotherHasNothingForLong) {
    switch_on(0, 0, 10, 5);
    step_seconds(30);
    switch_on(0, 1, 10, 5);
    record_seconds(30);
    start_player(0b11);
    ask(PB_STATE_FORWARD);
    step_seconds(1);
    player.SetPBChannelEnableMask(0b10, 15);
    step_seconds(2);
    const int before = total(0);
    player.SetPBChannelEnableMask(0b11, 15);
    step_seconds(3);
    EXPECT_GE(total(0), before + 24);
    EXPECT_EQ(total(1), 0);
}

TEST_F(Playback, AsksForAKeyFrameOfAChannelThatNextFramePassedOver) {
    switch_on(0, 0, 30, 20);
    switch_on(0, 1, 10, 0);
    record_seconds(5);
    start_player();
    ask(PB_STATE_FORWARD);
    step_seconds(1);
    ask(PB_STATE_PAUSE);
    const int before = total(1);
    player.SpeedControl(1, 3);
    ask(PB_STATE_NEXT_FRAME);
    player.SpeedControl(0, 3);
    ask(PB_STATE_FORWARD);
    step_seconds(5);
    EXPECT_EQ(total(1), before);  // it has no further key frame
}

TEST_F(Playback, GivesKeyFramesOnlyOnNextFrameFromEightTimesOn) {
    switch_on(0, 0, 30, 10);
    record_seconds(4);
    start_player();
    player.SpeedControl(1, 3);
    for (int i = 0; i < 3; ++i) ask(PB_STATE_NEXT_FRAME);
    EXPECT_EQ(total(0), 3);
    EXPECT_EQ(player.idr_distance[0], 10);
}

TEST_F(Playback, LosesNoForwardRequestAtTheEnd) {
    switch_on(0, 0, 10, 5);
    record_seconds(2);
    start_player();
    ask(PB_STATE_FORWARD);
    step_seconds(3);
    ASSERT_EQ(total(0), 20);
    player.SetPBState(PB_STATE_FORWARD);
    player.SetPBState(PB_STATE_NEXT_FRAME);
    sim::step_clock(0);
    EXPECT_GE(total(0), 21);
    EXPECT_EQ(state(), PB_STATE_PAUSE);
}

TEST_F(Playback, ForgetsTheTimeWhenItStartsWithoutADatabase) {
    switch_on(0, 0, 10, 5);
    record_seconds(1);
    start_player();
    ask(PB_STATE_NEXT_FRAME);
    ASSERT_NE(player.current_time.Seconds(), 0);
    player.DestroyThread();
    start(player, nullptr);
    sim::step_clock(0);
    EXPECT_EQ(player.current_time.Seconds(), 0);
}

TEST_F(Playback, AnyOtherStatePauses) {
    switch_on(0, 0, 10, 5);
    record_seconds(4);
    start_player();
    for (const int other : {0, 1, 2, 3, 6, -1, 99}) {
        ask(PB_STATE_FORWARD);
        ask(static_cast<PB_STATE>(other));
        EXPECT_EQ(state(), PB_STATE_PAUSE) << other;
    }
}

TEST_F(Playback, GivesTheNextFrameOfEveryEnabledChannelAndPauses) {
    switch_on(0, 0, 10, 5);
    switch_on(0, 1, 2, 0);
    switch_on(0, 2, 10, 5);
    record_seconds(4);
    start_player(0b011);
    for (int step = 1; step <= 3; ++step) {
        ask(PB_STATE_NEXT_FRAME);
        EXPECT_EQ(total(0), step);
        EXPECT_EQ(total(1), step);
        EXPECT_EQ(total(2), 0);
    }
    step_seconds(5);
    EXPECT_EQ(total(0), 3);
    ask(PB_STATE_FORWARD);
    step_seconds(5);
    EXPECT_EQ(total(0), 40);  // none is given twice, none is left out
    EXPECT_EQ(total(1), 8);
}

TEST_F(Playback, ServesEveryNextFrameRequestOfAQuickHand) {
    switch_on(0, 0, 10, 5);
    record_seconds(4);
    start_player();
    for (int i = 0; i < 7; ++i) player.SetPBState(PB_STATE_NEXT_FRAME);
    sim::step_clock(0);
    EXPECT_EQ(total(0), 7);
}

TEST_F(Playback, GivesNothingMoreAtTheEndOnNextFrame) {
    switch_on(0, 0, 2, 0);
    record_seconds(1);
    start_player();
    for (int i = 0; i < 5; ++i) ask(PB_STATE_NEXT_FRAME);
    EXPECT_EQ(total(0), 2);
}

TEST_F(Playback, ClimbsAndDescendsTheSpeedLadderHeldAtItsEnds) {
    struct Row {
        int direction, step, eighths;
    };
    start_player();
    const Row rows[] = {{1, 1, 16},  {1, 1, 32}, {1, 1, 64}, {1, 1, 128}, {1, 1, 128}, {0, 2, 32},
                        {0, 100, 1}, {0, 1, 1},  {1, 3, 8},  {1, 0, 8},   {1, -5, 8}};
    for (const Row& row : rows) {
        player.SpeedControl(row.direction, row.step);
        EXPECT_EQ(sim::playback_report(player).speed_eighths, row.eighths);
    }
}

TEST_F(Playback, PlaysAtEachSpeedOfTheLadder) {
    switch_on(0, 0, 30, 1);  // key frames only, so that every speed delivers all of them
    record_seconds(30);
    for (int rung = 0; rung < 8; ++rung) {
        start_player();
        player.SpeedControl(0, 7);
        player.SpeedControl(1, rung);
        ask(PB_STATE_FORWARD);
        sim::step_clock(1'600'000);
        const double seconds = 1.6 * (1 << rung) / 8;
        EXPECT_NEAR(total(0), std::min(900.0, seconds * 30), 1.01) << rung;
        player.DestroyThread();
    }
}

TEST_F(Playback, DeliversOnlyKeyFramesFromEightTimesOn) {
    switch_on(0, 0, 30, 10);
    record_seconds(10);
    start_player();
    player.SpeedControl(1, 3);
    ask(PB_STATE_FORWARD);
    step_seconds(5);
    EXPECT_EQ(total(0), 30);
    EXPECT_EQ(player.idr_distance[0], 10);
}

TEST_F(Playback, GoesOnWithAKeyFrameAfterKeyFramesOnly) {
    switch_on(0, 0, 30, 30);
    record_seconds(8);
    start_player();
    player.SpeedControl(1, 3);
    ask(PB_STATE_FORWARD);
    sim::step_clock(300'000);  // 2.4 recorded seconds: key frames 0, 30, 60; 90 is next
    EXPECT_EQ(total(0), 3);
    player.SpeedControl(0, 3);
    sim::step_clock(590'000);
    EXPECT_EQ(total(0), 3);  // none of those between
    sim::step_clock(20'000);
    EXPECT_EQ(total(0), 4);  // the key frame 90, at 3.0 seconds
    step_seconds(10);
    EXPECT_EQ(total(0), 3 + 240 - 90);
}

TEST_F(Playback, DeliversAChannelWhenItsBitAndItsChipAreOn) {
    for (int ch = 0; ch < 16; ++ch) switch_on(0, ch, 2, 0);
    record_seconds(1);
    start_player(0xF0F1, 0b1011);
    ask(PB_STATE_FORWARD);
    step_seconds(2);
    for (int ch = 0; ch < 16; ++ch) {
        const bool on = (0xF0F1 >> ch & 1) && (0b1011 >> (ch / 4) & 1);
        EXPECT_EQ(total(ch), on ? 2 : 0) << ch;
    }
}

TEST_F(Playback, StartsAChannelWithAKeyFrameWhenItIsSwitchedOn) {
    switch_on(0, 0, 10, 10);
    switch_on(0, 1, 10, 10);
    record_seconds(4);
    start_player(0b01);
    ask(PB_STATE_FORWARD);
    sim::step_clock(550'000);  // frames 0 to 5
    player.SetPBChannelEnableMask(0b11, 15);
    sim::step_clock(300'000);
    EXPECT_EQ(total(1), 0);  // frames 6 to 9 are no key frames
    step_seconds(5);
    EXPECT_EQ(total(0), 40);
    EXPECT_EQ(total(1), 30);
}

TEST_F(Playback, HandsAPeriodFigureOverAndStartsItAgain) {
    switch_on(0, 0, 10, 5);
    record_seconds(4);
    start_player();
    ask(PB_STATE_FORWARD);
    sim::step_clock(950'000);
    EXPECT_EQ(player.GetCalculData(CALCUL_PERIOD_FRAMES, 0), 10);
    EXPECT_EQ(player.GetCalculData(CALCUL_PERIOD_FRAMES, 0), 0);
    // Two groups of 5: a key frame is 6 times the others, 176x120 / 96 bytes.
    EXPECT_EQ(player.GetCalculData(CALCUL_PERIOD_BYTES, 0), 2 * (1320 + 4 * 220));
    EXPECT_EQ(player.GetCalculData(CALCUL_PERIOD_BYTES, 0), 0);
    EXPECT_EQ(player.GetCalculData(CALCUL_TOTAL_FRAMES, 0), 10);
    EXPECT_EQ(player.GetCalculData(CALCUL_TOTAL_FRAMES, 0), 10);
    EXPECT_EQ(player.GetCalculData(CALCUL_TOTAL_FRAMES, 16), 0);
    EXPECT_EQ(player.GetCalculData(static_cast<E_CALCUL>(2), 0), 0);
}

TEST_F(Playback, ShowsTheRecordedTimeOfTheLastFrame) {
    switch_on(0, 0, 1, 0);
    record_seconds(4);
    step_seconds(100);
    start_player();
    ask(PB_STATE_NEXT_FRAME);
    EXPECT_EQ(player.current_time.Seconds(), START_US / SECOND_US);
    ask(PB_STATE_NEXT_FRAME);
    EXPECT_EQ(player.current_time.Seconds(), START_US / SECOND_US + 1);
}

TEST_F(Playback, ReadsOneFrameAheadOfItsTime) {
    switch_on(0, 0, 10, 5);
    record_seconds(4);
    start_player();
    EXPECT_EQ(player.frame_list.count(), 0);
    ask(PB_STATE_FORWARD);
    EXPECT_EQ(player.frame_list.count(), 1);
    ask(PB_STATE_PAUSE);
    EXPECT_EQ(player.frame_list.count(), 0);
}

TEST_F(Playback, DeliversTheChosenAudioChannelAtNormalSpeed) {
    switch_on(0, 0, 10, 5);
    audio->SetAudioChannelEnable(0, 1);
    audio->SetAudioChannelEnable(3, 1);
    record_seconds(4);
    start_player();
    player.EnablePBAudio(1);
    player.SetPBAudioChannel(3);
    ask(PB_STATE_FORWARD);
    step_seconds(10);
    EXPECT_EQ(sim::playback_report(player).audio_frames, 100u);
    EXPECT_EQ(total(3), 0);
}

TEST_F(Playback, GoesOnWithKeyFramesWhenTheRingOvertakesIt) {
    for (int ch = 0; ch < 16; ++ch) switch_on(0, ch, 30, 30);
    step_seconds(1);
    start_player();
    ask(PB_STATE_NEXT_FRAME);
    EXPECT_EQ(total(0), 1);
    step_seconds(10);  // the ring holds 4 seconds
    ask(PB_STATE_FORWARD);
    step_seconds(1);
    for (int ch = 0; ch < 16; ++ch) {
        EXPECT_GT(total(ch), 0);
        EXPECT_LE(total(ch), 32);
    }
    EXPECT_EQ(sim::playback_report(player).damaged, 0u);
    EXPECT_GE(player.current_time.Seconds(), START_US / SECOND_US + 7);
}

TEST_F(Playback, WaitsForRecordedTimesHoweverFar) {
    finish_recording();
    sim::StreamDb* store = sim::StreamDb::of(db);
    store->begin_writing();
    for (const int64_t time_us : {INT64_MIN, INT64_MAX}) {
        qm_dbframe frame;
        frame.info.kind = sim::FrameKind::idr;
        frame.info.time_us = time_us;
        ASSERT_EQ(store->append(frame), sim::StreamDb::Appended::stored);
    }
    store->end_writing();
    start_player();
    ask(PB_STATE_FORWARD);
    step_seconds(60);
    EXPECT_EQ(total(0), 1);  // the other is due in some thousand years
    EXPECT_EQ(state(), PB_STATE_FORWARD);
}

// Not the whole recording at once: a request would have to come back over all of it.
TEST_F(Playback, PassesOverWhatNobodyWantsInItsTime) {
    switch_on(0, 0, 10, 5);
    record_seconds(10);
    start_player();
    ask(PB_STATE_FORWARD);
    player.SetPBChannelEnableMask(0x8000, 15);  // a channel that was not recorded
    step_seconds(1);
    EXPECT_EQ(state(), PB_STATE_FORWARD);
    step_seconds(7);
    EXPECT_EQ(state(), PB_STATE_FORWARD);
    player.SetPBChannelEnableMask(1, 15);
    step_seconds(1);
    const int so_far = total(0);
    EXPECT_GT(so_far, 1);
    EXPECT_LT(so_far, 15);
}

TEST_F(Playback, MayBeStoppedTwiceAndStartsAgainPausedOnTheFirstFrame) {
    switch_on(0, 0, 10, 5);
    record_seconds(2);
    start_player();
    player.SpeedControl(1, 2);
    ask(PB_STATE_FORWARD);
    step_seconds(3);
    EXPECT_EQ(total(0), 20);
    player.DestroyThread();
    player.DestroyThread();
    EXPECT_EQ(total(0), 20);
    start_player();
    EXPECT_EQ(total(0), 0);
    EXPECT_EQ(state(), PB_STATE_PAUSE);
    EXPECT_EQ(sim::playback_report(player).speed_eighths, 8);
    ask(PB_STATE_NEXT_FRAME);
    EXPECT_EQ(total(0), 1);
}

TEST_F(Playback, DropsRequestsWhileItIsStopped) {
    switch_on(0, 0, 10, 5);
    record_seconds(2);
    player.SetPBState(PB_STATE_FORWARD);
    player.SpeedControl(1, 1);
    player.SetPBChannelEnableMask(1, 1);
    player.EnablePBAudio(1);
    player.SetPBAudioChannel(255);
    player.DestroyThread();
    start_player();
    step_seconds(1);
    EXPECT_EQ(total(0), 0);
    EXPECT_EQ(state(), PB_STATE_PAUSE);
    EXPECT_EQ(sim::playback_report(player).speed_eighths, 8);
}

TEST_F(Playback, IsEmptyAndHarmlessWithoutADatabase) {
    start(player, nullptr);
    player.SetPBChannelEnableMask(0xFFFF, 15);
    for (const PB_STATE state : {PB_STATE_FORWARD, PB_STATE_NEXT_FRAME, PB_STATE_PAUSE}) ask(state);
    step_seconds(1);
    for (int ch = 0; ch < 16; ++ch) EXPECT_EQ(total(ch), 0);
    EXPECT_EQ(player.current_time.Seconds(), 0);
    EXPECT_EQ(player.frame_list.count(), 0);
}

}  // namespace
