// A public JSON parser test suite, each file judged by the library's dialect: the verdicts in
// tests/data/jsontestsuite/expected_verdicts.txt were derived from the dialect's rules separately
// (derive_verdicts.py beside them), not recorded from this parser.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "krv_json.h"
#include "support/krv_test_support.h"

namespace {

TEST(JsonCorpus, EveryFileGetsItsExpectedVerdict)
{
    const char *data = std::getenv("KRV_TEST_DATA");
    ASSERT_NE(data, nullptr);
    std::filesystem::path suite = std::filesystem::path(data) / "jsontestsuite";
    std::map<std::string, std::string> expected;
    std::ifstream list(suite / "expected_verdicts.txt");
    for (std::string name, verdict; list >> name >> verdict;) {
        expected[name] = verdict;
    }
    ASSERT_GT(expected.size(), 300u);

    krvtest::StdoutCapture quiet;  // some documents are too long for a log line
    krvtest::DiagCapture diags;
    unsigned seen = 0;
    for (const auto &entry : std::filesystem::directory_iterator(suite / "test_parsing")) {
        std::string name = entry.path().filename().string();
        ASSERT_EQ(expected.count(name), 1u) << name << " has no verdict";
        KrvJson *root = nullptr;
        uint32_t status = KRV_JsonParse(entry.path().c_str(), &root);
        std::string verdict = status == 0 ? "accept" : "reject";
        EXPECT_EQ(verdict, expected[name]) << name << " status " << status;
        EXPECT_TRUE(status == 0 || status == 1) << name;
        EXPECT_EQ(status == 0, root != nullptr) << name;
        KRV_JsonDelete(root);
        std::vector<krvtest::Diag> lines = diags.Take();
        EXPECT_TRUE(status != 0 || lines.empty()) << name << ": a success leaves no diagnostics";
        ++seen;
    }
    EXPECT_EQ(seen, expected.size());
}

}  // namespace
