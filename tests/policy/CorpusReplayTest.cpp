// Everything that the fuzzers know, through the same checks, in every normal run.
#include <gtest/gtest.h>

#include <filesystem>

#include "fuzz/policy/Inputs.h"
#include "support/LogCapture.h"
#include "support/ProjectFile.h"
#include "support/TempDir.h"

namespace {

using Feed = void (*)(const uint8_t*, size_t);

void replay(const std::string& corpus, Feed feed) {
    const sonorel::test::LogCapture quiet;
    int count = 0;
    const std::string folder = sonorel::test::projectFile("fuzz/policy/corpus/" + corpus);
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        SCOPED_TRACE(entry.path().filename().string());
        const std::string bytes = sonorel::test::readFile(entry.path().string());
        feed(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        ++count;
    }
    EXPECT_LT(0, count);
}

TEST(CorpusReplay, MetaPolicy) {
    replay("meta_policy_fuzzer", sonorel::fuzz::feedMetaPolicy);
}

TEST(CorpusReplay, MssConfiguration) {
    replay("mss_configuration_fuzzer", sonorel::fuzz::feedMssConfiguration);
}

}  // namespace
