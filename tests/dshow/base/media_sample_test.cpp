// CMediaSample's stamps, flags and length rules with their exact result codes, its AM_SAMPLE2_PROPERTIES
// view (bit layout and refusals), and buffer re-pointing.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <functional>
#include <tuple>

#include "dshow/base/media_sample.h"

namespace {

constexpr LONG kSize = 100;

// A sample without an allocator deletes itself at the last Release.
struct Sample {
    BYTE buffer[kSize]{};
    HRESULT hr = S_OK;
    CMediaSample* s = new CMediaSample(L"test", nullptr, &hr, buffer, kSize);
    Sample() { s->AddRef(); }
    ~Sample() { s->Release(); }
    AM_SAMPLE2_PROPERTIES Props() {
        AM_SAMPLE2_PROPERTIES p{};
        EXPECT_EQ(s->GetProperties(sizeof(p), reinterpret_cast<BYTE*>(&p)), S_OK);
        return p;
    }
};

auto Fields(const AM_SAMPLE2_PROPERTIES& p) {
    return std::tuple(p.cbData, p.dwTypeSpecificFlags, p.dwSampleFlags, p.lActual, p.tStart, p.tStop,
                      p.dwStreamId, p.pMediaType, p.pbBuffer, p.cbBuffer);
}

TEST(MediaSample, TimesMediaTimesAndLengthAnswerTheDocumentedCodes) {
    constexpr LONGLONG N = -100; // a null pointer
    constexpr LONGLONG X = -200; // no call
    const struct {
        LONGLONG set[2][2]; // two SetTime calls, in order
        LONGLONG media[2];  // one SetMediaTime call
        HRESULT time;
        REFERENCE_TIME start, stop;
        HRESULT mediaTime;
    } cases[] = {
        {{{X, X}, {X, X}}, {X, X}, VFW_E_SAMPLE_TIME_NOT_SET, 0, 0, VFW_E_MEDIA_TIME_NOT_SET},
        {{{-5, N}, {X, X}}, {X, X}, VFW_S_NO_STOP_TIME, -5, -4, VFW_E_MEDIA_TIME_NOT_SET}, // stop = start + 1
        {{{10, 20}, {X, X}}, {X, X}, S_OK, 10, 20, VFW_E_MEDIA_TIME_NOT_SET},
        {{{10, 20}, {30, N}}, {X, X}, VFW_S_NO_STOP_TIME, 30, 31, VFW_E_MEDIA_TIME_NOT_SET},
        {{{10, 20}, {N, N}}, {X, X}, VFW_E_SAMPLE_TIME_NOT_SET, 0, 0, VFW_E_MEDIA_TIME_NOT_SET},
        {{{X, X}, {X, X}}, {7, 0x100000009LL}, VFW_E_SAMPLE_TIME_NOT_SET, 0, 0, S_OK},
        {{{X, X}, {X, X}}, {N, N}, VFW_E_SAMPLE_TIME_NOT_SET, 0, 0, VFW_E_MEDIA_TIME_NOT_SET},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        Sample x;
        for (const auto& set : c.set) {
            LONGLONG a = set[0], b = set[1];
            if (a != X)
                x.s->SetTime(a == N ? nullptr : &a, b == N ? nullptr : &b);
        }
        LONGLONG ma = c.media[0], mb = c.media[1];
        if (ma != X)
            x.s->SetMediaTime(ma == N ? nullptr : &ma, mb == N ? nullptr : &mb);
        REFERENCE_TIME start = 0, stop = 0;
        LONGLONG mstart = 0, mstop = 0;
        EXPECT_EQ(x.s->GetTime(&start, &stop), c.time);
        EXPECT_EQ(start, c.start);
        EXPECT_EQ(stop, c.stop);
        EXPECT_EQ(x.s->GetMediaTime(&mstart, &mstop), c.mediaTime);
        if (c.mediaTime == S_OK) {
            EXPECT_EQ(mstart, ma);
            EXPECT_EQ(mstop, mb);
        }
        // The properties carry the time flags as the documented AM_SAMPLE bits, never the media-time one.
        const DWORD flags = x.Props().dwSampleFlags;
        EXPECT_EQ((flags & AM_SAMPLE_TIMEVALID) != 0, c.time != VFW_E_SAMPLE_TIME_NOT_SET);
        EXPECT_EQ((flags & AM_SAMPLE_STOPVALID) != 0, c.time == S_OK);
        EXPECT_EQ(flags & 0x20u, 0u);
    }
    // Actual length: 0..size accepted, one past either end refused and nothing changed.
    Sample x;
    const struct {
        LONG length;
        HRESULT hr;
        LONG after;
    } lengths[] = {{kSize, S_OK, kSize},
                   {kSize + 1, VFW_E_BUFFER_OVERFLOW, kSize},
                   {0, S_OK, 0},
                   {-1, VFW_E_BUFFER_OVERFLOW, 0}};
    for (const auto& l : lengths) {
        EXPECT_EQ(x.s->SetActualDataLength(l.length), l.hr) << l.length;
        EXPECT_EQ(x.s->GetActualDataLength(), l.after) << l.length;
    }
}

TEST(MediaSample, FlagsMapToTheirPropertyBitsAndPropertiesRefuseWithoutChanging) {
    struct Flag {
        HRESULT (STDMETHODCALLTYPE CMediaSample::*is)();
        HRESULT (STDMETHODCALLTYPE CMediaSample::*set)(BOOL);
        DWORD bit;
    };
    const Flag flags[] = {
        {&CMediaSample::IsSyncPoint, &CMediaSample::SetSyncPoint, AM_SAMPLE_SPLICEPOINT},
        {&CMediaSample::IsPreroll, &CMediaSample::SetPreroll, AM_SAMPLE_PREROLL},
        {&CMediaSample::IsDiscontinuity, &CMediaSample::SetDiscontinuity, AM_SAMPLE_DATADISCONTINUITY}};
    for (const Flag& f : flags) { // each sets exactly its own bit; a braced list runs left to right
        Sample x;
        EXPECT_EQ((std::tuple{(x.s->*f.is)(), (x.s->*f.set)(TRUE), (x.s->*f.is)(), x.Props().dwSampleFlags,
                              (x.s->*f.set)(FALSE), (x.s->*f.is)(), x.Props().dwSampleFlags}),
                  (std::tuple{S_FALSE, S_OK, S_OK, f.bit, S_OK, S_FALSE, DWORD{0}}));
    }
    Sample x;
    REFERENCE_TIME a = 40, b = 80;
    x.s->SetTime(&a, &b);
    x.s->SetActualDataLength(60);
    const AM_SAMPLE2_PROPERTIES p = x.Props();
    EXPECT_EQ(Fields(p),
              std::tuple(static_cast<DWORD>(sizeof(p)), 0u,
                         static_cast<DWORD>(AM_SAMPLE_TIMEVALID | AM_SAMPLE_STOPVALID), 60,
                         REFERENCE_TIME{40}, REFERENCE_TIME{80}, static_cast<DWORD>(AM_STREAM_MEDIA),
                         static_cast<AM_MEDIA_TYPE*>(nullptr), static_cast<BYTE*>(x.buffer), kSize));
    // Each refused write leaves the sample exactly as it was.
    struct Refusal {
        const char* what;
        DWORD cb;
        std::function<void(AM_SAMPLE2_PROPERTIES&)> edit;
        HRESULT hr;
    };
    BYTE other[4];
    const Refusal refusals[] = {
        {"cbData larger than the structure", sizeof(p), [](auto& q) { q.cbData = sizeof(q) + 1; },
         E_INVALIDARG},
        {"more bytes than the structure", sizeof(p) + 8, [](auto&) {}, E_INVALIDARG},
        {"unknown flag", sizeof(p), [](auto& q) { q.dwSampleFlags |= 0x200; }, E_INVALIDARG},
        {"media-time bit", sizeof(p), [](auto& q) { q.dwSampleFlags |= 0x20; }, E_INVALIDARG},
        {"another buffer", sizeof(p), [&](auto& q) { q.pbBuffer = other; }, E_INVALIDARG},
        {"another size", sizeof(p), [](auto& q) { q.cbBuffer = kSize + 1; }, E_INVALIDARG},
        {"length past the buffer", sizeof(p), [](auto& q) { q.lActual = kSize + 1; }, E_INVALIDARG},
        {"type flag without a type", sizeof(p), [](auto& q) { q.dwSampleFlags |= AM_SAMPLE_TYPECHANGED; },
         E_POINTER},
    };
    for (const Refusal& r : refusals) {
        SCOPED_TRACE(r.what);
        BYTE bytes[sizeof(p) + 8] = {};
        AM_SAMPLE2_PROPERTIES q = p;
        q.tStart = 1;
        q.lActual = 2;
        r.edit(q);
        std::memcpy(bytes, &q, sizeof(q));
        EXPECT_EQ(x.s->SetProperties(r.cb, bytes), r.hr);
        EXPECT_EQ(Fields(x.Props()), Fields(p));
    }
    // Valid times need the times themselves, unless the sample already has them.
    Sample fresh;
    AM_SAMPLE2_PROPERTIES q{};
    q.cbData = offsetof(AM_SAMPLE2_PROPERTIES, tStart);
    q.dwSampleFlags = AM_SAMPLE_TIMEVALID;
    EXPECT_EQ(fresh.s->SetProperties(q.cbData, reinterpret_cast<BYTE*>(&q)), E_INVALIDARG);
    // A write of the leading fields (as cbData says) changes only those: times and flags in, the rest kept.
    q = AM_SAMPLE2_PROPERTIES{};
    q.cbData = offsetof(AM_SAMPLE2_PROPERTIES, dwStreamId);
    q.dwSampleFlags = AM_SAMPLE_TIMEVALID | AM_SAMPLE_SPLICEPOINT;
    q.lActual = 9;
    q.tStart = 300;
    q.tStop = 400;
    q.dwStreamId = AM_STREAM_CONTROL; // past cbData: not taken, though cbProperties reaches it
    EXPECT_EQ(fresh.s->SetProperties(sizeof(q), reinterpret_cast<BYTE*>(&q)), S_OK);
    REFERENCE_TIME s0 = 0, s1 = 0;
    EXPECT_EQ(fresh.s->GetTime(&s0, &s1), VFW_S_NO_STOP_TIME);
    EXPECT_EQ(std::tuple(s0, fresh.s->IsSyncPoint(), fresh.s->GetActualDataLength()),
              std::tuple(300, S_OK, 9));
    EXPECT_EQ(fresh.Props().pbBuffer, fresh.buffer);
    EXPECT_EQ(fresh.Props().dwStreamId, static_cast<DWORD>(AM_STREAM_MEDIA));
}

TEST(MediaSample, MediaTypeIsCopiedInAndOutAndSetPointerReplacesTheBuffer) {
    Sample x;
    AM_MEDIA_TYPE* none = reinterpret_cast<AM_MEDIA_TYPE*>(1);
    EXPECT_EQ(x.s->GetMediaType(&none), S_FALSE);
    EXPECT_EQ(none, nullptr);
    BYTE format[3] = {1, 2, 3};
    AM_MEDIA_TYPE mt{};
    mt.majortype = MEDIATYPE_Video;
    mt.cbFormat = sizeof(format);
    mt.pbFormat = format;
    EXPECT_EQ(x.s->SetMediaType(&mt), S_OK);
    EXPECT_EQ(x.Props().dwSampleFlags, static_cast<DWORD>(AM_SAMPLE_TYPECHANGED));
    format[0] = 9; // the sample holds its own copy
    AM_MEDIA_TYPE* got = nullptr;
    ASSERT_EQ(x.s->GetMediaType(&got), S_OK);
    EXPECT_TRUE(IsEqualGUID(got->majortype, MEDIATYPE_Video));
    ASSERT_EQ(got->cbFormat, 3u);
    EXPECT_EQ(got->pbFormat[0], 1);
    EXPECT_NE(got->pbFormat, x.Props().pMediaType->pbFormat); // the caller's own copy
    CoTaskMemFree(got->pbFormat);
    CoTaskMemFree(got);
    EXPECT_EQ(x.s->SetMediaType(nullptr), S_OK);
    EXPECT_EQ(x.s->GetMediaType(&got), S_FALSE);
    BYTE other[10];
    EXPECT_EQ(x.s->SetPointer(other, 10), S_OK);
    BYTE* p = nullptr;
    EXPECT_EQ(x.s->GetPointer(&p), S_OK);
    EXPECT_EQ(std::tuple(p, x.s->GetSize(), x.s->GetActualDataLength()), std::tuple(other, 10, 10));
    EXPECT_EQ(x.s->SetActualDataLength(11), VFW_E_BUFFER_OVERFLOW);
    EXPECT_EQ(x.s->SetPointer(nullptr, -1), VFW_E_BUFFER_OVERFLOW);
    EXPECT_EQ(x.s->SetPointer(nullptr, 0), S_OK);
    EXPECT_EQ(x.s->GetSize(), 0);
    HRESULT hr = S_OK;
    CMediaSample* bad = new CMediaSample(L"negative", nullptr, &hr, nullptr, -1);
    EXPECT_EQ(hr, VFW_E_BUFFER_OVERFLOW);
    EXPECT_EQ(bad->GetSize(), 0);
    delete bad;
}

} // namespace
