// CMemAllocator: property refusals with their codes and the rounding, decommit with samples out (the
// allocator outlives its last reference until the last sample is back), GetBuffer's blocking and NOWAIT,
// and the release callback.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <utility>

#include "dshow/base/base_allocator.h"

namespace {

// Counts the calls that let the samples' memory go.
struct CountingAllocator : CMemAllocator {
    CountingAllocator(HRESULT* phr) : CMemAllocator(L"test", nullptr, phr) {}
    int frees = 0;
    void Free() override {
        ++frees;
        CMemAllocator::Free();
    }
};

// A fresh allocator with one reference, released at the end.
struct Allocator {
    HRESULT hr = S_OK;
    CountingAllocator* a = new CountingAllocator(&hr);
    Allocator() { a->AddRef(); }
    ~Allocator() {
        if (a != nullptr) {
            a->Decommit();
            a->Release();
        }
    }
    HRESULT Set(ALLOCATOR_PROPERTIES request) {
        ALLOCATOR_PROPERTIES actual{};
        return a->SetProperties(&request, &actual);
    }
    IMediaSample* Get(DWORD flags = 0) {
        IMediaSample* s = nullptr;
        EXPECT_EQ(a->GetBuffer(&s, nullptr, nullptr, flags), S_OK);
        return s;
    }
};

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
    Allocator x;
    ALLOCATOR_PROPERTIES actual{};
    EXPECT_EQ(x.a->SetProperties(nullptr, &actual), E_POINTER);
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
        ALLOCATOR_PROPERTIES request = c.request;
        actual = {-1, -1, -1, -1};
        EXPECT_EQ(x.a->SetProperties(&request, &actual), c.hr)
            << c.request.cbAlign << " " << c.request.cbBuffer;
        EXPECT_EQ(actual.cbBuffer, c.size);
    }
    // Unusable sizes pass SetProperties and are refused by Commit.
    EXPECT_EQ(x.a->GetBuffer(nullptr, nullptr, nullptr, 0), E_POINTER);
    ASSERT_EQ(x.Set({0, 100, 1, 0}), S_OK);
    EXPECT_EQ(x.a->Commit(), VFW_E_SIZENOTSET);
    IMediaSample* s = nullptr;
    EXPECT_EQ(x.a->GetBuffer(&s, nullptr, nullptr, 0), VFW_E_NOT_COMMITTED);
    // Every buffer sits after its prefix at the alignment, in its own unit.
    ASSERT_EQ(x.Set({3, 100, 64, 8}), S_OK);
    ASSERT_EQ(x.a->Commit(), S_OK);
    EXPECT_EQ(x.Set({3, 100, 64, 8}), VFW_E_ALREADY_COMMITTED);
    IMediaSample* out[3];
    BYTE* previous = nullptr;
    for (IMediaSample*& o : out) {
        o = x.Get();
        BYTE* p = nullptr;
        o->GetPointer(&p);
        EXPECT_EQ((reinterpret_cast<ULONG_PTR>(p) - 8) % 64, 0u);
        EXPECT_EQ(o->GetSize(), 120);
        EXPECT_NE(p, previous);
        previous = p;
    }
    x.a->Decommit();
    EXPECT_EQ(x.Set({3, 100, 64, 8}), VFW_E_BUFFERS_OUTSTANDING);
    for (IMediaSample* o : out) {
        o->Release();
    }
    EXPECT_EQ(x.Set({3, 100, 64, 8}), S_OK);
}

