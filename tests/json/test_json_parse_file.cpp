// Parsing from files: the text up to the first NUL, and every way a file can fail to be read.
#include <gtest/gtest.h>

#include <fstream>
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

}  // namespace
