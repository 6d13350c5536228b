// What people read of what the service says.

#include "tools/service/status_text.h"
#include "tools/terminal/failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;

namespace {

ordered_json status_of(const ordered_json& storages) {
    return {{"uptime", 7500},
            {"sessions", 2},
            {"reports", 12},
            {"malformed", 1},
            {"storages", storages}};
}

ordered_json flows(int number, double measured) {
    return {{"flows", number}, {"allowed", 10485760}, {"measured", measured}};
}

TEST(ServiceStatus, IsALineAndATable) {
    EXPECT_EQ(status_text(status_of({{{"name", "s3"},
                                      {"limit", 4},
                                      {"connections", 3},
                                      {"refused", 9},
                                      {"read", flows(0, 0)},
                                      {"write", flows(2, 5242880)}}})),
              "Up for 2 h 5 min: 2 sessions, 12 reports since the start; 1 question refused as "
              "malformed\n"
              "storage  connections  refused  reading  writing\n"
              "s3       3 of 4       9        -        2 at 5.0 MiB/s of 10.0 MiB/s\n");
    EXPECT_THAT(status_text(status_of(ordered_json::array())),
                HasSubstr("No storage is known yet.\n"));
}

TEST(ServiceStatus, ANameMovesNoCursor) {
    EXPECT_THAT(status_text(status_of({{{"name", "a\x1b[2J"},
                                        {"limit", 4},
                                        {"connections", 3},
                                        {"refused", 9},
                                        {"read", flows(0, 0)},
                                        {"write", flows(0, 0)}}})),
                HasSubstr("a\\x1b[2J  3 of 4"));
}

TEST(ServiceStatus, WhatNoServiceSaysIsRefused) {
    for (const char* text :
         {"{}", R"({"uptime": "x"})",
          R"({"uptime":1e99,"sessions":1,"reports":1,"malformed":1,"storages":[]})",
          R"({"uptime":1,"sessions":99999999999999999999,"reports":1,"malformed":1,"storages":[]})",
          R"({"uptime":1,"sessions":1.5,"reports":1,"malformed":1,"storages":[]})",
          R"({"uptime":1,"sessions":1,"reports":1,"malformed":1,"storages":[{"name":7}]})"}) {
        EXPECT_THROW(status_text(ordered_json::parse(text)), failure) << text;
    }
}

} // namespace
