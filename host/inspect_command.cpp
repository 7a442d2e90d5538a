// qvnhost inspect. This reader shares nothing with the writer: it parses bytes as any other AVI reader
// would, so that a support engineer can trust it on files from any program, and so that the writer's tests
// have a second opinion on every index entry.
#include "host/inspect_command.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kMaxProblemLines = 100;

std::string Printable(const unsigned char* p, std::size_t n) {
    std::string s;
    for (std::size_t i = 0; i < n; ++i)
        s += (p[i] >= 0x20 && p[i] < 0x7F) ? static_cast<char>(p[i]) : '?';
    return s;
}

std::string Hex(std::uint64_t v) {
    char text[32];
    std::snprintf(text, sizeof(text), "0x%llx", static_cast<unsigned long long>(v));
    return text;
}

// Random access to the file with bounds; every read past the end reports false.
class Reader {
public:
    bool Open(const std::string& path) {
        in_.open(path, std::ios::binary);
        if (!in_)
            return false;
        in_.seekg(0, std::ios::end);
        size_ = static_cast<std::uint64_t>(in_.tellg());
        return true;
    }
    std::uint64_t Size() const { return size_; }
    bool Read(std::uint64_t at, void* out, std::size_t n) {
        if (at > size_ || n > size_ - at)
            return false;
        in_.clear();
        in_.seekg(static_cast<std::streamoff>(at));
        in_.read(static_cast<char*>(out), static_cast<std::streamsize>(n));
        return static_cast<std::size_t>(in_.gcount()) == n;
    }
    std::uint32_t U32(std::uint64_t at) {
        unsigned char b[4] = {};
        Read(at, b, 4);
        return b[0] | b[1] << 8 | b[2] << 16 | static_cast<std::uint32_t>(b[3]) << 24;
    }
    std::string Tag(std::uint64_t at) {
        unsigned char b[4] = {};
        if (!Read(at, b, 4))
            return "";
        return Printable(b, 4);
    }

private:
    std::ifstream in_;
    std::uint64_t size_ = 0;
};

std::uint16_t Le16(const unsigned char* p) {
    return static_cast<std::uint16_t>(p[0] | p[1] << 8);
}
std::uint32_t Le32(const unsigned char* p) {
    return p[0] | p[1] << 8 | p[2] << 16 | static_cast<std::uint32_t>(p[3]) << 24;
}
std::uint64_t Le64(const unsigned char* p) {
    return Le32(p) | static_cast<std::uint64_t>(Le32(p + 4)) << 32;
}

// One line of the tree: a label and named values, printed as text or as JSON.
struct Node {
    std::string kind;
    std::vector<std::pair<std::string, std::string>> fields; // value already JSON-encoded
    std::vector<Node> children;

    Node& Num(const std::string& key, std::uint64_t value) {
        fields.emplace_back(key, std::to_string(value));
        return *this;
    }
    Node& Str(const std::string& key, const std::string& value) {
        std::string quoted = "\"";
        for (char c : value) {
            if (c == '"' || c == '\\')
                quoted += '\\';
            quoted += c;
        }
        fields.emplace_back(key, quoted + "\"");
        return *this;
    }
};

struct SuperEntry {
    std::uint64_t offset;
    std::uint32_t size;
    std::uint32_t duration;
};

struct SuperIndex {
    std::uint64_t position = 0;
    std::uint16_t longsPerEntry = 0;
    std::uint8_t subType = 0, type = 0;
    std::uint32_t inUse = 0;
    std::string chunkId;
    std::vector<SuperEntry> entries;
};

struct StandardIndex {
    std::uint64_t position = 0;
    std::uint32_t chunkSize = 0;
    std::string id;
    std::uint16_t longsPerEntry = 0;
    std::uint8_t subType = 0, type = 0;
    std::uint32_t inUse = 0;
    std::string chunkId;
    std::uint64_t base = 0;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> entries; // offset, size field
};

