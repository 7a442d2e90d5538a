#include "host/graph_report.h"

#include <cstdio>
#include <cwchar>
#include <cwctype>
#include <iterator>

#include "dshow/base/dshow_headers.h"

namespace qvnhost {

const char kNoGraphLine[] = "graph: no filter graph of this process in the running-object table\n";

namespace {

// Releases a COM pointer at the end of its scope.
template <class T> class Ref {
public:
    Ref() = default;
    Ref(const Ref&) = delete;
    Ref& operator=(const Ref&) = delete;
    ~Ref() {
        if (p_ != nullptr)
            p_->Release();
    }
    T** Out() { return &p_; }
    void** OutVoid() { return reinterpret_cast<void**>(&p_); }
    T* operator->() const { return p_; }
    T* Get() const { return p_; }

private:
    T* p_ = nullptr;
};

std::string Utf8(const wchar_t* text) {
    if (text == nullptr || *text == 0)
        return "";
    const int n = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (n <= 1)
        return "";
    std::string s(static_cast<std::size_t>(n), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, s.data(), n, nullptr, nullptr);
    s.resize(static_cast<std::size_t>(n - 1));
    return s;
}

std::string GuidText(const GUID& guid) {
    wchar_t text[40] = {};
    StringFromGUID2(guid, text, 40);
    return Utf8(text);
}

struct KnownGuid {
    const GUID* guid;
    const char* name;
};

// The four characters of a GUID built on the FourCC template {xxxxxxxx-0000-0010-8000-00AA00389B71}, or ""
// when it is not one or a character is not printable.
std::string FourCCOf(const GUID& guid) {
    GUID base = MEDIASUBTYPE_PCM; // the template with 1 in its first field
    base.Data1 = guid.Data1;
    if (!IsEqualGUID(base, guid))
        return "";
    std::string s;
    for (int shift = 0; shift < 32; shift += 8) {
        const unsigned char c = static_cast<unsigned char>(guid.Data1 >> shift & 0xFF);
        if (c < 32 || c > 126)
            return "";
        s += static_cast<char>(c);
    }
    return s;
}

std::string Name(const GUID& guid, const KnownGuid* known, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        if (IsEqualGUID(*known[i].guid, guid))
            return known[i].name;
    }
    if (IsEqualGUID(guid, GUID_NULL))
        return "(none)";
    const std::string fourcc = FourCCOf(guid);
    return fourcc.empty() ? GuidText(guid) : fourcc;
}

std::string FormatDetails(const AM_MEDIA_TYPE& t) {
    char text[96] = {};
    const BITMAPINFOHEADER* bmi = nullptr;
    if (IsEqualGUID(t.formattype, FORMAT_VideoInfo) && t.cbFormat >= sizeof(VIDEOINFOHEADER))
        bmi = &reinterpret_cast<const VIDEOINFOHEADER*>(t.pbFormat)->bmiHeader;
    else if (IsEqualGUID(t.formattype, FORMAT_VideoInfo2) && t.cbFormat >= sizeof(VIDEOINFOHEADER2))
        bmi = &reinterpret_cast<const VIDEOINFOHEADER2*>(t.pbFormat)->bmiHeader;
    if (bmi != nullptr && t.pbFormat != nullptr) {
        std::snprintf(text, sizeof text, " %ldx%ld, %u bits", static_cast<long>(bmi->biWidth),
                      static_cast<long>(bmi->biHeight), static_cast<unsigned>(bmi->biBitCount));
        return text;
    }
    // The fields read end within the 16 bytes that every wave format has, even a bare PCMWAVEFORMAT.
    if (IsEqualGUID(t.formattype, FORMAT_WaveFormatEx) && t.pbFormat != nullptr && t.cbFormat >= 16) {
        const WAVEFORMATEX* w = reinterpret_cast<const WAVEFORMATEX*>(t.pbFormat);
        std::snprintf(text, sizeof text, " %u channels, %lu Hz, %u bits", static_cast<unsigned>(w->nChannels),
                      static_cast<unsigned long>(w->nSamplesPerSec),
                      static_cast<unsigned>(w->wBitsPerSample));
        return text;
    }
    return "";
}

void FreeType(AM_MEDIA_TYPE& t) {
    if (t.pbFormat != nullptr)
        CoTaskMemFree(t.pbFormat);
    if (t.pUnk != nullptr)
        t.pUnk->Release();
    t.pbFormat = nullptr;
    t.pUnk = nullptr;
    t.cbFormat = 0;
}

std::string FilterName(IBaseFilter* filter) {
    FILTER_INFO info{};
    if (FAILED(filter->QueryFilterInfo(&info)))
        return "?";
    if (info.pGraph != nullptr)
        info.pGraph->Release();
    return Utf8(info.achName);
}

// "Filter.Pin" of a pin.
std::string PinPath(IPin* pin) {
    PIN_INFO info{};
    if (FAILED(pin->QueryPinInfo(&info)))
        return "?";
    std::string path = info.pFilter != nullptr ? FilterName(info.pFilter) : "?";
    if (info.pFilter != nullptr)
        info.pFilter->Release();
    return path + "." + Utf8(info.achName);
}

void ReportPin(IPin* pin, std::string& out) {
    PIN_INFO info{};
    if (FAILED(pin->QueryPinInfo(&info))) {
        out += "    pin ?: no pin information\n";
        return;
    }
    if (info.pFilter != nullptr)
        info.pFilter->Release();
    out += "    pin \"" + Utf8(info.achName) + "\" " + (info.dir == PINDIR_INPUT ? "in" : "out");
    Ref<IPin> peer;
    if (pin->ConnectedTo(peer.Out()) != S_OK || peer.Get() == nullptr) {
        out += ", not connected\n";
        return;
    }
    out += ", connected to \"" + PinPath(peer.Get()) + "\"";
    AM_MEDIA_TYPE type{};
    if (SUCCEEDED(pin->ConnectionMediaType(&type))) {
        out += ": " + DescribeMediaType(type);
        FreeType(type);
    }
    out += "\n";
}

void ReportFilter(IBaseFilter* filter, std::string& out) {
    out += "  filter \"" + FilterName(filter) + "\" ";
    CLSID clsid = GUID_NULL;
    out += SUCCEEDED(filter->GetClassID(&clsid)) && !IsEqualGUID(clsid, GUID_NULL)
               ? GuidText(clsid)
               : std::string("(no class)");
    out += "\n";
    Ref<IEnumPins> pins;
    if (FAILED(filter->EnumPins(pins.Out())) || pins.Get() == nullptr)
        return;
    IPin* pin = nullptr;
    while (pins->Next(1, &pin, nullptr) == S_OK && pin != nullptr) {
        ReportPin(pin, out);
        pin->Release();
        pin = nullptr;
    }
}

void ReportGraph(IRunningObjectTable* table, IMoniker* moniker, const std::string& name, std::string& out) {
    char failure[32];
    out += "graph: " + name + "\n";
    Ref<IUnknown> object;
    HRESULT hr = table->GetObject(moniker, object.Out());
    Ref<IFilterGraph> graph;
    if (SUCCEEDED(hr))
        hr = object->QueryInterface(IID_IFilterGraph, graph.OutVoid());
    if (FAILED(hr) || graph.Get() == nullptr) {
        std::snprintf(failure, sizeof failure, "0x%08lX", static_cast<unsigned long>(hr));
        out += "  the graph cannot be reached (" + std::string(failure) + ")\n";
        return;
    }
    Ref<IEnumFilters> filters;
    if (FAILED(graph->EnumFilters(filters.Out())) || filters.Get() == nullptr) {
        out += "  its filters cannot be listed\n";
        return;
    }
    IBaseFilter* filter = nullptr;
    while (filters->Next(1, &filter, nullptr) == S_OK && filter != nullptr) {
        ReportFilter(filter, out);
        filter->Release();
        filter = nullptr;
    }
}

bool Contains(const std::wstring& text, const std::wstring& part) {
    return text.find(part) != std::wstring::npos;
}

} // namespace

