// Loading the environment file: which keys are asked for, and what becomes of their values. How a
// file is read is tested with the stand-in's profile reader.
#include <map>
#include <string>
#include <vector>

#include "env/app_env.h"
#include "tests/env/env_test.h"

namespace {

using LoadEnv = EnvTest;

const std::string STREAMS[] = {"MAIN STREAM",    "DUAL STREAM", "JPEG STREAM",
                               "PREVIEW STREAM", "3RD STREAM",  "4TH STREAM"};

const std::string CHANNEL_KEYS[] = {"ch_01", "ch_02", "ch_03", "ch_04", "ch_05", "ch_06",
                                    "ch_07", "ch_08", "ch_09", "ch_10", "ch_11", "ch_12",
                                    "ch_13", "ch_14", "ch_15", "ch_16"};

// Loads a file with these "SECTION/key" values.
void load(const std::map<std::string, std::string>& profile) {
    fake().profile = profile;
    EXPECT_EQ(g_appenv.LoadEnv("board.ini"), 1u);
}

TEST_F(LoadEnv, AsksForEveryKeyInOrder) {
    std::vector<std::string> expected = {
        "existfile board.ini",
        "int GENERAL board_type 0",
        "int GENERAL sub_ev_type 0",
        "int GENERAL main_database_type 2",
        "int GENERAL dual_database_type 2",
        "int GENERAL jpeg_database_type 2",
        "int GENERAL video_format 0",
        "int GENERAL field_type 0",
        "string GENERAL main_stream_db",
        "string GENERAL dual_stream_db",
        "string GENERAL jpeg_stream_db",
        "string GENERAL decode_stream_db",
        "string GENERAL parameter_file_name_0",
        "string GENERAL parameter_file_name_1",
        "string GENERAL parameter_file_name_2",
        "string GENERAL parameter_file_name_3",
        "string GENERAL qp_table_0",
        "string GENERAL qp_table_1",
        "string GENERAL firmware",
    };
    for (const std::string& stream : STREAMS)
        for (const std::string& key : CHANNEL_KEYS)
            expected.push_back("string " + stream + " " + key);
    for (const std::string& key : CHANNEL_KEYS) expected.push_back("string AUDIO " + key);

    fake().journal_profile = true;
    load({});
    EXPECT_EQ(fake().take_journal(), expected);
}

TEST_F(LoadEnv, PrintsNothing) {
    EXPECT_EQ(output_of([] { load({{"GENERAL/board_type", "6"}}); }), "");
    fake().file_exists = false;
    EXPECT_EQ(output_of([] { g_appenv.LoadEnv("missing.ini"); }), "");
}

TEST_F(LoadEnv, AMissingFileChangesNothing) {
    fake().file_exists = false;
    fake().journal_profile = true;
    fake().profile = {{"GENERAL/board_type", "6"}, {"MAIN STREAM/ch_01", "1"}};
    g_appenv.board_type = 2;
    g_appenv.main_database_type = 1;
    g_appenv.main_stream_db = "old";
    EXPECT_EQ(g_appenv.LoadEnv("missing.ini"), 0u);
    EXPECT_EQ(fake().take_journal(), std::vector<std::string>{"existfile missing.ini"});
    EXPECT_EQ(g_appenv.board_type, 2u);
    EXPECT_EQ(g_appenv.main_database_type, 1u);
    EXPECT_EQ(g_appenv.main_stream_db, "old");
    EXPECT_EQ(channel(0, 0), Unit{});
}

TEST_F(LoadEnv, AnEmptyFileLeavesZerosAndTheDatabaseTypes) {
    CAppEnv& env = g_appenv;
    env.board_type = env.sub_ev_type = env.video_format = env.field_type = 9;
    env.main_stream_db = env.dual_stream_db = env.jpeg_stream_db = env.decode_stream_db = "old";
    for (std::string& name : env.parameter_file_name) name = "old";
    for (std::string& name : env.qp_table) name = "old";
    load({});
    EXPECT_EQ(env.board_type, 0u);
    EXPECT_EQ(env.sub_ev_type, 0u);
    EXPECT_EQ(env.main_database_type, 2u);
    EXPECT_EQ(env.dual_database_type, 2u);
    EXPECT_EQ(env.jpeg_database_type, 2u);
    EXPECT_EQ(env.video_format, 0u);
    EXPECT_EQ(env.field_type, 0u);
    for (const std::string& text :
         {env.main_stream_db, env.dual_stream_db, env.jpeg_stream_db, env.decode_stream_db,
          env.parameter_file_name[0], env.parameter_file_name[1], env.parameter_file_name[2],
          env.parameter_file_name[3], env.qp_table[0], env.qp_table[1]})
        EXPECT_EQ(text, "");
    for (int stream = 0; stream < QMCODEC_STREAMS; ++stream)
        for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) EXPECT_EQ(channel(stream, ch), Unit{});
}

