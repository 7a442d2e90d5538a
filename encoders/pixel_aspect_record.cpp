#include "encoders/pixel_aspect_record.h"

#include <cstring>

#include "encoders/encoder_base.h"
#include "encoders/fourcc.h"
#include "platform/file.h"
#include "platform/text_encoding.h"

namespace QVN {
namespace {

void PutBigEndian(unsigned char* at, std::uint32_t value) {
    at[0] = static_cast<unsigned char>(value >> 24);
    at[1] = static_cast<unsigned char>(value >> 16);
    at[2] = static_cast<unsigned char>(value >> 8);
    at[3] = static_cast<unsigned char>(value);
}

void PutLittleEndian(unsigned char* at, std::uint32_t value) {
    std::memcpy(at, &value, 4);
}

} // namespace

std::uint32_t AppendPixelAspectRecord(const std::wstring& path, std::int32_t numerator,
                                      std::int32_t denominator) {
    unsigned char record[40];
    PutLittleEndian(record + 0, MakeFourCC("RIFF"));
    PutLittleEndian(record + 4, 32);
    PutLittleEndian(record + 8, MakeFourCC("AVIX"));
    PutLittleEndian(record + 12, MakeFourCC("PrmA"));
    PutLittleEndian(record + 16, 20);
    PutLittleEndian(record + 20, MakeFourCC("PARf"));
    // The host reads the payload of its own record big-endian.
    PutBigEndian(record + 24, 20);
    PutBigEndian(record + 28, 0x00010000u);
    PutBigEndian(record + 32, static_cast<std::uint32_t>(numerator));
    PutBigEndian(record + 36, static_cast<std::uint32_t>(denominator));

    const std::string narrow = WideToUtf8(path);
    CFile file;
    if (FAILED(file.Open(narrow.c_str(), FileCreation::kOpenAlways, FileBuffering::kCached)))
        return EncoderStatus::kFailed;
    if (FAILED(file.SeekToEnd()) || FAILED(file.Write(record, sizeof(record))))
        return EncoderStatus::kFailed;
    return FAILED(file.Close()) ? EncoderStatus::kFailed : EncoderStatus::kOk;
}

} // namespace QVN