struct Stream {
    std::string type, handler;
    std::uint32_t scale = 0, rate = 0, start = 0, length = 0, bufferSize = 0, quality = 0, sampleSize = 0;
    bool hasStrh = false;
    std::uint32_t formatSize = 0;
    std::int32_t width = 0, height = 0;
    std::uint16_t formatTag = 0, channels = 0, blockAlign = 0, bitsPerSample = 0;
    std::uint32_t samplesPerSecond = 0;
    std::optional<SuperIndex> superIndex;
};

struct DataChunk {
    std::string id;
    std::uint32_t size;
    std::size_t segment;
};

struct Idx1Entry {
    std::string id;
    std::uint32_t flags, offset, size;
};

class Inspector {
public:
    explicit Inspector(Reader& reader) : r_(reader) {}

    // False when the file is not an AVI file at all (fatal_ says why).
    bool Parse();
    void Check();

    std::string fatal_;
    std::vector<std::string> problems_;
    Node root_;
    std::vector<Stream> streams_;

private:
    void Problem(const std::string& text) { problems_.push_back(text); }
    void WalkList(std::uint64_t begin, std::uint64_t end, Node& parent, const std::string& form,
                  std::size_t segment);
    void ParseAvih(std::uint64_t at, std::uint32_t size, Node& node);
    void ParseStrh(std::uint64_t at, std::uint32_t size, Node& node);
    void ParseStrf(std::uint64_t at, std::uint32_t size, Node& node);
    void ParseIndx(std::uint64_t at, std::uint32_t size, Node& node);
    void ParseMovi(std::uint64_t begin, std::uint64_t end, Node& node, std::size_t segment);
    void ParseIdx1(std::uint64_t at, std::uint32_t size, Node& node);
    const StandardIndex* StandardIndexAt(std::uint64_t at);
    std::optional<std::size_t> StreamOf(const std::string& chunkId) const;
    std::string Where(std::uint64_t at) const { return " at " + std::to_string(at); }

    Reader& r_;
    std::map<std::uint64_t, DataChunk> chunks_; // every chunk inside a movi list, by header position
    std::map<std::uint64_t, StandardIndex> standardIndexes_;
    std::vector<std::uint64_t> moviFourcc_; // per segment, position of the "movi" form (0: none)
    std::optional<std::vector<std::uint32_t>> avih_;
    std::optional<std::uint32_t> dmlhFrames_;
    std::optional<std::uint64_t> idx1Position_;
    std::vector<Idx1Entry> idx1_;
    std::size_t strlCount_ = 0;
};

bool Inspector::Parse() {
    const std::uint64_t size = r_.Size();
    root_.kind = "file";
    root_.Num("size", size);
    unsigned char head[12] = {};
    if (size < 12 || !r_.Read(0, head, 12)) {
        fatal_ = "not an AVI file: only " + std::to_string(size) + " bytes, too short for a RIFF header";
        return false;
    }
    if (std::memcmp(head, "RIFF", 4) != 0) {
        fatal_ = "not an AVI file: it starts with '" + Printable(head, 4) + "', not 'RIFF'";
        return false;
    }
    if (std::memcmp(head + 8, "AVI ", 4) != 0) {
        fatal_ = "not an AVI file: a RIFF file of form '" + Printable(head + 8, 4) + "'";
        return false;
    }
    std::uint64_t at = 0;
    std::size_t segment = 0;
    while (at < size) {
        if (size - at < 12) {
            Problem("truncated: " + std::to_string(size - at) + " stray bytes" + Where(at) +
                    " after the last segment");
            break;
        }
        const std::string id = r_.Tag(at);
        const std::uint32_t chunkSize = r_.U32(at + 4);
        const std::string form = r_.Tag(at + 8);
        Node node;
        node.kind = id == "RIFF" ? "RIFF" : "chunk";
        node.Str("id", id).Str("form", form).Num("position", at).Num("size", chunkSize);
        if (id != "RIFF") {
            Problem("unexpected top-level chunk '" + id + "'" + Where(at) + ": expected a RIFF segment");
            root_.children.push_back(node);
            break;
        }
        if (segment > 0 && form != "AVIX")
            Problem("RIFF segment" + Where(at) + " has form '" + form + "', expected 'AVIX'");
        std::uint64_t end = at + 8 + chunkSize;
        if (end > size) {
            Problem("truncated: RIFF '" + form + "'" + Where(at) + " declares " + std::to_string(chunkSize) +
                    " bytes but the file ends " + std::to_string(end - size) + " bytes early");
            end = size;
        }
        moviFourcc_.push_back(0);
        WalkList(at + 12, end, node, form, segment);
        root_.children.push_back(node);
        at = at + 8 + chunkSize + (chunkSize & 1u);
        ++segment;
    }
    return true;
}

