// Page-committed memory, guarded buffers and text conversions.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "platform/text_encoding.h"
#include "platform/virtual_memory.h"

namespace {

TEST(VirtualMemory, BlocksArePageAlignedZeroedAndWritable) {
    const std::size_t page = QVN::PageSize();
    ASSERT_GE(page, 4096u);
    ASSERT_EQ(page % 4096, 0u) << "unbuffered file writes rely on 4096-aligned blocks";
    for (std::size_t bytes : {std::size_t{1}, std::size_t{4097}, std::size_t{1920 * 1080 * 4 + 16}}) {
        auto* block = static_cast<unsigned char*>(QVN::CommitPages(bytes));
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % page, 0u);
        EXPECT_EQ(block[0], 0);
        EXPECT_EQ(block[bytes - 1], 0);
        std::memset(block, 0x5A, bytes);
        QVN::ReleasePages(block, bytes);
    }
    EXPECT_EQ(QVN::CommitPages(0), nullptr);
}

TEST(VirtualMemory, GuardedBufferEndsOrStartsOnTheGuardPage) {
    const std::size_t page = QVN::PageSize();
    QVN::CGuardedBuffer end(1000);
    ASSERT_NE(end.data(), nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(end.data() + end.size()) % page, 0u);
    std::memset(end.data(), 1, end.size());
    QVN::CGuardedBuffer start(1000, false);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(start.data()) % page, 0u);
    std::memset(start.data(), 1, start.size());
#if !defined(_WIN32)
    EXPECT_DEATH({ end.data()[end.size()] = 1; }, "") << "one byte past the end must fault";
    EXPECT_DEATH({ start.data()[-1] = 1; }, "") << "one byte before the start must fault";
#endif
}

TEST(TextEncoding, RoundTripsEveryPlaneAndReplacesMalformedInput) {
    // "Ä", "€", U+1F3AC (a surrogate pair in UTF-16) and plain ASCII.
    const std::string utf8 = "clip \xC3\x84 \xE2\x82\xAC \xF0\x9F\x8E\xAC.avi";
    const std::u16string utf16 = QVN::Utf8ToUtf16(utf8);
    const std::u16string expected = u"clip \u00C4 \u20AC \U0001F3AC.avi";
    EXPECT_EQ(utf16, expected);
    EXPECT_EQ(QVN::Utf16ToUtf8(utf16), utf8);
    EXPECT_EQ(QVN::WideToUtf8(QVN::Utf8ToWide(utf8)), utf8);
    EXPECT_EQ(QVN::Utf8ToUtf16("a\xFF"
                               "b"),
              u"a\uFFFDb")
        << "a stray byte";
    EXPECT_EQ(QVN::Utf8ToUtf16("a\xE2\x82"), u"a\uFFFD\uFFFD") << "a sequence cut short";
    EXPECT_EQ(QVN::Utf8ToUtf16("\xC0\xAF"), u"\uFFFD\uFFFD") << "an overlong encoding";
    EXPECT_EQ(QVN::Utf16ToUtf8(std::u16string(1, u'\xD800') + u"x"), "\xEF\xBF\xBDx") << "a lone surrogate";
}

} // namespace