TEST_F(LoadEnv, StoresEachGeneralNumber) {
    load({{"GENERAL/board_type", "6"},
          {"GENERAL/sub_ev_type", "5"},
          {"GENERAL/main_database_type", "0"},
          {"GENERAL/dual_database_type", "1"},
          {"GENERAL/jpeg_database_type", "7"},
          {"GENERAL/video_format", "3"},
          {"GENERAL/field_type", "4"}});
    EXPECT_EQ(g_appenv.board_type, 6u);
    EXPECT_EQ(g_appenv.sub_ev_type, 5u);
    EXPECT_EQ(g_appenv.main_database_type, 0u);
    EXPECT_EQ(g_appenv.dual_database_type, 1u);
    EXPECT_EQ(g_appenv.jpeg_database_type, 7u);
    EXPECT_EQ(g_appenv.video_format, 3u);
    EXPECT_EQ(g_appenv.field_type, 4u);
}

TEST_F(LoadEnv, ChecksNoRange) {
    load({{"GENERAL/board_type", "-1"}, {"GENERAL/video_format", "99"}});
    EXPECT_EQ(g_appenv.board_type, 0xffffffffu);
    EXPECT_EQ(g_appenv.video_format, 99u);
}

TEST_F(LoadEnv, StoresEachFileName) {
    load({{"GENERAL/main_stream_db", "a/m.ini"},
          {"GENERAL/dual_stream_db", "a/d.ini"},
          {"GENERAL/jpeg_stream_db", "a/j.ini"},
          {"GENERAL/decode_stream_db", "a/s.ini"},
          {"GENERAL/parameter_file_name_0", "p0"},
          {"GENERAL/parameter_file_name_1", "p1"},
          {"GENERAL/parameter_file_name_2", "p2"},
          {"GENERAL/parameter_file_name_3", "p3"},
          {"GENERAL/qp_table_0", "q0"},
          {"GENERAL/qp_table_1", "q1"},
          {"GENERAL/firmware", "fw"}});
    EXPECT_EQ(g_appenv.main_stream_db, "a/m.ini");
    EXPECT_EQ(g_appenv.dual_stream_db, "a/d.ini");
    EXPECT_EQ(g_appenv.jpeg_stream_db, "a/j.ini");
    EXPECT_EQ(g_appenv.decode_stream_db, "a/s.ini");
    EXPECT_EQ(g_appenv.parameter_file_name[0], "p0");
    EXPECT_EQ(g_appenv.parameter_file_name[1], "p1");
    EXPECT_EQ(g_appenv.parameter_file_name[2], "p2");
    EXPECT_EQ(g_appenv.parameter_file_name[3], "p3");
    EXPECT_EQ(g_appenv.qp_table[0], "q0");
    EXPECT_EQ(g_appenv.qp_table[1], "q1");
    EXPECT_EQ(g_appenv.firmware, "fw");
}

TEST_F(LoadEnv, AFileWithoutFirmwareKeepsTheOldOne) {
    load({});
    EXPECT_EQ(g_appenv.firmware, "");
    g_appenv.firmware = "old";
    load({});
    EXPECT_EQ(g_appenv.firmware, "old");
}