void Inspector::WalkList(std::uint64_t begin, std::uint64_t end, Node& parent, const std::string& form,
                         std::size_t segment) {
    std::uint64_t at = begin;
    while (at < end) {
        if (end - at < 8) {
            Problem("truncated chunk header" + Where(at) + " inside '" + form + "'");
            return;
        }
        const std::string id = r_.Tag(at);
        const std::uint32_t size = r_.U32(at + 4);
        std::uint64_t bodyEnd = at + 8 + size;
        if (bodyEnd > end) {
            Problem("chunk '" + id + "'" + Where(at) + " of " + std::to_string(size) +
                    " bytes runs past the end of '" + form + "' (" + std::to_string(bodyEnd - end) +
                    " bytes missing)");
            bodyEnd = end;
        }
        Node node;
        node.kind = id == "LIST" ? "LIST" : "chunk";
        node.Str("id", id);
        if (id == "LIST" && bodyEnd - at >= 12) {
            const std::string type = r_.Tag(at + 8);
            node.Str("form", type).Num("position", at).Num("size", size);
            if (type == "movi") {
                moviFourcc_[segment] = at + 8;
                ParseMovi(at + 12, bodyEnd, node, segment);
            } else {
                if (type == "strl")
                    ++strlCount_;
                WalkList(at + 12, bodyEnd, node, type, segment);
            }
        } else {
            node.Num("position", at).Num("size", size);
            const std::uint32_t available = static_cast<std::uint32_t>(bodyEnd - at - 8);
            if (id == "avih")
                ParseAvih(at + 8, available, node);
            else if (id == "strh" && form == "strl")
                ParseStrh(at + 8, available, node);
            else if (id == "strf" && form == "strl")
                ParseStrf(at + 8, available, node);
            else if (id == "indx" && form == "strl")
                ParseIndx(at + 8, available, node);
            else if (id == "idx1")
                ParseIdx1(at + 8, available, node);
            else if (id == "dmlh" && available >= 4)
                node.Num("total_frames", *(dmlhFrames_ = r_.U32(at + 8)));
            else if ((id == "QVN " || id == "ISFT") && available > 0) {
                std::vector<unsigned char> text(std::min<std::uint32_t>(available, 256));
                r_.Read(at + 8, text.data(), text.size());
                node.Str("text",
                         std::string(reinterpret_cast<const char*>(text.data()),
                                     strnlen(reinterpret_cast<const char*>(text.data()), text.size())));
            }
        }
        parent.children.push_back(node);
        at = at + 8 + size + (size & 1u);
    }
}

void Inspector::ParseAvih(std::uint64_t at, std::uint32_t size, Node& node) {
    if (size < 40) {
        Problem("avih" + Where(at - 8) + " holds only " + std::to_string(size) + " bytes");
        return;
    }
    unsigned char b[40];
    r_.Read(at, b, 40);
    std::vector<std::uint32_t> v(10);
    for (int i = 0; i < 10; ++i)
        v[i] = Le32(b + 4 * i);
    const char* names[10] = {"microseconds_per_frame",
                             "max_bytes_per_second",
                             "padding_granularity",
                             "flags",
                             "total_frames",
                             "initial_frames",
                             "streams",
                             "suggested_buffer_size",
                             "width",
                             "height"};
    for (int i = 0; i < 10; ++i)
        node.Num(names[i], v[i]);
    avih_ = v;
}

