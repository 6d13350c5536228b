#include "tests/platform/sts/disk_store.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

sts_image_def_s image_def(const std::string& name, const std::string& group) {
    sts_image_def_s definition = {};
    set_field(definition.name, name);
    set_field(definition.group, group);
    return definition;
}

sts_lsu_def_s lsu_def(const std::string& name, const std::string& label) {
    sts_lsu_def_s definition = {};
    set_field(definition.name, name);
    set_field(definition.label, label);
    return definition;
}

DiskStore::DiskStore() {
    std::string pattern = (fs::temp_directory_path() / "sts-test-XXXXXX").string();
    directory = mkdtemp(pattern.data());
    EXPECT_EQ(stsm_init(12, "", &api), STS_OK);
    EXPECT_EQ(api->open_session(&session_def, &session), STS_OK);
    server = open_server();
    create_lsu("lsu");
}

DiskStore::~DiskStore() {
    close_library();
    std::error_code ignored;
    fs::remove_all(directory, ignored);
}

std::string DiskStore::server_name(const std::string& root) const {
    return "disk:" + directory + "/" + root;
}

sts_next_server_s* DiskStore::open_server(const std::string& root) {
    sts_next_server_s* opened = nullptr;
    EXPECT_EQ(api->open_server(session, server_name(root).c_str(), nullptr, 0, &opened), STS_OK);
    return opened;
}

void DiskStore::create_lsu(const std::string& name, const std::string& label) {
    const sts_lsu_def_s definition = lsu_def(name, label);
    void* lsu = nullptr;
    EXPECT_EQ(api->create_lsu(server, &definition, &lsu), STS_OK);
    EXPECT_EQ(close(lsu), STS_OK);
}

sts_lsu_ref_s DiskStore::ref(const std::string& lsu) const {
    sts_lsu_ref_s reference = {};
    reference.server = server;
    set_field(reference.name, lsu);
    return reference;
}

sts_next_image_s* DiskStore::create(const std::string& name, const std::string& group,
                                    const std::string& lsu) {
    const sts_lsu_ref_s reference = ref(lsu);
    const sts_image_def_s definition = image_def(name, group);
    sts_next_image_s* image = nullptr;
    EXPECT_EQ(api->create_image(&reference, &definition, STS_IMAGE_WRITE, &image), STS_OK) << name;
    return image;
}

sts_next_image_s* DiskStore::open(const std::string& name, uint32_t flags, const std::string& lsu) {
    const sts_lsu_ref_s reference = ref(lsu);
    const sts_image_def_s definition = image_def(name);
    sts_next_image_s* image = nullptr;
    EXPECT_EQ(api->open_image(&reference, &definition, flags, &image), STS_OK) << name;
    return image;
}

int DiskStore::open_status(const std::string& name, uint32_t flags, const std::string& lsu) {
    const sts_lsu_ref_s reference = ref(lsu);
    const sts_image_def_s definition = image_def(name);
    sts_next_image_s* image = nullptr;
    const int status = api->open_image(&reference, &definition, flags, &image);
    if (status == STS_OK) {
        EXPECT_EQ(close(image, STS_CLOSE_ABANDON), STS_OK);
    }
    return status;
}

void DiskStore::write(sts_next_image_s* image, const std::string& content, uint64_t position) {
    uint64_t written = 0;
    EXPECT_EQ(api->write_image(image, 0, content.data(), content.size(), position, &written),
              STS_OK);
    EXPECT_EQ(written, content.size());
}

std::string DiskStore::read(sts_next_image_s* image, uint64_t length, uint64_t position) {
    std::string content(length, '?');
    uint64_t count = 0;
    EXPECT_EQ(api->read_image(image, content.data(), length, position, &count), STS_OK);
    content.resize(count);
    return content;
}

int DiskStore::delete_image(const std::string& name, const std::string& lsu) {
    const sts_lsu_ref_s reference = ref(lsu);
    const sts_image_def_s definition = image_def(name);
    return api->delete_image(&reference, &definition, 0);
}

void DiskStore::store(const std::string& name, const std::string& content, const std::string& group,
                      const std::string& lsu) {
    sts_next_image_s* const image = create(name, group, lsu);
    write(image, content);
    EXPECT_EQ(close(image), STS_OK);
}

std::string DiskStore::content_of(const std::string& name, const std::string& lsu) {
    sts_next_image_s* const image = open(name, STS_IMAGE_READ, lsu);
    const std::string content = read(image);
    EXPECT_EQ(close(image), STS_OK);
    return content;
}

std::vector<std::string> DiskStore::image_names(const std::string& lsu) {
    const sts_lsu_ref_s reference = ref(lsu);
    sts_next_image_list_s* list = nullptr;
    EXPECT_EQ(api->open_image_list(&reference, 0, &list), STS_OK);
    std::vector<std::string> names;
    sts_image_entry_s entry = {};
    while (api->list_image(list, &entry) == STS_OK) {
        names.emplace_back(entry.name);
    }
    EXPECT_EQ(close(list), STS_OK);
    return names;
}

std::vector<std::string> DiskStore::lsu_names() {
    sts_next_lsu_list_s* list = nullptr;
    EXPECT_EQ(api->open_lsu_list(server, 0, &list), STS_OK);
    std::vector<std::string> names;
    sts_lsu_entry_s entry = {};
    while (api->list_lsu(list, &entry) == STS_OK) {
        names.emplace_back(entry.name);
    }
    EXPECT_EQ(close(list), STS_OK);
    return names;
}

void DiskStore::set(const std::string& key, int value) {
    const std::string row = "name=" + key + ",value=" + std::to_string(value) + ",fixed=n;";
    char error[256] = {};
    EXPECT_EQ(api->set_server_config(server, row.c_str(), error, sizeof error), STS_OK) << error;
}

std::vector<std::string> tree_below(const std::string& directory) {
    std::vector<std::string> all;
    for (const auto& each : std::filesystem::recursive_directory_iterator(directory)) {
        all.push_back(each.path().string());
    }
    return all;
}

void close_library() {
    while (stsm_terminate() == STS_ERR_TERMINATE_IGNORED) {
    }
}

environment::environment(const char* name, const char* value) : name_(name) {
    if (value != nullptr) {
        setenv(name, value, 1);
    } else {
        unsetenv(name);
    }
}

environment::~environment() { unsetenv(name_.c_str()); }
