#include "dshow/push_source_pin.h"

#include <new>

namespace {
volatile DWORD g_lastVideoDelivery = 0;
volatile DWORD g_lastAudioDelivery = 0;
} // namespace

DWORD LastVideoDeliveryTime() {
    return g_lastVideoDelivery;
}
DWORD LastAudioDeliveryTime() {
    return g_lastAudioDelivery;
}
void NoteVideoDelivery() {
    g_lastVideoDelivery = timeGetTime();
}
void NoteAudioDelivery() {
    g_lastAudioDelivery = timeGetTime();
}

CPushSourcePin::CPushSourcePin(const wchar_t* objectName, HRESULT* phr, CSource* filter,
                               const wchar_t* pinName)
    : CSourceStream(objectName, phr, filter, pinName), CBaseStreamControl(phr) {}

CPushSourcePin::~CPushSourcePin() {
    ReleasePool();
}

STDMETHODIMP CPushSourcePin::NonDelegatingQueryInterface(REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    if (IsEqualIID(iid, IID_IAMBufferNegotiation)) {
        return GetInterface(static_cast<IAMBufferNegotiation*>(this), object);
    }
    if (IsEqualIID(iid, IID_IAMStreamControl)) {
        return GetInterface(static_cast<IAMStreamControl*>(this), object);
    }
    return CSourceStream::NonDelegatingQueryInterface(iid, object);
}

