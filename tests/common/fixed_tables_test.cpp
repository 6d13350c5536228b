// The catalogue of cloud errors and the names of the connection hints, as each unit has them.

#include "tests/common/fixed_tables_unit.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <map>
#include <set>

namespace {

TEST(Catalogue, Has85RowsWhoseNumberIsTheirPositionAndTheirId) {
    const auto rows = tables_1().rows;
    ASSERT_EQ(rows.size(), 85U);
    for (size_t i = 0; i < rows.size(); ++i) {
        char id[16];
        snprintf(id, sizeof id, "CldStg%04zuN", i);
        EXPECT_EQ(std::get<0>(rows[i]), static_cast<int>(i));
        EXPECT_EQ(std::get<1>(rows[i]), id);
        EXPECT_NE(std::get<2>(rows[i]), "");
    }
    EXPECT_EQ(std::get<1>(rows.back()), "CldStg0084N");
}

TEST(Catalogue, KeepsItsTextsAsTheyAre) {
    const std::map<size_t, std::string> texts = {
        {0, "Internal error - Cloud"},
        {4, "Error while uploading data to Rackspace"},
        {12, "File system not mounted or its not a oxfs type"},
        {16, "Internal unused error"},
        {19, "Failed to write data to AT&T"},
        {31, "Retrieval of image fragment in progress. Retrieval will take time as per the cloud "
             "provider specifications"},
        {33, "Error occurred while creating %s lifecycle policy that Vaultaro uses to back up data "
             "to %s. Check the logs for more details."},
        {39, "Item does not found in ssl_ctx list, returning"},
        {40, "Complete parcel is null , returning"},
        {58, "ssl_ctx map does not have items , returning"},
        {59, "Buffer is null , returning"},
        {60, "Could not find /CN , returning"},
        {61, "Could not find https:// , returning"},
        {63, "Error: Failed reading the Registry with configuration details: %s for reading PORT. "
             "Using default port: %d"},
        {69, "Error: Failed in VL_curl_easy_perform. Retrying Error= %d %s"},
        {77, "Failed in RegQueryValueEx CSSC_REG_LOG_LEVEL."},
        {81, "Failed to clean up archives. Manual cleanup suggested. See Vaultaro Cloud "
             "Administrator's guide."},
        {84, "Error occurred while retrieving IAM role credentials from the AWS STS service for "
             "cloud storage."},
    };
    const auto rows = tables_1().rows;
    for (const auto& [number, text] : texts) {
        EXPECT_EQ(std::get<2>(rows.at(number)), text);
    }
}

TEST(Catalogue, KeepsEachCharacterOfAllItsTexts) {
    uint64_t hash = 0xcbf29ce484222325; // FNV-1a, of a line for each text
    for (const auto& row : tables_1().rows) {
        for (const char each : std::get<2>(row) + '\n') {
            hash = (hash ^ static_cast<unsigned char>(each)) * 0x100000001b3;
        }
    }
    EXPECT_EQ(hash, 0xd93c1055404f86ffU);
}

TEST(Catalogue, HasAnEqualCopyOfItsOwnInEachUnit) {
    std::set<const void*> places;
    for (const unit_tables& unit : all_units()) {
        EXPECT_EQ(unit.rows, tables_1().rows);
        places.insert(unit.catalogue);
    }
    EXPECT_EQ(places.size(), 5U);
}

TEST(Hints, AreFiveNamesAndANullInEachUnit) {
    const char* const names[] = {
        "ONET_PROXY_HINT_UNKNOWN", "ONET_PROXY_HINT_USE_PROXY", "ONET_PROXY_HINT_USE_WHITELIST",
        "ONET_PROXY_HINT_LOCALHOST_USER_VALIDATION", "ONET_PROXY_HINT_DTE_CAPABLE"};
    std::set<const void*> places;
    for (const unit_tables& unit : all_units()) {
        ASSERT_EQ(unit.hint_count, 6U);
        for (size_t i = 0; i < 5; ++i) {
            EXPECT_STREQ(unit.hints[i], names[i]);
        }
        EXPECT_EQ(unit.hints[5], nullptr);
        places.insert(unit.hints);
    }
    EXPECT_EQ(places.size(), 5U);
}

} // namespace