void Inspector::ParseStrh(std::uint64_t at, std::uint32_t size, Node& node) {
    streams_.emplace_back();
    Stream& s = streams_.back();
    if (size < 48) {
        Problem("strh" + Where(at - 8) + " holds only " + std::to_string(size) + " bytes");
        return;
    }
    unsigned char b[56] = {};
    r_.Read(at, b, std::min<std::uint32_t>(size, 56));
    s.hasStrh = true;
    s.type = Printable(b, 4);
    s.handler = Printable(b + 4, 4);
    s.scale = Le32(b + 20);
    s.rate = Le32(b + 24);
    s.start = Le32(b + 28);
    s.length = Le32(b + 32);
    s.bufferSize = Le32(b + 36);
    s.quality = Le32(b + 40);
    s.sampleSize = Le32(b + 44);
    node.Num("stream", streams_.size() - 1)
        .Str("type", s.type)
        .Str("handler", s.handler)
        .Num("flags", Le32(b + 8))
        .Num("scale", s.scale)
        .Num("rate", s.rate)
        .Num("start", s.start)
        .Num("length", s.length)
        .Num("suggested_buffer_size", s.bufferSize)
        .Num("quality", s.quality)
        .Num("sample_size", s.sampleSize);
}

void Inspector::ParseStrf(std::uint64_t at, std::uint32_t size, Node& node) {
    if (streams_.empty()) {
        Problem("strf" + Where(at - 8) + " without a preceding strh");
        return;
    }
    Stream& s = streams_.back();
    s.formatSize = size;
    unsigned char b[40] = {};
    r_.Read(at, b, std::min<std::uint32_t>(size, 40));
    if (s.type == "vids" && size >= 40) {
        s.width = static_cast<std::int32_t>(Le32(b + 4));
        s.height = static_cast<std::int32_t>(Le32(b + 8));
        node.Str("format", "bitmap")
            .Num("width", static_cast<std::uint32_t>(s.width))
            .Num("height", static_cast<std::uint32_t>(s.height))
            .Num("bit_count", Le16(b + 14))
            .Str("compression", Printable(b + 16, 4))
            .Num("image_size", Le32(b + 20));
    } else if (s.type == "auds" && size >= 16) {
        s.formatTag = Le16(b);
        s.channels = Le16(b + 2);
        s.samplesPerSecond = Le32(b + 4);
        s.blockAlign = Le16(b + 12);
        s.bitsPerSample = Le16(b + 14);
        node.Str("format", "wave")
            .Str("tag", Hex(s.formatTag))
            .Num("channels", s.channels)
            .Num("samples_per_second", s.samplesPerSecond)
            .Num("average_bytes_per_second", Le32(b + 8))
            .Num("block_align", s.blockAlign)
            .Num("bits_per_sample", s.bitsPerSample);
        if (s.formatTag == 0xFFFE && size >= 40)
            node.Num("valid_bits", Le16(b + 18)).Str("channel_mask", Hex(Le32(b + 20)));
    }
}

void Inspector::ParseIndx(std::uint64_t at, std::uint32_t size, Node& node) {
    if (streams_.empty() || size < 24) {
        Problem("indx" + Where(at - 8) + " is too short or outside a stream list");
        return;
    }
    unsigned char h[24];
    r_.Read(at, h, 24);
    SuperIndex x;
    x.position = at - 8;
    x.longsPerEntry = Le16(h);
    x.subType = h[2];
    x.type = h[3];
    x.inUse = Le32(h + 4);
    x.chunkId = Printable(h + 8, 4);
    node.Num("longs_per_entry", x.longsPerEntry)
        .Num("index_type", x.type)
        .Num("entries_in_use", x.inUse)
        .Str("chunk_id", x.chunkId);
    if (x.longsPerEntry != 4 || x.type != 0)
        Problem("indx" + Where(x.position) + " is not an index of indexes (" +
                std::to_string(x.longsPerEntry) + " longs per entry, type " + std::to_string(x.type) + ")");
    const std::uint32_t capacity = (size - 24) / 16;
    if (x.inUse > capacity) {
        Problem("indx" + Where(x.position) + " claims " + std::to_string(x.inUse) +
                " entries but has room for " + std::to_string(capacity));
        x.inUse = capacity;
    }
    std::vector<unsigned char> e(static_cast<std::size_t>(x.inUse) * 16);
    r_.Read(at + 24, e.data(), e.size());
    for (std::uint32_t i = 0; i < x.inUse; ++i) {
        const SuperEntry entry{Le64(&e[16 * i]), Le32(&e[16 * i + 8]), Le32(&e[16 * i + 12])};
        x.entries.push_back(entry);
        Node child;
        child.kind = "entry";
        child.Num("offset", entry.offset).Num("size", entry.size).Num("duration", entry.duration);
        node.children.push_back(child);
    }
    streams_.back().superIndex = x;
}

