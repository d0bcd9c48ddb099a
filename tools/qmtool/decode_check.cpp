// One decoder for each channel of each stream, all records in their order.
#include "tools/qmtool/decode_check.h"

#include <memory>

#include "sdk/db/disk_reader.h"
#include "sdk/video/audio_tone.h"
#include "sdk/video/picture_check.h"
#include "tools/qmtool/output.h"

namespace {

using Found = sim::PictureCheck::Found;

class DecodeCheck {
  public:
    DecodeCheck(const TellWrong& tell, DecodedFrames& out) : m_tell(tell), m_out(out) {}

    void look_at(uint64_t record, const qm_dbframe& frame) {
        const sim::FrameInfo& info = frame.info;
        if (info.kind == sim::FrameKind::audio) {
            ++m_out.sounds;
            if (info.bytes != sim::AUDIO_FRAME_BYTES)
                tell_wrong(record, info,
                           "its sound has " + counted(info.bytes, "byte", "bytes") + ", not " +
                               std::to_string(sim::AUDIO_FRAME_BYTES));
            return;
        }
        ++m_out.pictures;
        auto& check = m_checks[info.stream][info.channel];
        if (!check) check = std::make_unique<sim::PictureCheck>();
        switch (check->check(info, frame.payload.get(), info.bytes)) {
            case Found::fine: ++m_out.fine; break;
            case Found::no_code: ++m_out.no_code; break;
            case Found::waits_for_key: ++m_out.waiting; break;
            case Found::wrong: tell_wrong(record, info, check->error()); break;
        }
    }

  private:
    void tell_wrong(uint64_t record, const sim::FrameInfo& info, const std::string& what) {
        ++m_out.wrong;
        m_tell(record, info, what);
    }

    const TellWrong& m_tell;
    DecodedFrames& m_out;
    std::unique_ptr<sim::PictureCheck> m_checks[QMCODEC_STREAMS][QMCODEC_CHANNELS];
};

}  // namespace

bool decode_all(const sim::DatabaseView& view, const TellWrong& tell,
                const std::function<void(uint64_t done, uint64_t total)>& progress,
                DecodedFrames& out, std::string& why) {
    const auto reader = sim::DiskReader::open(view.files(), view.path(), why, true);
    if (!reader) return false;
    DecodeCheck check(tell, out);
    const uint64_t first = reader->first(), end = reader->end();
    qm_dbframe frame;
    for (uint64_t n = reader->next(first); n < end; n = reader->next(n + 1)) {
        if (reader->read(n, frame)) check.look_at(n, frame);  // else verify tells what is missing
        progress(n - first, end - first);
    }
    return true;
}
