// Parsing whole documents from text and files: the dialect, the trees built, the nesting counter,
// depths far beyond it on a small stack, and the exact diagnostics of every refusal.
#include <gtest/gtest.h>
#include <pthread.h>

#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "krv_json.h"
#include "support/krv_test_support.h"

namespace {

// The tree as text: key=type, then ":value" for scalars, "/arrType/arrLen" for arrays and the
// children in parentheses.
std::string Dump(const KrvJson *node)
{
    std::ostringstream out;
    out << node->key << '=' << node->valueType;
    if (node->valueType == KRV_JSON_NUMBER) {
        out << ':' << node->numberValue;
    } else if (node->valueType == KRV_JSON_STRING) {
        out << ':' << node->stringValue;
    } else if (node->valueType == KRV_JSON_ARRAY) {
        out << '/' << node->arrType << '/' << node->arrLen;
    }
    for (const KrvJsonChild *link = node->child; link != nullptr; link = link->next) {
        out << (link == node->child ? "(" : " ") << Dump(link->item) << (link->next == nullptr ? ")" : "");
    }
    return out.str();
}

// Parses a text (or the file it names) on a thread whose whole stack is 512 KiB, so that no depth
// may cost call stack. Returns the dump of the tree; for a refusal, its diagnostics as "code msg"
// joined by " | ", where a text's closing "parse failed" line is checked and left out (the log
// drops it whole when it is too long).
std::string Parse(const std::string &source, bool fromFile = false)
{
    krvtest::DiagCapture diags;
    KrvJson *const untouched = reinterpret_cast<KrvJson *>(0x1);
    KrvJson *root = untouched;
    uint32_t status = 0;
    std::function<void()> body = [&] {
        status = fromFile ? KRV_JsonParse(source.c_str(), &root) : KRV_JsonParseByString(source.c_str(), &root);
    };
    auto run = [](void *arg) -> void * {
        (*static_cast<std::function<void()> *>(arg))();
        return nullptr;
    };
    pthread_attr_t attr;
    pthread_t thread;
    EXPECT_EQ(pthread_attr_init(&attr) | pthread_attr_setstacksize(&attr, 512 * 1024), 0);
    EXPECT_EQ(pthread_create(&thread, &attr, run, &body), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attr);
    EXPECT_EQ(status == 0, root != untouched) << "*json is written on success only";
    std::vector<std::string> lines;
    for (const krvtest::Diag &d : diags.Take()) {
        EXPECT_TRUE(d.level == 2 && d.file == "krv_json") << d.msg;
        lines.push_back(std::to_string(d.code) + " " + d.msg);
    }
    if (!fromFile && root == untouched && source.size() < 1000) {
        EXPECT_EQ(lines.empty() ? "" : lines.back(), "1 parse failed, jsonStr is " + source);
        lines.resize(lines.empty() ? 0 : lines.size() - 1);
    }
    std::string out = root != untouched ? Dump(root) : "";
    KRV_JsonDelete(root != untouched ? root : nullptr);
    for (const std::string &line : lines) {
        out += (out.empty() ? "" : " | ") + line;
    }
    return out;
}

std::string Nest(unsigned depth, const std::string &open, const std::string &inner, const std::string &close)
{
    std::string text;
    for (unsigned i = 0; i < depth; ++i) {
        text += open;
    }
    text += inner;
    for (unsigned i = 0; i < depth; ++i) {
        text += close;
    }
    return text;
}

const std::string kNested = "1 The max nested layer json supported is 20", kNoValue = "1 valuetype isn't match, parser err";

TEST(JsonParse, TextsGiveTheirTreesOrTheirExactRefusals)
{
    std::string big = "{";  // large objects find repeats through a name index; the texts must not change
    for (int i = 0; i < 3000; ++i) {
        big += "\"m" + std::to_string(i) + "\":" + std::to_string(i) + ",";
    }
    const std::string limit(4096, 'x'), name31(31, 'k');
    const std::pair<std::string, std::string> cases[] = {
        {" {\"s\" : \"a\\\\b\xE2\x82\xAC\", \"n\":1.5,\"z\":null,\"t\":true,\"f\":false,\"a\":[3, 2. ,1],\"e\":{},\"l\":[]}\r\n\t",
         "=6(s=4:a\\\\b\xE2\x82\xAC n=3:1.5 z=0 t=1 f=2 a=5/3/3(=3:3 =3:2 =3:1) e=6 l=5/7/0)"},
        {"[[1],[\"a\"],[]]", "=5/5/3(=5/3/1(=3:1) =5/4/1(=4:a) =5/7/0)"},  // only the outer element type counts
        {"\x01[\x1f\"\"\x02]\x10", "=5/4/1(=4:)"},  // every byte up to 0x20 is blank
        {"007.250", "=3:7.25"}, {"\"" + limit + "\"", "=4:" + limit}, {"{\"" + name31 + "\":null}", "=6(" + name31 + "=0)"},
        {"-1", kNoValue}, {"[1,]", kNoValue},
        // Literals and numbers end where the dialect stops reading; the rest is trailing content.
        {"1e5", "1 fileSize :4, offset is :1"}, {"\"a\\\"b\"", "1 fileSize :7, offset is :4"},
        {"[truex]", "1 offset: x isn't ]"}, {std::string(400, '9'), ""},  // a range error has no text
        {"\"abc", "1 idx:4 isn't vaild"}, {"[\"" + limit + "y\"]", "1 strLen:4097 > MAXPATH"},
        {"[1, \"a\"]", "1 arrType:3, type:4"}, {"[true, false]", "1 arrType:1, type:2"},
        {"{\"" + name31 + "k\":1}", "1 strcpy failed，errcode: 34"},
        {"{\"a\":1,\"b\":2,\"a\":3}", "1 key: a is equal with child'skey: a"},
        {"{\"a\":1,\"a\":2}", "1 key: a is equal with child's key: a"},
        {big + "\"m1500\":0}", "1 key: m1500 is equal with child'skey: m1500"},
        {big + "\"m2999\":0}", "1 key: m2999 is equal with child's key: m2999"},
        {"{\"a\" 1}", "1 next symbol is not \":\""}, {"{\"a\":1 \"b\":2}", "1 next symbol is not \"}\""},
        {"{1:2}", "1 offset:1 isn't \""},
        {"[" + Nest(99999, "12.5,", "7", "") + "]", "=5/3/100000(" + Nest(99999, "=3:12.5 ", "=3:7", "") + ")"},
    };
    for (const auto &[text, outcome] : cases) {
        EXPECT_EQ(Parse(text), outcome) << text.substr(0, 60);
    }
    KRV_JsonDelete(nullptr);
}

TEST(JsonParse, NestingLimitCountsLevelsAndAnyDepthIsFollowedToItsBottom)
{
    EXPECT_EQ(Parse(Nest(19, "[", "[]", "]"))[0], '=');  // twenty levels
    EXPECT_EQ(Parse(Nest(21, "[", "", "]")), kNested);
    EXPECT_EQ(Parse(Nest(20, "[", "1", "]")), kNested);  // the number sits at level 21
    EXPECT_EQ(Parse(Nest(20, "{\"k\":", "1", "}")), kNested);
    // The limit is checked after each child, so it hides faults further along the same level; within
    // it, a repeated name is still reported as such.
    EXPECT_EQ(Parse(Nest(30, "[", "1,\"a\"", "]")), kNested);
    EXPECT_EQ(Parse(Nest(18, "{\"a\":", "{\"b\":1,\"b\":2}", "}")), "1 key: b is equal with child's key: b");
    constexpr unsigned kDepth = 100000;
    EXPECT_EQ(Parse(Nest(kDepth, "[", "", "")), "1 idx isn't vaild");
    EXPECT_EQ(Parse(Nest(kDepth, "[", "", "]")), kNested);
    EXPECT_EQ(Parse(Nest(kDepth / 2, "[{\"k\":", "x", "")), kNoValue);
}

TEST(JsonParse, FilesAreReadUpToTheFirstNulAndArgumentsChecked)
{
    krvtest::TempDir dir;
    auto file = [&](const std::string &name, const std::string &content) {
        std::ofstream(dir.Path() + "/" + name, std::ios::binary) << content;
        return dir.Path() + "/" + name;
    };
    const std::string notDir = file("plain", "{}") + "/x.json";
    const std::pair<std::string, std::string> cases[] = {
        {file("nul.json", std::string("{\"a\":1}\0garbage", 15)), "=6(a=3:1)"},
        {file("empty.json", ""), "1 fileSize:0 error"},
        {file("tail.json", "[1] 2"), "1 fileSize :6, offset is :4 | 1 parse failed, jsonStr is [1] 2 | "
                                     "1 Json Parse By String failed, fileBuffer :[1] 2"},
        {dir.Path() + "/missing.json", "1 stat failed, errno is :2"},
        {notDir, "1  getRealPath failed, fileName is :" + notDir},
    };
    for (const auto &[path, outcome] : cases) {
        EXPECT_EQ(Parse(path, true), outcome);
    }

    krvtest::DiagCapture diags;
    KrvJson *root = nullptr;
    EXPECT_EQ(KRV_JsonParse(nullptr, &root), 22u);
    EXPECT_EQ(KRV_JsonParseByString("{}", nullptr), 22u);
    EXPECT_EQ(KRV_JsonParseByString("", &root), 1u);
    const std::vector<std::string> texts = {"invaild param", "invaild param", "jsonStrLen:0 error"};
    EXPECT_EQ(diags.Messages(), texts);
}

}  // namespace
