// Writes the manifest of a clip.
#include "tools/qmtool/clip_manifest.h"

#include <cstdio>

#include "sdk/db/crc32c.h"
#include "tools/qmtool/output.h"

namespace {

const char* kind_text(sim::FrameKind kind) {
    switch (kind) {
        case sim::FrameKind::idr: return "idr";
        case sim::FrameKind::p: return "p";
        case sim::FrameKind::jpeg: return "jpeg";
        case sim::FrameKind::audio: return "audio";
    }
    return "";
}

std::string hex_text(uint32_t value) {
    char text[16];
    snprintf(text, sizeof text, "%08x", value);
    return text;
}

}  // namespace

// The object stays open until settle(): what is known last stands last.
bool ClipManifest::create(const std::string& path, bool replace, const Origin& origin) {
    if (!m_file.create(path, replace)) return false;
    Json json;
    json.object()
        .text("file", origin.file)
        .text("database", origin.database)
        .text("stream", origin.stream)
        .number("channel", static_cast<uint64_t>(origin.channel));
    return write(json.written() + ", \"records\": [");
}

bool ClipManifest::add(const ClipFrame& clip, const std::string& file, const std::string& sha256) {
    const sim::FrameInfo& info = clip.frame.info;
    Json json;
    json.object()
        .number("record", clip.record)
        .text("kind", kind_text(info.kind))
        .number("number", info.number)
        .number("run", info.run);
    json.object("time")
        .text("utc", exact_time_text(info.time_us))
        .signed_number("us", info.time_us)
        .end();
    json.number("bytes", info.bytes)
        .text("crc32c", hex_text(sim::crc32c(0, clip.frame.payload.get(), info.bytes)));
    if (!file.empty()) json.text("file", file).text("sha256", sha256);
    const char* const before = m_any ? ",\n" : "\n";
    m_any = true;
    return write(before + json.end().written());
}

bool ClipManifest::settle(uint64_t bytes, const std::string& sha256) {
    std::string ending = "\n], \"bytes\": " + std::to_string(bytes);
    ending += sha256.empty() ? ", \"sha256\": null}\n" : ", \"sha256\": \"" + sha256 + "\"}\n";
    return write(ending) && m_file.settle();
}
