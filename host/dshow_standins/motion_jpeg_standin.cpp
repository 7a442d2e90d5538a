#include "host/dshow_standins/motion_jpeg_standin.h"

#include <new>

#include "dshow/base/class_factory.h"
#include "host/dshow_standins/compressor_standin.h"

namespace qvn_standins {

const CLSID kClsidMotionJpegCompressor = {
    0x6c2f1a93, 0x4d07, 0x4b8e, {0x9a, 0x61, 0x3e, 0x5b, 0x2c, 0x7d, 0x0f, 0x18}};

namespace {

constexpr DWORD kMjpg = 'M' | 'J' << 8 | 'P' << 16 | static_cast<DWORD>('G') << 24;
constexpr double kDefaultQuality = 0.75;

class CMotionJpegStandIn : public CCompressorStandIn, public IAMVideoCompression {
public:
    explicit CMotionJpegStandIn(HRESULT*)
        : CCompressorStandIn(L"Motion JPEG compressor stand-in", kClsidMotionJpegCompressor, kMjpg) {}

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID iid, void** object) override {
        if (object == nullptr) {
            return E_POINTER;
        }
        if (IsEqualIID(iid, IID_IAMVideoCompression)) {
            return GetInterface(static_cast<IAMVideoCompression*>(this), object);
        }
        return CCompressorStandIn::NonDelegatingQueryInterface(iid, object);
    }

    // Every frame is a key frame and there are no predicted frames: those settings do not apply.
    STDMETHODIMP put_KeyFrameRate(LONG) override { return E_NOTIMPL; }
    STDMETHODIMP get_KeyFrameRate(LONG*) override { return E_NOTIMPL; }
    STDMETHODIMP put_PFramesPerKeyFrame(LONG) override { return E_NOTIMPL; }
    STDMETHODIMP get_PFramesPerKeyFrame(LONG*) override { return E_NOTIMPL; }
    STDMETHODIMP put_WindowSize(DWORDLONG) override { return E_NOTIMPL; }
    STDMETHODIMP get_WindowSize(DWORDLONG*) override { return E_NOTIMPL; }
    STDMETHODIMP OverrideKeyFrame(LONG) override { return E_NOTIMPL; }
    STDMETHODIMP OverrideFrameSize(LONG, LONG) override { return E_NOTIMPL; }

    // A negative quality asks for the default; above 1 is an error. Taken at the next start of streaming.
    STDMETHODIMP put_Quality(double quality) override {
        if (quality > 1.0 || quality != quality) {
            return E_INVALIDARG;
        }
        CAutoLock hold(m_csFilter);
        quality_ = quality < 0.0 ? kDefaultQuality : quality;
        return S_OK;
    }
    STDMETHODIMP get_Quality(double* quality) override {
        if (quality == nullptr) {
            return E_POINTER;
        }
        CAutoLock hold(m_csFilter);
        *quality = quality_;
        return S_OK;
    }
    STDMETHODIMP GetInfo(LPWSTR version, int* versionSize, LPWSTR description, int* descriptionSize,
                         LONG* keyFrameRate, LONG* pFramesPerKey, double* quality,
                         LONG* capabilities) override {
        Copy(L"1.0", version, versionSize);
        Copy(L"Motion JPEG compressor (libavcodec)", description, descriptionSize);
        if (keyFrameRate != nullptr) {
            *keyFrameRate = 1;
        }
        if (pFramesPerKey != nullptr) {
            *pFramesPerKey = 0;
        }
        if (quality != nullptr) {
            *quality = kDefaultQuality;
        }
        if (capabilities != nullptr) {
            *capabilities = CompressionCaps_CanQuality;
        }
        return S_OK;
    }

protected:
    bool TakesPicture(LONG width, LONG height) const override {
        return width >= 16 && width <= 4096 && width % 2 == 0 && height >= 16 && height <= 4096;
    }
    LONG FixedFrameBytes(LONG, LONG) const override { return 0; }
    FrameCompressorSettings Settings(LONG width, LONG height) const override {
        FrameCompressorSettings settings;
        settings.codec = FrameCompressorSettings::Codec::MotionJpeg;
        settings.width = width;
        settings.height = height;
        settings.jpegQuantiser = FrameCompressor::QuantiserForQuality(quality_);
        return settings;
    }

private:
    // GetInfo's strings: sizes in bytes, as the interface counts them.
    static void Copy(const wchar_t* text, LPWSTR to, int* size) {
        if (size == nullptr) {
            return;
        }
        const int needed = static_cast<int>((wcslen(text) + 1) * sizeof(wchar_t));
        if (to != nullptr && *size >= needed) {
            wcscpy(to, text);
        }
        *size = needed;
    }

    double quality_ = kDefaultQuality;
};

const CFactoryTemplate kTemplate = {L"Motion JPEG compressor", &kClsidMotionJpegCompressor,
                                    CreateStandIn<CMotionJpegStandIn>, nullptr, nullptr};

bool PlatformHasMotionJpegCompressor() {
    return PlatformCanCreate(kClsidMotionJpegCompressor);
}

} // namespace

MotionJpegStandInRegistration::MotionJpegStandInRegistration()
    : StandInRegistration(&kTemplate, PlatformHasMotionJpegCompressor) {}

} // namespace qvn_standins
