// The PB command: every effect is a call into the playback thread.
#include "searchwork/playback.h"

#include <cstdio>
#include <cstring>

#include "env/app_env.h"
#include "searchwork/search_db.h"
#include "shell/qm_string.h"

namespace {

void pb_help() {
    puts(" +-------------------------------------------------------------");
    puts(" | * First Frame          \t : PB 0 \t\t\t|");
    puts(" | * Prev Frame           \t : PB 1 \t\t\t|");
    puts(" | * Reverse Playback     \t : PB 2 \t\t\t|");
    puts(" | * Pause                \t : PB 3 \t\t\t|");
    puts(" | * Forward Playback     \t : PB 4 \t\t\t|");
    puts(" | * Next Frame           \t : PB 5 \t\t\t|");
    puts(" | * Last Frame           \t : PB 6 \t\t\t|");
    puts(" | * Playback Speed Up    \t : PB SPEED UP [step] \t\t|");
    puts(" | * Playback Speed Down  \t : PB SPEED DN [step] \t\t|");
    puts(" | * Channel Enable Mask  \t : PB SETCHMASK [16bits mask] \t|");
    puts(" | * Audio Enable/Disable \t : PB AUDIO [off:0 or on:1]\t|");
    puts(" | * Audio Channel        \t : PB AUDIOCH [num : 0~15]\t|");
    puts(" +-------------------------------------------------------------");
}

void parameter_error() { puts("[PB] Err! Parameter."); }

// Kept: of the states that the help offers only forward playback and next frame are passed through;
// all others pause.
void set_state(qm_thread_decode& thread, const char* word) {
    const int state = qm_atoi(word);
    const bool passed = state == PB_STATE_FORWARD || state == PB_STATE_NEXT_FRAME;
    thread.SetPBState(passed ? static_cast<PB_STATE>(state) : PB_STATE_PAUSE);
}

// `values` are the words after the keyword, one or two.
void set_speed(qm_thread_decode& thread, int count, char** values) {
    const int step = count == 2 ? qm_atoi(values[1]) : 1;
    if (strcmp(values[0], "UP") == 0)
        thread.SpeedControl(1, step);
    else if (strcmp(values[0], "DN") == 0)
        thread.SpeedControl(0, step);
    else
        parameter_error();
}

// Kept: a 0X anywhere in the text drops its first two characters.
unsigned long parse_channel_mask(const char* text) {
    return qm_atoh(strstr(text, "0X") ? text + 2 : text);
}

void set_value(qm_thread_decode& thread, const char* keyword, int count, char** values) {
    const bool mask = strcmp(keyword, "SETCHMASK") == 0;
    const bool audio = strcmp(keyword, "AUDIO") == 0;
    const bool audio_channel = strcmp(keyword, "AUDIOCH") == 0;
    if (!mask && !audio && !audio_channel) return;  // unknown words are ignored in silence
    if (count != 1) {
        parameter_error();
        return;
    }
    if (mask)
        thread.SetPBChannelEnableMask(parse_channel_mask(values[0]), GetAppEnv()->chip_mask);
    else if (audio)
        thread.EnablePBAudio(qm_atoi(values[0]));
    else
        thread.SetPBAudioChannel(qm_atoi(values[0]) & 0xFF);
}

bool takes_value(const char* word) {
    for (const char* keyword : {"SPEED", "SETCHMASK", "AUDIO", "AUDIOCH"})
        if (strcmp(word, keyword) == 0) return true;
    return false;
}

}  // namespace

int searchwork_pb(int argc, char** argv) {
    qm_thread_decode* thread = _l_stDec.thread;
    if (argc == 1) {
        pb_help();
        return 0;
    }
    if (!thread) return 0;
    if (argc > 4 || (argc == 2 && takes_value(argv[1])))
        parameter_error();
    else if (argc == 2)
        set_state(*thread, argv[1]);
    else if (strcmp(argv[1], "SPEED") == 0)
        set_speed(*thread, argc - 2, argv + 2);
    else
        set_value(*thread, argv[1], argc - 2, argv + 2);
    return 0;
}
