// A codec session on the virtual board, under the stepped clock. Recording threads and databases
// are made as the program makes them.
#ifndef TESTS_SUPPORT_SIM_SESSION_H
#define TESTS_SUPPORT_SIM_SESSION_H

#include <gtest/gtest.h>

#include <string>

#include "mainwork/qm_codec.h"
#include "mainwork/qm_db.h"
#include "mainwork/qm_workers.h"
#include "sdk/sim_control.h"

inline constexpr int64_t START_US = 1'700'000'000'000'000;
inline constexpr int64_t SECOND_US = 1'000'000;

inline unsigned char* as_argument(QMAVCodec* codec) {
    return reinterpret_cast<unsigned char*>(codec);
}

inline iqm_db* open_memory_db(const std::string& path, uint32_t a = 512, uint32_t b = 1920) {
    iqm_db* db = nullptr;
    qm_db_create(DB_TYPE_MEMORY, &db);
    QMDBOpenParam param = {path, 1, a, b};
    if (db->Open(&param) == 0) qm_db_destroy(&db);
    return db;
}

class SimSession : public ::testing::Test {
  protected:
    void SetUp() override {
        sim::control_reset();
        sim::use_stepped_clock(START_US);
        open_codec(15, 0);
    }
    void TearDown() override {
        close_codec();
        sim::control_reset();
        EXPECT_EQ(sim::open_databases(), 0);
    }

    void open_codec(uint32_t chip_mask, uint32_t video_format) {
        ASSERT_EQ(CreateQMAVCodec(&codec), 0);
        system = codec->GetSystem();
        codec->SetBoardType(0, 0);
        ASSERT_EQ(system->SetChipEnableMask(chip_mask), 0);
        _QM_AVCODEC_INIT_PARAM param = {};
        param.video_format = video_format;
        ASSERT_EQ(system->InitAVCodec(&param), 0);
        encoder = codec->GetVideoEncoder();
        audio = codec->GetAudio();
    }
    void close_codec() {
        if (!codec) return;
        system->ReleaseAVCodec();
        DestroyQMAVCodec(codec);
        codec = nullptr;
    }

    // Constant quantiser, all of a channel's settings, then on.
    void switch_on(int stream, int ch, uint32_t rate, uint32_t idr, uint32_t res = 0) {
        encoder->SetResolution(stream, ch, res);
        encoder->SetFrameRate(stream, ch, rate);
        encoder->SetIDRInterval(stream, ch, idr);
        encoder->SetChannelEnable(stream, ch, 1);
    }

    template <class Thread>
    void start(Thread& thread, iqm_db* db) {
        thread.db = db;
        thread.CreateThread(as_argument(codec), 0);
    }

    static void step_seconds(int64_t seconds) { sim::step_clock(seconds * SECOND_US); }

    QMAVCodec* codec = nullptr;
    QMCodecSystem* system = nullptr;
    QMVideoEncoder* encoder = nullptr;
    QMAudio* audio = nullptr;
};

#endif  // TESTS_SUPPORT_SIM_SESSION_H
