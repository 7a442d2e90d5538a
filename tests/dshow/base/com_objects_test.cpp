// The class factory: COM's aggregation rules in CreateInstance, failed creations leaving no object behind,
// and the module lock count across factories. CMediaType's value semantics and the free helpers: each copy
// owns its format block and its pUnk reference, and every way of letting go gives both back.
#include <gtest/gtest.h>

#include <cstring>
#include <utility>

#include "dshow/base/class_factory.h"
#include "dshow/base/media_type.h"

namespace {

HRESULT g_createResult = S_OK; // what the next creation reports

// An aggregatable object answering IPersist.
struct Object : CUnknown, IPersist {
    explicit Object(IUnknown* outer) : CUnknown(L"factory test object", outer) {}
    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
        if (IsEqualIID(riid, IID_IPersist))
            return GetInterface(static_cast<IPersist*>(this), ppv);
        return CUnknown::NonDelegatingQueryInterface(riid, ppv);
    }
    STDMETHODIMP GetClassID(CLSID* id) override {
        *id = CLSID_NULL;
        return S_OK;
    }
    static CUnknown* CALLBACK Create(IUnknown* outer, HRESULT* phr) {
        *phr = g_createResult;
        return new Object(outer);
    }
};

// Only counts its references: an outer object, or a media type's pUnk.
struct CountedUnknown : IUnknown {
    LONG refs = 1;
    STDMETHODIMP QueryInterface(REFIID, void** ppv) override {
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(++refs); }
    STDMETHODIMP_(ULONG) Release() override { return static_cast<ULONG>(--refs); }
};

const CFactoryTemplate kTemplate = {L"Test object", &CLSID_NULL, Object::Create, nullptr, nullptr};

TEST(ClassFactory, CreateInstanceKeepsTheAggregationRulesAndLockServerCountsAcrossFactories) {
    CClassFactory* factory = new CClassFactory(&kTemplate);
    factory->AddRef();
    CClassFactory other(&kTemplate);
    EXPECT_FALSE(CClassFactory::IsLocked());
    const bool lockedAfter[] = {true, true, true, false}; // lock, lock, unlock, unlock
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(S_OK, (i % 2 == 0 ? factory : &other)->LockServer(i < 2));
        EXPECT_EQ(lockedAfter[i], CClassFactory::IsLocked()) << i;
    }
    const LONG objects = CBaseObject::ObjectsActive();
    CountedUnknown outer;
    const struct {
        const char* what;
        bool aggregated;
        const IID* iid;
        HRESULT create; // the create function's report
        HRESULT hr;
    } cases[] = {
        {"plain, IUnknown", false, &IID_IUnknown, S_OK, S_OK},
        {"plain, IPersist", false, &IID_IPersist, S_OK, S_OK},
        {"plain, unsupported interface", false, &IID_IStream, S_OK, E_NOINTERFACE},
        {"aggregated, IUnknown", true, &IID_IUnknown, S_OK, S_OK},
        {"aggregated, another interface", true, &IID_IPersist, S_OK, CLASS_E_NOAGGREGATION},
        {"construction failed", false, &IID_IUnknown, E_UNEXPECTED, E_UNEXPECTED},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        g_createResult = c.create;
        void* object = reinterpret_cast<void*>(1);
        EXPECT_EQ(factory->CreateInstance(c.aggregated ? &outer : nullptr, *c.iid, &object), c.hr);
        if (FAILED(c.hr)) {
            EXPECT_EQ(object, nullptr);
            EXPECT_EQ(CBaseObject::ObjectsActive(), objects);
            continue;
        }
        EXPECT_EQ(CBaseObject::ObjectsActive(), objects + 1);
        IUnknown* unknown = static_cast<IUnknown*>(object);
        if (c.aggregated) {
            // The aggregator gets the inner IUnknown; interfaces found through it delegate to the outer.
            IPersist* persist = nullptr;
            ASSERT_EQ(unknown->QueryInterface(IID_IPersist, reinterpret_cast<void**>(&persist)), S_OK);
            EXPECT_EQ(outer.refs, 2);
            IUnknown* viaPersist = nullptr;
            EXPECT_EQ(persist->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&viaPersist)),
                      E_NOINTERFACE); // answered by the outer object, which knows nothing here
            persist->Release();
            EXPECT_EQ(outer.refs, 1);
        }
        EXPECT_EQ(unknown->Release(), 0u);
        EXPECT_EQ(CBaseObject::ObjectsActive(), objects);
    }
    g_createResult = S_OK;
    void* object = nullptr;
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(factory->QueryInterface(IID_IClassFactory, &object), S_OK);
    static_cast<IUnknown*>(object)->Release();
    EXPECT_EQ(factory->Release(), 0u);
    EXPECT_EQ(CBaseObject::ObjectsActive(), objects - 1); // the factory counted as a live object
}

