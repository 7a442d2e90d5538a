#include "dshow/push_source.h"

CPushSource::CPushSource(const wchar_t* name, HRESULT* phr) : CSource(name, nullptr, CLSID_NULL, phr) {}

STDMETHODIMP CPushSource::NonDelegatingQueryInterface(REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    if (IsEqualIID(iid, IID_IAMFilterMiscFlags)) {
        return GetInterface(static_cast<IAMFilterMiscFlags*>(this), object);
    }
    return CSource::NonDelegatingQueryInterface(iid, object);
}

STDMETHODIMP CPushSource::Stop() {
    const HRESULT hr = CSource::Stop();
    if (pushPin_ != nullptr) {
        pushPin_->NotifyFilterState(State_Stopped);
    }
    return hr;
}

STDMETHODIMP CPushSource::Pause() {
    const HRESULT hr = CSource::Pause();
    if (pushPin_ != nullptr) {
        pushPin_->NotifyFilterState(State_Paused);
    }
    return hr;
}

STDMETHODIMP CPushSource::Run(REFERENCE_TIME start) {
    const HRESULT hr = CSource::Run(start);
    if (pushPin_ != nullptr) {
        pushPin_->NotifyFilterState(State_Running, start);
    }
    return hr;
}

STDMETHODIMP CPushSource::GetState(DWORD milliseconds, FILTER_STATE* state) {
    const HRESULT hr = CSource::GetState(milliseconds, state);
    if (SUCCEEDED(hr) && *state == State_Paused) {
        return VFW_S_CANT_CUE;
    }
    return hr;
}

STDMETHODIMP CPushSource::JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) {
    const HRESULT hr = CSource::JoinFilterGraph(graph, name);
    if (SUCCEEDED(hr) && pushPin_ != nullptr) {
        pushPin_->SetFilterGraph(m_pSink);
    }
    return hr;
}

STDMETHODIMP_(ULONG) CPushSource::GetMiscFlags() {
    return AM_FILTER_MISC_FLAGS_IS_SOURCE;
}