std::string DescribeMediaType(const AM_MEDIA_TYPE& t) {
    static const KnownGuid kMajor[] = {{&MEDIATYPE_Video, "Video"},
                                       {&MEDIATYPE_Audio, "Audio"},
                                       {&MEDIATYPE_Stream, "Stream"},
                                       {&MEDIATYPE_Interleaved, "Interleaved"},
                                       {&MEDIATYPE_Text, "Text"}};
    static const KnownGuid kSubtype[] = {
        {&MEDIASUBTYPE_RGB32, "RGB32"},   {&MEDIASUBTYPE_RGB24, "RGB24"},
        {&MEDIASUBTYPE_RGB565, "RGB565"}, {&MEDIASUBTYPE_RGB555, "RGB555"},
        {&MEDIASUBTYPE_ARGB32, "ARGB32"}, {&MEDIASUBTYPE_Avi, "Avi"},
        {&MEDIASUBTYPE_PCM, "PCM"},       {&MEDIASUBTYPE_IEEE_FLOAT, "IEEE_FLOAT"}};
    static const KnownGuid kFormat[] = {{&FORMAT_VideoInfo, "VideoInfo"},
                                        {&FORMAT_VideoInfo2, "VideoInfo2"},
                                        {&FORMAT_WaveFormatEx, "WaveFormatEx"},
                                        {&FORMAT_None, "no format"},
                                        {&GUID_NULL, "no format"}};
    return Name(t.majortype, kMajor, std::size(kMajor)) + " " +
           Name(t.subtype, kSubtype, std::size(kSubtype)) + " (" +
           Name(t.formattype, kFormat, std::size(kFormat)) + FormatDetails(t) + ")";
}

std::string FilterGraphReport(unsigned long processId) {
    // Already initialised in another apartment (RPC_E_CHANGED_MODE) is fine: the table is the process's.
    const HRESULT init = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    std::string out;
    {
        Ref<IRunningObjectTable> table;
        Ref<IEnumMoniker> entries;
        Ref<IBindCtx> context;
        if (SUCCEEDED(GetRunningObjectTable(0, table.Out())) &&
            SUCCEEDED(table->EnumRunning(entries.Out())) && SUCCEEDED(CreateBindCtx(0, context.Out()))) {
            wchar_t pid[24];
            std::swprintf(pid, 24, L"pid %08lx", processId);
            IMoniker* moniker = nullptr;
            while (entries->Next(1, &moniker, nullptr) == S_OK && moniker != nullptr) {
                LPOLESTR display = nullptr;
                if (SUCCEEDED(moniker->GetDisplayName(context.Get(), nullptr, &display)) &&
                    display != nullptr) {
                    const std::wstring name = display;
                    CoTaskMemFree(display);
                    std::wstring lower = name;
                    for (wchar_t& c : lower)
                        c = static_cast<wchar_t>(std::towlower(c));
                    if (Contains(name, L"FilterGraph") && Contains(lower, pid))
                        ReportGraph(table.Get(), moniker, Utf8(name.c_str()), out);
                }
                moniker->Release();
                moniker = nullptr;
            }
        }
    }
    if (SUCCEEDED(init))
        CoUninitialize();
    return out.empty() ? kNoGraphLine : out;
}

std::string OwnFilterGraphReport() {
    return FilterGraphReport(GetCurrentProcessId());
}

} // namespace qvnhost
