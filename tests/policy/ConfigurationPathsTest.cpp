#include "policy/ConfigurationPaths.h"

#include <cutils/properties.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using android::configurationPaths;
using ::testing::ElementsAre;

TEST(ConfigurationPaths, PlainProduct) {
    EXPECT_THAT(configurationPaths(false, "", ""),
                ElementsAre("/odm/etc", "/my_product/etc", "/vendor/etc/audio", "/vendor/etc",
                            "/system/etc"));
}

TEST(ConfigurationPaths, AidlVolumeAddsTheOdmAudioFolder) {
    EXPECT_THAT(configurationPaths(true, "", "1"),
                ElementsAre("/odm/etc", "/odm/etc/audio", "/my_product/etc", "/vendor/etc/audio",
                            "/vendor/etc", "/system/etc"));
}

TEST(ConfigurationPaths, SkuWithVariant) {
    EXPECT_THAT(configurationPaths(true, "abc", "1"),
                ElementsAre("/odm/etc", "/odm/etc/audio", "/my_product/etc",
                            "/vendor/etc/audio/sku_abc_qssi", "/vendor/etc/audio/sku_abc",
                            "/vendor/etc/audio", "/vendor/etc", "/system/etc"));
}

TEST(ConfigurationPaths, SkuWithoutVariantStandsTwice) {
    for (const char* vaAosp : {"", "0", "01", "x1", "true"}) {
        EXPECT_THAT(configurationPaths(false, "abc", vaAosp),
                    ElementsAre("/odm/etc", "/my_product/etc", "/vendor/etc/audio/sku_abc",
                                "/vendor/etc/audio/sku_abc", "/vendor/etc/audio", "/vendor/etc",
                                "/system/etc"))
                << vaAosp;
    }
}

TEST(ConfigurationPaths, OnlyTheFirstCharacterOfTheVariantSwitchCounts) {
    for (const char* vaAosp : {"1", "10", "1x"}) {
        EXPECT_EQ("/vendor/etc/audio/sku_abc_qssi", configurationPaths(false, "abc", vaAosp)[2])
                << vaAosp;
    }
}

// The process reads its properties once: this test sets all three before anything asks.
TEST(ConfigurationPaths, ProductIsReadOnceAndKept) {
    ASSERT_EQ(0, property_set("ro.qelto.audio.aidl_volume", "true"));
    ASSERT_EQ(0, property_set("ro.boot.product.vendor.sku", "kite"));
    ASSERT_EQ(0, property_set("ro.vendor.qti.va_aosp.support", "1"));
    const std::vector<std::string> first = android::audio_get_configuration_paths();
    EXPECT_EQ(configurationPaths(true, "kite", "1"), first);
    ASSERT_EQ(0, property_set("ro.boot.product.vendor.sku", "other"));
    EXPECT_EQ(first, android::audio_get_configuration_paths());
}

}  // namespace
