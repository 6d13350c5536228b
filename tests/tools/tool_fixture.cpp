#include "tests/tools/tool_fixture.h"

#include "tests/support/conf_dir.h"
#include "tests/support/host_session.h"
#include "tools/host/plugin_host.h"
#include "tools/host/records.h"

#include <cstdlib>
#include <regex>
#include <unistd.h>

namespace fs = std::filesystem;

ToolTest::ToolTest() : program(THROTTLECTL) {
    std::string name = (fs::temp_directory_path() / "throttlectl-XXXXXX").string();
    root = mkdtemp(name.data());
    fs::create_directory(path("conf"));
    write_settings("THR:SAMPLE_INTERVAL=0\n");
}

ToolTest::~ToolTest() {
    std::error_code ignored;
    for (const auto& entry : fs::recursive_directory_iterator(
             root, fs::directory_options::skip_permission_denied, ignored)) {
        if (entry.is_directory(ignored) && !entry.is_symlink(ignored)) {
            fs::permissions(entry, fs::perms::owner_all, fs::perm_options::add, ignored);
        }
    }
    fs::remove_all(root, ignored);
}

std::vector<std::string> ToolTest::command(const std::string& name,
                                           const std::vector<std::string>& arguments) const {
    std::vector<std::string> all = {program, "run", name};
    all.insert(all.end(), {"--conf-dir", path("conf"), "--server", server(), "--lsu", "daily"});
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
}

ended ToolTest::run(const std::string& name, const std::vector<std::string>& arguments) const {
    return run_process(command(name, arguments), how);
}

ended ToolTest::tool(const std::vector<std::string>& arguments) const {
    std::vector<std::string> all = {program};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return run_process(all, how);
}

ended ToolTest::on_server(const std::vector<std::string>& arguments) const {
    return on_server(server(), arguments);
}

ended ToolTest::on_server(const std::string& name,
                          const std::vector<std::string>& arguments) const {
    std::vector<std::string> all = arguments;
    all.insert(all.end(), {"--conf-dir", path("conf"), "--server", name});
    return tool(all);
}

void ToolTest::write_settings(const std::string& text) const {
    write_text(path("conf/libstspithrottling.conf"), text);
}

std::vector<std::string> ToolTest::images() const {
    const std::string out = run("list", {}).out;
    const std::regex line("(^|\n)([^ \n]+\\.[0-9]+of[0-9]+) ");
    std::vector<std::string> names;
    for (std::sregex_iterator each(out.begin(), out.end(), line), end; each != end; ++each) {
        names.push_back((*each)[2]);
    }
    return names;
}

void ToolTest::put_image(const std::string& image, const std::string& bytes) const {
    setenv("VL_CONF_DIR", path("conf").c_str(), 1);
    const plugin_host host(PLUGIN);
    host_server there(host, host_session(), server());
    host_image written = there.create_image("daily", image, "");
    uint64_t moved = 0;
    EXPECT_EQ(written.write(bytes.data(), bytes.size(), 0, moved), STS_OK);
    EXPECT_EQ(moved, bytes.size());
    written.close(STS_CLOSE_COMPLETE);
    there.close();
}

std::string ToolTest::get_image(const std::string& image) const {
    setenv("VL_CONF_DIR", path("conf").c_str(), 1);
    const plugin_host host(PLUGIN);
    host_server there(host, host_session(), server());
    std::string bytes(there.image_info("daily", image).size, '\0');
    host_image read = there.open_image("daily", image);
    uint64_t moved = 0;
    EXPECT_EQ(read.read(bytes.data(), bytes.size(), 0, moved), STS_OK);
    EXPECT_EQ(moved, bytes.size());
    read.close(STS_CLOSE_COMPLETE);
    there.close();
    return bytes;
}

void ToolTest::fill_store() const {
    setenv("VL_CONF_DIR", path("conf").c_str(), 1);
    const plugin_host host(PLUGIN);
    host_server there(host, host_session(), server());
    EXPECT_EQ(host.create_lsu(there.handle(), lsu_definition("daily", "tape3")), STS_OK);
    EXPECT_EQ(host.create_lsu(there.handle(), lsu_definition("weekly", "")), STS_OK);
    const std::string meta = "catalogue";
    uint64_t moved = 0;
    host_image first = there.create_image("daily", "a", "full");
    EXPECT_EQ(first.write("hello there", 11, 0, moved), STS_OK);
    EXPECT_EQ(there.entries().write_image_meta(first.handle(), forwarded(meta.data()), meta.size(),
                                               0, forwarded(&moved), 0),
              STS_OK);
    first.close(STS_CLOSE_COMPLETE);
    host_image second = there.create_image("daily", "b", "");
    EXPECT_EQ(second.write("12345", 5, 0, moved), STS_OK);
    second.close(STS_CLOSE_COMPLETE);
    there.close();
}

void ToolTest::install_for_everybody() {
    fs::permissions(root, fs::perms::all);
    fs::create_directories(path("installed/bin"));
    fs::create_directories(path("installed/lib"));
    fs::copy(program, path("installed/bin/throttlectl"));
    for (const char* library : {PLUGIN, STORAGE_LIBRARY, COMMON_LIBRARY, ORB_LIBRARY}) {
        fs::copy(library, path("installed/lib"));
    }
    give_away("conf");
    give_away("conf/libstspithrottling.conf");
    if (fs::exists(path("store"))) {
        give_away("store");
        for (const auto& each : fs::recursive_directory_iterator(path("store"))) {
            give_away(each.path().string());
        }
    }
    program = path("installed/bin/throttlectl");
    how.unprivileged = true;
}

void ToolTest::give_away(const std::string& name) const {
    if (geteuid() == 0) {
        EXPECT_EQ(chown(path(name).c_str(), unprivileged_user, unprivileged_user), 0);
    }
}

void write_text(const std::string& path, const std::string& text) { conf_dir::write(path, text); }

std::string without_warnings(const std::string& err) {
    return std::regex_replace(err, std::regex("[^\n]*: warning: [^\n]*\n"), "");
}
