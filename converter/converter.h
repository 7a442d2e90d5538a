// Host BGRA frames to the capture cards' v210, r210 and UYVY layouts.
//
// The three entry points share one argument list. The source is bottom-up (srcPtr is the first row in
// memory, the bottom of the picture); the destination is written top-down. Results: 0, or 12 when the
// r210 tables could not be allocated, or 22 for an unsupported pixel format. Nothing is thrown.
#pragma once

#include <cstdint>

namespace QVN::Converter::Video {

// Host pixel formats: the four bytes, lowest address first, spell the host's four-character code.
inline constexpr std::uint32_t kPixelFormatBgra8u = 0x61726762;  // "bgra"
inline constexpr std::uint32_t kPixelFormatBgra16u = 0x61726742; // "Bgra", components 0..32768
inline constexpr std::uint32_t kPixelFormatBgra32f = 0x61724742; // "BGra", components 0.0..1.0

inline constexpr std::int32_t kResultOk = 0;
inline constexpr std::int32_t kResultOutOfMemory = 12;
inline constexpr std::int32_t kResultUnsupportedFormat = 22;

// colorMatrix: 1 standard definition, 2 high definition, anything else chooses by width (<= 720 SD).
inline constexpr std::uint32_t kMatrixByWidth = 0;
inline constexpr std::uint32_t kMatrixStandardDefinition = 1;
inline constexpr std::uint32_t kMatrixHighDefinition = 2;

// pathMode: 0 chooses by buffer alignment, 1 forces the scalar kernels, anything else forces the vector
// kernels without the alignment tests.
inline constexpr std::uint32_t kPathAuto = 0;
inline constexpr std::uint32_t kPathScalar = 1;
inline constexpr std::uint32_t kPathVector = 2;

namespace v210 {
std::int32_t CreateFrom(const void* srcPtr, std::uint32_t srcRowBytes, std::uint32_t pixelFormat,
                        void* dstPtr, std::uint32_t dstRowBytes, std::int32_t width, std::int32_t height,
                        std::uint32_t colorMatrix, std::uint32_t pathMode);
} // namespace v210

namespace r210 {
// Builds the process-wide look-up tables on first need. Returns 0, 12 or 22.
std::int32_t Init(std::uint32_t pixelFormat);

// colorMatrix is accepted for the shared argument list and ignored: r210 applies no matrix.
std::int32_t CreateFrom(const void* srcPtr, std::uint32_t srcRowBytes, std::uint32_t pixelFormat,
                        void* dstPtr, std::uint32_t dstRowBytes, std::int32_t width, std::int32_t height,
                        std::uint32_t colorMatrix, std::uint32_t pathMode);
} // namespace r210

namespace uyvy {
std::int32_t CreateFrom(const void* srcPtr, std::uint32_t srcRowBytes, std::uint32_t pixelFormat,
                        void* dstPtr, std::uint32_t dstRowBytes, std::int32_t width, std::int32_t height,
                        std::uint32_t colorMatrix, std::uint32_t pathMode);
} // namespace uyvy

} // namespace QVN::Converter::Video
