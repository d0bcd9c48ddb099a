// qmtool verify: what is wrong, one line each.
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "tools/qmtool/command.h"
#include "tools/qmtool/decode_check.h"
#include "tools/qmtool/output.h"

namespace {

constexpr uint64_t MOST_LINES = 1000;

// Of JSON: stable.
const char* key_of(sim::FindingKind kind) {
    using Kind = sim::FindingKind;
    switch (kind) {
        case Kind::header_copy: return "header_copy";
        case Kind::header_rest: return "header_rest";
        case Kind::no_header: return "no_header";
        case Kind::foreign: return "foreign";
        case Kind::cannot_read: return "cannot_read";
        case Kind::file_size: return "file_size";
        case Kind::damage: return "damage";
        case Kind::missing_records: return "missing_records";
        case Kind::order: return "order";
        case Kind::batch_flag: return "batch_flag";
        case Kind::hole: return "hole";
        case Kind::fill: return "fill";
        case Kind::pad: return "pad";
        case Kind::run: return "run";
        case Kind::time: return "time";
        case Kind::header_time: return "header_time";
        case Kind::directory: return "directory";
        case Kind::no_directory: return "no_directory";
        case Kind::unused_bytes: return "unused_bytes";
        case Kind::torn_end: return "torn_end";
        case Kind::unbegun: return "unbegun";
        case Kind::ini_missing: return "ini_missing";
        case Kind::ini_damaged: return "ini_damaged";
        case Kind::ini_foreign: return "ini_foreign";
        case Kind::ini_size: return "ini_size";
        case Kind::strange_name: return "strange_name";
    }
    return "";
}

std::string damage_text(const sim::Finding& finding) {
    std::string text = counted(finding.end - finding.offset, "byte", "bytes") + " cannot be read";
    if (finding.amount > 0)
        text += "; " + counted(finding.amount, "record is", "records are") + " missing";
    return text;
}

std::string text_of(const sim::Finding& finding) {
    using Kind = sim::FindingKind;
    switch (finding.kind) {
        case Kind::header_copy: return "one of the two headers is not that of the segment";
        case Kind::header_rest: return "bytes behind the header are not 0";
        case Kind::no_header: return "neither header can be read";
        case Kind::foreign: return "it belongs to another database";
        case Kind::cannot_read:
            return std::string("cannot be read: ") + strerror(static_cast<int>(finding.amount));
        case Kind::file_size:
            return "the file is " + counted(finding.end, "byte", "bytes") +
                   " long, its header tells " + std::to_string(finding.amount);
        case Kind::damage: return damage_text(finding);
        case Kind::missing_records:
            return counted(finding.amount, "record is", "records are") +
                   " missing before it, from number " + std::to_string(finding.first) + " on";
        case Kind::order: return "its records come before those of the segment before it";
        case Kind::batch_flag: return "the flag for the first record of a batch is wrong";
        case Kind::hole:
            return "tells of " + counted(finding.amount, "byte", "bytes") +
                   " that an interrupted write left, but they are not there";
        case Kind::fill: return "the bytes that fill up the record are not 0";
        case Kind::pad: return "the bytes of the pad are not 0";
        case Kind::run: return "the run is below that of the record before";
        case Kind::time: return "the time does not fit the run";
        case Kind::header_time: return "the times in the header are not those of the records";
        case Kind::directory: return "the directory is damaged, or not that of the records";
        case Kind::no_directory:
            return finding.note ? "no directory ends the segment; its records are found without"
                                : "the records end here, but not with a directory";
        case Kind::unused_bytes:
            return counted(finding.end - finding.offset, "unused byte", "unused bytes") +
                   " behind the directory";
        case Kind::torn_end: return "an interrupted write left a part of a record";
        case Kind::unbegun: return "nothing was written into it yet";
        case Kind::ini_missing: return "is missing; qmtool rebuild writes it again";
        case Kind::ini_damaged: return "is damaged; qmtool rebuild writes it again";
        case Kind::ini_foreign:
            return "belongs to another database; qmtool rebuild writes it again";
        case Kind::ini_size:
            return "tells segments of " + counted(finding.amount, "byte", "bytes") +
                   "; the newest has " + std::to_string(finding.end);
        case Kind::strange_name: return "looks like a segment's name and is none";
    }
    return "";
}

// What the finding is about, up to where and when.
std::string place_of(const sim::DatabaseView& view, const sim::Finding& finding) {
    if (finding.kind == sim::FindingKind::strange_name) return printable(finding.text);
    if (finding.segment == 0) return printable(view.ini_name());
    std::string place = "segment " + std::to_string(finding.segment);
    if (finding.placed) place += ", offset " + std::to_string(finding.offset);
    if (finding.row >= 0)
        place += std::string(", ") + row_name(finding.row) + " channel " +
                 std::to_string(finding.channel);
    if (finding.timed) place += (finding.about ? ", near " : ", ") + time_text(finding.utc_us);
    return place;
}

void print_finding(const sim::DatabaseView& view, const sim::Finding& finding) {
    printf("%s%s: %s\n", finding.note ? "note: " : "", place_of(view, finding).c_str(),
           text_of(finding).c_str());
}

void write_finding(Json& json, const sim::Finding& finding) {
    json.object().text("kind", key_of(finding.kind)).truth("note", finding.note);
    finding.segment != 0 ? json.number("segment", finding.segment) : json.null("segment");
    finding.placed ? json.number("offset", finding.offset) : json.null("offset");
    finding.row >= 0 ? json.text("stream", row_name(finding.row)) : json.null("stream");
    finding.channel >= 0 ? json.number("channel", static_cast<uint64_t>(finding.channel))
                         : json.null("channel");
    finding.timed ? json.time("time", finding.utc_us) : json.null("time");
    json.truth("time_is_near", finding.about);
    if (finding.text.empty())
        json.null("name");
    else
        json.text("name", finding.text);
    json.text("text", text_of(finding)).end();
}

const char* row_of(const sim::FrameInfo& info) {
    return row_name(info.kind == sim::FrameKind::audio ? sim::AUDIO_ROW : info.stream);
}

void print_wrong(uint64_t record, const sim::FrameInfo& info, const std::string& what) {
    printf("record %" PRIu64 ", %s channel %u, frame %" PRIu32 ", %s: %s\n", record, row_of(info),
           unsigned{info.channel}, info.number, time_text(info.time_us).c_str(),
           printable(what).c_str());
}

void write_wrong(Json& json, uint64_t record, const sim::FrameInfo& info, const std::string& what) {
    json.object()
        .number("record", record)
        .text("stream", row_of(info))
        .number("channel", info.channel)
        .number("frame", info.number)
        .time("time", info.time_us)
        .text("text", what)
        .end();
}

void print_decoded(const DecodedFrames& decoded) {
    std::string text = counted(decoded.pictures, "picture", "pictures") + ": " +
                       std::to_string(decoded.fine) + " decoded and named right";
    if (decoded.no_code > 0)
        text += ", " + std::to_string(decoded.no_code) + " decoded, the block code is covered";
    if (decoded.waiting > 0)
        text += ", " + std::to_string(decoded.waiting) + " behind a gap, before a key frame";
    text += ", " + std::to_string(decoded.wrong) + " wrong; " +
            counted(decoded.sounds, "frame of sound", "frames of sound");
    printf("%s\n", text.c_str());
}

void write_decoded(Json& json, const DecodedFrames& decoded) {
    json.object("decoded")
        .number("pictures", decoded.pictures)
        .number("fine", decoded.fine)
        .number("code_covered", decoded.no_code)
        .number("behind_a_gap", decoded.waiting)
        .number("wrong", decoded.wrong)
        .number("sounds", decoded.sounds)
        .end();
}

// The second half of --decode, which looks at about as many bytes again. False after it was said
// why it cannot be done.
bool decode_database(const CommandLine& line, const sim::DatabaseView& view, Json& json,
                     uint64_t bytes, DecodedFrames& decoded) {
    std::string why;
    uint64_t told = 0;
    if (line.json) json.array("wrong_frames");
    Progress progress;
    const bool done = decode_all(
        view,
        [&](uint64_t record, const sim::FrameInfo& info, const std::string& what) {
            if (told++ >= MOST_LINES) return;
            if (line.json)
                write_wrong(json, record, info, what);
            else
                print_wrong(record, info, what);
        },
        [&](uint64_t now, uint64_t total) {
            const double part = static_cast<double>(now) / static_cast<double>(total);
            progress.show(static_cast<uint64_t>(part * static_cast<double>(bytes)), bytes);
        },
        decoded, why);
    if (line.json) json.end();
    if (!done) {
        say_cannot(line, why);
        return false;
    }
    if (!line.json && told > MOST_LINES) printf("and %" PRIu64 " more\n", told - MOST_LINES);
    return true;
}

void print_end(const sim::Verified& verified, uint64_t told, bool quick) {
    const uint64_t all = verified.findings + verified.notes;
    if (all > told) printf("and %" PRIu64 " more\n", all - told);
    std::string text = verified.findings == 0 ? "nothing wrong"
                                              : counted(verified.findings, "finding", "findings");
    if (verified.notes > 0) text += ", " + counted(verified.notes, "note", "notes");
    text += " in " + counted(verified.segments, "segment", "segments");
    if (quick) text += "; headers, directories and ends only";
    if (!quick)
        text += ", " + counted(verified.frames, "frame", "frames") + ", " +
                counted(verified.bytes, "byte", "bytes") + " looked at";
    printf("%s\n", text.c_str());
}

}  // namespace

