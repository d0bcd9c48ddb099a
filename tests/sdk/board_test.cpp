// The virtual board with its recording threads, through the declared interface.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <thread>
#include <vector>

#include "sdk/db/stream_db.h"
#include "sdk/video/picture_check.h"
#include "tests/support/real_clock.h"
#include "tests/support/sim_session.h"

namespace {

using sim::FrameInfo;
using sim::FrameKind;

std::vector<FrameInfo> records_of(iqm_db* db) {
    sim::StreamDb& store = *sim::StreamDb::of(db);
    std::vector<FrameInfo> records;
    FrameInfo info;
    for (uint64_t n = store.first(); n < store.end(); ++n)
        if (store.info(n, info)) records.push_back(info);
    return records;
}

std::vector<FrameInfo> records_of(iqm_db* db, int stream, int ch) {
    std::vector<FrameInfo> records;
    for (const FrameInfo& info : records_of(db))
        if (info.stream == stream && info.channel == ch) records.push_back(info);
    return records;
}

class Board : public SimSession {};

TEST_F(Board, RecordsEachChannelAtItsRateExactly) {
    iqm_db* db = open_memory_db("main.ini", 512, 100'000);
    qm_thread_encode thread;
    start(thread, db);
    switch_on(0, 0, 30, 30);
    switch_on(0, 5, 7, 7);
    switch_on(0, 15, 1, 0);
    step_seconds(60);
    EXPECT_EQ(thread.stat[0].total_frames[0], 1800);
    EXPECT_EQ(thread.stat[0].total_frames[5], 420);
    EXPECT_EQ(thread.stat[0].total_frames[15], 60);
    EXPECT_EQ(thread.stat[0].total_frames[1], 0);
    EXPECT_EQ(thread.stat[0].period_frames[0], 1800);
    const auto frames = records_of(db, 0, 5);
    ASSERT_EQ(frames.size(), 420u);
    for (size_t n = 0; n < frames.size(); ++n)
        EXPECT_NEAR(static_cast<double>(frames[n].time_us - frames[0].time_us),
                    static_cast<double>(n) * SECOND_US / 7, 1);
    thread.DestroyThread();
}

TEST_F(Board, RecordsInTheOrderOfTime) {
    iqm_db* db = open_memory_db("main.ini", 512, 100'000);
    qm_thread_encode thread;
    start(thread, db);
    for (int ch = 0; ch < 16; ++ch) switch_on(0, ch, static_cast<uint32_t>(3 + ch), 10);
    step_seconds(5);
    int64_t last = 0;
    for (const FrameInfo& info : records_of(db)) {
        EXPECT_GE(info.time_us, last);
        last = info.time_us;
    }
    thread.DestroyThread();
}

TEST_F(Board, RecordsPicturesThatNameThemselves) {
    iqm_db* db = open_memory_db("main.ini");
    qm_thread_encode thread;
    start(thread, db);
    switch_on(0, 3, 30, 10, 3);
    step_seconds(3);
    thread.DestroyThread();
    sim::StreamDb& store = *sim::StreamDb::of(db);
    qm_dbframe frame;
    sim::PictureCheck check;
    ASSERT_EQ(store.end(), 90u);
    for (uint64_t n = 0; n < store.end(); ++n) {
        ASSERT_TRUE(store.read(n, frame));
        EXPECT_EQ(frame.info.number, n);
        EXPECT_EQ(check.check(frame.info, frame.payload.get(), frame.info.bytes),
                  sim::PictureCheck::Found::fine)
            << n << ": " << check.error();
    }
}

TEST_F(Board, MeasuresTheDistanceOfKeyFrames) {
    iqm_db* db = open_memory_db("main.ini");
    qm_thread_encode thread;
    start(thread, db);
    switch_on(0, 0, 30, 12);
    switch_on(0, 1, 30, 0);
    sim::step_clock(200'000);
    EXPECT_EQ(thread.stat[0].idr_distance[0], 0);  // one key frame so far
    step_seconds(2);
    EXPECT_EQ(thread.stat[0].idr_distance[0], 12);
    EXPECT_EQ(thread.stat[0].idr_distance[1], 0);
    thread.DestroyThread();
}

TEST_F(Board, HasNoKeyFrameDistanceAcrossASwitch) {
    iqm_db* db = open_memory_db("main.ini");
    qm_thread_encode thread;
    start(thread, db);
    switch_on(0, 0, 30, 30);
    step_seconds(13);
    EXPECT_EQ(thread.stat[0].idr_distance[0], 30);
    encoder->SetChannelEnable(0, 0, 0);
    encoder->SetChannelEnable(0, 0, 1);
    sim::step_clock(500'000);
    EXPECT_EQ(thread.stat[0].idr_distance[0], 0);
    step_seconds(1);
    EXPECT_EQ(thread.stat[0].idr_distance[0], 30);
    thread.DestroyThread();
}

TEST_F(Board, MakesTheSameFramesWheneverAThreadBeginsToCollect) {
    std::vector<FrameInfo> runs[2];
    for (int run = 0; run < 2; ++run) {
        iqm_db* db = open_memory_db("");
        qm_thread_encode thread;
        encoder->SetBitrateType(0, 0, 1);
        switch_on(0, 0, 30, 10);
        sim::step_clock(run * 300'000);
        start(thread, db);
        step_seconds(3);
        runs[run] = records_of(db, 0, 0);
        encoder->SetChannelEnable(0, 0, 0);
        thread.DestroyThread();
        db->Close();
        qm_db_destroy(&db);
    }
    ASSERT_EQ(runs[1][0].number, 9u);
    EXPECT_EQ(runs[1][0].kind, FrameKind::idr);  // the first collected is one out of turn
    for (size_t i = 1; i < 60; ++i) {
        EXPECT_EQ(runs[1][i].number, runs[0][i + 9].number);
        EXPECT_EQ(runs[1][i].kind, runs[0][i + 9].kind);
        EXPECT_EQ(runs[1][i].bytes, runs[0][i + 9].bytes);
    }
}

TEST_F(Board, HasTheFramesOfOneRateAtTheSameMoments) {
    iqm_db* db = open_memory_db("main.ini", 512, 100'000);
    qm_thread_encode thread;
    start(thread, db);
    for (int ch = 0; ch < 16; ++ch) {
        switch_on(0, ch, 30, 30);
        sim::step_clock(70'000);
    }
    step_seconds(2);
    std::set<int64_t> moments;
    for (const FrameInfo& info : records_of(db))
        if (info.time_us >= START_US + 2 * SECOND_US && info.time_us < START_US + 3 * SECOND_US)
            moments.insert(info.time_us);
    EXPECT_EQ(moments.size(), 30u);
    thread.DestroyThread();
}

TEST_F(Board, CountsNoFramesAsLateThatAChannelWithoutAChipWouldHaveGiven) {
    system->SetChipEnableMask(0);
    switch_on(0, 0, 30, 30);
    step_seconds(10);
    system->SetChipEnableMask(15);
    step_seconds(1);
    EXPECT_EQ(sim::board_report(codec).late, 0u);
    EXPECT_EQ(sim::board_report(codec).uncollected, 31u);  // one is due at that very moment
}

TEST_F(Board, TellsOfDroppedFramesOnceAsLongAsTheyGoOn) {
    testing::internal::CaptureStderr();
    iqm_db* db = open_memory_db("main.ini", 512, 100'000);
    qm_thread_encode thread;
    start(thread, db);
    for (int ch = 0; ch < 16; ++ch) switch_on(0, ch, 30, 15);
    for (int i = 0; i < 5; ++i) {  // caught up for a moment in between, not for a second
        sim::control("slow_disk_ms=1000");
        step_seconds(8);
        sim::control("slow_disk_ms=0");
        sim::step_clock(500'000);
    }
    step_seconds(3);
    thread.DestroyThread();
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 2) << said;
}

TEST_F(Board, GoesOnRecordingAfterASlowDiskAlsoWithoutAKeyFrameInterval) {
    testing::internal::CaptureStderr();
    sim::control("slow_disk_ms=1000");
    iqm_db* db = open_memory_db("main.ini", 512, 100'000);
    qm_thread_encode thread;
    start(thread, db);
    for (int ch = 0; ch < 16; ++ch) switch_on(0, ch, 30, 0);
    step_seconds(20);
    sim::control("slow_disk_ms=0");
    step_seconds(2);
    const uint64_t before = sim::database_report(db).end;
    step_seconds(10);
    EXPECT_EQ(sim::database_report(db).end - before, 10u * 16 * 30);
    thread.DestroyThread();
    EXPECT_NE(testing::internal::GetCapturedStderr(), "");
}

TEST_F(Board, RecordsWithASecondThreadOnTheSameOpenDatabase) {
    iqm_db* db = open_memory_db("main.ini");
    qm_thread_encode first, second;
    switch_on(0, 0, 30, 30);
    start(first, db);
    step_seconds(1);
    first.DestroyThread();
    start(second, db);
    step_seconds(1);
    second.DestroyThread();
    EXPECT_EQ(sim::database_report(db).end, 60u);
}

TEST_F(Board, GivesNoFramesOnAChipThatTheMaskLeavesOut) {
    system->SetChipEnableMask(0b0101);
    iqm_db* db = open_memory_db("main.ini");
    qm_thread_encode thread;
    start(thread, db);
    for (int ch = 0; ch < 16; ++ch) {
        switch_on(0, ch, 10, 10);
        audio->SetAudioChannelEnable(ch, 1);
    }
    step_seconds(1);
    for (int ch = 0; ch < 16; ++ch) {
        const bool on = ch / 4 == 0 || ch / 4 == 2;
        EXPECT_EQ(thread.stat[0].total_frames[ch], on ? 10 : 0) << ch;
        EXPECT_EQ(thread.audio_frames[ch], on ? 25 : 0) << ch;
    }
    thread.DestroyThread();
}

TEST_F(Board, AcceptsAMaskOfNoChips) {
    EXPECT_EQ(system->SetChipEnableMask(0), 0);
    iqm_db* db = open_memory_db("main.ini");
    qm_thread_encode thread;
    start(thread, db);
    switch_on(0, 0, 30, 30);
    step_seconds(1);
    EXPECT_EQ(thread.stat[0].total_frames[0], 0);
    thread.DestroyThread();
}

TEST_F(Board, RecordsAudioWithTheMainStream) {
    iqm_db* db = open_memory_db("main.ini");
    qm_thread_encode thread;
    start(thread, db);
    audio->SetAudioChannelEnable(2, 1);
    step_seconds(2);
    EXPECT_EQ(thread.audio_frames[2], 50);
    EXPECT_EQ(thread.stat[0].total_frames[2], 0);
    const auto records = records_of(db);
    ASSERT_EQ(records.size(), 50u);
    EXPECT_EQ(records[0].kind, FrameKind::audio);
    EXPECT_EQ(records[0].bytes, 320u);
    audio->SetAudioChannelEnable(2, 0);
    step_seconds(1);
    EXPECT_EQ(thread.audio_frames[2], 50);
    thread.DestroyThread();
}

TEST_F(Board, NetThreadCollectsTheStreamsItWasToldOf) {
    iqm_db* db = open_memory_db("dual.ini");
    qm_thread_encode_net thread;
    for (const int stream : {1, 3, 4, 5}) switch_on(stream, 0, 10, 10);
    thread.SetStreamEnable(QMCODEC_STREAM_DUAL);
    thread.SetStreamEnable(QMCODEC_STREAM_4TH);
    start(thread, db);
    step_seconds(1);
    EXPECT_EQ(thread.stat[1].total_frames[0], 10);
    EXPECT_EQ(thread.stat[3].total_frames[0], 0);
    EXPECT_EQ(thread.stat[4].total_frames[0], 0);
    EXPECT_EQ(thread.stat[5].total_frames[0], 10);
    EXPECT_EQ(sim::board_report(codec).delivered, 20u);
    EXPECT_EQ(sim::board_report(codec).uncollected, 20u);
    thread.DestroyThread();
}

TEST_F(Board, JpegThreadCollectsTheJpegStreamInItsRow) {
    iqm_db* db = open_memory_db("jpeg.ini");
    qm_thread_encode_jpeg thread;
    start(thread, db);
    switch_on(2, 9, 2, 0);
    step_seconds(5);
    EXPECT_EQ(thread.stat[0].total_frames[9], 10);
    EXPECT_EQ(thread.stat[0].idr_distance[9], 1);
    for (const FrameInfo& info : records_of(db)) EXPECT_EQ(info.kind, FrameKind::jpeg);
    thread.DestroyThread();
}

TEST_F(Board, StartsARunningChannelWithAKeyFrameWhenAThreadBeginsToCollect) {
    switch_on(0, 0, 30, 0);
    step_seconds(1);
    EXPECT_EQ(sim::board_report(codec).uncollected, 30u);
    iqm_db* db = open_memory_db("main.ini");
    qm_thread_encode thread;
    start(thread, db);
    step_seconds(1);
    const auto records = records_of(db);
    ASSERT_EQ(records.size(), 30u);
    EXPECT_EQ(records[0].number, 30u);
    EXPECT_EQ(records[0].kind, FrameKind::idr);
    EXPECT_EQ(records[1].kind, FrameKind::p);
    thread.DestroyThread();
}

// Every span of 2 seconds of every channel, each with its own pattern and colours.
TEST_F(Board, HoldsTheBitRateInWhatIsRecorded) {
    iqm_db* db = open_memory_db("main.ini", 1024, 100'000);
    qm_thread_encode thread;
    start(thread, db);
    for (int ch = 0; ch < 16; ++ch) {
        encoder->SetBitrateType(0, ch, 1);
        encoder->SetBitrate(0, ch, 2'048'000);
        switch_on(0, ch, 30, 30, 3);
    }
    step_seconds(6);
    for (int ch = 0; ch < 16; ++ch) {
        const auto records = records_of(db, 0, ch);
        ASSERT_EQ(records.size(), 180u);
        for (size_t at = 0; at + 60 <= records.size(); ++at) {
            double bytes = 0;
            for (size_t i = at; i < at + 60; ++i) bytes += records[i].bytes;
            EXPECT_NEAR(bytes, 512'000, 5'120) << ch << " " << at;
        }
        EXPECT_GT(records[30].bytes, records[31].bytes);
    }
    thread.DestroyThread();
}

TEST_F(Board, LosesTheToldPartOfTheFramesAlwaysTheSameOnes) {
    sim::control("drop=30");
    std::vector<uint32_t> numbers[2];
    for (auto& run : numbers) {
        iqm_db* db = open_memory_db("");
        qm_thread_encode thread;
        start(thread, db);
        switch_on(0, 0, 30, 30);
        step_seconds(60);
        for (const FrameInfo& info : records_of(db, 0, 0)) run.push_back(info.number);
        encoder->SetChannelEnable(0, 0, 0);
        thread.DestroyThread();
        db->Close();
        qm_db_destroy(&db);
    }
    EXPECT_EQ(numbers[0], numbers[1]);
    EXPECT_NEAR(static_cast<double>(numbers[0].size()), 1800 * 0.7, 60);
    EXPECT_EQ(sim::board_report(codec).lost, 2 * (1800 - numbers[0].size()));
}

TEST_F(Board, LosesEverythingAtDrop100) {
    sim::control("drop=100");
    iqm_db* db = open_memory_db("main.ini");
    qm_thread_encode thread;
    start(thread, db);
    switch_on(0, 0, 30, 30);
    step_seconds(1);
    EXPECT_EQ(thread.stat[0].total_frames[0], 0);
    EXPECT_EQ(sim::board_report(codec).lost, 30u);
    thread.DestroyThread();
}

TEST_F(Board, IgnoresChannelsAndStreamsThatDoNotExist) {
    encoder->SetChannelEnable(6, 0, 1);
    encoder->SetChannelEnable(-1, 0, 1);
    encoder->SetChannelEnable(0, 16, 1);
    encoder->SetChannelEnable(0, -1, 1);
    encoder->SetPrivateZone(0, 200, 1, 0, 0, 0, 1, 1);
    encoder->SetPrivateZone(0, 0, 1, 9, 0, 0, 1, 1);
    audio->SetAudioChannelEnable(16, 1);
    audio->SetAudioChannelEnable(-1, 1);
    step_seconds(1);
    EXPECT_EQ(sim::board_report(codec).uncollected, 0u);
}

TEST_F(Board, ChangesSettingsWhileItRecords) {
    iqm_db* db = open_memory_db("main.ini");
    qm_thread_encode thread;
    start(thread, db);
    switch_on(0, 0, 10, 0, 3);
    step_seconds(1);
    encoder->SetFrameRate(0, 0, 20);
    encoder->SetResolution(0, 0, 1);
    encoder->SetQP(0, 0, 33);
    step_seconds(1);
    const auto records = records_of(db);
    ASSERT_EQ(records.size(), 30u);
    EXPECT_EQ(records[10].kind, FrameKind::idr);
    EXPECT_EQ(records[11].bytes, 352u * 240 / 96 / 2);
    thread.DestroyThread();
}

TEST_F(Board, StopsGivingFramesAfterReleaseAndStartsAgainInAnotherSession) {
    close_codec();
    open_codec(15, 1);
    iqm_db* db = open_memory_db("main.ini");
    qm_thread_encode thread;
    start(thread, db);
    switch_on(0, 0, 30, 30);
    step_seconds(1);
    EXPECT_EQ(thread.stat[0].total_frames[0], 25);  // PAL
    system->ReleaseAVCodec();
    step_seconds(1);
    EXPECT_EQ(thread.stat[0].total_frames[0], 25);
    thread.DestroyThread();
}

TEST_F(Board, KeepsWhatItWasToldOfTheBoard) {
    codec->SetBoardType(7, 3);
    EXPECT_EQ(sim::board_report(codec).board_type, 7u);
    EXPECT_EQ(sim::board_report(codec).sub_board_type, 3u);
    EXPECT_EQ(sim::board_report(codec).video_format, 0u);
}

TEST_F(Board, WritesWhatStillWaitsBeforeTheThreadEnds) {
    sim::control("slow_disk_ms=100");
    iqm_db* db = open_memory_db("main.ini");
    qm_thread_encode thread;
    start(thread, db);
    switch_on(0, 0, 30, 30);
    step_seconds(1);
    EXPECT_GT(thread.frame_list.count(), 10);
    EXPECT_LT(sim::database_report(db).end, 15u);
    const auto encoded = static_cast<uint64_t>(thread.stat[0].total_frames[0]);
    encoder->SetChannelEnable(0, 0, 0);
    thread.DestroyThread();  // while the disk is as slow as before
    EXPECT_EQ(thread.frame_list.count(), 0);
    EXPECT_EQ(sim::database_report(db).end, encoded);
}

// 16 channels at 30 frames/s fill the list of a database that takes one frame a second.
TEST_F(Board, DropsWholeGroupsWhenTheDatabaseIsTooSlow) {
    testing::internal::CaptureStderr();
    sim::control("slow_disk_ms=1000");
    iqm_db* db = open_memory_db("main.ini", 512, 100'000);
    qm_thread_encode thread;
    start(thread, db);
    for (int ch = 0; ch < 16; ++ch) switch_on(0, ch, 30, 15);
    step_seconds(20);
    EXPECT_LE(thread.frame_list.count(), 2048);
    sim::control("slow_disk_ms=0");
    for (int ch = 0; ch < 16; ++ch) encoder->SetChannelEnable(0, ch, 0);
    step_seconds(2);
    thread.DestroyThread();
    const std::string said = testing::internal::GetCapturedStderr();

    const auto records = records_of(db);
    const uint64_t dropped = 20u * 16 * 30 - records.size();
    EXPECT_EQ(said,
              "qm7105 board: main stream: the database is too slow, waiting frames are being "
              "dropped\n"
              "qm7105 board: main stream: the database has caught up, " +
                  std::to_string(dropped) + " frames were dropped\n");
    EXPECT_GT(dropped, 5000u);
    for (int ch = 0; ch < 16; ++ch) {
        uint32_t expected = 0;
        for (const FrameInfo& info : records_of(db, 0, ch)) {
            if (info.kind == FrameKind::p) {
                EXPECT_EQ(info.number, expected) << "a frame without its group, channel " << ch;
            }
            expected = info.number + 1;
        }
    }
}

TEST(BoardFaults, FailCreation) {
    sim::control("fail.create=1");
    QMAVCodec* codec = nullptr;
    EXPECT_NE(CreateQMAVCodec(&codec), 0);
    EXPECT_EQ(codec, nullptr);
    EXPECT_EQ(CreateQMAVCodec(&codec), 0);
    DestroyQMAVCodec(codec);
}

TEST(BoardFaults, FailMaskAndInitialisation) {
    sim::control("fail.mask=1 fail.init=1");
    QMAVCodec* codec = nullptr;
    ASSERT_EQ(CreateQMAVCodec(&codec), 0);
    _QM_AVCODEC_INIT_PARAM param = {};
    EXPECT_NE(codec->GetSystem()->SetChipEnableMask(15), 0);
    EXPECT_EQ(codec->GetSystem()->SetChipEnableMask(15), 0);
    EXPECT_NE(codec->GetSystem()->InitAVCodec(&param), 0);
    EXPECT_EQ(codec->GetSystem()->InitAVCodec(&param), 0);
    codec->GetSystem()->ReleaseAVCodec();
    DestroyQMAVCodec(codec);
}

using BoardInRealTime = RealClock;

// Far more than any machine can do: the pacer never waits. Would not end in time if the setters had
// to wait for it.
TEST_F(BoardInRealTime, LetsTheSettersThroughWhenItFallsBehind) {
    testing::internal::CaptureStderr();
    sim::control("speed=1000");
    QMAVCodec* codec = nullptr;
    ASSERT_EQ(CreateQMAVCodec(&codec), 0);
    codec->GetSystem()->SetChipEnableMask(15);
    _QM_AVCODEC_INIT_PARAM param = {};
    codec->GetSystem()->InitAVCodec(&param);
    QMVideoEncoder* encoder = codec->GetVideoEncoder();
    qm_thread_encode thread;
    thread.db = open_memory_db("main.ini");
    thread.CreateThread(as_argument(codec), 0);
    for (int ch = 0; ch < 16; ++ch) {
        encoder->SetResolution(0, ch, 3);
        encoder->SetQP(0, ch, 0);
        encoder->SetChannelEnable(0, ch, 1);
    }
    while (sim::board_report(codec).delivered < 300) std::this_thread::yield();
    for (uint8_t i = 0; i < 50; ++i) encoder->SetQP(0, i % 16, i % 2);
    for (int ch = 0; ch < 16; ++ch) encoder->SetChannelEnable(0, ch, 0);
    thread.DestroyThread();
    codec->GetSystem()->ReleaseAVCodec();
    DestroyQMAVCodec(codec);
    testing::internal::GetCapturedStderr();
}

// On the real clock: a second's worth of frames, with room for a slow machine.
TEST_F(BoardInRealTime, PacesByTheClock) {
    QMAVCodec* codec = nullptr;
    ASSERT_EQ(CreateQMAVCodec(&codec), 0);
    codec->GetSystem()->SetChipEnableMask(15);
    _QM_AVCODEC_INIT_PARAM param = {};
    codec->GetSystem()->InitAVCodec(&param);
    const int64_t start_us = sim::now_us();
    codec->GetVideoEncoder()->SetFrameRate(0, 0, 20);
    codec->GetVideoEncoder()->SetChannelEnable(0, 0, 1);
    while (sim::board_report(codec).uncollected < 20) {
        const sim::BoardReport report = sim::board_report(codec);
        const int64_t elapsed = sim::now_us() - start_us;
        ASSERT_LE(static_cast<int64_t>(report.uncollected + report.late), elapsed / 50'000 + 1);
    }
    EXPECT_GE(sim::now_us() - start_us, 950'000);
    codec->GetSystem()->ReleaseAVCodec();
    DestroyQMAVCodec(codec);
}

}  // namespace