TEST(MediaType, CopiesOwnTheirFormatAndReferenceAndCompareByTypesAndFormat) {
    CountedUnknown unk;
    BYTE format[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    {
        CMediaType a(&MEDIATYPE_Video);
        a.SetSubtype(&MEDIASUBTYPE_UYVY);
        a.SetFormatType(&FORMAT_VideoInfo);
        ASSERT_TRUE(a.SetFormat(format, sizeof(format)));
        a.pUnk = &unk;
        unk.AddRef();
        CMediaType b(a);
        CMediaType c;
        c = a;
        EXPECT_EQ(4, unk.refs); // ours, a's, b's, c's
        EXPECT_NE(a.Format(), b.Format());
        EXPECT_TRUE(a == b && b == c);
        AM_MEDIA_TYPE* d = CreateMediaType(&a);
        ASSERT_NE(nullptr, d);
        EXPECT_EQ(5, unk.refs);
        EXPECT_EQ(0, std::memcmp(d->pbFormat, format, sizeof(format)));
        DeleteMediaType(d);
        EXPECT_EQ(4, unk.refs);
        // Equality looks at the three GUIDs and the format bytes, nothing else.
        b.SetSampleSize(0);
        EXPECT_TRUE(a == b);
        b.Format()[11] = 0;
        EXPECT_TRUE(a != b);
        c.SetSubtype(&MEDIASUBTYPE_YUY2);
        EXPECT_TRUE(a != c);
        EXPECT_FALSE(b.IsFixedSize());
        EXPECT_EQ(0u, b.GetSampleSize());
        // A partial type matches on what it names; an absent format type leaves it partial.
        CMediaType partial(&MEDIATYPE_Video);
        EXPECT_TRUE(partial.IsPartiallySpecified());
        EXPECT_TRUE(a.MatchesPartial(&partial));
        partial.SetSubtype(&MEDIASUBTYPE_YUY2);
        EXPECT_FALSE(a.MatchesPartial(&partial));
        partial = a;
        EXPECT_TRUE(a.MatchesPartial(&partial));
        EXPECT_FALSE(b.MatchesPartial(&partial)); // format bytes differ
        // Growing the format keeps its leading bytes.
        BYTE* grown = b.ReallocFormatBuffer(20);
        ASSERT_NE(nullptr, grown);
        EXPECT_EQ(std::pair(b.FormatLength(), std::memcmp(grown, format, 11)), std::pair(ULONG{20}, 0));
        b.ResetFormatBuffer();
        EXPECT_EQ(std::pair(b.Format(), b.FormatLength()), (std::pair<BYTE*, ULONG>(nullptr, 0)));
        FreeMediaType(c);
        EXPECT_EQ(std::pair(c.pUnk, unk.refs),
                  (std::pair<IUnknown*, LONG>(nullptr, 4))); // partial's took one
    }
    EXPECT_EQ(1, unk.refs);
    CMediaType empty;
    EXPECT_FALSE(empty.IsValid());
    EXPECT_TRUE(empty.IsFixedSize());
    EXPECT_EQ(1u, empty.GetSampleSize());
}

} // namespace