TEST(Allocator, GetBufferBlocksUntilAReleaseAndDecommitWaitsForTheLastSample) {
    Allocator x;
    ASSERT_EQ(x.Set({2, 16, 1, 0}), S_OK);
    ASSERT_EQ(x.a->Commit(), S_OK);
    IMediaSample* first = x.Get();
    IMediaSample* second = x.Get();
    IMediaSample* none = reinterpret_cast<IMediaSample*>(1);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(x.a->GetBuffer(&none, nullptr, nullptr, AM_GBF_NOWAIT), VFW_E_TIMEOUT);
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(50));
    EXPECT_EQ(none, nullptr);
    // A third take blocks until a sample comes back from another thread, and gets that sample.
    std::atomic<IMediaSample*> third{nullptr};
    std::thread taker([&] { third = x.Get(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    EXPECT_EQ(third.load(), nullptr);
    second->SetSyncPoint(TRUE);
    second->SetDiscontinuity(TRUE);
    second->Release();
    taker.join();
    ASSERT_EQ(third.load(), second);
    EXPECT_EQ(second->IsSyncPoint(), S_FALSE); // the flags went with the last delivery
    EXPECT_EQ(second->IsDiscontinuity(), S_FALSE);
    // Decommit wakes a blocked taker with VFW_E_NOT_COMMITTED.
    std::atomic<HRESULT> blocked{S_OK};
    std::thread waiter([&] {
        IMediaSample* s = nullptr;
        blocked = x.a->GetBuffer(&s, nullptr, nullptr, 0);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const LONG objects = CBaseObject::ObjectsActive();
    x.a->Decommit();
    waiter.join();
    EXPECT_EQ(blocked.load(), VFW_E_NOT_COMMITTED);
    // With samples out, the allocator outlives the caller's last reference; the last sample frees it.
    x.a->Release();
    x.a = nullptr;
    EXPECT_EQ(CBaseObject::ObjectsActive(), objects);
    first->Release();
    EXPECT_EQ(CBaseObject::ObjectsActive(), objects);
    third.load()->Release();
    EXPECT_EQ(CBaseObject::ObjectsActive(), objects - 3); // the allocator and its two samples
}

TEST(Allocator, RecommitCancelsAPendingDecommitAndTheReleaseCallbackSeesEachReturn) {
    const LONG atStart = CBaseObject::ObjectsActive();
    Allocator x;
    IMemAllocatorCallbackTemp* callback = nullptr;
    ASSERT_EQ(x.a->QueryInterface(IID_IMemAllocatorCallbackTemp, reinterpret_cast<void**>(&callback)), S_OK);
    ReleaseCounter counter;
    counter.allocator = callback;
    EXPECT_EQ(callback->SetNotify(&counter), S_OK);
    ASSERT_EQ(x.Set({3, 16, 1, 0}), S_OK);
    LONG free = 0;
    EXPECT_EQ(callback->GetFreeCount(&free), S_OK);
    EXPECT_EQ(free, 3); // samples not yet made count as free
    ASSERT_EQ(x.a->Commit(), S_OK);
    IMediaSample* a = x.Get();
    IMediaSample* b = x.Get();
    EXPECT_EQ(callback->GetFreeCount(&free), S_OK);
    EXPECT_EQ(free, 1);
    x.a->Decommit();
    IMediaSample* s = nullptr;
    EXPECT_EQ(x.a->GetBuffer(&s, nullptr, nullptr, 0), VFW_E_NOT_COMMITTED);
    const LONG objects = CBaseObject::ObjectsActive();
    EXPECT_EQ(x.a->Commit(), S_OK); // the samples out stay valid and come back to a live allocator
    a->Release();
    EXPECT_EQ(std::pair(counter.calls.load(), counter.freeSeen), std::pair(1, 2L)); // calls, free count seen
    EXPECT_EQ(CBaseObject::ObjectsActive(), objects);
    EXPECT_EQ(x.Get(), a); // the most recently returned sample is handed out first
    a->Release();
    b->Release();
    EXPECT_EQ(x.a->frees, 0); // every sample back, but committed again: the memory stays
    EXPECT_EQ(std::pair(counter.calls.load(), counter.freeSeen), std::pair(3, 3L));
    callback->SetNotify(nullptr);
    callback->Release();
    x.a->Decommit();
    EXPECT_EQ(x.a->frees, 1);
    x.a->Release();
    x.a = nullptr;
    EXPECT_EQ(CBaseObject::ObjectsActive(), atStart); // one commit, one reference: nothing leaks
}

} // namespace