STDMETHODIMP CPushSourcePin::SuggestAllocatorProperties(const ALLOCATOR_PROPERTIES* props) {
    if (props == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(pinLock_);
    if (IsConnected()) {
        return VFW_E_ALREADY_CONNECTED;
    }
    suggested_ = *props;
    return S_OK;
}

STDMETHODIMP CPushSourcePin::GetAllocatorProperties(ALLOCATOR_PROPERTIES* props) {
    if (props == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(*m_pFilter->pStateLock());
    if (!IsConnected()) {
        return VFW_E_NOT_CONNECTED;
    }
    *props = actual_;
    return S_OK;
}

HRESULT CPushSourcePin::GetStreamMediaType(AM_MEDIA_TYPE** type) {
    if (type == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(*m_pFilter->pStateLock());
    *type = CreateMediaType(&mediaType_);
    return *type != nullptr ? S_OK : E_OUTOFMEMORY;
}

HRESULT CPushSourcePin::GetMediaType(CMediaType* type) {
    if (type == nullptr) {
        return E_POINTER;
    }
    CAutoLock lock(*m_pFilter->pStateLock());
    if (IsEqualGUID(mediaType_.majortype, GUID_NULL)) {
        return E_UNEXPECTED; // no type set yet
    }
    return type->Set(mediaType_);
}

ALLOCATOR_PROPERTIES CPushSourcePin::ActualProperties() {
    CAutoLock lock(pinLock_);
    return actual_;
}

HRESULT CPushSourcePin::InitAllocator(IMemAllocator** allocator) {
    if (allocator == nullptr) {
        return E_POINTER;
    }
    *allocator = nullptr;
    HRESULT hr = S_OK;
    auto* made = new (std::nothrow) CEncoderAllocator(L"encoder allocator", &hr);
    if (made == nullptr) {
        return E_OUTOFMEMORY;
    }
    if (FAILED(hr)) {
        delete made;
        return E_OUTOFMEMORY;
    }
    made->AddRef();
    *allocator = made;
    return S_OK;
}

HRESULT CPushSourcePin::DecideAllocator(IMemInputPin* pin, IMemAllocator** allocator) {
    if (pin == nullptr || allocator == nullptr) {
        return E_POINTER;
    }
    *allocator = nullptr;
    ALLOCATOR_PROPERTIES request{};
    pin->GetAllocatorRequirements(&request); // E_NOTIMPL leaves no requirements
    if (request.cbAlign == 0) {
        request.cbAlign = 1;
    }
    HRESULT hr = InitAllocator(allocator);
    if (SUCCEEDED(hr)) {
        hr = DecideBufferSize(*allocator, &request);
    }
    if (SUCCEEDED(hr)) {
        hr = pin->NotifyAllocator(*allocator, FALSE);
    }
    if (FAILED(hr) && *allocator != nullptr) {
        (*allocator)->Release();
        *allocator = nullptr;
    }
    return hr;
}

HRESULT CPushSourcePin::SetBufferProperties(IMemAllocator* allocator, ALLOCATOR_PROPERTIES props) {
    if (suggested_.cBuffers > 0) {
        props.cBuffers = suggested_.cBuffers;
    }
    if (suggested_.cbBuffer > 0) {
        props.cbBuffer = suggested_.cbBuffer;
    }
    if (suggested_.cbAlign > 0) {
        props.cbAlign = suggested_.cbAlign;
    }
    if (suggested_.cbPrefix > 0) {
        props.cbPrefix = suggested_.cbPrefix;
    }
    ALLOCATOR_PROPERTIES actual{};
    const HRESULT hr = allocator->SetProperties(&props, &actual);
    if (FAILED(hr)) {
        return hr;
    }
    actual_ = actual;
    return actual.cbBuffer < props.cbBuffer ? E_FAIL : S_OK;
}

void CPushSourcePin::ReleasePool() {
    for (void* block : blocks_) {
        VirtualFree(block, 0, MEM_RELEASE);
    }
    blocks_.clear();
    payloads_.clear();
}

HRESULT CPushSourcePin::AllocateBuffers() {
    CAutoLock lock(pinLock_);
    ReleasePool();
    const LONG align = actual_.cbAlign > 0 ? actual_.cbAlign : 1;
    const SIZE_T block = (static_cast<SIZE_T>(actual_.cbBuffer) + static_cast<SIZE_T>(actual_.cbPrefix) +
                          static_cast<SIZE_T>(align) - 1) /
                         static_cast<SIZE_T>(align) * static_cast<SIZE_T>(align);
    const auto count = static_cast<std::size_t>(actual_.cBuffers > 0 ? actual_.cBuffers : 0);
    try {
        blocks_.reserve(count);
        payloads_.reserve(count);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    for (std::size_t i = 0; i < count; ++i) {
        void* memory = VirtualAlloc(nullptr, block, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
        if (memory == nullptr) {
            ReleasePool();
            return E_OUTOFMEMORY;
        }
        blocks_.push_back(memory);
        payloads_.push_back(static_cast<BYTE*>(memory) + actual_.cbPrefix);
    }
    return S_OK;
}

HRESULT CPushSourcePin::GetFreeBuffers(std::vector<void*>& buffers) {
    CAutoLock lock(pinLock_);
    try {
        buffers = payloads_;
    } catch (const std::bad_alloc&) {
        buffers.clear();
    }
    return S_OK;
}

IEncoderAllocator* CPushSourcePin::EncoderAllocator() {
    IEncoderAllocator* allocator = nullptr;
    if (m_pAllocator == nullptr ||
        FAILED(m_pAllocator->QueryInterface(IID_IEncoderAllocator, reinterpret_cast<void**>(&allocator)))) {
        return nullptr;
    }
    return allocator;
}

HRESULT CPushSourcePin::ReclaimBuffers(std::vector<void*>& buffers) {
    IEncoderAllocator* allocator = EncoderAllocator();
    if (allocator == nullptr) {
        return E_NOINTERFACE;
    }
    const HRESULT hr = allocator->ReclaimBuffers(buffers);
    allocator->Release();
    return hr;
}

HRESULT CPushSourcePin::DeliverBuffer(BYTE* buffer, DWORD length) {
    IEncoderAllocator* allocator = EncoderAllocator();
    if (allocator == nullptr) {
        return E_NOINTERFACE;
    }
    ALLOCATOR_PROPERTIES props{};
    HRESULT hr = m_pAllocator->GetProperties(&props);
    if (SUCCEEDED(hr) && length > static_cast<DWORD>(props.cbBuffer)) {
        hr = VFW_E_BUFFER_OVERFLOW; // checked before a sample is taken, so none is lost
    }
    CMediaSample* sample = nullptr;
    if (SUCCEEDED(hr)) {
        hr = allocator->TakeFreeSample(&sample);
    }
    if (SUCCEEDED(hr)) {
        sample->SetPointer(buffer, props.cbBuffer);
        sample->SetActualDataLength(static_cast<LONG>(length));
        hr = allocator->QueueSample(sample);
    }
    allocator->Release();
    return hr;
}

HRESULT CPushSourcePin::SignalEndOfStream() {
    IEncoderAllocator* allocator = EncoderAllocator();
    if (allocator == nullptr) {
        return E_NOINTERFACE;
    }
    allocator->SignalEnd();
    allocator->Release();
    return S_OK;
}

bool CPushSourcePin::AllocatorEndReached() {
    IEncoderAllocator* allocator = EncoderAllocator();
    if (allocator == nullptr) {
        return false;
    }
    const bool ended = allocator->EndReached() != FALSE;
    allocator->Release();
    return ended;
}

HRESULT CPushSourcePin::GateSample(IMediaSample* sample) {
    if (CheckStreamState(sample) != STREAM_FLOWING) {
        if (StoppedForGood()) {
            return S_FALSE; // the stream ends here: downstream gets its end of stream
        }
        discontinuityPending_ = 1;
        Sleep(20);
        skipSample_ = true;
        return S_OK;
    }
    if (discontinuityPending_ != 0) {
        sample->SetDiscontinuity(TRUE);
        discontinuityPending_ = 0;
    }
    return S_OK;
}

bool CPushSourcePin::StoppedForGood() {
    AM_STREAM_INFO info{};
    if (FAILED(GetInfo(&info))) {
        return false;
    }
    const DWORD gates = AM_STREAM_INFO_START_DEFINED | AM_STREAM_INFO_STOP_DEFINED;
    return (info.dwFlags & AM_STREAM_INFO_DISCARDING) != 0 && (info.dwFlags & gates) == 0 && !IsStopped();
}

HRESULT CPushSourcePin::Deliver(IMediaSample* sample) {
    if (skipSample_) {
        skipSample_ = false;
        return S_OK;
    }
    return CSourceStream::Deliver(sample);
}