const StandardIndex* Inspector::StandardIndexAt(std::uint64_t at) {
    const auto found = standardIndexes_.find(at);
    if (found != standardIndexes_.end())
        return &found->second;
    unsigned char h[32];
    if (!r_.Read(at, h, 32))
        return nullptr;
    StandardIndex x;
    x.position = at;
    x.id = Printable(h, 4);
    x.chunkSize = Le32(h + 4);
    x.longsPerEntry = Le16(h + 8);
    x.subType = h[10];
    x.type = h[11];
    x.inUse = Le32(h + 12);
    x.chunkId = Printable(h + 16, 4);
    x.base = Le64(h + 20);
    const std::uint32_t capacity = x.chunkSize >= 24 ? (x.chunkSize - 24) / 8 : 0;
    if (x.inUse > capacity) {
        Problem("standard index '" + x.id + "'" + Where(at) + " claims " + std::to_string(x.inUse) +
                " entries but has room for " + std::to_string(capacity));
        x.inUse = capacity;
    }
    std::vector<unsigned char> e(static_cast<std::size_t>(x.inUse) * 8);
    if (!r_.Read(at + 32, e.data(), e.size())) {
        Problem("standard index '" + x.id + "'" + Where(at) + " is cut off by the end of the file");
        x.inUse = 0;
    }
    for (std::uint32_t i = 0; i < x.inUse; ++i)
        x.entries.emplace_back(Le32(&e[8 * i]), Le32(&e[8 * i + 4]));
    return &standardIndexes_.emplace(at, std::move(x)).first->second;
}

void Inspector::ParseMovi(std::uint64_t begin, std::uint64_t end, Node& node, std::size_t segment) {
    std::map<std::string, std::uint64_t> counts;
    std::uint64_t at = begin;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> lists{{begin, end}}; // nested "rec " lists
    while (!lists.empty()) {
        auto [from, to] = lists.back();
        lists.pop_back();
        for (at = from; at < to;) {
            if (to - at < 8) {
                Problem("truncated chunk header" + Where(at) + " inside 'movi'");
                break;
            }
            const std::string id = r_.Tag(at);
            const std::uint32_t size = r_.U32(at + 4);
            if (at + 8 + size > to) {
                Problem("chunk '" + id + "'" + Where(at) + " of " + std::to_string(size) +
                        " bytes runs past the end of 'movi' (" + std::to_string(at + 8 + size - to) +
                        " bytes missing)");
                counts[id] += 1;
                break;
            }
            if (id == "LIST") {
                lists.emplace_back(at + 12, at + 8 + size);
            } else {
                chunks_[at] = DataChunk{id, size, segment};
                counts[id] += 1;
                if (id.size() == 4 && id[0] == 'i' && id[1] == 'x') {
                    const StandardIndex* x = StandardIndexAt(at);
                    Node child;
                    child.kind = "standard_index";
                    child.Str("id", id).Num("position", at).Num("entries_in_use", x ? x->inUse : 0);
                    if (x)
                        child.Str("chunk_id", x->chunkId).Num("base_offset", x->base);
                    node.children.push_back(child);
                }
            }
            at = at + 8 + size + (size & 1u);
        }
    }
    std::string summary;
    for (const auto& [id, n] : counts)
        summary += (summary.empty() ? "" : " ") + id + ":" + std::to_string(n);
    node.Str("chunks", summary);
}

