// The encoder allocator through its COM interfaces: the property rules it shares with the platform's memory
// allocator, its fixed answer of 10 buffers, and a sample's round trip from the producer to downstream and
// its buffer back.
#include <vector>

#include <gtest/gtest.h>

#include "dshow/encoder_allocator.h"

namespace {

TEST(EncoderAllocator, PropertiesRoundTripAndDecommitWithASampleOut) {
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
    const LONG baseline = CBaseObject::ObjectsActive();
    HRESULT hr = S_OK;
    auto* allocator = new CEncoderAllocator(L"test", &hr);
    ASSERT_EQ(S_OK, hr);
    allocator->AddRef();
    IEncoderAllocator* producer = nullptr;
    ASSERT_EQ(S_OK, allocator->QueryInterface(IID_IEncoderAllocator, reinterpret_cast<void**>(&producer)));

    struct Case {
        ALLOCATOR_PROPERTIES request;
        HRESULT expected;
        LONG buffer; // granted buffer size
    } cases[] = {
        {{30, 100, 3, 0}, VFW_E_BADALIGN, 0},
        {{30, 100, 8192, 0}, VFW_E_BADALIGN, 0}, // larger than a page
        {{30, 100, 0, 0}, VFW_E_BADALIGN, 0},
        {{30, 100, 16, 8}, S_OK, 104}, // prefix + buffer rounded up to whole units
        {{4, 4096, 4096, 0}, S_OK, 4096},
    };
    for (const Case& c : cases) {
        ALLOCATOR_PROPERTIES request = c.request, actual{};
        EXPECT_EQ(c.expected, allocator->SetProperties(&request, &actual)) << c.request.cbAlign;
        EXPECT_EQ(c.buffer, actual.cbBuffer) << c.request.cbAlign;
    }
    ALLOCATOR_PROPERTIES thirty{30, 100, 16, 0}, actual{};
    ASSERT_EQ(S_OK, allocator->SetProperties(&thirty, &actual));
    EXPECT_EQ(30, actual.cBuffers);
    ALLOCATOR_PROPERTIES got{};
    ASSERT_EQ(S_OK, allocator->GetProperties(&got));
    EXPECT_EQ(10, got.cBuffers) << "a fixed answer, whatever was set";
    EXPECT_EQ(112, got.cbBuffer);

    IMediaSample* sample = nullptr;
    CMediaSample* empty = nullptr;
    EXPECT_EQ(VFW_E_NOT_COMMITTED, allocator->GetBuffer(&sample, nullptr, nullptr, 0));
    EXPECT_EQ(VFW_E_NOT_COMMITTED, producer->TakeFreeSample(&empty));
    ASSERT_EQ(S_OK, allocator->Commit());
    EXPECT_EQ(VFW_E_ALREADY_COMMITTED, allocator->SetProperties(&thirty, &actual));
    EXPECT_EQ(VFW_E_TIMEOUT, allocator->GetBuffer(&sample, nullptr, nullptr, AM_GBF_NOWAIT));

    BYTE frame[112];
    ASSERT_EQ(S_OK, producer->TakeFreeSample(&empty));
    empty->SetPointer(frame, sizeof(frame));
    ASSERT_EQ(S_OK, producer->QueueSample(empty));
    ASSERT_EQ(S_OK, allocator->GetBuffer(&sample, nullptr, nullptr, AM_GBF_NOWAIT));
    EXPECT_EQ(static_cast<IMediaSample*>(empty), sample);
    // Downstream holds the sample across a decommit: the samples stay until it comes back.
    ASSERT_EQ(S_OK, allocator->Decommit());
    IMediaSample* none = nullptr;
    EXPECT_EQ(VFW_E_NOT_COMMITTED, allocator->GetBuffer(&none, nullptr, nullptr, 0));
    std::vector<void*> back;
    EXPECT_EQ(S_OK, producer->ReclaimBuffers(back));
    EXPECT_TRUE(back.empty()) << "nothing released yet";
    EXPECT_EQ(0u, sample->Release());
    EXPECT_EQ(S_OK, producer->ReclaimBuffers(back));
    EXPECT_EQ(std::vector<void*>{frame}, back);
    EXPECT_EQ(S_OK, producer->ReclaimBuffers(back));
    EXPECT_EQ(1u, back.size()) << "each released buffer comes back once";

    producer->Release();
    EXPECT_EQ(0u, allocator->Release());
    EXPECT_EQ(baseline, CBaseObject::ObjectsActive()) << "the allocator and its samples are gone";
    CoUninitialize();
}

} // namespace
