// CBaseStreamControl: gating by start and stop times, the send-extra sample, the events with their cookies
// (each sent once, pending ones at stop), GetInfo, and a discarding sample's wait while paused with a clock.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "dshow/base/media_sample.h"
#include "dshow/base/stream_control.h"

namespace {

// COM objects of the test's own, on its stack.
template <class Interface> struct OnStack : Interface {
    STDMETHODIMP QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
};

using Control = OnStack<CBaseStreamControl>;

struct EventSink : OnStack<IMediaEventSink> {
    std::vector<std::pair<long, LONG_PTR>> events; // code, cookie
    LONG_PTR sender = 0;
    STDMETHODIMP Notify(LONG code, LONG_PTR p1, LONG_PTR p2) override {
        events.emplace_back(code, p2);
        return sender = p1, S_OK;
    }
};

// Only its presence matters while paused: no stream time is read then.
struct Clock : OnStack<IReferenceClock> {
    STDMETHODIMP GetTime(REFERENCE_TIME* t) override { return *t = 0, S_OK; }
    STDMETHODIMP AdviseTime(REFERENCE_TIME, REFERENCE_TIME, HEVENT, DWORD_PTR*) override { return E_NOTIMPL; }
    STDMETHODIMP AdvisePeriodic(REFERENCE_TIME, REFERENCE_TIME, HSEMAPHORE, DWORD_PTR*) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP Unadvise(DWORD_PTR) override { return E_NOTIMPL; }
};

struct Sample {
    HRESULT hr = S_OK;
    CMediaSample s{L"timed", nullptr, &hr};
    CMediaSample* At(REFERENCE_TIME start, REFERENCE_TIME stop) {
        s.SetTime(&start, &stop);
        return &s;
    }
};

constexpr REFERENCE_TIME kNone = -1; // no call
constexpr REFERENCE_TIME kNow = -2;  // a null time

// The events as "+cookie" for a start and "-cookie" for a stop, in order.
std::string Events(const EventSink& sink) {
    std::string s;
    for (const auto& e : sink.events) {
        s += (e.first == EC_STREAM_CONTROL_STARTED   ? "+"
              : e.first == EC_STREAM_CONTROL_STOPPED ? "-"
                                                     : "?") +
             std::to_string(e.second);
    }
    return s;
}

TEST(StreamControl, GatesTenSamplesAndSendsEachEventOnceWithItsCookie) {
    const struct {
        const char* what;
        REFERENCE_TIME start;
        DWORD startCookie;
        REFERENCE_TIME stop;
        BOOL extra;
        DWORD stopCookie;
        unsigned delivered; // bit i: the sample [10i, 10i + 10) flowed
        const char* running;
        const char* atStop;
    } cases[] = {
        {"no gates", kNone, 0, kNone, FALSE, 0, 0x3FF, "", ""},
        {"start inside a sample", 35, 7, kNone, FALSE, 0, 0x3F8, "+7", ""},
        {"stop inside a sample", kNone, 0, 45, FALSE, 9, 0x01F, "-9", ""},
        {"stop with one extra", kNone, 0, 45, TRUE, 9, 0x03F, "-9", ""},
        {"stop on a sample start", kNone, 0, 50, TRUE, 9, 0x07F, "-9", ""},
        {"start then stop", 20, 1, 60, FALSE, 2, 0x07C, "+1-2", ""},
        {"stop then start", 60, 1, 20, FALSE, 2, 0x3C7, "-2+1", ""},
        {"stop then start in one sample", 57, 1, 52, FALSE, 2, 0x3FF, "-2+1", ""},
        {"cookie 0 sends nothing", kNone, 0, 45, FALSE, 0, 0x01F, "", ""},
        {"start now", kNow, 5, kNone, FALSE, 0, 0x3FF, "", ""},
        {"stop now", kNone, 0, kNow, TRUE, 5, 0x000, "", ""},
        {"cancelled stop", kNone, 0, MAXLONGLONG, FALSE, 5, 0x3FF, "", ""},
        {"gates never reached go out at stop", 1000, 3, 2000, FALSE, 4, 0x000, "", "+3-4"},
        {"later start goes out after the stop", 2000, 3, 1000, FALSE, 4, 0x3FF, "", "-4+3"},
        {"stop never reached goes out at stop", kNone, 0, 1000, FALSE, 4, 0x3FF, "", "-4"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Control control;
        EventSink sink;
        control.SetFilterGraph(&sink);
        if (c.start != kNone) {
            EXPECT_EQ(control.StartAt(c.start == kNow ? nullptr : &c.start, c.startCookie), S_OK);
        }
        if (c.stop != kNone) {
            EXPECT_EQ(control.StopAt(c.stop == kNow ? nullptr : &c.stop, c.extra, c.stopCookie), S_OK);
        }
        Sample sample;
        EXPECT_EQ(control.CheckStreamState(sample.At(0, 10)), CBaseStreamControl::STREAM_DISCARDING);
        control.NotifyFilterState(State_Paused);
        control.NotifyFilterState(State_Running, 0);
        unsigned delivered = 0;
        for (unsigned i = 0; i < 10; ++i) {
            const auto state = control.CheckStreamState(sample.At(10 * i, 10 * i + 10));
            delivered |= state == CBaseStreamControl::STREAM_FLOWING ? 1u << i : 0u;
        }
        EXPECT_EQ(delivered, c.delivered);
        EXPECT_EQ(Events(sink), c.running);
        sink.events.clear();
        control.NotifyFilterState(State_Stopped);
        EXPECT_EQ(Events(sink), c.atStop);
        if (*c.running != 0 || *c.atStop != 0) {
            EXPECT_EQ(sink.sender, reinterpret_cast<LONG_PTR>(static_cast<IAMStreamControl*>(&control)));
        }
    }
}

TEST(StreamControl, InfoUntimedSamplesFlushingAndThePausedWait) {
    Control control;
    const REFERENCE_TIME start = 35, stop = 45;
    control.StartAt(&start, 7);
    control.StopAt(&stop, TRUE, 9);
    AM_STREAM_INFO info{};
    EXPECT_EQ(control.GetInfo(nullptr), E_POINTER);
    EXPECT_EQ(control.GetInfo(&info), S_OK);
    EXPECT_EQ(std::tuple(info.tStart, info.tStop, info.dwStartCookie, info.dwStopCookie, info.dwFlags),
              std::tuple(REFERENCE_TIME{35}, REFERENCE_TIME{45}, DWORD{7}, DWORD{9},
                         static_cast<DWORD>(AM_STREAM_INFO_START_DEFINED | AM_STREAM_INFO_STOP_DEFINED |
                                            AM_STREAM_INFO_STOP_SEND_EXTRA | AM_STREAM_INFO_DISCARDING)));
    // A sample without times follows the current state; flushing discards everything.
    control.NotifyFilterState(State_Running, 0);
    HRESULT hr = S_OK;
    CMediaSample untimed(L"untimed", nullptr, &hr);
    EXPECT_EQ(control.CheckStreamState(&untimed), CBaseStreamControl::STREAM_DISCARDING);
    control.StartAt(nullptr, 0);
    EXPECT_EQ(control.CheckStreamState(&untimed), CBaseStreamControl::STREAM_FLOWING);
    EXPECT_EQ(control.CheckStreamState(nullptr), CBaseStreamControl::STREAM_FLOWING);
    control.Flushing(TRUE);
    EXPECT_EQ(control.CheckStreamState(&untimed), CBaseStreamControl::STREAM_DISCARDING);
    control.Flushing(FALSE);
    // Paused with a clock, a sample to discard is held until the decision can change.
    Clock clock;
    control.SetSyncSource(&clock);
    control.NotifyFilterState(State_Paused);
    control.StopAt(nullptr, FALSE, 0);
    Sample sample;
    std::atomic<int> answer{0};
    std::thread streaming([&] { answer = control.CheckStreamState(sample.At(0, 10)); });
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    EXPECT_EQ(answer.load(), 0);
    control.StartAt(nullptr, 0);
    streaming.join();
    EXPECT_EQ(answer.load(), CBaseStreamControl::STREAM_FLOWING);
    control.SetSyncSource(nullptr);
}

} // namespace
