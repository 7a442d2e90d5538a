// CMediaType's value semantics and the free helpers: each copy owns its format block and its pUnk
// reference, and every way of letting go gives both back.
#include <cstring>

#include <gtest/gtest.h>

#include "dshow/base/media_type.h"

namespace {

// Counts its references, to see pUnk taken and released.
struct CountedUnknown : IUnknown {
    LONG refs = 1;
    STDMETHODIMP QueryInterface(REFIID, void** ppv) override {
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(++refs); }
    STDMETHODIMP_(ULONG) Release() override { return static_cast<ULONG>(--refs); }
};

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
        EXPECT_EQ(20u, b.FormatLength());
        EXPECT_EQ(0, std::memcmp(grown, format, 11));
        b.ResetFormatBuffer();
        EXPECT_EQ(nullptr, b.Format());
        EXPECT_EQ(0u, b.FormatLength());

        FreeMediaType(c);
        EXPECT_EQ(nullptr, c.pUnk);
        EXPECT_EQ(4, unk.refs); // partial's copy took one, c gave its back
    }
    EXPECT_EQ(1, unk.refs);

    CMediaType empty;
    EXPECT_FALSE(empty.IsValid());
    EXPECT_TRUE(empty.IsFixedSize());
    EXPECT_EQ(1u, empty.GetSampleSize());
}

} // namespace
