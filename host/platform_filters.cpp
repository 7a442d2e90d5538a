#include "host/platform_filters.h"

#ifdef _WIN32
#include <cstdio>

#include "host/dshow_standins/file_writer_standin.h"
#include "host/dshow_standins/smart_tee_standin.h"
#ifdef QVN_STANDIN_ENCODERS
#include "host/dshow_standins/dv_encoder_standin.h"
#include "host/dshow_standins/motion_jpeg_standin.h"
#endif
#endif

namespace qvnhost {

#ifdef _WIN32
struct PlatformFilters::Registrations {
    qvn_standins::FileWriterStandInRegistration fileWriter;
    qvn_standins::SmartTeeStandInRegistration smartTee;
#ifdef QVN_STANDIN_ENCODERS
    qvn_standins::DvEncoderStandInRegistration dvEncoder;
    qvn_standins::MotionJpegStandInRegistration motionJpeg;
#endif
};

namespace {

void Register(qvn_standins::StandInRegistration& registration, const char* name, bool force,
              std::vector<std::string>* registered, std::vector<std::string>* problems) {
    const HRESULT hr = registration.Register(force);
    if (hr == S_OK) {
        registered->push_back(name);
    } else if (FAILED(hr)) {
        char line[160];
        std::snprintf(line, sizeof(line), "the %s stand-in could not be registered (0x%08lX)", name,
                      static_cast<unsigned long>(hr));
        problems->push_back(line);
    }
}

} // namespace

PlatformFilters::PlatformFilters(bool force) {
    // The module's graph lives in this thread's apartment; one made by the host before stays as it is.
    comInitialised_ = SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    registrations_ = std::make_unique<Registrations>();
    Register(registrations_->fileWriter, "File Writer", force, &registered_, &problems_);
    Register(registrations_->smartTee, "Smart Tee", force, &registered_, &problems_);
#ifdef QVN_STANDIN_ENCODERS
    Register(registrations_->dvEncoder, "DV Video Encoder", force, &registered_, &problems_);
    Register(registrations_->motionJpeg, "Motion JPEG compressor", force, &registered_, &problems_);
#endif
}

PlatformFilters::~PlatformFilters() {
    registrations_.reset();
    if (comInitialised_) {
        CoUninitialize();
    }
}
#else
struct PlatformFilters::Registrations {};

PlatformFilters::PlatformFilters(bool) {}
PlatformFilters::~PlatformFilters() = default;
#endif

} // namespace qvnhost