TEST_F(LoadEnv, AnEmptyFirmwareKeyEmptiesTheFirmware) {
    g_appenv.firmware = "old";
    load({{"GENERAL/firmware", ""}});
    EXPECT_EQ(g_appenv.firmware, "");
}

TEST_F(LoadEnv, KeepsTheFirst254CharactersOfAValue) {
    load({{"GENERAL/main_stream_db", std::string(300, 'x')}});
    EXPECT_EQ(g_appenv.main_stream_db, std::string(254, 'x'));
}

TEST_F(LoadEnv, TakesAFileNameOf255Characters) {
    fake().journal_profile = true;
    fake().file_exists = false;
    g_appenv.LoadEnv(std::string(255, 'f'));
    EXPECT_EQ(fake().take_journal().front(), "existfile " + std::string(255, 'f'));
    g_appenv.LoadEnv(std::string(600, 'f'));
    EXPECT_EQ(fake().take_journal().front(), "existfile " + std::string(255, 'f'));
}

struct DecodeCase {
    const char* main;
    const char* dual;
    const char* jpeg;
    const char* decode;
    uint32_t type;
};

TEST_F(LoadEnv, FindsTheDatabaseThatIsSearched) {
    const DecodeCase cases[] = {
        {"m", "d", "j", "m", 0},
        {"m", "d", "j", "d", 1},
        {"m", "d", "j", "j", 2},
        {"m", "d", "j", "s", 3},
        {"same", "same", "same", "same", 0},  // the lower number wins
        {"m", "same", "same", "same", 1},
        {"m", "d", "j", "M", 3},   // upper case is another file
        {"m", "d", "j", "mm", 3},  // and so is a longer name
        {"mm", "d", "j", "m", 3},
        {"m", "d", "j", "", 3},
        {"m", "", "j", "", 1},
    };
    for (const DecodeCase& c : cases) {
        load({{"GENERAL/main_stream_db", c.main},
              {"GENERAL/dual_stream_db", c.dual},
              {"GENERAL/jpeg_stream_db", c.jpeg},
              {"GENERAL/decode_stream_db", c.decode}});
        EXPECT_EQ(g_appenv.decode_db_type, c.type)
            << c.main << " " << c.dual << " " << c.jpeg << " " << c.decode;
    }
}

TEST_F(LoadEnv, SearchesTheMainDatabaseWhenAllPathsAreAbsent) {
    g_appenv.decode_db_type = 3;
    load({});
    EXPECT_EQ(g_appenv.decode_db_type, 0u);
}

TEST_F(LoadEnv, EveryChannelKeySetsItsOwnUnit) {
    std::map<std::string, std::string> profile;
    for (int stream = 0; stream < QMCODEC_STREAMS; ++stream)
        for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch)
            profile[STREAMS[stream] + "/" + CHANNEL_KEYS[ch]] =
                "1 " + std::to_string(stream) + " " + std::to_string(ch);
    load(profile);
    for (int stream = 0; stream < QMCODEC_STREAMS; ++stream)
        for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch)
            EXPECT_EQ(channel(stream, ch), (Unit{1, stream, ch, 0, 0, 0, 0, 0, 0}));
}

TEST_F(LoadEnv, AnAbsentChannelKeyLeavesItsUnitAlone) {
    g_appenv.venc[0][1].framerate = 9;
    load({{"MAIN STREAM/ch_01", "1 0 25"}});
    EXPECT_EQ(channel(0, 0).framerate, 25);
    EXPECT_EQ(channel(0, 1), (Unit{0, 0, 9, 0, 0, 0, 0, 0, 0}));
}

TEST_F(LoadEnv, AnEmptyChannelValueLeavesItsUnitAlone) {
    g_appenv.venc[0][0].enable = 1;
    load({{"MAIN STREAM/ch_01", ""}});
    EXPECT_EQ(channel(0, 0).enable, 1);
}

