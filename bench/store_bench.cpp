// What the disk-backed storage library's listings cost, each beside a bare walk of the same folder.
// Prints a Markdown table.
//
//   store_bench [IMAGES [EVENTS]]    how many images are listed, 10000 unless given, and events

#include "platform/sts/sts_records.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <ftw.h>
#include <functional>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr int rounds = 5;

void require_ok(int status, const char* what) {
    if (status != STS_OK) {
        fprintf(stderr, "store_bench: %s: status %d\n", what, status);
        exit(EXIT_FAILURE);
    }
}

template <size_t size>
void set_field(char (&field)[size], const std::string& text) {
    snprintf(field, size, "%s", text.c_str());
}

double seconds_of(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Looks at every file below a directory and reads none.
void walk(const fs::path& below) {
    nftw(
        below.c_str(), [](const char*, const struct stat*, int, FTW*) { return 0; }, 16, FTW_PHYS);
}

/// A store of the program's own, with an LSU.
class filled_store {
  public:
    explicit filled_store(int images) {
        std::string pattern = (fs::temp_directory_path() / "store-bench-XXXXXX").string();
        root = mkdtemp(pattern.data());
        require_ok(stsm_init(12, "", &api), "stsm_init");
        const sts_session_def_v7_t quiet = {};
        require_ok(api->open_session(&quiet, &session), "open_session");
        require_ok(api->open_server(session, name().c_str(), nullptr, 0, &server), "open_server");
        fs::create_directory(root / "lsu");
        set("STS:SYNC_AT_CLOSE", 0);
        lsu.server = server;
        set_field(lsu.name, "lsu");
        for (int number = 0; number < images; ++number) {
            sts_image_def_s definition = {};
            set_field(definition.name, "image" + std::to_string(number));
            sts_next_image_s* image = nullptr;
            require_ok(api->create_image(&lsu, &definition, 0, &image), "create_image");
            require_ok(api->close_handle(image, STS_CLOSE_COMPLETE), "close");
        }
    }
    ~filled_store() {
        while (stsm_terminate() == STS_ERR_TERMINATE_IGNORED) {
        }
        fs::remove_all(root);
    }
    filled_store(const filled_store&) = delete;
    filled_store& operator=(const filled_store&) = delete;

    std::string name() const { return "disk:" + root.string(); }
    void set(const std::string& key, int value) const {
        const std::string row = "name=" + key + ",value=" + std::to_string(value) + ";";
        char error[256] = {};
        require_ok(api->set_server_config(server, row.c_str(), error, sizeof error), "set");
    }

    void list_images() const {
        sts_next_image_list_s* list = nullptr;
        require_ok(api->open_image_list(&lsu, 0, &list), "open_image_list");
        sts_image_entry_s entry = {};
        while (api->list_image(list, &entry) == STS_OK) {
        }
        require_ok(api->close_handle(list, 0), "close");
    }
    void read_properties() const {
        sts_lsu_info_s info = {};
        require_ok(api->get_lsu_prop_byname(&lsu, &info), "get_lsu_prop_byname");
    }
    /// Follows all events that are kept; how many there were.
    int list_events() const {
        sts_next_evchannel_s* channel = nullptr;
        sts_event_source_s all = {};
        require_ok(api->open_evchannel(session, 0, 0, &channel), "open_evchannel");
        require_ok(api->add_evsource(channel, 0, STS_EVENTS_KEPT, name().c_str(), &all, 0),
                   "add_evsource");
        int count = 0;
        sts_event_s event = {};
        while (api->get_event(channel, &event) == STS_OK) {
            ++count;
        }
        require_ok(api->close_handle(channel, 0), "close");
        return count;
    }
    void delete_every_second_event(int events) const {
        for (int number = 2; number <= events; number += 2) {
            sts_event_s event = {};
            event.number = static_cast<uint64_t>(number);
            require_ok(api->delete_event(server, &event), "delete_event");
        }
    }

    fs::path root;

  private:
    const sts_api_t* api = nullptr;
    sts_next_session_s* session = nullptr;
    sts_next_server_s* server = nullptr;
    sts_lsu_ref_s lsu = {};
};

/// Measures both in turns and prints what is the least of each, and their ratio.
void compare(const std::string& what, const std::function<void()>& ours, const std::string& beside,
             const std::function<void()>& yardstick) {
    std::vector<double> our_times;
    std::vector<double> their_times;
    for (int round = 0; round < rounds; ++round) {
        our_times.push_back(seconds_of(ours));
        their_times.push_back(seconds_of(yardstick));
    }
    const double our_best = *std::min_element(our_times.begin(), our_times.end());
    const double their_best = *std::min_element(their_times.begin(), their_times.end());
    printf("| %s | %.1f | %s | %.1f | %.2f |\n", what.c_str(), our_best * 1e3, beside.c_str(),
           their_best * 1e3, our_best / their_best);
}

int number_in(const char* text) {
    const int number = atoi(text);
    if (number < 1) {
        fprintf(stderr, "usage: store_bench [IMAGES [EVENTS]]\n");
        exit(2);
    }
    return number;
}

} // namespace

int main(int argc, char** argv) {
    const int images = argc > 1 ? number_in(argv[1]) : 10000;
    const int events = argc > 2 ? number_in(argv[2]) : 10000;
    printf("| Listing | ms | Beside | ms | Ratio |\n| --- | ---: | --- | ---: | ---: |\n");
    {
        const filled_store store(images);
        const fs::path folder = store.root / "lsu" / "images";
        const std::string count = std::to_string(images);
        compare(
            count + " images by a list", [&] { store.list_images(); }, "a walk of their folder",
            [&] { walk(folder); });
        compare(
            "the properties of their LSU", [&] { store.read_properties(); },
            "a walk of their folder", [&] { walk(folder); });
    }
    const filled_store whole(events);
    const filled_store half(events);
    half.delete_every_second_event(events);
    const std::string count = std::to_string(events);
    compare(
        count + " events of which every second was deleted", [&] { half.list_events(); },
        "all of as many", [&] { whole.list_events(); });
    return EXIT_SUCCESS;
}
