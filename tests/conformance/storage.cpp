#include "tests/conformance/storage.h"

#include <filesystem>

namespace fs = std::filesystem;

void Storage::SetUp() {
    std::string pattern = (fs::temp_directory_path() / "conformance-XXXXXX").string();
    directory = mkdtemp(pattern.data());
    ASSERT_NO_FATAL_FAILURE(stack::current().start());
    server = open_server();
    ASSERT_EQ(create_lsu("lsu"), STS_OK);
}

void Storage::TearDown() {
    if (server.value != nullptr) {
        EXPECT_EQ(call::close_server(server), status_of_closing);
    }
    EXPECT_EQ(stack::current().stop(), STS_OK);
    std::error_code ignored;
    fs::remove_all(directory, ignored);
}

handle Storage::open_server(const std::string& root) {
    handle opened;
    EXPECT_EQ(call::open_server(&session, server_name(root).c_str(), out(opened)), STS_OK);
    return opened;
}

int Storage::create_lsu_on(handle where, const std::string& name, const std::string& label) {
    const sts_lsu_def_s definition = lsu_def(name, label);
    handle made;
    const int status = call::create_lsu(where, &definition, out(made));
    EXPECT_EQ(call::is_empty(made), status != STS_OK) << name;
    call::release_lsu(made);
    return status;
}

sts_lsu_ref_s Storage::ref_on(handle where, const std::string& lsu) {
    sts_lsu_ref_s reference = {};
    reference.server = where;
    set_field(reference.name, lsu);
    return reference;
}

handle Storage::create(const std::string& name, const std::string& group, const std::string& lsu) {
    const sts_lsu_ref_s reference = ref(lsu);
    const sts_image_def_s definition = image_def(name, group);
    handle image;
    EXPECT_EQ(call::create_image(&reference, &definition, STS_IMAGE_WRITE, out(image)), STS_OK)
        << name;
    return image;
}

handle Storage::open(const std::string& name, uint32_t flags, const std::string& lsu) {
    const sts_lsu_ref_s reference = ref(lsu);
    const sts_image_def_s definition = image_def(name);
    handle image;
    EXPECT_EQ(call::open_image(&reference, &definition, flags, out(image)), STS_OK) << name;
    return image;
}

int Storage::open_status(const std::string& name, const std::string& lsu) {
    const sts_lsu_ref_s reference = ref(lsu);
    const sts_image_def_s definition = image_def(name);
    handle image;
    const int status = call::open_image(&reference, &definition, STS_IMAGE_READ, out(image));
    EXPECT_EQ(image.value, nullptr) << name;
    return status;
}

void Storage::write(handle image, const std::string& content, uint64_t position) {
    uint64_t written = 0;
    EXPECT_EQ(call::write_image(image, 0, content.data(), content.size(), position, &written),
              STS_OK);
    EXPECT_EQ(written, content.size());
}

std::string Storage::read(handle image, uint64_t length, uint64_t position) {
    std::string content(length, '?');
    uint64_t count = 0;
    EXPECT_EQ(call::read_image(image, content.data(), length, position, &count), STS_OK);
    content.resize(count);
    return content;
}

int Storage::delete_image(const std::string& name, const std::string& lsu) {
    const sts_lsu_ref_s reference = ref(lsu);
    const sts_image_def_s definition = image_def(name);
    return call::delete_image(&reference, &definition, 0);
}

void Storage::store(const std::string& name, const std::string& content, const std::string& group,
                    const std::string& lsu) {
    const handle image = create(name, group, lsu);
    write(image, content);
    EXPECT_EQ(close(image), STS_OK);
}

std::string Storage::content_of(const std::string& name, const std::string& lsu) {
    const handle image = open(name, STS_IMAGE_READ, lsu);
    const std::string content = read(image);
    EXPECT_EQ(close(image), STS_OK);
    return content;
}

std::vector<std::string> Storage::image_names(const std::string& lsu) {
    const sts_lsu_ref_s reference = ref(lsu);
    handle list;
    EXPECT_EQ(call::open_image_list(&reference, 0, out(list)), STS_OK);
    std::vector<std::string> names;
    sts_image_entry_s entry = {};
    while (call::list_image(list, &entry) == STS_OK) {
        names.emplace_back(entry.name);
    }
    EXPECT_EQ(call::close_image_list(list), STS_OK);
    return names;
}

std::vector<std::string> Storage::lsu_names() {
    handle list;
    EXPECT_EQ(call::open_lsu_list(server, 0, out(list)), STS_OK);
    std::vector<std::string> names;
    sts_lsu_entry_s entry = {};
    while (call::list_lsu(list, &entry) == STS_OK) {
        names.emplace_back(entry.name);
    }
    EXPECT_EQ(call::close_lsu_list(list), STS_OK);
    return names;
}
