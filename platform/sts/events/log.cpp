// The events of a store: writing, counting, reading and removing them.

#include "platform/sts/events/log.h"

#include "platform/sts/caller/failure.h"
#include "platform/sts/store/settings.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>

namespace disk {

namespace {

constexpr const char* events_name = "events";
constexpr const char* sequence_name = "sequence";
constexpr uint64_t longest_number = 20;
constexpr uint64_t largest_number = std::numeric_limits<int64_t>::max(); // more is no count of ours
constexpr uint64_t longest_event = sizeof(sts_event_s) + sizeof(sts_event_payload_s);
constexpr uint32_t last_kind = STS_EVENT_LSU_LABELLED;

/// Wide enough that the order of the names is that of the numbers.
std::string file_name(uint64_t number) {
    char name[24];
    (void)snprintf(name, sizeof name, "%020" PRIu64, number);
    return name;
}

uint64_t number_in(const std::string& text) { return strtoull(text.c_str(), nullptr, 10); }

unique_fd find_events(const store& files) {
    const unique_fd control = find_control_directory(files);
    return control && is_directory(control.get(), events_name)
               ? open_directory(control.get(), events_name)
               : unique_fd();
}

/// The numbers of the events that are there, sorted.
std::vector<uint64_t> numbers_in(int events) {
    std::vector<uint64_t> numbers;
    for (const std::string& each : names_in(events)) {
        const uint64_t number = number_in(each);
        if (number <= largest_number && each == file_name(number)) {
            numbers.push_back(number);
        }
    }
    return numbers;
}

/// The number of the last event; where that was lost, of the last one that is there.
uint64_t last_in(int control) {
    const uint64_t last = number_in(read_file(control, sequence_name, longest_number).value_or(""));
    if (last != 0 && last <= largest_number) {
        return last;
    }
    if (!is_directory(control, events_name)) {
        return 0;
    }
    const std::vector<uint64_t> numbers = numbers_in(open_directory(control, events_name).get());
    return numbers.empty() ? 0 : numbers.back();
}

/// The number of the event to be written. Behind the last one there may be one that its writer
/// didn't live to count.
uint64_t next_number(int control, int events) {
    const uint64_t number = last_in(control) + 1;
    struct stat found = {};
    const bool is_taken =
        fstatat(events, file_name(number).c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0;
    return is_taken ? number + 1 : number;
}

std::string content_of(const happening& what, uint64_t number) {
    sts_event_s record = {};
    record.number = number;
    record.time = time(nullptr);
    record.kind = what.kind;
    record.payload_length = static_cast<uint32_t>(what.payload.size());
    fill(record.lsu, what.lsu);
    fill(record.image, what.image);
    return std::string(reinterpret_cast<const char*>(&record), sizeof record) + what.payload;
}

bool is_whole(const kept_event& event) {
    return event.record.kind <= last_kind && event.record.payload_length == event.payload.size() &&
           is_terminated(event.record.lsu) && is_terminated(event.record.image);
}

} // namespace

void record_event(const store& files, const happening& what) noexcept {
    (void)status_of([&] {
        const auto kept = static_cast<uint64_t>(read_settings(files).events_kept);
        if (kept == 0) {
            return;
        }
        const unique_fd control = make_control_directory(files);
        const directory_lock lock(control.get(), directory_lock::kind::exclusive, files.waiter);
        const unique_fd events = make_directory(control.get(), events_name);
        const uint64_t number = next_number(control.get(), events.get());
        place_file(control.get(), "event.new", events.get(), file_name(number),
                   content_of(what, number), durability::none);
        replace_file(control.get(), sequence_name, std::to_string(number), durability::none);
        // Usually one; one more where a number was passed over.
        for (uint64_t old = number > kept ? number - kept : 0; old > 0; --old) {
            if (unlinkat(events.get(), file_name(old).c_str(), 0) != 0) {
                break;
            }
        }
    });
}

void drop_surplus_events(const store& files) noexcept {
    (void)status_of([&] {
        const auto kept = static_cast<uint64_t>(read_settings(files).events_kept);
        const uint64_t last = last_event(files);
        const unique_fd events = find_events(files);
        if (!events || last <= kept) {
            return;
        }
        for (const uint64_t number : numbers_in(events.get())) {
            if (number <= last - kept) {
                (void)unlinkat(events.get(), file_name(number).c_str(), 0);
            }
        }
    });
}

uint64_t last_event(const store& files) {
    const unique_fd control = find_control_directory(files);
    return control ? last_in(control.get()) : 0;
}

std::vector<uint64_t> events_between(const store& files, uint64_t first, uint64_t last) {
    const unique_fd events = find_events(files);
    std::vector<uint64_t> numbers = events ? numbers_in(events.get()) : std::vector<uint64_t>();
    numbers.erase(std::upper_bound(numbers.begin(), numbers.end(), last), numbers.end());
    numbers.erase(numbers.begin(), std::upper_bound(numbers.begin(), numbers.end(), first));
    return numbers;
}

std::optional<kept_event> read_event(const store& files, uint64_t number) {
    const unique_fd events = find_events(files);
    if (!events) {
        return std::nullopt;
    }
    const std::optional<std::string> content =
        read_file(events.get(), file_name(number), longest_event);
    if (!content) {
        return std::nullopt;
    }
    kept_event event = {};
    if (content->size() < sizeof event.record) {
        fail_errno(EBADMSG);
    }
    memcpy(&event.record, content->data(), sizeof event.record);
    event.payload = content->substr(sizeof event.record);
    if (!is_whole(event)) {
        fail_errno(EBADMSG);
    }
    return event;
}

void remove_event(const store& files, uint64_t number) {
    const unique_fd events = find_events(files);
    if (!events) {
        fail_errno(ENOENT);
    }
    checked(unlinkat(events.get(), file_name(number).c_str(), 0));
}

} // namespace disk