void Inspector::ParseIdx1(std::uint64_t at, std::uint32_t size, Node& node) {
    idx1Position_ = at - 8;
    const std::uint32_t n = size / 16;
    std::vector<unsigned char> e(static_cast<std::size_t>(n) * 16);
    r_.Read(at, e.data(), e.size());
    for (std::uint32_t i = 0; i < n; ++i)
        idx1_.push_back(
            {Printable(&e[16 * i], 4), Le32(&e[16 * i + 4]), Le32(&e[16 * i + 8]), Le32(&e[16 * i + 12])});
    node.Num("entries", n);
}

std::optional<std::size_t> Inspector::StreamOf(const std::string& chunkId) const {
    if (chunkId.size() != 4 || chunkId[0] < '0' || chunkId[0] > '9' || chunkId[1] < '0' || chunkId[1] > '9')
        return std::nullopt;
    const std::size_t s = static_cast<std::size_t>((chunkId[0] - '0') * 10 + (chunkId[1] - '0'));
    return s < streams_.size() ? std::optional<std::size_t>(s) : std::nullopt;
}

void Inspector::Check() {
    if (!avih_)
        Problem("no avih main header in the first segment");
    else if ((*avih_)[6] != strlCount_)
        Problem("avih says " + std::to_string((*avih_)[6]) + " streams but the header list holds " +
                std::to_string(strlCount_));
    if (moviFourcc_.empty() || moviFourcc_[0] == 0)
        Problem("no movi list in the first segment");

    // Index of indexes -> standard indexes -> chunks.
    std::optional<std::uint32_t> videoLength;
    for (std::size_t s = 0; s < streams_.size(); ++s) {
        Stream& stream = streams_[s];
        const std::string digits =
            std::string(1, static_cast<char>('0' + s / 10)) + static_cast<char>('0' + s % 10);
        if (stream.type == "vids" && !videoLength)
            videoLength = stream.length;
        if (!stream.superIndex)
            continue;
        const SuperIndex& x = *stream.superIndex;
        if (x.chunkId.substr(0, 2) != digits)
            Problem("stream " + std::to_string(s) + ": indx names chunk id '" + x.chunkId + "'");
        std::uint64_t duration = 0, entries = 0, bytes = 0;
        for (std::size_t i = 0; i < x.entries.size(); ++i) {
            const SuperEntry& e = x.entries[i];
            duration += e.duration;
            const std::string where = "stream " + std::to_string(s) + " indx entry " + std::to_string(i);
            const StandardIndex* ix = StandardIndexAt(e.offset);
            if (!ix) {
                Problem(where + " points at " + std::to_string(e.offset) + ", beyond the end of the file");
                continue;
            }
            if (ix->id != "ix" + digits) {
                Problem(where + " points at '" + ix->id + "'" + Where(e.offset) + ", not at 'ix" + digits +
                        "'");
                continue;
            }
            if (e.size != ix->chunkSize + 8)
                Problem(where + " gives size " + std::to_string(e.size) + " for an index chunk of " +
                        std::to_string(ix->chunkSize + 8) + " bytes");
            if (ix->longsPerEntry != 2 || ix->type != 1 || ix->chunkId != x.chunkId)
                Problem("'" + ix->id + "'" + Where(e.offset) + " is not a standard index of '" + x.chunkId +
                        "'");
            std::uint64_t ixUnits = 0;
            for (std::size_t k = 0; k < ix->entries.size(); ++k) {
                const auto [offset, sizeField] = ix->entries[k];
                const std::uint32_t chunkBytes = sizeField & 0x7FFFFFFFu;
                const std::uint64_t header = ix->base + offset - 8;
                const auto chunk = chunks_.find(header);
                if (chunk == chunks_.end() || chunk->second.id != x.chunkId ||
                    chunk->second.size != chunkBytes) {
                    Problem("'" + ix->id + "'" + Where(e.offset) + " entry " + std::to_string(k) +
                            " points at " + std::to_string(header) + ", where there is no '" + x.chunkId +
                            "' chunk of " + std::to_string(chunkBytes) + " bytes");
                }
                ixUnits += 1;
                bytes += chunkBytes;
            }
            entries += ix->entries.size();
            if (e.duration != ixUnits && stream.type == "vids")
                Problem(where + " has duration " + std::to_string(e.duration) + " but its index lists " +
                        std::to_string(ixUnits) + " frames");
        }
        if (stream.type == "vids" && entries != stream.length)
            Problem("stream " + std::to_string(s) + ": strh length is " + std::to_string(stream.length) +
                    " but the indexes list " + std::to_string(entries) + " frames");
        if (stream.type == "vids" && duration != stream.length)
            Problem("stream " + std::to_string(s) + ": indx durations add up to " + std::to_string(duration) +
                    ", strh length is " + std::to_string(stream.length));
        // Fixed-size audio samples: the length counts samples of sample-size bytes.
        if (stream.type == "auds" && stream.sampleSize != 0 && bytes / stream.sampleSize != stream.length)
            Problem("stream " + std::to_string(s) + ": strh length is " + std::to_string(stream.length) +
                    " but the indexes list " + std::to_string(bytes / stream.sampleSize) + " samples");
        if (stream.type == "auds" && stream.sampleSize != 0 && duration != stream.length)
            Problem("stream " + std::to_string(s) + ": indx durations add up to " + std::to_string(duration) +
                    ", strh length is " + std::to_string(stream.length));
    }

    // The legacy index: offsets from the file start or from the "movi" form, whichever the file uses.
    if (idx1Position_ && !idx1_.empty()) {
        const std::uint64_t movi = moviFourcc_.empty() ? 0 : moviFourcc_[0];
        auto hits = [&](std::uint64_t base) {
            std::size_t n = 0;
            for (std::size_t i = 0; i < idx1_.size() && i < 16; ++i) {
                const auto c = chunks_.find(base + idx1_[i].offset);
                n += c != chunks_.end() && c->second.id == idx1_[i].id;
            }
            return n;
        };
        const std::uint64_t base = hits(0) >= hits(movi) ? 0 : movi;
        std::vector<std::uint64_t> perStream(streams_.size(), 0);
        for (std::size_t i = 0; i < idx1_.size(); ++i) {
            const Idx1Entry& e = idx1_[i];
            const auto c = chunks_.find(base + e.offset);
            if (c == chunks_.end() || c->second.id != e.id || c->second.size != e.size)
                Problem("idx1 entry " + std::to_string(i) + " ('" + e.id + "', " + std::to_string(e.size) +
                        " bytes) points at " + std::to_string(base + e.offset) +
                        ", where there is no such chunk");
            else if (c->second.segment != 0)
                Problem("idx1 entry " + std::to_string(i) + " points outside the first segment");
            if (const auto s = StreamOf(e.id))
                perStream[*s] += 1;
            else if (e.id.substr(2) != "ix" && e.id != "rec ")
                Problem("idx1 entry " + std::to_string(i) + " names '" + e.id +
                        "', which belongs to no stream");
        }
        // Without OpenDML indexes, idx1 alone must account for every video frame.
        for (std::size_t s = 0; s < streams_.size(); ++s) {
            if (!streams_[s].superIndex && streams_[s].type == "vids" && perStream[s] != streams_[s].length)
                Problem("stream " + std::to_string(s) + ": strh length is " +
                        std::to_string(streams_[s].length) + " but idx1 lists " +
                        std::to_string(perStream[s]) + " frames");
        }
        root_.Str("idx1_offsets", base == 0 ? "absolute" : "relative to movi");
    }

    // Total frames: avih counts every frame unless an OpenDML dmlh carries the total.
    if (avih_ && videoLength) {
        const std::uint32_t total = (*avih_)[4];
        if (dmlhFrames_) {
            if (*dmlhFrames_ != *videoLength)
                Problem("dmlh total frames is " + std::to_string(*dmlhFrames_) + ", the video strh length " +
                        std::to_string(*videoLength));
        } else if (total != *videoLength) {
            Problem("avih total frames is " + std::to_string(total) + ", the video strh length " +
                    std::to_string(*videoLength));
        }
    }
}

