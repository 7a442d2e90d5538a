// What the video and audio source filters share: a live source with one push pin, whose stream control
// follows every state change of the filter.
#pragma once

#include "dshow/base/source.h"
#include "dshow/push_source_pin.h"

class CPushSource : public CSource, public IAMFilterMiscFlags {
public:
    CPushSource(const wchar_t* name, HRESULT* phr);

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID iid, void** object) override;

    STDMETHODIMP Stop() override;
    STDMETHODIMP Pause() override;
    STDMETHODIMP Run(REFERENCE_TIME start) override;
    // VFW_S_CANT_CUE while paused, as a live source must, so that the graph does not wait for preroll.
    STDMETHODIMP GetState(DWORD milliseconds, FILTER_STATE* state) override;
    // The pin's stream control sends its events to the graph's event sink.
    STDMETHODIMP JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) override;

    STDMETHODIMP_(ULONG) GetMiscFlags() override;

protected:
    // The one pin; the filter owns it (CSource deletes it).
    CPushSourcePin* pushPin_ = nullptr;
};
