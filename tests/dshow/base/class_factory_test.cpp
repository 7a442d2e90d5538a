// The class factory: COM's aggregation rules in CreateInstance, failed creations leaving no object behind,
// and the module lock count that, with the live-object count, decides whether the module may unload.
#include <gtest/gtest.h>

#include "dshow/base/class_factory.h"

namespace {

HRESULT g_createResult = S_OK; // what the next creation reports

// An aggregatable object answering IPersist.
struct Object : CUnknown, IPersist {
    explicit Object(IUnknown* outer) : CUnknown(L"factory test object", outer) {}
    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
        if (IsEqualIID(riid, IID_IPersist)) {
            return GetInterface(static_cast<IPersist*>(this), ppv);
        }
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

// An outer object that only counts its references.
struct Outer : IUnknown {
    LONG refs = 1;
    STDMETHODIMP QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(++refs); }
    STDMETHODIMP_(ULONG) Release() override { return static_cast<ULONG>(--refs); }
};

const CFactoryTemplate kTemplate = {L"Test object", &CLSID_NULL, Object::Create, nullptr, nullptr};

TEST(ClassFactory, CreateInstanceKeepsTheAggregationRulesAndLeavesNoObjectOnFailure) {
    CClassFactory* factory = new CClassFactory(&kTemplate);
    factory->AddRef();
    const LONG objects = CBaseObject::ObjectsActive();
    Outer outer;
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

TEST(ClassFactory, LockServerCountsAcrossFactories) {
    CClassFactory* a = new CClassFactory(&kTemplate);
    CClassFactory* b = new CClassFactory(&kTemplate);
    EXPECT_FALSE(CClassFactory::IsLocked());
    EXPECT_EQ(a->LockServer(TRUE), S_OK);
    EXPECT_EQ(b->LockServer(TRUE), S_OK);
    EXPECT_EQ(a->LockServer(FALSE), S_OK);
    EXPECT_TRUE(CClassFactory::IsLocked());
    EXPECT_EQ(a->LockServer(FALSE), S_OK);
    EXPECT_FALSE(CClassFactory::IsLocked());
    delete a;
    delete b;
}

} // namespace