void PrintText(const Node& node, int depth, std::string& out) {
    out.append(static_cast<std::size_t>(depth) * 2, ' ');
    out += node.kind;
    for (const auto& [key, value] : node.fields)
        out += " " + key + "=" + value;
    out += "\n";
    // Long index listings stay readable: the first and last few entries.
    const std::size_t n = node.children.size();
    for (std::size_t i = 0; i < n; ++i) {
        if (node.kind == "chunk" && n > 12 && i == 4) {
            out.append(static_cast<std::size_t>(depth + 1) * 2, ' ');
            out += "... " + std::to_string(n - 8) + " more\n";
            i = n - 4;
        }
        PrintText(node.children[i], depth + 1, out);
    }
}

void PrintJson(const Node& node, std::string& out) {
    out += "{\"kind\":\"" + node.kind + "\"";
    for (const auto& [key, value] : node.fields)
        out += ",\"" + key + "\":" + value;
    if (!node.children.empty()) {
        out += ",\"children\":[";
        for (std::size_t i = 0; i < node.children.size(); ++i) {
            if (i)
                out += ",";
            PrintJson(node.children[i], out);
        }
        out += "]";
    }
    out += "}";
}

std::string JsonString(const std::string& text) {
    Node n;
    n.Str("s", text);
    return n.fields[0].second;
}

} // namespace

