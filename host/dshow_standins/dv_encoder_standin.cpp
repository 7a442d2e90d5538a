#include "host/dshow_standins/dv_encoder_standin.h"

#include <new>

#include "dshow/base/class_factory.h"
#include "host/dshow_standins/compressor_standin.h"

namespace qvn_standins {

const CLSID kClsidDvVideoEncoder = {
    0x13aa3650, 0xbb6f, 0x11d0, {0xaf, 0xb9, 0x00, 0xaa, 0x00, 0xb6, 0x7a, 0x42}};

namespace {

constexpr DWORD kDvsd = 'd' | 'v' << 8 | 's' << 16 | static_cast<DWORD>('d') << 24;

class CDvEncoderStandIn : public CCompressorStandIn, public IDVEnc {
public:
    explicit CDvEncoderStandIn(HRESULT*)
        : CCompressorStandIn(L"DV Video Encoder stand-in", kClsidDvVideoEncoder, kDvsd) {}

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID iid, void** object) override {
        if (object == nullptr) {
            return E_POINTER;
        }
        if (IsEqualIID(iid, IID_IDVEnc)) {
            return GetInterface(static_cast<IDVEnc*>(this), object);
        }
        return CCompressorStandIn::NonDelegatingQueryInterface(iid, object);
    }

    HRESULT WINAPI get_IFormatResolution(int* videoFormat, int* dvFormat, int* resolution, BYTE fDVInfo,
                                         DVINFO* info) override {
        if (videoFormat == nullptr || dvFormat == nullptr || resolution == nullptr ||
            (fDVInfo != 0 && info == nullptr)) {
            return E_POINTER;
        }
        CAutoLock hold(m_csFilter);
        *videoFormat = videoFormat_;
        *dvFormat = DVENCODERFORMAT_DVSD;
        *resolution = DVENCODERRESOLUTION_720x480;
        if (fDVInfo != 0) {
            *info = DVINFO{};
        }
        return S_OK;
    }
    // Only the full-resolution DVSD format is made; the video format decides the frame size taken.
    HRESULT WINAPI put_IFormatResolution(int videoFormat, int dvFormat, int resolution, BYTE,
                                         DVINFO*) override {
        if ((videoFormat != DVENCODERVIDEOFORMAT_NTSC && videoFormat != DVENCODERVIDEOFORMAT_PAL) ||
            dvFormat != DVENCODERFORMAT_DVSD || resolution != DVENCODERRESOLUTION_720x480) {
            return E_INVALIDARG;
        }
        CAutoLock hold(m_csFilter);
        if (m_pInput != nullptr && m_pInput->IsConnected()) {
            return VFW_E_ALREADY_CONNECTED;
        }
        videoFormat_ = videoFormat;
        return S_OK;
    }

protected:
    bool TakesPicture(LONG width, LONG height) const override {
        return width == 720 && height == (Pal() ? 576 : 480);
    }
    LONG FixedFrameBytes(LONG, LONG) const override { return Pal() ? 144000 : 120000; }
    FrameCompressorSettings Settings(LONG width, LONG height) const override {
        FrameCompressorSettings settings;
        settings.codec =
            Pal() ? FrameCompressorSettings::Codec::DvPal : FrameCompressorSettings::Codec::DvNtsc;
        settings.width = width;
        settings.height = height;
        return settings;
    }

private:
    bool Pal() const { return videoFormat_ == DVENCODERVIDEOFORMAT_PAL; }
    int videoFormat_ = DVENCODERVIDEOFORMAT_NTSC;
};

const CFactoryTemplate kTemplate = {L"DV Video Encoder", &kClsidDvVideoEncoder,
                                    CreateStandIn<CDvEncoderStandIn>, nullptr, nullptr};

bool PlatformHasDvEncoder() {
    return PlatformCanCreate(kClsidDvVideoEncoder);
}

} // namespace

DvEncoderStandInRegistration::DvEncoderStandInRegistration()
    : StandInRegistration(&kTemplate, PlatformHasDvEncoder) {}

} // namespace qvn_standins
