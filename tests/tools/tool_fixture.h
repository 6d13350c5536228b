// A directory of the test's own with settings, a store and trees, and the tool that works on them.
#pragma once

#include "tests/tools/tool_process.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

class ToolTest : public testing::Test {
  protected:
    ToolTest();
    ~ToolTest() override;

    /// The command "throttlectl run COMMAND ..." on our server and the LSU "daily".
    std::vector<std::string> command(const std::string& name,
                                     const std::vector<std::string>& arguments) const;
    /// Runs it to its end.
    ended run(const std::string& name, const std::vector<std::string>& arguments) const;
    /// Runs "throttlectl ARGUMENTS" just so.
    ended tool(const std::vector<std::string>& arguments) const;

    /// Runs "throttlectl ARGUMENTS" on our server, or on another.
    ended on_server(const std::vector<std::string>& arguments) const;
    ended on_server(const std::string& name, const std::vector<std::string>& arguments) const;

    /// Settings that throttle nothing, unless a test writes others.
    void write_settings(const std::string& text) const;

    std::string server() const { return "CS_throttle:t1:disk:" + path("store"); }
    std::string path(const std::string& name) const { return (root / name).string(); }
    /// The images that the LSU has, by name.
    std::vector<std::string> images() const;

    /// Writes an image as some other host may have, and reads one, through the plugin. The LSU is
    /// there.
    void put_image(const std::string& image, const std::string& bytes) const;
    std::string get_image(const std::string& image) const;
    /// Makes the LSUs "daily", labelled "tape3", and "weekly"; in "daily" the images "a", of the
    /// group "full", with metadata, and "b".
    void fill_store() const;

    /// From now on the tool is run by somebody who may not read everything, where we are root: a
    /// copy that anybody may run, on settings of theirs.
    void install_for_everybody();
    void give_away(const std::string& name) const;

    std::filesystem::path root;
    process_options how; ///< to run the tool
    std::string program;
};

void write_text(const std::string& path, const std::string& text);
/// What is said besides the warnings about the settings.
std::string without_warnings(const std::string& err);
