// Feeds every seed and every earlier find of one fuzzer to its entry function.

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>

#include "support/TempDir.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

TEST(CorpusReplay, EveryFilePasses) {
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(SONOREL_CORPUS)) {
        SCOPED_TRACE(entry.path().filename().string());
        const std::string content = sonorel::test::readFile(entry.path().string());
        (void)LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(content.data()),
                                     content.size());
        ++files;
    }
    EXPECT_GT(files, 0);
}

}  // namespace
