// qvnhost inspect on good files, on truncated and corrupted copies of them, and on bad command lines.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <functional>
#include <random>

#include "test_files.h"

using namespace avitest;

namespace {

void Save(const std::filesystem::path& path, const Bytes& b) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(b.data()), static_cast<std::streamsize>(b.size()));
}

void Put32(Bytes& b, std::uint64_t at, std::uint32_t v) {
    std::memcpy(b.data() + at, &v, 4);
}

// One small export, shared by the tests of this file.
class InspectTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        dir_ = new TempDir("inspect");
        ASSERT_EQ(WriteExport(Good(), ExportConfig{"UYVY", 64, 48, 10, 2}).status, 0u);
    }
    static void TearDownTestSuite() { delete dir_; }
    static std::filesystem::path Good() { return *dir_ / "good.avi"; }
    static TempDir* dir_;
};
TempDir* InspectTest::dir_ = nullptr;

} // namespace

TEST_F(InspectTest, GoodFileIsConsistentAsTextAndJson) {
    const Inspected text = Inspect({Good().string()});
    EXPECT_EQ(text.code, 0) << text.out;
    for (const char* line :
         {"\nconsistent\n", "form=\"AVI \"", "total_frames=10", "type=\"vids\" handler=\"UYVY\"",
          "standard_index id=\"ix01\"", "text=\"QVN AVI Writer v1.0\""})
        EXPECT_NE(text.out.find(line), std::string::npos) << line;
    EXPECT_EQ(text.out.find("problem: "), std::string::npos);
    const Inspected json = Inspect({"--json", Good().string()});
    EXPECT_EQ(json.code, 0);
    EXPECT_EQ(json.out.rfind("{\"path\":", 0), 0u);
    for (const char* field : {"\"consistent\":true,\"problems\":[]", "\"form\":\"movi\"", "\"length\":10"})
        EXPECT_NE(json.out.find(field), std::string::npos) << field;
    long depth = 0;
    for (char ch : json.out) {
        depth += ch == '{' || ch == '[';
        depth -= ch == '}' || ch == ']';
        ASSERT_GE(depth, 0);
    }
    EXPECT_EQ(depth, 0);
}

TEST_F(InspectTest, EveryTruncationIsReportedWithoutACrash) {
    const Bytes good = ReadAll(Good());
    const auto cut = *dir_ / "cut.avi";
    std::vector<std::size_t> lengths = {
        0, 3, 11, 12, 30, 99, 150, 70000, good.size() - 1, good.size() - 4096};
    for (std::size_t at = 1000; at < good.size(); at += good.size() / 37)
        lengths.push_back(at);
    for (std::size_t n : lengths) {
        Save(cut, Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(n)));
        const Inspected o = Inspect({cut.string()});
        EXPECT_EQ(o.code, 1) << n;
        if (n < 12)
            EXPECT_NE(o.out.find("not an AVI file"), std::string::npos) << n << o.out;
        else
            EXPECT_NE(o.out.find("problem: truncated"), std::string::npos) << n << o.out;
    }
}

TEST_F(InspectTest, CorruptedIndexesAndCountersAreNamed) {
    const Bytes good = ReadAll(Good());
    const auto bad = *dir_ / "bad.avi";
    const std::uint64_t videoIndx = 212, audioStrh = kAudioStrh;
    const std::uint64_t ix00 = U64(good, videoIndx + 32);
    // idx1 sits after the movi list, which follows the header list.
    const std::uint64_t movi = 20 + U32(good, 16);
    const std::uint64_t idx1 = movi + 8 + U32(good, movi + 4);
    ASSERT_EQ(Tag(good, idx1), "idx1");
    ASSERT_EQ(Tag(good, ix00), "ix00");
    struct Case {
        std::string expect;
        std::function<void(Bytes&)> corrupt;
    };
    const std::vector<Case> cases = {
        {"avih total frames is 11", [](Bytes& b) { Put32(b, 48, 11); }},
        {"strh length is 9", [](Bytes& b) { Put32(b, 140, 9); }},
        {"stream 1: strh length is 1", [&](Bytes& b) { Put32(b, audioStrh + 40, 1); }},
        {"idx1 entry 2", [&](Bytes& b) { Put32(b, idx1 + 8 + 2 * 16 + 8, 12345); }},
        {"idx1 entry 0", [&](Bytes& b) { Put32(b, idx1 + 8 + 12, 77); }},
        {"'ix00' at " + std::to_string(ix00) + " entry 3",
         [&](Bytes& b) { Put32(b, ix00 + 32 + 3 * 8 + 4, 5); }},
        {"stream 0 indx entry 0 points at", [&](Bytes& b) { Put32(b, videoIndx + 32, 4096); }},
        {"indx entry 0 has duration 3", [&](Bytes& b) { Put32(b, videoIndx + 44, 3); }},
        {"avih says 3 streams", [](Bytes& b) { Put32(b, 56, 3); }},
        {"not an AVI file: it starts with 'RIFX'", [](Bytes& b) { b[3] = 'X'; }},
        {"not an AVI file: a RIFF file of form 'WAVE'",
         [](Bytes& b) { std::memcpy(b.data() + 8, "WAVE", 4); }},
    };
    for (const Case& c : cases) {
        Bytes copy = good;
        c.corrupt(copy);
        Save(bad, copy);
        const Inspected o = Inspect({bad.string()});
        EXPECT_EQ(o.code, 1) << c.expect;
        EXPECT_NE(o.out.find(c.expect), std::string::npos) << c.expect << "\n" << o.out;
    }
    // Random damage anywhere: always an answer, never a crash (the sanitizer builds watch every read).
    std::mt19937 random(42);
    for (int round = 0; round < 150; ++round) {
        Bytes copy = good;
        for (int k = 0; k < 8; ++k) {
            const std::size_t at = random() % (round % 2 ? 600 : copy.size());
            copy[at] = static_cast<unsigned char>(random());
        }
        Save(bad, copy);
        const Inspected o = Inspect({bad.string()});
        EXPECT_TRUE(o.code == 0 || o.code == 1) << round;
    }
}

TEST(Inspect, UsageErrorsExitWithTwoAndOneLine) {
    for (const std::vector<std::string>& args :
         std::vector<std::vector<std::string>>{{}, {"--bogus", "x.avi"}, {"a.avi", "b.avi"}, {"--json"}}) {
        const Inspected o = Inspect(args);
        EXPECT_EQ(o.code, 2);
        EXPECT_EQ(std::count(o.err.begin(), o.err.end(), '\n'), 1) << o.err;
        EXPECT_EQ(o.out, "");
    }
    const Inspected missing = Inspect({"/nonexistent/dir/file.avi"});
    EXPECT_EQ(missing.code, 1);
    EXPECT_NE(missing.err.find("cannot open"), std::string::npos);
}
