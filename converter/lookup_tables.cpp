#include "converter/lookup_tables.h"

#include "converter/converter.h"
#include "converter/diagnostics.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <mutex>

namespace QVN::Converter::Video {
namespace {

constexpr std::uint32_t kFourCcV210 = 0x30313276; // "v210"
constexpr std::uint32_t kFourCcV211 = 0x31313276; // "v211"
constexpr const char* kInitName = "QVN::Converter::Video::r210::Init";

void* HeapAllocate(std::size_t bytes) {
    return std::malloc(bytes);
}

// Built once and kept for the life of the module; no conversion ever frees them.
std::uint16_t* sR210LUT = nullptr;
std::uint8_t* s8uComponentLUT = nullptr;
std::uint16_t* s16uComponentLUT = nullptr;
float* s32fComponentLUT = nullptr;

// The first build may race between host render threads, so it is done once under a lock; the flag lets
// every later call return without taking the lock.
std::atomic<bool> sTablesReady{false};
std::mutex sInitMutex;
detail::TableAllocator sAllocator = HeapAllocate;

// When the host unloads the module the tables go with it; otherwise every load and unload of the plug-in
// would leave 72 KB behind. Tables from a test allocator are that allocator's business.
struct TableOwner {
    TableOwner() = default;
    TableOwner(const TableOwner&) = delete;
    TableOwner& operator=(const TableOwner&) = delete;
    ~TableOwner() {
        if (sAllocator != HeapAllocate)
            return;
        std::free(sR210LUT);
        std::free(s8uComponentLUT);
        std::free(s16uComponentLUT);
        std::free(s32fComponentLUT);
        sR210LUT = nullptr;
        s8uComponentLUT = nullptr;
        s16uComponentLUT = nullptr;
        s32fComponentLUT = nullptr;
        sTablesReady.store(false);
    }
};
TableOwner sTableOwner;

void FillTables() {
    for (std::uint32_t i = 0; i < detail::kR210LutEntries; ++i) {
        // 16384 rounds the 0..32768 range onto 64..940; the clamp at 1019 is never reached.
        sR210LUT[i] = static_cast<std::uint16_t>(std::min(64u + ((876u * i + 16384u) >> 15), 1019u));
    }
    for (std::uint32_t code = 0; code < detail::kComponentLutEntries; ++code) {
        const std::uint32_t x = code > 64 ? code - 64 : 0;
        const std::uint32_t q = ((x << 15) + 438u) / 876u; // rounds x * 32768 / 876
        const std::uint32_t c16 = q >= 32768u ? 32768u : q;
        s16uComponentLUT[code] = static_cast<std::uint16_t>(c16);
        s8uComponentLUT[code] = static_cast<std::uint8_t>(q >= 32768u ? 255u : q >> 7);
        s32fComponentLUT[code] = static_cast<float>(c16) * 3.0517578e-5f;
    }
}

bool AllTablesSet() {
    return sR210LUT != nullptr && s8uComponentLUT != nullptr && s16uComponentLUT != nullptr &&
           s32fComponentLUT != nullptr;
}

std::int32_t BuildTables() {
    std::lock_guard<std::mutex> lock(sInitMutex);
    if (AllTablesSet()) {
        return kResultOk;
    }
    // Each pointer is stored as soon as it is obtained; a failure keeps the earlier ones, and the next
    // call allocates all four again.
    sR210LUT = static_cast<std::uint16_t*>(sAllocator(detail::kR210LutEntries * sizeof(std::uint16_t)));
    if (sR210LUT == nullptr) {
        detail::Diagnostic("*** %s[%d]: sR210LUT allocation failed\n", kInitName, 349);
        return kResultOutOfMemory;
    }
    s8uComponentLUT = static_cast<std::uint8_t*>(sAllocator(detail::kComponentLutEntries));
    if (s8uComponentLUT == nullptr) {
        detail::Diagnostic("*** %s[%d]: s8uComponentLUT allocation failed\n", kInitName, 353);
        return kResultOutOfMemory;
    }
    s16uComponentLUT =
        static_cast<std::uint16_t*>(sAllocator(detail::kComponentLutEntries * sizeof(std::uint16_t)));
    if (s16uComponentLUT == nullptr) {
        detail::Diagnostic("*** %s[%d]: s16uComponentLUT allocation failed\n", kInitName, 357);
        return kResultOutOfMemory;
    }
    s32fComponentLUT = static_cast<float*>(sAllocator(detail::kComponentLutEntries * sizeof(float)));
    if (s32fComponentLUT == nullptr) {
        detail::Diagnostic("*** %s[%d]: s32fComponentLUT allocation failed\n", kInitName, 361);
        return kResultOutOfMemory;
    }
    FillTables();
    sTablesReady.store(true, std::memory_order_release);
    return kResultOk;
}

} // namespace

std::int32_t r210::Init(std::uint32_t pixelFormat) {
    if (pixelFormat == kFourCcV210 || pixelFormat == kFourCcV211) {
        return kResultOk;
    }
    if (pixelFormat != kPixelFormatBgra8u && pixelFormat != kPixelFormatBgra16u &&
        pixelFormat != kPixelFormatBgra32f) {
        detail::Diagnostic("*** %s[%d]: Unsupported pixel format\n", kInitName, 341);
        return kResultUnsupportedFormat;
    }
    if (sTablesReady.load(std::memory_order_acquire)) {
        return kResultOk;
    }
    return BuildTables();
}

namespace detail {

const std::uint16_t* R210Lut() {
    return sR210LUT;
}
const std::uint8_t* Component8uLut() {
    return s8uComponentLUT;
}
const std::uint16_t* Component16uLut() {
    return s16uComponentLUT;
}
const float* Component32fLut() {
    return s32fComponentLUT;
}

void SetTableAllocatorForTesting(TableAllocator allocator) {
    std::lock_guard<std::mutex> lock(sInitMutex);
    sAllocator = allocator != nullptr ? allocator : HeapAllocate;
    sR210LUT = nullptr;
    s8uComponentLUT = nullptr;
    s16uComponentLUT = nullptr;
    s32fComponentLUT = nullptr;
    sTablesReady.store(false, std::memory_order_release);
}

} // namespace detail
} // namespace QVN::Converter::Video