int verify_database(const CommandLine& line) {
    const auto view = open_database(line);
    if (!view) return STATUS_CANNOT;
    Json json;
    json.object().text("database", view->path()).truth("quick", line.quick).array("findings");
    uint64_t told = 0;
    sim::Verified verified;
    {
        Progress progress;
        verified = sim::verify(
            *view, line.quick,
            [&](const sim::Finding& finding) {
                if (told == MOST_LINES) return;
                ++told;
                if (line.json)
                    write_finding(json, finding);
                else
                    print_finding(*view, finding);
            },
            [&](uint64_t done, uint64_t total) { progress.show(done, total); });
    }
    if (line.json) json.end();
    DecodedFrames decoded;
    if (line.decode && !decode_database(line, *view, json, verified.bytes, decoded))
        return STATUS_CANNOT;
    if (line.json) {
        if (line.decode) write_decoded(json, decoded);
        json.number("finding_count", verified.findings)
            .number("note_count", verified.notes)
            .number("segments", verified.segments)
            .number("frames", verified.frames)
            .number("bytes", verified.bytes)
            .end();
        printf("%s\n", json.written().c_str());
    } else {
        print_end(verified, told, line.quick);
        if (line.decode) print_decoded(decoded);
    }
    return verified.findings + decoded.wrong > 0 ? STATUS_FINDINGS : STATUS_FINE;
}
