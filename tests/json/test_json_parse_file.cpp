// Parsing from files, and running out of memory at every allocation a parse makes.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "krv_json.h"
#include "support/krv_test_support.h"

namespace {

using Msgs = std::vector<std::string>;

std::string WriteFile(const krvtest::TempDir &dir, const std::string &name, const std::string &content)
{
    std::string path = dir.Path() + "/" + name;
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

uint32_t ParseFile(const std::string &path, Msgs *msgs)
{
    krvtest::DiagCapture diags;
    KrvJson *root = nullptr;
    uint32_t status = KRV_JsonParse(path.c_str(), &root);
    EXPECT_EQ(status == 0, root != nullptr) << path;
    KRV_JsonDelete(root);
    *msgs = diags.Messages();
    return status;
}

TEST(JsonParseFile, ReadsTheTextUpToTheFirstNul)
{
    krvtest::TempDir dir;
    Msgs msgs;
    EXPECT_EQ(ParseFile(WriteFile(dir, "nul.json", std::string("{\"a\":1}\0garbage", 15)), &msgs), 0u);
    EXPECT_TRUE(msgs.empty());
    EXPECT_EQ(ParseFile(WriteFile(dir, "crlf.json", "\r\n[ \"x\" ]\r\n"), &msgs), 0u);

    EXPECT_EQ(ParseFile(WriteFile(dir, "empty.json", ""), &msgs), 1u);
    EXPECT_EQ(msgs, Msgs{"fileSize:0 error"});
    EXPECT_EQ(ParseFile(WriteFile(dir, "zeros.json", std::string(3, '\0')), &msgs), 1u);
    EXPECT_EQ(msgs, (Msgs{"jsonStrLen:0 error", "Json Parse By String failed, fileBuffer :"}));
    EXPECT_EQ(ParseFile(WriteFile(dir, "tail.json", "[1] 2"), &msgs), 1u);
    EXPECT_EQ(msgs, (Msgs{"fileSize :6, offset is :4", "parse failed, jsonStr is [1] 2",
                          "Json Parse By String failed, fileBuffer :[1] 2"}));
}

TEST(JsonParseFile, ReportsPathsThatCannotBeRead)
{
    krvtest::TempDir dir;
    Msgs msgs;
    EXPECT_EQ(ParseFile(dir.Path() + "/missing.json", &msgs), 1u);
    EXPECT_EQ(msgs, Msgs{"stat failed, errno is :2"});
    std::string notDir = WriteFile(dir, "plain", "{}") + "/x.json";
    EXPECT_EQ(ParseFile(notDir, &msgs), 1u);
    EXPECT_EQ(msgs, Msgs{" getRealPath failed, fileName is :" + notDir});
    // A directory either reports no size or fails its read, depending on the file system.
    EXPECT_EQ(ParseFile(dir.Path(), &msgs), 1u);
    ASSERT_EQ(msgs.size(), 1u);
    EXPECT_TRUE(msgs[0] == "file read failed, freadRet: 0" || msgs[0] == "fileSize:0 error") << msgs[0];

    krvtest::DiagCapture diags;
    KrvJson *root = nullptr;
    EXPECT_EQ(KRV_JsonParse(nullptr, &root), 22u);
    EXPECT_EQ(KRV_JsonParse("x.json", nullptr), 22u);
    EXPECT_EQ(diags.Messages(), (Msgs{"invaild param", "invaild param"}));
}

// Fails each allocation of one parse in turn until the parse needs no more: every refusal must
// come back as out-of-memory (or, where only a lookup aid was lost, as the normal result), with
// nothing leaked and the final run giving the normal result.
void FailEachAllocation(const std::function<uint32_t(KrvJson **)> &parse, uint32_t normal,
                        const std::vector<uint32_t> &alsoAllowed = {})
{
    krvtest::StdoutCapture quiet;  // without a hook, diagnostics go to standard output
    for (unsigned skip = 0;; ++skip) {
        KrvJson *root = nullptr;
        uint32_t status;
        unsigned failed;
        {
            krvtest::AllocFailure fault(skip, 1);
            status = parse(&root);
            failed = fault.Failed();
        }
        EXPECT_EQ(status == 0, root != nullptr);
        KRV_JsonDelete(root);
        if (failed == 0) {
            EXPECT_EQ(status, normal);
            return;
        }
        bool allowed = status == 12 || status == normal;
        for (uint32_t other : alsoAllowed) {
            allowed = allowed || status == other;
        }
        EXPECT_TRUE(allowed) << "allocation " << skip << " gave " << status;
    }
}

TEST(JsonParseFile, SurvivesAllocationFailureAnywhere)
{
    std::string members = "{";
    for (int i = 0; i < 40; ++i) {
        members += "\"k" + std::to_string(i) + "\":\"v\",";
    }
    const std::pair<std::string, uint32_t> texts[] = {
        {"{\"s\":\"x\",\"n\":1.5,\"a\":[true,true],\"o\":{\"k\":null},\"e\":[],\"f\":false}", 0},
        {members + "\"end\":{}}", 0},
        {members + "\"k3\":0}", 1},  // the repeat is still found once the name index is lost
        {std::string(30, '[') + std::string(30, ']'), 1},
    };
    for (const auto &[text, normal] : texts) {
        FailEachAllocation([&](KrvJson **root) { return KRV_JsonParseByString(text.c_str(), root); }, normal);
    }
    krvtest::TempDir dir;
    std::string path = WriteFile(dir, "doc.json", "{\"a\":[\"b\"]}");
    // The C library's own allocations inside path resolution and fopen surface as their failures.
    FailEachAllocation([&](KrvJson **root) { return KRV_JsonParse(path.c_str(), root); }, 0, {1});
}

}  // namespace