namespace {

constexpr const char* kHelp = "usage: qvnhost inspect FILE [--json]\n"
                              "Prints an AVI file's RIFF tree and checks its indexes (docs/avi-writer.md); "
                              "exit status 0 when they are\n"
                              "consistent, 1 when not or when the file is no AVI file, 2 for bad usage.\n"
                              "options:\n"
                              "  --json                  the tree and the problems as one JSON object\n"
                              "  -h, --help              this text\n";

} // namespace

int QvnInspectCommand(int argc, char** argv) {
    // The inspector stands alone (it links nothing of the host), so it spots --help itself.
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0)
            return std::fputs(kHelp, stdout), 0;
    }
    bool json = false;
    std::string path;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--json") {
            json = true;
        } else if (!arg.empty() && arg[0] == '-') {
            std::fprintf(
                stderr,
                "inspect: unknown option '%s' (usage: inspect FILE [--json]; qvnhost inspect --help)\n",
                arg.c_str());
            return 2;
        } else if (!path.empty()) {
            std::fprintf(stderr, "inspect: more than one file given ('%s' and '%s')\n", path.c_str(),
                         arg.c_str());
            return 2;
        } else {
            path = arg;
        }
    }
    if (path.empty()) {
        std::fprintf(stderr, "inspect: no file given (usage: inspect FILE [--json])\n");
        return 2;
    }
    Reader reader;
    if (!reader.Open(path)) {
        std::fprintf(stderr, "inspect: cannot open '%s'\n", path.c_str());
        return 1;
    }
    Inspector inspector(reader);
    inspector.root_.Str("path", path);
    const bool isAvi = inspector.Parse();
    if (!isAvi) {
        if (json)
            std::printf("{\"path\":%s,\"avi\":false,\"consistent\":false,\"problems\":[%s]}\n",
                        JsonString(path).c_str(), JsonString(inspector.fatal_).c_str());
        else
            std::printf("%s: %s\n", path.c_str(), inspector.fatal_.c_str());
        return 1;
    }
    inspector.Check();
    const std::vector<std::string>& problems = inspector.problems_;
    std::string out;
    if (json) {
        out += "{\"path\":" + JsonString(path) +
               ",\"avi\":true,\"consistent\":" + (problems.empty() ? "true" : "false");
        out += ",\"problems\":[";
        for (std::size_t i = 0; i < problems.size(); ++i)
            out += (i ? "," : "") + JsonString(problems[i]);
        out += "],\"tree\":";
        PrintJson(inspector.root_, out);
        out += "}\n";
    } else {
        PrintText(inspector.root_, 0, out);
        if (problems.empty()) {
            out += "consistent\n";
        } else {
            for (std::size_t i = 0; i < problems.size() && i < kMaxProblemLines; ++i)
                out += "problem: " + problems[i] + "\n";
            if (problems.size() > kMaxProblemLines)
                out += "problem: ... and " + std::to_string(problems.size() - kMaxProblemLines) + " more\n";
        }
    }
    std::fwrite(out.data(), 1, out.size(), stdout);
    return problems.empty() ? 0 : 1;
}
