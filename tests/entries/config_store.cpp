#include "tests/entries/config_store.h"

#include <algorithm>

ConfigStore::ConfigStore() {
    buffer.fill('Z');
    next_layer().name(buffer.data(), "buffer");
}

std::string ConfigStore::own_text() {
    char text[STS_CONFIG_SIZE];
    char type[] = "cloud";
    char storage[] = "s3";
    read_config_file_to_buf(nullptr, text, type, storage);
    return text;
}

std::string ConfigStore::limit_in_file() const {
    const std::string file = conf_dir::read(files.plugin_file());
    const size_t at = file.find("THR:s3=");
    return at == std::string::npos ? "none" : file.substr(at + 7, file.find('\n', at) - at - 7);
}

std::string ConfigStore::text_setting(int limit) {
    return "name=THR:s3,description=x,type=int,value=" + std::to_string(limit) + ",fixed=n;";
}

lines ConfigStore::take_entry_story() {
    lines story = take_whole_story();
    story.erase(std::remove_if(story.begin(), story.end(),
                               [](const std::string& line) {
                                   return line[0] != '-' && line.find("[throttling_") != 2;
                               }),
                story.end());
    return story;
}

bool ConfigStore::holds(const std::array<char, 16384>& buffer, const std::string& text,
                        size_t zeros_to) {
    std::array<char, 16384> expected;
    expected.fill('Z');
    std::fill_n(expected.begin(), zeros_to, '\0');
    std::copy(text.begin(), text.end(), expected.begin());
    return buffer == expected;
}
