// CMemAllocator: property refusals and rounding, decommit with samples out (the allocator outlives its last
// reference until the last sample is back), a recommit cancelling a pending decommit, the release callback.
#include <gtest/gtest.h>

#include <atomic>
#include <tuple>
#include <utility>

#include "dshow/base/base_allocator.h"

namespace {

// Counts the calls that let the samples' memory go.
struct CountingAllocator : CMemAllocator {
    explicit CountingAllocator(HRESULT* phr) : CMemAllocator(L"test", nullptr, phr) {}
    int frees = 0;
    void Free() override {
        ++frees;
        CMemAllocator::Free();
    }
};

HRESULT Set(IMemAllocator* a, ALLOCATOR_PROPERTIES request, ALLOCATOR_PROPERTIES* actual = nullptr) {
    ALLOCATOR_PROPERTIES ignored{};
    return a->SetProperties(&request, actual != nullptr ? actual : &ignored);
}

IMediaSample* Get(IMemAllocator* a, HRESULT expected = S_OK) {
    IMediaSample* s = reinterpret_cast<IMediaSample*>(1);
    EXPECT_EQ(a->GetBuffer(&s, nullptr, nullptr, AM_GBF_NOWAIT), expected);
    return s;
}

struct ReleaseCounter : IMemAllocatorNotifyCallbackTemp {
    IMemAllocatorCallbackTemp* allocator = nullptr;
    std::atomic<int> calls{0};
    LONG freeSeen = -1;
    STDMETHODIMP QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP NotifyRelease() override {
        calls++;
        allocator->GetFreeCount(&freeSeen); // calling back in must not deadlock
        return S_OK;
    }
};

TEST(Allocator, PropertiesAreRefusedWithTheirCodesAndRoundedToTheAlignment) {
    HRESULT hr = S_OK;
    CountingAllocator* x = new CountingAllocator(&hr);
    x->AddRef();
    ALLOCATOR_PROPERTIES actual{};
    EXPECT_EQ(x->SetProperties(nullptr, &actual), E_POINTER);
    const struct {
        ALLOCATOR_PROPERTIES request;
        HRESULT hr;
        LONG size; // actual cbBuffer when accepted
    } cases[] = {
        {{2, 100, 0, 0}, VFW_E_BADALIGN, 0},  {{2, 100, 3, 0}, VFW_E_BADALIGN, 0},
        {{2, 100, 24, 0}, VFW_E_BADALIGN, 0}, {{2, 100, 131072, 0}, VFW_E_BADALIGN, 0},
        {{2, 100, 1, 0}, S_OK, 100},          {{2, 100, 16, 0}, S_OK, 112},
        {{2, 100, 16, 8}, S_OK, 104},         {{2, 112, 16, 0}, S_OK, 112},
        {{2, 97, 65536, 0}, S_OK, 65536},
    };
    for (const auto& c : cases) {
        actual = {-1, -1, -1, -1};
        EXPECT_EQ(Set(x, c.request, &actual), c.hr) << c.request.cbAlign << " " << c.request.cbBuffer;
        EXPECT_EQ(actual.cbBuffer, c.size);
    }
    // Unusable sizes pass SetProperties and are refused by Commit.
    EXPECT_EQ(x->GetBuffer(nullptr, nullptr, nullptr, 0), E_POINTER);
    ASSERT_EQ(Set(x, {0, 100, 1, 0}), S_OK);
    EXPECT_EQ(x->Commit(), VFW_E_SIZENOTSET);
    EXPECT_EQ(Get(x, VFW_E_NOT_COMMITTED), nullptr);
    // Every buffer sits after its prefix at the alignment, in its own unit.
    ASSERT_EQ(Set(x, {3, 100, 64, 8}), S_OK);
    ASSERT_EQ(x->Commit(), S_OK);
    EXPECT_EQ(Set(x, {3, 100, 64, 8}), VFW_E_ALREADY_COMMITTED);
    IMediaSample* out[3];
    BYTE* previous = nullptr;
    for (IMediaSample*& o : out) {
        BYTE* p = nullptr;
        (o = Get(x))->GetPointer(&p);
        EXPECT_EQ(std::tuple((reinterpret_cast<ULONG_PTR>(p) - 8) % 64, o->GetSize()), std::tuple(0u, 120));
        EXPECT_NE(p, previous);
        previous = p;
    }
    EXPECT_EQ(Get(x, VFW_E_TIMEOUT), nullptr) << "all three out, no wait";
    x->Decommit();
    EXPECT_EQ(Set(x, {3, 100, 64, 8}), VFW_E_BUFFERS_OUTSTANDING);
    for (IMediaSample* o : out)
        o->Release();
    EXPECT_EQ(Set(x, {3, 100, 64, 8}), S_OK);
    x->Release();
}

TEST(Allocator, DecommitWaitsForTheLastSampleARecommitCancelsItAndTheReleaseCallbackSeesEachReturn) {
    const LONG atStart = CBaseObject::ObjectsActive();
    HRESULT hr = S_OK;
    CountingAllocator* x = new CountingAllocator(&hr);
    x->AddRef();
    IMemAllocatorCallbackTemp* callback = nullptr;
    ASSERT_EQ(x->QueryInterface(IID_IMemAllocatorCallbackTemp, reinterpret_cast<void**>(&callback)), S_OK);
    ReleaseCounter counter;
    counter.allocator = callback;
    EXPECT_EQ(callback->SetNotify(&counter), S_OK);
    ASSERT_EQ(Set(x, {3, 16, 1, 0}), S_OK);
    LONG free = 0;
    EXPECT_EQ(callback->GetFreeCount(&free), S_OK);
    EXPECT_EQ(free, 3); // samples not yet made count as free
    ASSERT_EQ(x->Commit(), S_OK);
    IMediaSample* a = Get(x);
    IMediaSample* b = Get(x);
    b->SetSyncPoint(TRUE);
    b->SetDiscontinuity(TRUE);
    EXPECT_EQ(callback->GetFreeCount(&free), S_OK);
    EXPECT_EQ(free, 1);
    x->Decommit();
    EXPECT_EQ(Get(x, VFW_E_NOT_COMMITTED), nullptr);
    const LONG objects = CBaseObject::ObjectsActive();
    EXPECT_EQ(x->Commit(), S_OK); // the samples out stay valid and come back to a live allocator
    a->Release();
    EXPECT_EQ(std::pair(counter.calls.load(), counter.freeSeen), std::pair(1, 2L)); // calls, free count seen
    EXPECT_EQ(CBaseObject::ObjectsActive(), objects);
    EXPECT_EQ(Get(x), a); // the most recently returned sample is handed out first
    a->Release();
    b->Release();
    EXPECT_EQ(x->frees, 0); // every sample back, but committed again: the memory stays
    EXPECT_EQ(std::pair(counter.calls.load(), counter.freeSeen), std::pair(3, 3L));
    callback->SetNotify(nullptr);
    callback->Release();
    EXPECT_EQ(Get(x), b);
    EXPECT_EQ(std::pair(b->IsSyncPoint(), b->IsDiscontinuity()), std::pair(S_FALSE, S_FALSE))
        << "the flags went with the last delivery";
    EXPECT_EQ(Get(x), a);
    // With samples out, the allocator outlives the caller's last reference; the last sample frees it.
    x->Decommit();
    EXPECT_EQ(x->frees, 0);
    x->Release();
    a->Release();
    EXPECT_EQ(CBaseObject::ObjectsActive(), objects);
    b->Release();
    EXPECT_EQ(CBaseObject::ObjectsActive(), atStart); // one commit, one reference: nothing leaks
}

} // namespace
