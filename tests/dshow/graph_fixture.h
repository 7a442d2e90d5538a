// A filter graph made by the platform's filter graph manager for each test, with a watchdog that ends a
// hung test within seconds, and a check that every object of ours the graph used has been released.
#pragma once

#include <cstdio>

#include <gtest/gtest.h>

#include "dshow/base/unknown.h"

namespace qvn_test {

class GraphTest : public ::testing::Test {
protected:
    static DWORD WINAPI Watchdog(LPVOID done) {
        if (WaitForSingleObject(static_cast<HANDLE>(done), 30000) == WAIT_TIMEOUT) {
            const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
            fprintf(stderr, "%s.%s hung\n", test->test_suite_name(), test->name());
            fflush(stderr);
            TerminateProcess(GetCurrentProcess(), 3);
        }
        return 0;
    }
    void SetUp() override {
        done_ = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        watchdog_ = CreateThread(nullptr, 0, Watchdog, done_, 0, nullptr);
        ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
        baseline_ = CBaseObject::ObjectsActive();
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IGraphBuilder,
                                         reinterpret_cast<void**>(&graph)));
        ASSERT_EQ(S_OK, graph->QueryInterface(IID_IMediaControl, reinterpret_cast<void**>(&control)));
        ASSERT_EQ(S_OK, graph->QueryInterface(IID_IMediaEvent, reinterpret_cast<void**>(&events)));
    }
    // Derived fixtures release their filters first, then call this.
    void TearDown() override {
        if (control != nullptr)
            control->Stop();
        for (IUnknown* u :
             {static_cast<IUnknown*>(control), static_cast<IUnknown*>(events), static_cast<IUnknown*>(graph)})
            if (u != nullptr)
                u->Release();
        ReleaseFilters();
        EXPECT_EQ(baseline_, CBaseObject::ObjectsActive()) << "objects of ours left alive";
        CoUninitialize();
        SetEvent(done_);
        WaitForSingleObject(watchdog_, INFINITE);
        CloseHandle(watchdog_);
        CloseHandle(done_);
    }
    virtual void ReleaseFilters() {}
    // Waits for an event of the given code, passing over others; false after the time-out.
    bool WaitForEvent(long code, LONG_PTR* param1 = nullptr, LONG_PTR* param2 = nullptr, DWORD ms = 5000) {
        const DWORD deadline = GetTickCount() + ms;
        while (static_cast<LONG>(deadline - GetTickCount()) > 0) {
            long got = 0;
            LONG_PTR p1 = 0, p2 = 0;
            if (events->GetEvent(&got, &p1, &p2, 50) != S_OK)
                continue;
            events->FreeEventParams(got, p1, p2);
            if (got != code)
                continue;
            if (param1 != nullptr)
                *param1 = p1;
            if (param2 != nullptr)
                *param2 = p2;
            return true;
        }
        return false;
    }
    template <class Condition> static bool WaitUntil(Condition condition) {
        for (int i = 0; i < 500 && !condition(); ++i)
            Sleep(10);
        return condition();
    }
    IGraphBuilder* graph = nullptr;
    IMediaControl* control = nullptr;
    IMediaEvent* events = nullptr;

private:
    HANDLE done_ = nullptr;
    HANDLE watchdog_ = nullptr;
    LONG baseline_ = 0;
};

} // namespace qvn_test
