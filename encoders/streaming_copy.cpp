#include "encoders/streaming_copy.h"

#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace QVN {

void StreamingCopy(void* destination, const void* source, std::size_t bytes) {
    // Below a few pages the cache is the better place for the data, and the fence costs more than it saves.
    constexpr std::size_t kStreamingFrom = 256 * 1024;
#if defined(__SSE2__)
    auto* d = static_cast<unsigned char*>(destination);
    const auto* s = static_cast<const unsigned char*>(source);
    if (bytes < kStreamingFrom) {
        std::memcpy(d, s, bytes);
        return;
    }
    // Cached copy up to the destination's next 64-byte boundary, then whole lines with streaming stores.
    const std::size_t head = (64 - reinterpret_cast<std::uintptr_t>(d) % 64) % 64;
    std::memcpy(d, s, head);
    d += head;
    s += head;
    bytes -= head;
    const std::size_t lines = bytes / 64;
    for (std::size_t i = 0; i < lines; ++i) {
        const auto* from = reinterpret_cast<const __m128i*>(s);
        auto* to = reinterpret_cast<__m128i*>(d);
        const __m128i a = _mm_loadu_si128(from);
        const __m128i b = _mm_loadu_si128(from + 1);
        const __m128i c = _mm_loadu_si128(from + 2);
        const __m128i e = _mm_loadu_si128(from + 3);
        _mm_stream_si128(to, a);
        _mm_stream_si128(to + 1, b);
        _mm_stream_si128(to + 2, c);
        _mm_stream_si128(to + 3, e);
        s += 64;
        d += 64;
    }
    _mm_sfence(); // the writer thread reads the payload after the queue hands it over
    std::memcpy(d, s, bytes % 64);
#else
    (void)kStreamingFrom;
    std::memcpy(destination, source, bytes);
#endif
}

} // namespace QVN
