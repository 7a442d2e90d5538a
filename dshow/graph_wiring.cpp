#include "dshow/graph_wiring.h"

#include <cstdio>
#include <cwchar>

#include "platform/debug_output.h"

namespace QVN::Graph {
namespace {

bool NameBegins(IPin* pin, const wchar_t* name) {
    PIN_INFO info{};
    if (FAILED(pin->QueryPinInfo(&info))) {
        return false;
    }
    if (info.pFilter != nullptr) {
        info.pFilter->Release();
    }
    return std::wcsncmp(info.achName, name, std::wcslen(name)) == 0;
}

bool Fits(IPin* pin, PIN_DIRECTION direction) {
    PIN_DIRECTION actual{};
    if (FAILED(pin->QueryDirection(&actual)) || actual != direction) {
        return false;
    }
    IPin* peer = nullptr;
    if (SUCCEEDED(pin->ConnectedTo(&peer)) && peer != nullptr) {
        peer->Release();
        return false;
    }
    return true;
}

// Both ends of a connection, with the graph told: a pin's own Disconnect leaves its peer connected.
void Part(IGraphBuilder* graph, IPin* pin, IPin* peer) {
    graph->Disconnect(pin);
    graph->Disconnect(peer);
}

} // namespace

IPin* FindPin(IBaseFilter* filter, const wchar_t* name, PIN_DIRECTION direction) {
    IEnumPins* pins = nullptr;
    if (filter == nullptr || FAILED(filter->EnumPins(&pins))) {
        return nullptr;
    }
    IPin* found = nullptr;
    IPin* pin = nullptr;
    while (found == nullptr && pins->Next(1, &pin, nullptr) == S_OK) {
        if (name != nullptr ? NameBegins(pin, name) : Fits(pin, direction)) {
            found = pin;
        } else {
            pin->Release();
        }
    }
    pins->Release();
    return found;
}

namespace {

// A filter that refuses the other's format (an encoder given a frame size it does not take) ends the export
// with a bare error; the debugger line says which two filters would not meet.
void ReportRefusedConnection(IBaseFilter* from, IBaseFilter* to, HRESULT hr) {
    FILTER_INFO fromInfo{};
    FILTER_INFO toInfo{};
    from->QueryFilterInfo(&fromInfo);
    to->QueryFilterInfo(&toInfo);
    char line[240];
    std::snprintf(line, sizeof line, "QVNExport: the graph cannot connect \"%ls\" to \"%ls\": 0x%08lX\n",
                  fromInfo.achName, toInfo.achName, static_cast<unsigned long>(hr));
    QVN::DebugOutput(line);
    if (fromInfo.pGraph != nullptr) {
        fromInfo.pGraph->Release();
    }
    if (toInfo.pGraph != nullptr) {
        toInfo.pGraph->Release();
    }
}

} // namespace

HRESULT ConnectFilters(IGraphBuilder* graph, IBaseFilter* from, const wchar_t* fromPin, IBaseFilter* to,
                       const wchar_t* toPin) {
    if (graph == nullptr || from == nullptr || to == nullptr) {
        return E_INVALIDARG;
    }
    IPin* out = FindPin(from, fromPin, PINDIR_OUTPUT);
    IPin* in = FindPin(to, toPin, PINDIR_INPUT);
    const HRESULT hr = out != nullptr && in != nullptr ? graph->Connect(out, in) : VFW_E_NOT_FOUND;
    if (FAILED(hr)) {
        ReportRefusedConnection(from, to, hr);
    }
    if (out != nullptr) {
        out->Release();
    }
    if (in != nullptr) {
        in->Release();
    }
    return hr;
}

HRESULT DisconnectBelow(IGraphBuilder* graph, IBaseFilter* filter, const wchar_t* pinName) {
    IPin* pin = FindPin(filter, pinName, PINDIR_OUTPUT);
    if (pin == nullptr) {
        return VFW_E_NOT_FOUND;
    }
    IPin* peer = nullptr;
    if (SUCCEEDED(pin->ConnectedTo(&peer)) && peer != nullptr) {
        Part(graph, pin, peer);
        peer->Release();
    }
    pin->Release();
    return S_OK;
}

HRESULT DisconnectFilter(IGraphBuilder* graph, IBaseFilter* filter) {
    IEnumPins* pins = nullptr;
    if (graph == nullptr || filter == nullptr || FAILED(filter->EnumPins(&pins))) {
        return E_INVALIDARG;
    }
    IPin* pin = nullptr;
    while (pins->Next(1, &pin, nullptr) == S_OK) {
        IPin* peer = nullptr;
        if (SUCCEEDED(pin->ConnectedTo(&peer)) && peer != nullptr) {
            Part(graph, pin, peer);
            peer->Release();
        }
        pin->Release();
    }
    pins->Release();
    return S_OK;
}

} // namespace QVN::Graph
