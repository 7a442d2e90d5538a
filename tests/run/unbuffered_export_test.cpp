// A whole export seen at the system calls (this program is linked with --wrap=open and --wrap=pwrite):
// every byte of every video payload reaches the disk through the descriptor opened for direct I/O, and
// through no other; that descriptor stays direct to the end, and it was opened create-always, as the
// writer opens it on Windows too (where only a file being created takes the not-content-indexed attribute).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <sys/types.h>
#include <unistd.h>
#include <vector>

#include "exporter/codec_catalogue.h"
#include "platform/file.h"
#include "scripted_host.h"

namespace {

struct Write {
    int fd;
    bool direct; // O_DIRECT set on the descriptor when it wrote
    std::uint64_t at, size;
};

std::mutex gMutex;
bool gRecording = false;
std::vector<Write> gWrites;
std::map<int, int> gOpenFlags; // descriptor -> flags it was opened with

} // namespace

extern "C" {
int __real_open(const char* path, int flags, ...);
ssize_t __real_pwrite(int fd, const void* data, size_t size, off_t at);

int __wrap_open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if (flags & O_CREAT) {
        va_list args;
        va_start(args, flags);
        mode = static_cast<mode_t>(va_arg(args, int));
        va_end(args);
    }
    const int fd = __real_open(path, flags, mode);
    std::lock_guard<std::mutex> hold(gMutex);
    if (fd >= 0 && gRecording)
        gOpenFlags[fd] = flags;
    return fd;
}

ssize_t __wrap_pwrite(int fd, const void* data, size_t size, off_t at) {
    const ssize_t n = __real_pwrite(fd, data, size, at);
    const bool direct = (fcntl(fd, F_GETFL) & O_DIRECT) != 0;
    std::lock_guard<std::mutex> hold(gMutex);
    if (n > 0 && gRecording)
        gWrites.push_back({fd, direct, static_cast<std::uint64_t>(at), static_cast<std::uint64_t>(n)});
    return n;
}
} // extern "C"

namespace {

std::uint32_t U32(const std::vector<char>& b, std::uint64_t at) {
    std::uint32_t v = 0;
    std::copy_n(b.begin() + static_cast<std::ptrdiff_t>(at), 4, reinterpret_cast<char*>(&v));
    return v;
}

TEST(UnbufferedExport, EveryVideoPayloadGoesThroughTheDirectDescriptorOpenedCreateAlways) {
    scripted::Script script;
    script.codec = QVN::FourCC("v210");
    script.width = 320; // 215,040-byte frames: 52 whole blocks and a tail
    script.height = 240;
    script.path = "qvn_unbuffered_" + std::to_string(getpid()) + ".avi";
    scripted::Record record;
    const auto recording = [](bool on) {
        std::lock_guard<std::mutex> hold(gMutex);
        gRecording = on;
    };
    recording(true);
    ASSERT_EQ(scripted::RunExport(script, 0, 12, true, true, &record), 0);
    recording(false);
    std::ifstream in(script.path, std::ios::binary);
    const std::vector<char> b{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    QVN::DeleteFileUtf8(script.path.c_str());
    // The video payloads, from the file's idx1 (absolute chunk header positions).
    std::uint64_t at = 12;
    while (at + 8 <= b.size() && U32(b, at) != QVN::FourCC("idx1"))
        at += 8 + ((U32(b, at + 4) + 1) & ~1u);
    ASSERT_LT(at, b.size()) << "no idx1";
    std::vector<std::pair<std::uint64_t, std::uint64_t>> payloads;
    for (std::uint64_t e = at + 8; e < at + 8 + U32(b, at + 4); e += 16) {
        if (U32(b, e) == QVN::FourCC("00db"))
            payloads.emplace_back(U32(b, e + 8) + 8, U32(b, e + 12));
    }
    ASSERT_EQ(payloads.size(), 12u);
    const auto direct =
        std::find_if(gOpenFlags.begin(), gOpenFlags.end(), [](auto& f) { return f.second & O_DIRECT; });
    const int directFd = direct == gOpenFlags.end() ? -1 : direct->first;
    ASSERT_NE(directFd, -1) << "no descriptor was opened for direct I/O";
    EXPECT_EQ(gOpenFlags[directFd] & (O_CREAT | O_TRUNC), O_CREAT | O_TRUNC) << "opened create-always";
    for (const auto& [start, size] : payloads) {
        std::uint64_t covered = start; // direct writes are block-aligned and in order within a payload
        for (const Write& w : gWrites) {
            if (w.at >= start + size || start >= w.at + w.size)
                continue; // no overlap
            EXPECT_TRUE(w.fd == directFd && w.direct)
                << "payload at " << start << " written through " << w.fd;
            if (w.at <= covered && w.at + w.size > covered)
                covered = w.at + w.size;
        }
        EXPECT_GE(covered, start + size) << "payload at " << start << " not wholly written direct";
    }
}

} // namespace
