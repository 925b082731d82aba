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
    const std::filesystem::path suite = std::filesystem::path(data) / "jsontestsuite";
    std::map<std::string, std::string> expected;
    std::ifstream list(suite / "expected_verdicts.txt");
    for (std::string name, verdict; list >> name >> verdict;) {
        expected[name] = verdict;
    }
    ASSERT_GT(expected.size(), 300u);
    krvtest::StdoutCapture quiet;  // some documents are too long for a log line
    krvtest::DiagCapture diags;
    size_t seen = 0;
    for (const auto &entry : std::filesystem::directory_iterator(suite / "test_parsing")) {
        const std::string name = entry.path().filename().string();
        KrvJson *root = nullptr;
        uint32_t status = KRV_JsonParse(entry.path().c_str(), &root);
        EXPECT_EQ(status == 0 ? "accept" : "reject", expected[name]) << name << " status " << status;
        // A success leaves no diagnostics; a refusal of a well-formed file is always status 1.
        EXPECT_TRUE(status == 0 ? root != nullptr && diags.Take().empty() : status == 1 && root == nullptr) << name;
        KRV_JsonDelete(root);
        diags.Take();
        ++seen;
    }
    EXPECT_EQ(seen, expected.size());  // and every file had a verdict
}

}  // namespace
