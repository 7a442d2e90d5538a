// The file handles of the AVI writer: unbuffered writes at aligned positions read back exactly, the
// fall back where unbuffered I/O is refused, 64-bit positions, and errors as HRESULTs.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "platform/file.h"
#include "platform/hresult.h"
#include "platform/virtual_memory.h"

namespace {

std::string TempPath(const char* name) {
    const testing::TestInfo* info = testing::UnitTest::GetInstance()->current_test_info();
    return std::string("qvn_platform_") + info->name() + "_" + name;
}

std::vector<unsigned char> ReadAll(const std::string& path) {
    QVN::CFile file;
    EXPECT_EQ(file.OpenRead(path.c_str()), S_OK);
    std::vector<unsigned char> data;
    unsigned char buffer[65536];
    std::size_t got = 0;
    while (file.Read(buffer, sizeof buffer, &got) == S_OK && got > 0)
        data.insert(data.end(), buffer, buffer + got);
    return data;
}

// Writes headers through a cached handle and 4096-aligned blocks through an unbuffered one, the way the
// AVI writer interleaves them, and checks every byte.
void CheckMixedWrites(const std::string& path, bool* wasUnbuffered) {
    QVN::CFile cached, direct;
    ASSERT_EQ(cached.Open(path.c_str(), QVN::FileCreation::kCreateAlways, QVN::FileBuffering::kCached), S_OK);
    ASSERT_EQ(direct.Open(path.c_str(), QVN::FileCreation::kOpenExisting, QVN::FileBuffering::kUnbuffered),
              S_OK);
    *wasUnbuffered = direct.IsUnbuffered();
    const std::size_t blockBytes = 3 * 4096;
    auto* block = static_cast<unsigned char*>(QVN::CommitPages(blockBytes));
    ASSERT_NE(block, nullptr);
    for (std::size_t i = 0; i < blockBytes; ++i)
        block[i] = static_cast<unsigned char>(i * 7 + 3);
    const char header[] = "RIFF-header";
    ASSERT_EQ(cached.Write(header, sizeof header), S_OK);
    ASSERT_EQ(direct.WriteAt(4096, block, blockBytes), S_OK);
    ASSERT_EQ(cached.Seek(4096 + blockBytes), S_OK);
    ASSERT_EQ(cached.Write(header, 5), S_OK);
    std::uint64_t pos = 0;
    ASSERT_EQ(cached.Position(&pos), S_OK);
    EXPECT_EQ(pos, 4096 + blockBytes + 5);
    ASSERT_EQ(direct.WriteAt(8 * 4096, block, 4096), S_OK);
    ASSERT_EQ(cached.Close(), S_OK);
    ASSERT_EQ(direct.Close(), S_OK);
    const auto data = ReadAll(path);
    ASSERT_EQ(data.size(), 9u * 4096);
    EXPECT_EQ(std::memcmp(data.data(), header, sizeof header), 0);
    EXPECT_EQ(std::memcmp(data.data() + 4096, block, blockBytes), 0);
    EXPECT_EQ(std::memcmp(data.data() + 4096 + blockBytes, header, 5), 0);
    EXPECT_EQ(std::memcmp(data.data() + 8 * 4096, block, 4096), 0);
    QVN::ReleasePages(block, blockBytes);
    EXPECT_EQ(QVN::DeleteFileUtf8(path.c_str()), S_OK);
}

TEST(File, UnbufferedAndCachedWritesInterleaveByteExactly) {
    bool unbuffered = false;
    CheckMixedWrites(TempPath("disk.bin"), &unbuffered);
#if !defined(_WIN32)
    // The build tree is on a disk file system that supports direct I/O on the machines we test on.
    EXPECT_TRUE(unbuffered) << "O_DIRECT was expected to work in the build tree";
#endif
}

void SetEnv(const char* name, const char* value) {
#ifdef _WIN32
    _putenv_s(name, value);
#else
    setenv(name, value, 1);
#endif
}

TEST(File, ARefusedUnbufferedOpenFallsBackToACachedHandle) {
    // QVN_NO_UNBUFFERED makes the open take the same path as a file system without direct I/O (recent
    // kernels give even tmpfs O_DIRECT, so no file system at hand refuses it).
    SetEnv("QVN_NO_UNBUFFERED", "1");
    bool unbuffered = true;
    CheckMixedWrites(TempPath("refused.bin"), &unbuffered);
    SetEnv("QVN_NO_UNBUFFERED", "0");
    EXPECT_FALSE(unbuffered) << "the handle must have fallen back to cached I/O";
}

#if !defined(_WIN32)
TEST(File, AMisalignedWriteThroughADirectHandleFailsAsOnWindows) {
    // Windows refuses it with ERROR_INVALID_PARAMETER. A handle that quietly turned cached instead would let
    // a misaligned payload pass every native test and fail in the product.
    const std::string path = TempPath("misaligned.bin");
    QVN::CFile file;
    ASSERT_EQ(file.Open(path.c_str(), QVN::FileCreation::kCreateAlways, QVN::FileBuffering::kUnbuffered),
              S_OK);
    ASSERT_TRUE(file.IsUnbuffered());
    EXPECT_EQ(file.WriteAt(3, "odd", 3), HRESULT_FROM_WIN32(QVN::kErrorInvalidParameter));
    EXPECT_TRUE(file.IsUnbuffered()) << "still direct for the next write";
    ASSERT_EQ(file.Close(), S_OK);
    EXPECT_EQ(ReadAll(path).size(), 0u);
    EXPECT_EQ(QVN::DeleteFileUtf8(path.c_str()), S_OK);
}
#endif

TEST(File, PositionsBeyondFourGigabytesAreExact) {
    const std::string path = TempPath("big.bin");
    QVN::CFile file;
    ASSERT_EQ(file.Open(path.c_str(), QVN::FileCreation::kCreateAlways, QVN::FileBuffering::kCached), S_OK);
    const std::uint64_t beyond = (std::uint64_t{5} << 30) + 12345;
    ASSERT_EQ(file.WriteAt(beyond, "tail", 4), S_OK);
    std::uint64_t size = 0;
    ASSERT_EQ(file.Size(&size), S_OK);
    EXPECT_EQ(size, beyond + 4);
    ASSERT_EQ(file.Seek(beyond - 2), S_OK);
    std::uint64_t pos = 0;
    ASSERT_EQ(file.Position(&pos), S_OK);
    EXPECT_EQ(pos, beyond - 2);
    ASSERT_EQ(file.Write("ab", 2), S_OK);
    ASSERT_EQ(file.Position(&pos), S_OK);
    EXPECT_EQ(pos, beyond);
    ASSERT_EQ(file.Close(), S_OK);
    EXPECT_EQ(QVN::DeleteFileUtf8(path.c_str()), S_OK);
}

TEST(File, FailuresBecomeTheHresultsWindowsReports) {
    QVN::CFile file;
    EXPECT_EQ(
        file.Open("no-such-folder-qvn/x.avi", QVN::FileCreation::kCreateAlways, QVN::FileBuffering::kCached),
        HRESULT_FROM_WIN32(QVN::kErrorPathNotFound));
    EXPECT_EQ(
        file.Open("no-such-file-qvn.avi", QVN::FileCreation::kOpenExisting, QVN::FileBuffering::kCached),
        HRESULT_FROM_WIN32(QVN::kErrorFileNotFound));
    EXPECT_EQ(file.Open(".", QVN::FileCreation::kCreateAlways, QVN::FileBuffering::kUnbuffered),
              HRESULT_FROM_WIN32(QVN::kErrorAccessDenied))
        << "a folder is not a file to write";
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(file.Write("x", 1), HRESULT_FROM_WIN32(QVN::kErrorInvalidHandle));
    EXPECT_EQ(QVN::DeleteFileUtf8("no-such-file-qvn.avi"), S_OK) << "deleting nothing is not an error";
    // The errno table, pinned: these are the values the README documents.
    // EXDEV has no mapping: E_FAIL.
    const int errors[] = {0,      ENOENT, EACCES,       EBADF, ENOMEM, EROFS,  EEXIST,
                          EINVAL, ENOSPC, ENAMETOOLONG, EFBIG, EIO,    EMFILE, EXDEV};
    const std::uint32_t results[] = {0,           0x80070002u, 0x80070005u, 0x80070006u, 0x8007000Eu,
                                     0x80070013u, 0x80070050u, 0x80070057u, 0x80070070u, 0x800700CEu,
                                     0x800700DFu, 0x8007045Du, 0x80070004u, 0x80004005u};
    for (std::size_t i = 0; i < std::size(errors); ++i)
        EXPECT_EQ(static_cast<std::uint32_t>(QVN::HresultFromErrno(errors[i])), results[i])
            << "errno " << errors[i];
}

} // namespace