TEST_F(LoadEnv, EveryAudioKeySetsItsOwnChannel) {
    std::map<std::string, std::string> profile;
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch)
        profile["AUDIO/" + CHANNEL_KEYS[ch]] = std::to_string(ch + 100);
    load(profile);
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) EXPECT_EQ(g_appenv.audio_enable[ch], ch + 100);
}

TEST_F(LoadEnv, AnAudioValueIsCutToAByte) {
    load({{"AUDIO/ch_01", "257"}, {"AUDIO/ch_02", "256"}, {"AUDIO/ch_03", "-1"}});
    EXPECT_EQ(g_appenv.audio_enable[0], 1);
    EXPECT_EQ(g_appenv.audio_enable[1], 0);
    EXPECT_EQ(g_appenv.audio_enable[2], 255);
}

TEST_F(LoadEnv, AnAbsentAudioKeyLeavesItsChannelAlone) {
    g_appenv.audio_enable[1] = 1;
    load({{"AUDIO/ch_01", "1"}});
    EXPECT_EQ(g_appenv.audio_enable[0], 1);
    EXPECT_EQ(g_appenv.audio_enable[1], 1);
}

// A unit whose fields all differ from what the lines below set.
constexpr Unit BEFORE = {91, 92, 93, 94, 95, 96, 97, 98, 99};

// The unit BEFORE after a channel line.
Unit after(std::string line) {
    static tagVEncChannelUnit unit;
    unit.enable = static_cast<uint8_t>(BEFORE.enable);
    unit.codectype = static_cast<uint32_t>(BEFORE.codectype);
    unit.framerate = static_cast<uint32_t>(BEFORE.framerate);
    unit.idr = static_cast<uint32_t>(BEFORE.idr);
    unit.bitratetype = static_cast<uint32_t>(BEFORE.bitratetype);
    unit.qp = static_cast<uint8_t>(BEFORE.qp);
    unit.bitrate = static_cast<uint32_t>(BEFORE.bitrate);
    unit.res = static_cast<uint32_t>(BEFORE.res);
    unit.enable_motion_data = static_cast<uint8_t>(BEFORE.motion);
    EXPECT_EQ(g_appenv._GetStreamSetupValue(&unit, line.data()), 1u);
    return unit_of(unit);
}

// BEFORE with its first fields replaced.
Unit before_with(const std::vector<int>& values) {
    Unit unit = BEFORE;
    int* const fields[] = {&unit.enable,      &unit.codectype, &unit.framerate, &unit.idr,
                           &unit.bitratetype, &unit.qp,        &unit.bitrate,   &unit.res};
    for (size_t i = 0; i < values.size(); ++i) *fields[i] = values[i];
    return unit;
}

TEST(ChannelLine, SetsItsEightFields) {
    EXPECT_EQ(after("1 0 30 31 0 27 2048000 3"), before_with({1, 0, 30, 31, 0, 27, 2048000, 3}));
}

TEST(ChannelLine, CountsTheQuantiserModulo52) {
    EXPECT_EQ(after("1 0 25 25 0 60 2048000 2"), before_with({1, 0, 25, 25, 0, 8, 2048000, 2}));
    EXPECT_EQ(after("1 0 0 0 0 51").qp, 51);
    EXPECT_EQ(after("1 0 0 0 0 52").qp, 0);
    EXPECT_EQ(after("1 0 0 0 0 104").qp, 0);
    EXPECT_EQ(after("1 0 0 0 0 -5").qp, 251);  // the remainder -5, as a byte
}

TEST(ChannelLine, KeepsTheFieldsItDoesNotName) {
    EXPECT_EQ(after("1 0 25"), before_with({1, 0, 25}));
}

TEST(ChannelLine, ChangesNothingWhenItIsEmpty) { EXPECT_EQ(after(""), BEFORE); }

TEST(ChannelLine, TakesASingleDigit) { EXPECT_EQ(after("7"), before_with({7})); }

TEST(ChannelLine, IgnoresTokensAfterTheEighth) {
    EXPECT_EQ(after("1 2 3 4 5 6 7 8 9 10 11"), before_with({1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(ChannelLine, SkipsLeadingAndRepeatedBlanks) {
    EXPECT_EQ(after("   1  2    3"), before_with({1, 2, 3}));
}

TEST(ChannelLine, TakesALastBlankAfterANumberWithTheNumber) {
    EXPECT_EQ(after("1 "), before_with({1}));
    EXPECT_EQ(after("1 2 "), before_with({1, 2}));
}

TEST(ChannelLine, TakesTheSecondOfTwoLastBlanksForATokenOfItsOwn) {
    EXPECT_EQ(after("1  "), before_with({1, 0}));
    EXPECT_EQ(after("1   "), before_with({1, 0}));
}

TEST(ChannelLine, TakesALoneBlankForAToken) {
    EXPECT_EQ(after(" "), before_with({0}));
    EXPECT_EQ(after("   "), before_with({0}));
}

TEST(ChannelLine, DropsCommasInsteadOfSplittingAtThem) {
    EXPECT_EQ(after("1,2 3"), before_with({12, 3}));
    EXPECT_EQ(after("1,0"), before_with({10}));
    EXPECT_EQ(after(",1 ,2 3"), before_with({1, 2, 3}));
}

TEST(ChannelLine, DropsQuotes) {
    EXPECT_EQ(after("\"1 2 3\""), before_with({1, 2, 3}));
    EXPECT_EQ(after("1\"2 3"), before_with({12, 3}));
}

TEST(ChannelLine, KeepsALastCommaOrQuoteInTheToken) {
    EXPECT_EQ(after("1,"), before_with({1}));
    EXPECT_EQ(after("1 2\""), before_with({1, 2}));
    EXPECT_EQ(after("1 ,"), before_with({1, 0}));
    EXPECT_EQ(after("1 \""), before_with({1, 0}));
    EXPECT_EQ(after(","), before_with({0}));
}

TEST(ChannelLine, SplitsAtBlanksOnly) { EXPECT_EQ(after("1\t2 3"), before_with({1, 3})); }

TEST(ChannelLine, CutsTheEnableToAByte) {
    EXPECT_EQ(after("257").enable, 1);
    EXPECT_EQ(after("256").enable, 0);
    EXPECT_EQ(after("-1").enable, 255);
}

TEST(ChannelLine, ReadsWhatIsNoNumberAsZero) {
    EXPECT_EQ(after("on x 2y"), before_with({0, 0, 2}));
}

TEST(ChannelLine, ChecksNoOtherRange) {
    EXPECT_EQ(after("1 -1 99 100000 7 0 -2 77"), before_with({1, -1, 99, 100000, 7, 0, -2, 77}));
}

TEST(ChannelLine, TakesATokenOf31Characters) {
    EXPECT_EQ(after(std::string(30, '0') + "7 5"), before_with({7, 5}));
}

TEST(ChannelLine, GoesOnBehindATokenThatIsTooLong) {
    for (const size_t length : {size_t{32}, size_t{33}, size_t{250}}) {
        const Unit unit = after(std::string(length, '0') + " 5 6");
        EXPECT_EQ(unit.codectype, 5) << length;
        EXPECT_EQ(unit.framerate, 6) << length;
    }
}

TEST(ChannelLine, LeavesTheAreaBehindTheUnitAlone) {
    static tagVEncChannelUnit unit;
    unit.extra_data[0] = unit.extra_data[8039] = 0xee;
    std::string line = "1 2 3 4 5 6 7 8 9";
    g_appenv._GetStreamSetupValue(&unit, line.data());
    EXPECT_EQ(unit.extra_data[0], 0xee);
    EXPECT_EQ(unit.extra_data[1], 0);
    EXPECT_EQ(unit.extra_data[8039], 0xee);
}

}  // namespace
